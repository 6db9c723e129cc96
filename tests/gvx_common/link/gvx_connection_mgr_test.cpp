#include "gvx_common/link/gvx_connection_mgr.h"

#include "base/cbb_xml.h"
#include "base/zvs_error.h"
#include "bp/frame_reader.h"
#include "bp/net_factory.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "support/caught_frames.h"
#include "support/failing_allocator.h"
#include "support/fake_peer.h"
#include "support/recording_logger.h"
#include "support/settings_folder.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <memory>
#include <new>
#include <stdexcept>

namespace {

struct TestRegistry : BP::IPluginRegistry {
    int RegisterPlugin() override {
        ++registrations;
        return 0;
    }
    bool FindPlugin(const std::string&, BP::CPluginInfo&) override { return false; }
    int registrations = 0;
};

std::vector<ADAPTER_COMMON_MESSAGE> g_events;

// The record is packed, so a member is read by value: an assertion would bind a reference to it.
LINKCLOSE_NET_ELE_E LastEvent() {
    return g_events.back().eLinkCloseNetEle;
}

// The opening of the main-service link waits for this answer.
void AnswerPortReport(const CaughtFrame& frame) {
    if (frame.Type() == NSS_PLUGIN_SEND_PORTLIST_DATA_REQ) {
        BP::CDispatcher::FrameArrived(
            kElementGVX, frame.linkID,
            BlockOf(FakePeer::MakeFrame(NSS_PLUGIN_SEND_PORTLIST_DATA_RSP, 1, frame.Transaction())));
    }
}

// Everything above the links is the real thing. tests/golden holds the bytes of every form of request and response.
class ConnectionMgrTest : public testing::Test {
protected:
    void SetUp() override {
        Mgr().SetGvxService(TestService());
        Mgr().SetException([](ADAPTER_COMMON_MESSAGE& message) { g_events.push_back(message); });
        BP::CPluginMgr::SetImplementation(&m_registry);
        BP::CDispatcher::SetSink([this](std::unique_ptr<BP::CCmd> cmd) {
            m_fedIn.push_back(std::move(cmd));
            return 0;
        });
        Mgr().OnLinkOpened("", 0, "GVX#000", "127.0.0.1", 9000);
        g_events.clear();
        m_frames.Take();
    }
    void TearDown() override {
        for (const char* link : {"SCU#7", "SCU#001", "GVX#000"}) {
            Mgr().OnLinkClosed("", 0, link, "127.0.0.1", 1);
        }
        BP::CDispatcher::SetSink({});
        BP::CPluginMgr::SetImplementation(nullptr);
    }
    static CGvxConnectionMgr& Mgr() { return *GvxConnectionMgr(); }
    static unsigned int RequestXml(enNssMsgType type, const char* trans) {
        CBB::CXml xml;
        xml.AddElem("Content", "x");
        return Mgr().SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, type, xml, "SCU#7", trans);
    }

    ScopedRecordingLogger m_log;
    TestRegistry m_registry;
    CaughtFrames m_frames{&AnswerPortReport};
    std::vector<std::unique_ptr<BP::CCmd>> m_fedIn;
};

TEST_F(ConnectionMgrTest, MainServiceLinkRegistersPluginsAndFeedsAlarmControlIn) {
    EXPECT_EQ(1, m_registry.registrations);
    ASSERT_EQ(2u, m_fedIn.size());
    EXPECT_EQ(0xDC11u, m_fedIn[0]->GetReqID());
    EXPECT_EQ(0x0DA9u, m_fedIn[1]->GetReqID());
    unsigned type = 0;
    std::string link;
    ASSERT_TRUE(Mgr().GetLinkInfoByType(BP::SUBSYS_SCU, type, link));
    EXPECT_EQ("GVX#000", link);
    EXPECT_EQ(60105u, type);
    Mgr().OnLinkClosed("", 0, "GVX#000", "127.0.0.1", 9000);
    EXPECT_FALSE(Mgr().GetLinkInfoByType(BP::SUBSYS_SCU, type, link));
}

TEST_F(ConnectionMgrTest, EveryScuOpenAsksForThePortAndReportsEvenWhenTheLinkIsKnown) {
    for (int i = 0; i < 2; ++i) {
        Mgr().OnLinkOpened("", 0, "SCU#7", "127.0.0.1", 5000);
    }
    const auto frames = m_frames.All();
    ASSERT_EQ(2u, frames.size());
    EXPECT_EQ("GVX#000", frames[0].linkID) << "every frame leaves by the main-service link";
    EXPECT_EQ(0x02D4u, frames[0].Type());
    EXPECT_NE(std::string::npos, frames[0].Value(NSS_TAG_XML_CONTENT).find("<Content>query</Content>"));
    ASSERT_EQ(2u, g_events.size());
    EXPECT_EQ(NET_ELE_SCU_OPEN, LastEvent());
    EXPECT_STREQ("SCU#7", g_events[0].chNetEleLinkId);
    EXPECT_EQ("SCU#7", Mgr().GetScuLinkId());
    // An identifier that is too long for the record is not reported.
    Mgr().OnLinkOpened("", 0, "SCU#" + std::string(37, 'x'), "127.0.0.1", 1);
    Mgr().OnLinkClosed("", 0, "SCU#" + std::string(37, 'x'), "127.0.0.1", 1);
    EXPECT_EQ(2u, g_events.size());
}

TEST_F(ConnectionMgrTest, MediaLinkIsForgottenOnlyWhenAForeignScuCloses) {
    const std::string opened = "The link ID[MU#7] is already exsit.";
    Mgr().OnLinkOpened("", 0, "SCU#7", "127.0.0.1", 5000);
    Mgr().OnLinkOpened("", 0, "MU#7", "127.0.0.1", 6000);
    Mgr().OnLinkClosed("", 0, "MU#7", "127.0.0.1", 6000);
    EXPECT_EQ(NET_ELE_MU, LastEvent());
    // The SCU of this node's own name keeps its media link.
    const std::string own = GvxConfigMgr()->GetGvxNetElementID();
    Mgr().OnLinkClosed("", 0, "SCU" + (own.size() > 3 ? own.substr(3) : std::string("#")), "127.0.0.1", 5000);
    EXPECT_TRUE(m_log->Contains("strLocolLinkID is:"));
    Mgr().NotifyConnectMU("SCU#7", 6000);
    EXPECT_EQ(1u, m_log->Count(opened));
    Mgr().OnLinkClosed("", 0, "SCU#7", "127.0.0.1", 5000);
    EXPECT_TRUE(m_log->Contains("The link strIP: 127.0.0.1, uiMUServerPort: 6000"));
    Mgr().NotifyConnectMU("SCU#7", 6000);
    EXPECT_EQ(1u, m_log->Count(opened));
}

TEST_F(ConnectionMgrTest, AMainServiceThatLeavesSilencesNoOther) {
    const auto recorded = [] {
        unsigned type = 0;
        std::string link;
        return Mgr().GetLinkInfoByType(BP::SUBSYS_GVX, type, link) ? link : std::string();
    };
    Mgr().OnLinkOpened("", 0, "GVX#one", "127.0.0.1", 9001);
    EXPECT_EQ("GVX#one", recorded());
    Mgr().OnLinkClosed("", 0, "GVX#one", "127.0.0.1", 9001);
    EXPECT_EQ("GVX#000", recorded()) << "the one that is still linked";
    Mgr().OnLinkOpened("", 0, "GVX#two", "127.0.0.1", 9002);
    Mgr().OnLinkClosed("", 0, "GVX#000", "127.0.0.1", 9000);
    EXPECT_EQ("GVX#two", recorded());
    Mgr().OnLinkClosed("", 0, "GVX#two", "127.0.0.1", 9002);
    EXPECT_EQ("", recorded());
}

TEST_F(ConnectionMgrTest, APortIsTakenOnceFromTheLinkThatWasAsked) {
    EXPECT_FALSE(Mgr().TakeLinkPortAnswer("GVX#000", "SCU#7")) << "nobody was asked";
    Mgr().OnLinkOpened("", 0, "SCU#7", "127.0.0.1", 5000);
    EXPECT_FALSE(Mgr().TakeLinkPortAnswer("GVX#one", "SCU#7"));
    EXPECT_FALSE(Mgr().TakeLinkPortAnswer("GVX#000", "SCU#8"));
    EXPECT_TRUE(Mgr().TakeLinkPortAnswer("GVX#000", "SCU#7"));
    EXPECT_FALSE(Mgr().TakeLinkPortAnswer("GVX#000", "SCU#7")) << "once";
    Mgr().OnLinkOpened("", 0, "SCU#7", "127.0.0.1", 5000);
    Mgr().OnLinkClosed("", 0, "SCU#7", "127.0.0.1", 5000);
    EXPECT_FALSE(Mgr().TakeLinkPortAnswer("GVX#000", "SCU#7")) << "the query has ended with its link";
}

TEST_F(ConnectionMgrTest, AttemptsForAMediaUnitEndWithItsScuAndForAnotherPort) {
    const ScopedSettings settings("");  // a node of its own, without which no link is made
    BP::LinkOptions options;
    options.localID = "GVX#001";
    ASSERT_EQ(0, BP::CNetFactory::Start(options, {}));
    const FakeListener first;
    const FakeListener second;
    const auto given = [](const FakeListener& unit) {
        return BP::CNetFactory::DeleteClientLinkByAddr("127.0.0.1", unit.Port(), kElementMU) != 0;
    };
    Mgr().OnLinkOpened("", 0, "SCU#7", "127.0.0.1", 5000);
    for (std::size_t gone = 0; gone < CGvxConnectionMgr::kMaxMuAttempts; ++gone) {
        Mgr().NotifyConnectMU("SCU#gone" + std::to_string(gone), first.Port());  // such an SCU has no address
    }
    Mgr().NotifyConnectMU("SCU#7", first.Port());
    Mgr().NotifyConnectMU("SCU#7", second.Port());
    EXPECT_TRUE(given(first)) << "another port was named";
    Mgr().OnLinkClosed("", 0, "SCU#7", "127.0.0.1", 5000);
    EXPECT_TRUE(given(second)) << "the unit has never come";
    // It came while its SCU went: its events are served behind the SCU's, and tell of a link that is kept no more.
    for (const FakeListener* unit : {&second, &first}) {
        Mgr().OnLinkOpened("", 0, "MU#7", "127.0.0.1", unit->Port());
        Mgr().OnLinkClosed("", 0, "MU#7", "127.0.0.1", unit->Port());
    }
    Mgr().OnLinkOpened("", 0, "SCU#7", "127.0.0.1", 5000);
    Mgr().NotifyConnectMU("SCU#7", second.Port());
    EXPECT_FALSE(given(second)) << "the attempt of an SCU that has come again";
    Mgr().OnLinkOpened("", 0, "MU#7", "127.0.0.1", second.Port());
    Mgr().NotifyConnectMU("SCU#7", second.Port());
    EXPECT_EQ(m_log->Count("The link ID[MU#7] is already exsit."), 1u) << "such a unit is recorded";
    BP::CNetFactory::Stop();
}

TEST_F(ConnectionMgrTest, ResponsesAnswerOddRequestsWithWholeFrames) {
    const std::string full(64, 't');  // a transaction that fills its field
    NssMsgHeader head{};
    full.copy(head.szTransactionNo, sizeof(head.szTransactionNo));
    head.usiProtocolVersion = kNssProtocolVersion;
    head.usiMsgType = 0x0501;
    BP::CCmd cmd;
    cmd.SetMsgBlock(BP::MakeBareFrame(head).release());
    Mgr().SendRespMsgWithXml(&cmd, nullptr, 5, false);
    Mgr().SendRespMsgWithJson(&cmd, Json::Value(Json::objectValue), 6);
    Mgr().SendRespMsgWithStruct(&cmd, nullptr, 40, 7);  // a length without bytes
    const auto frames = m_frames.All();
    ASSERT_EQ(3u, frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(0x9501u, frames[i].Type());
        EXPECT_EQ(full, i == 1 ? full : frames[i].Transaction());
        EXPECT_EQ(5u + i, frames[i].Head().uiRspCode);
        EXPECT_EQ(frames[i].bytes.size(), frames[i].Head().uiPacketLength);
    }
    cmd.SetTransID(full + "t");
    EXPECT_THROW(Mgr().SendRespMsgWithJson(&cmd, Json::Value(Json::objectValue), 6), std::length_error);
    EXPECT_TRUE(m_log->Contains("ZVS_PARA_INVALID] Encode Message Fail.")) << m_log->Dump();
    const ScopedFailingAllocator none(1);
    EXPECT_THROW(Mgr().SendRespMsgWithXml(&cmd, nullptr, 5, false), std::bad_alloc);
    EXPECT_TRUE(m_log->Contains("ZVS_ALLOC_MEMORY_ERROR] Encode message fail")) << m_log->Dump();
    Mgr().SendRespMsgWithXml(nullptr, nullptr, 0, false);
    EXPECT_TRUE(m_log->Contains("Cmd pointer is null."));
}

TEST_F(ConnectionMgrTest, FailedSendsGiveTheirResultsAndLeakNothing) {
    m_frames.AnswerWith(ZVS_NET_SEND_ERROR);
    EXPECT_EQ(1u, RequestXml(NSS_QUERY_GVX_TYPE_REQ, ""));
    EXPECT_EQ(1u, Mgr().SendReqMsgWithStruct(BP::SUBSYS_SCU, kElementSCU, NSS_QUERY_GVX_TYPE_REQ, "a", 1, ""));
    EXPECT_EQ(1, Mgr().SendRetMsgWithJson(NSS_QUERY_GVX_TYPE_REQ, "{}", kElementSCU, "", ""));
    EXPECT_TRUE(m_log->Contains("Send msg out failed, sub system type is [1], element type is [10105]"));
    // An alarm report gives the dispatcher's own value and logs nothing of its own.
    m_log->Clear();
    ACE_Message_Block* block = BlockOf(FakePeer::MakeFrame(NSS_ALARM_REPORT_REQ));
    EXPECT_EQ(ZVS_NET_SEND_ERROR, Mgr().SendMsgOut(0, "", "T", NSS_ALARM_REPORT_REQ, block, 0, false));
    EXPECT_FALSE(m_log->Contains("ReqID is"));
    ASSERT_NE(nullptr, block);
    block->release();
}

// A success alone stands in the operation log, which has a file of its own where one is set.
TEST_F(ConnectionMgrTest, ADeviceStatusReportStandsInTheOperationLog) {
    const auto operations = std::make_shared<RecordingLogger>();
    OMAdapter::getInstance()->setOperationLogger(operations);
    EXPECT_GT(RequestXml(NSS_DEV_STATUS_REPORT_REQ, "trans9"), 2u);
    RequestXml(NSS_QUERY_GVX_TYPE_REQ, "");
    m_frames.AnswerWith(ZVS_NET_SEND_ERROR);
    RequestXml(NSS_DEV_STATUS_REPORT_REQ, "");
    OMAdapter::getInstance()->setOperationLogger(nullptr);
    EXPECT_EQ(1u, operations->Lines().size());
    EXPECT_EQ(1u, operations->Count("[NSS_DEV_STATUS_REPORT_REQ] [" + GvxConfigMgr()->GetGvxNetElementID() +
                                    "] [SCU#7] [trans9] gvx send device status report to scu, successful"));
    EXPECT_EQ(0u, m_log->Count("gvx send device status report to scu"));
}

}  // namespace
