#include "gvx_common/alarm/alarm_fixture.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "support/failing_allocator.h"
#include "support/test_clock.h"

#include <cstring>
#include <map>
#include <sstream>
#include <vector>

namespace {

// What the platform's manual says: an identifier with its types.
constexpr const char* kIdentifierRows[] = {
    "308521802 ALARM_GVX_LOG_BCK_FAIL_ON ALARM_GVX_LOG_BCK_FAIL_OFF",
    "308521804 ALARM_GVX_ALARM_RECORD_FAIL_ON ALARM_GVX_ALARM_RECORD_FAIL_OFF",
    "308521809 ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_ON ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_OFF",
    "308521901 ALARM_IPC_SD_CARD_FAULT_ON ALARM_IPC_SD_CARD_FAULT_OFF",
    "308521931 ALARM_DEVICE_REMOVE",
    "308522002 ALARM_DVR_DISK_FAULT_ON ALARM_DVR_DISK_FAULT_OFF",
    "308522104 ALARM_DVS_TYPE_DI_ON ALARM_DVS_TYPE_DI_OFF",
    "308522301 ALARM_eNVR_DISK_FULL_ON ALARM_eNVR_DISK_FULL_OFF",
};

// Texts of the report to the cloud platform, by place and size.
using Place = std::pair<std::size_t, std::size_t>;
constexpr Place kNodeCode{40, 256};
constexpr Place kFrontDevice{296, 256};
constexpr Place kInCode{744, 64};
constexpr Place kInName{808, 256};
constexpr Place kType{1064, 64};
constexpr Place kLocation{1132, 256};
constexpr Place kDescription{1388, 1024};

struct OneDevice : BP::IDeviceMgr {
    int ProcessSdkException(const ACE_Message_Block*) override { return 1; }
    std::string GetReqDevID(std::uint32_t) override { return ""; }
    int HandleClusterTaskShiftIn(int, const std::string&) override { return 1; }
    bool FindMainDevice(const std::string& code, std::string& address) override {
        address = "10.0.0.2";
        return code == "12340000" || code == "D1";
    }
    bool FindOwner(const std::string& code, std::string& device) override {
        device = "D1";
        return code == "D1_0" || code == "D1 lens 1";
    }
};

class AlarmDelivery : public AlarmFixture {
protected:
    void SetUp() override {
        AlarmFixture::SetUp();
        BP::CDeviceMgr::SetImplementation(&m_devices);
    }
    void TearDown() override {
        BP::CDeviceMgr::SetImplementation(nullptr);
        AlarmFixture::TearDown();
    }

    // The next frame of that type: 0x1008 to OMU, 0x0C00 and 0x0C76 to the main service.
    CaughtFrame Next(unsigned int type) {
        const std::vector<CaughtFrame> all = m_frames.All();
        for (std::size_t& at = m_at[type]; at < all.size();) {
            const CaughtFrame& frame = all[at++];
            if (frame.Type() == type) {
                EXPECT_EQ(type == 0x1008 ? kOmu : kMain, frame.linkID);
                return frame;
            }
        }
        ADD_FAILURE() << "no frame";
        return {};
    }
    std::string NextReport() {
        const std::string body = Next(0x0C76).Body();
        EXPECT_EQ(4544u, body.size());
        return body;
    }
    static std::string Text(const std::string& report, Place place) {
        return TextAt(report, place.first, place.second);
    }

    static ZVS_ALARM_REPORT DeviceAlarm(const std::string& type, const std::string& code = "12345678") {
        ZVS_ALARM_REPORT report{};
        std::strcpy(report.cAlarmInCode, code.c_str());
        std::strcpy(report.cAlarmType, type.c_str());
        std::strcpy(report.cNvrCode, "nvr1");
        std::strcpy(report.cAlarmDesc, "what");
        report.bAction = 1;
        report.uiOccurNumber = 2;
        return report;
    }
    static void SendGatewayAlarm(const std::string& type, const std::string& description) {
        GvxConnectionMgr()->SetGvxAlarmRepMsg(type, GVX_ALARM_DEV_TYPE, "where", description);
    }

    OneDevice m_devices;
    std::map<unsigned int, std::size_t> m_at;  // how far Next has come, for each type
};

TEST_F(AlarmDelivery, TypesOfTheManualAreSentOnceWithTheirIdentifier) {
    for (const char* row : kIdentifierRows) {
        std::istringstream words(row);
        std::uint64_t id = 0;
        words >> id;
        for (std::string type; words >> type;) {
            if (type.rfind("ALARM_GVX_", 0) == 0) {
                SendGatewayAlarm(type, "what");
                EXPECT_EQ(type, TextAt(Next(0x1008).Body(), 520, 64));
            } else {
                ZVS_ALARM_REPORT report = DeviceAlarm(type);
                ASSERT_GT(GvxConnectionMgr()->SendDevAlarmReqMsgToSCU(report), 2);
                ASSERT_GT(GvxConnectionMgr()->sendGVXDeviceAlarmReportToKSP(report, PU_IPC), 2);
                EXPECT_EQ(type, TextAt(Next(0x0C00).Body(), 96, 64));
            }
            const std::string sent = NextReport();
            EXPECT_EQ(std::string(reinterpret_cast<const char*>(&id), sizeof(id)), sent.substr(32, 8)) << type;
            EXPECT_EQ(type, Text(sent, kType));
            EXPECT_EQ("node7", Text(sent, kNodeCode));
            const bool told = type.find("RECORD_FAIL") == std::string::npos || type.find("LOG") != std::string::npos;
            EXPECT_EQ(type.rfind("ALARM_GVX_", 0) != 0            ? "HostIP=10.0.0.1,LocalDesc=12345678[DevIP:10.0.0.2]"
                      : type.find("SERVERS") != std::string::npos ? "HostIP=10.0.0.1,LocalDesc=what"
                      : told                                      ? "where"
                                                                  : "HostIP=10.0.0.1,LocalDesc=Alarm from GVX",
                      Text(sent, kLocation));
        }
    }
    SendGatewayAlarm("ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_ON", "10040201");
    EXPECT_EQ("hsm: get result over time", Text(NextReport(), kDescription));
    EXPECT_EQ("hsm: get result over time", Next(0x1008).Body().substr(864 + 6, 25));
    // A code that is not known goes out as it is, and the codes mean nothing in an alarm of another type.
    SendGatewayAlarm("ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_OFF", "10999999");
    SendGatewayAlarm("ALARM_GVX_SYS_PORT_CONFLICT", "10020201");
    EXPECT_EQ("10999999", Text(NextReport(), kDescription));
    EXPECT_EQ("10020201", Text(NextReport(), kDescription));
}

TEST_F(AlarmDelivery, AGatewayAlarmCarriesItsFieldsInTheirPlaces) {
    const ScopedTestClock clock;
    CEmergencyProtection alarms;
    alarms.SetGvxBPAlarmRepMsg("ALARM_X", "12", "", "", false);
    alarms.SetGvxBPAlarmRepMsg("ALARM_X", "1234", "its number is spent", "", false);
    alarms.SetGvxBPAlarmRepMsg("ALARM_X", "12", "where", std::string(255, 'd'), true);
    EXPECT_EQ(0x0100, m_frames.All().at(0).Head().usiProtocolVersion);
    EXPECT_FALSE(m_frames.All().at(0).Transaction().empty());
    const std::string first = Next(0x1008).Body();
    const std::string second = Next(0x1008).Body();
    EXPECT_EQ(864u + 128u - 116u, first.size());
    EXPECT_EQ(std::string(8, '\0'), first.substr(0, 8));
    EXPECT_EQ(std::string("\0\0\0\0\0\0\0\2", 8), second.substr(0, 8));
    const std::pair<Place, const char*> texts[] = {
        {{8, 64}, "TARVEL"}, {{168, 32}, "0099"},           {{200, 64}, "GVX#0099"},  {{264, 256}, "CloudKSP_GVX"},
        {{584, 4}, "12"},    {{588, 20}, "20260102030405"}, {{608, 256}, "10.0.0.1"},
    };
    for (const auto& [place, text] : texts) {
        EXPECT_EQ(text, Text(first, place));
    }
    EXPECT_EQ(std::string("\0\4\0\0\0\0\0\5\0\0\0\0", 12), first.substr(864));
    EXPECT_EQ(std::string("\0\4\0\0\0\xFF", 6) + std::string(255, 'd') + std::string("\0\5\0\0\0\0", 6),
              second.substr(864));
}

TEST_F(AlarmDelivery, ADeviceAlarmCarriesItsFieldsInTheirPlaces) {
    ZVS_ALARM_REPORT report = DeviceAlarm("ALARM_IPC_HIGH_TEMPERATURE_ON", "CAM");
    std::strcpy(report.cExtParam, "extra");
    const int seq = GvxConnectionMgr()->SendDevAlarmReqMsgToSCU(report);
    EXPECT_EQ(1, GvxConnectionMgr()->sendGVXDeviceAlarmReportToKSP(report, PU_IPC));  // not in the dictionary
    const CaughtFrame frame = Next(0x0C00);
    const std::string body = frame.Body();
    EXPECT_EQ(static_cast<std::uint32_t>(seq), frame.Head().uiSeqID);
    EXPECT_EQ(std::string("\0\0\0\1", 4), body.substr(200, 4));
    EXPECT_EQ(std::string("\0\0\0\2", 4), body.substr(236, 4));
    EXPECT_EQ("nvr1", TextAt(body, 240, 32));
    EXPECT_EQ(std::string("\0\4\0\0\0\4what\0\5\0\0\0\5extra", 21), body.substr(272));

    std::memset(report.cAlarmDesc, 'd', sizeof(report.cAlarmDesc));  // no terminator
    EXPECT_EQ(1, GvxConnectionMgr()->SendDevAlarmReqMsgToSCU(report));
    // A channel's device, and the words of the forms, two of which cross over.
    ZVS_ALARM_REPORT longCode = DeviceAlarm("ALARM_DVS_DISK_FULL_ON", std::string(60, 'c') + "123");
    const std::vector<std::pair<int, std::string>> forms = {{1, "QCN_IPC"},  {2, "QCN_DVR"}, {3, "QCN_DVS"},
                                                            {4, "QCN_eNVR"}, {5, "QCN_IPC"}, {0, "QCN_IPC"}};
    for (const auto& form : forms) {
        GvxConnectionMgr()->sendGVXDeviceAlarmReportToKSP(longCode, static_cast<_PU_DEV_FORM_TYPE>(form.first));
        const std::string sent = NextReport();
        EXPECT_EQ(form.second, Text(sent, kInName));
        EXPECT_EQ(std::string(59, 'c') + "0000", Text(sent, kFrontDevice));
        EXPECT_EQ("HostIP=10.0.0.1,LocalDesc=" + Text(sent, kInCode), Text(sent, kLocation));
    }
    EXPECT_EQ(1, GvxConnectionMgr()->sendGVXDeviceAlarmReportToKSP(DeviceAlarm("ALARM_DEVICE_REMOVE", "1234"), PU_IPC));
    // Codes of a plug-in's own making, one of them too short to have a channel.
    for (const auto& [code, front] : {std::pair<std::string, const char*>{"D1 lens 1", "D1 le0000"}, {"D1_0", "D1"}}) {
        GvxConnectionMgr()->sendGVXDeviceAlarmReportToKSP(DeviceAlarm("ALARM_DEVICE_REMOVE", code), PU_IPC);
        const std::string sent = NextReport();
        EXPECT_EQ(front, Text(sent, kFrontDevice));
        EXPECT_EQ("HostIP=10.0.0.1,LocalDesc=" + code + "[DevIP:10.0.0.2]", Text(sent, kLocation));
    }
}

TEST_F(AlarmDelivery, WhatStopsOneReceiverDoesNotStopTheOther) {
    GVX_ALARM_REPORT report{};
    std::strcpy(report.cAlarmType, "ALARM_GVX_CONFIG_READ_FAIL");
    m_folder.Write("log.xml", "<Log/>");
    SendGatewayAlarm("ALARM_GVX_CONFIG_READ_FAIL", "no node code");
    EXPECT_EQ("no node code", Next(0x1008).Body().substr(870, 12));
    EXPECT_EQ(1, GvxConnectionMgr()->sendGVXAlarmReportToKSP(report));
    m_folder.Write("log.xml", "<Log><NodeCode>node7</NodeCode></Log>");
    m_omuIsGone = true;
    SendGatewayAlarm("ALARM_GVX_CONFIG_READ_FAIL", "no OMU");
    EXPECT_EQ("no OMU", Text(NextReport(), kDescription));
    EXPECT_EQ(1, GvxConnectionMgr()->SendGvxAlarmReqMsgToOMU(report, false, false));

    CCloudConfigMgr::Instance()->SetCloudConfigInited(false);
    ZVS_ALARM_REPORT device = DeviceAlarm("ALARM_DEVICE_REMOVE");
    EXPECT_EQ(1, GvxConnectionMgr()->SendDevAlarmReqMsgToSCU(device));
    EXPECT_EQ(1u, device.bAction);
    EXPECT_EQ(1, GvxConnectionMgr()->sendGVXDeviceAlarmReportToKSP(device, PU_IPC));
    EXPECT_EQ(1, GvxConnectionMgr()->SendGvxAlarmReqMsgToOMU(report, false, false));
    EXPECT_EQ(1, GvxConnectionMgr()->sendGVXAlarmReportToKSP(report));
    SendGatewayAlarm("ALARM_GVX_CONFIG_READ_FAIL", "lost");
    CCloudConfigMgr::Instance()->SetCloudConfigInited(true);
    SendGatewayAlarm("ALARM_GVX_CONFIG_READ_FAIL", "next");
    EXPECT_EQ("next", Text(NextReport(), kDescription));
}

TEST_F(AlarmDelivery, AnAlarmForWhichThereIsNoMemoryKeepsItsPlace) {
    {
        const ScopedFailingAllocator nothing(0);
        SendGatewayAlarm("ALARM_GVX_CONFIG_READ_FAIL", "first");
        SendGatewayAlarm("ALARM_GVX_CONFIG_READ_FAIL", "second");
        EXPECT_EQ(2u, CEmergencyProtection::Instance()->CountHeldAlarms());
    }
    CEmergencyProtection::Instance()->SendAlarmCacheToGvx();
    EXPECT_EQ("first", Text(NextReport(), kDescription));
    EXPECT_EQ("second", Text(NextReport(), kDescription));
    EXPECT_EQ("first", Next(0x1008).Body().substr(870, 5));
}

}  // namespace
