#include "gvx_common/alarm/gvx_error_mgr.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "support/caught_frames.h"
#include "support/run_threads.h"
#include "support/temp_folder.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

class ErrorReports : public testing::Test {
protected:
    void SetUp() override { GvxConnectionMgr()->SetGvxService(TestService()); }
    // What goes out while the manager makes that many passes.
    std::vector<CaughtFrame> SentIn(int passes) {
        for (int i = 0; i < passes; ++i) {
            m_reports.reportPass();
        }
        return m_sent.Take();
    }
    void Host(const char* device, int code) {
        m_reports.reportHstError("SCU#1", "func", device, "0", code, "login", "reason %d", code);
    }
    void Keep(const char* device, int code = 5, const char* text = "it is off") {
        m_reports.reportError("func", device, "0", code, "login", "%s", text);
    }
    std::string Taken(int code) {
        CBB::CXml xml;
        return m_reports.getXmlInfoByTidWithDestory(xml, code) == 0 ? xml.ToString() : std::string();
    }

    const ScopedEnvironment m_zone{"TZ", "IST-5:30"};
    ScopedTestClock m_clock;
    GVXErrorMgr m_reports;
    std::atomic<bool> m_noMemory{false};  // for the next frame
    CaughtFrames m_sent{[this](const CaughtFrame&) {
        if (m_noMemory.exchange(false)) {
            throw std::bad_alloc();
        }
    }};
};

TEST_F(ErrorReports, OneThreadsReportsBecomeOneAnswerWithEveryDevice) {
    tzset();
    Keep("CAM1", 5, "it\x01 is off.");
    Keep("CAM2", 6);
    EXPECT_EQ(m_reports.countErrRsp(), 1u);
    std::thread([this] { EXPECT_EQ(Taken(-1), "") << "another thread's report"; }).join();
    const std::string address = CGvxConfigMgr::Instance()->GetLocalIP();
    EXPECT_EQ(Taken(77).substr(38),
              "<Content><InfoType>0</InfoType><DevErrorInfo><DevList>"
              "<DevInfo><DevCode>CAM1</DevCode><ChannelCode>0</ChannelCode></DevInfo>"
              "<DevInfo><DevCode>CAM2</DevCode><ChannelCode>0</ChannelCode></DevInfo></DevList>"
              "<ErrorOccurTime>2026-01-02 08:34:05+05:30</ErrorOccurTime><ErrorCode>77</ErrorCode>" +
                  (address.empty() ? "<FaultSourceIP/>" : "<FaultSourceIP>" + address + "</FaultSourceIP>") +
                  "<FaultSourceModule>GVX</FaultSourceModule>"
                  "<ErrorDetail>login failed because it  is off.</ErrorDetail></DevErrorInfo></Content>");
    EXPECT_EQ(Taken(77), "") << "it was moved out";
    Keep("CAM3", 9);
    EXPECT_NE(Taken(-1).find("<ErrorCode>9</ErrorCode>"), std::string::npos);
    Keep("CAM\xE9", 9, "\xC3\xA9 \xF0\x9F\x98\x80|\xC0\x80|\xED\xA0\x80|\xF4\x90\x80\x80|\xEF\xBF\xBE|\xE2\x82");
    const std::string bad = "\xEF\xBF\xBD";
    const std::string strict = Taken(-1);
    EXPECT_NE(strict.find("<DevCode>CAM" + bad + "</DevCode>"), std::string::npos);
    EXPECT_NE(strict.find("\xC3\xA9 \xF0\x9F\x98\x80|" + bad + bad + "|" + bad + bad + bad + "|" + bad + bad + bad +
                          bad + "|" + bad + bad + bad + "|" + bad + bad + "."),
              std::string::npos);
    Keep("CAM3", 9);
    m_reports.forgetErrRsp();  // another request begins
    EXPECT_EQ(Taken(-1), "");
}

TEST_F(ErrorReports, ADevicesSameErrorIsSentOnceInThirtySeconds) {
    Host("CAM1", 5);
    Host("CAM1", 5);
    Host("CAM1", 6);
    const std::vector<CaughtFrame> sent = SentIn(3);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_NE(sent[0].bytes.find("<DevCode>CAM1</DevCode>"), std::string::npos);
    EXPECT_EQ(sent[0].Type(), 0x01B1u);
    m_clock->StepWall(std::chrono::hours(-1));
    m_clock->AdvanceSeconds(30);
    Host("CAM1", 5);
    EXPECT_EQ(SentIn(1).size(), 0u);
    m_clock->AdvanceSeconds(1);
    EXPECT_EQ(SentIn(1).size(), 0u);
    Host("CAM1", 5);
    EXPECT_EQ(SentIn(1).size(), 1u);
    // Two devices and codes that would be one text.
    Host("X1", 23);
    Host("X12", 3);
    EXPECT_EQ(SentIn(2).size(), 2u);
}

TEST_F(ErrorReports, TheListTakesFortyOneReportsAndDropsTheRest) {
    for (int i = 0; i < 50; ++i) {
        Host("CAM1", i);
        EXPECT_EQ(m_reports.countErrRpt(), static_cast<std::size_t>(std::min(i + 1, 41)));
    }
    EXPECT_EQ(SentIn(60).size(), 41u) << "one for each pass";
}

TEST_F(ErrorReports, AReportIsDroppedForWhatIsMissingAndAfterAMinuteWithoutAnAnswer) {
    m_reports.reportError("func", nullptr, "0", 1, "login", "x");
    m_reports.reportError("func", "CAM1", "0", 1, nullptr, "x");
    EXPECT_EQ(m_reports.countErrRsp(), 0u);
    Keep("CAM1", 1, std::string(4097, 'x').c_str());
    EXPECT_NE(Taken(-1).find("<ErrorDetail>login failed because .</ErrorDetail>"), std::string::npos);
    Keep("CAM1");
    m_clock->AdvanceSeconds(60);
    m_reports.reportPass();
    EXPECT_EQ(m_reports.countErrRsp(), 1u);
    m_clock->AdvanceSeconds(1);
    m_reports.reportPass();
    EXPECT_EQ(Taken(-1), "");
}

// The one object with its own thread: reported from many sides, stopped and set to work again.
TEST_F(ErrorReports, ManyThreadsReportWhileTheThreadSends) {
    const long before = g_bp_memstat;
    m_noMemory = true;
    GVXErrorMgr& shared = *GVXErrorMgr::getInstance();
    RunThreads(50, [&shared](int i) {
        const std::string device = "CAM" + std::to_string(i);
        for (int code = 0; code < 20; ++code) {
            shared.reportError("func", device.c_str(), "0", code, "login", "%d", code);
            shared.reportHstError("SCU#1", "func", device.c_str(), "0", code, "login", "%d", code);
            CBB::CXml xml;
            EXPECT_EQ(shared.getXmlInfoByTidWithDestory(xml, -1), 0);
            EXPECT_NE(xml.ToString().find("<DevCode>" + device + "</DevCode>"), std::string::npos);
        }
    });
    EXPECT_TRUE(WaitUntil([this] { return m_sent.Count() > 1; })) << "a pass without memory ends no other";
    shared.reportError("func", "CAM1", "0", 1, "login", "x");
    shared.stopWork();
    CBB::CXml xml;
    EXPECT_NE(shared.getXmlInfoByTidWithDestory(xml, -1), 0);
    const std::size_t stoppedAt = m_sent.Count();
    shared.reWork();
    EXPECT_EQ(shared.getXmlInfoByTidWithDestory(xml, -1), 0);
    EXPECT_TRUE(WaitUntil([&] { return m_sent.Count() > stoppedAt; }));
    GVXErrorMgr::release();
    EXPECT_EQ(g_bp_memstat, before);
}

}  // namespace
