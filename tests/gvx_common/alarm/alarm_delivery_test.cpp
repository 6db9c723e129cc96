#include "bp/dispatcher.h"
#include "bp/net_factory.h"
#include "gvx_common/alarm/alarm_fixture.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "support/fake_peer.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <ace/Message_Block.h>

#include <cstring>
#include <optional>
#include <sstream>
#include <vector>

#include <endian.h>

namespace {

// What the platform's manual says: an identifier with its types.
constexpr const char* kIdentifierRows[] = {
    "308521802 ALARM_GVX_LOG_BCK_FAIL_ON ALARM_GVX_LOG_BCK_FAIL_OFF",
    "308521804 ALARM_GVX_ALARM_RECORD_FAIL_ON ALARM_GVX_ALARM_RECORD_FAIL_OFF",
    "308521806 ALARM_GVX_FLOW_CONTROL_ERROR_ON ALARM_GVX_FLOW_CONTROL_ERROR_OFF",
    "308521809 ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_ON ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_OFF",
    "308521901 ALARM_IPC_SD_CARD_FAULT_ON ALARM_IPC_SD_CARD_FAULT_OFF",
    "308521911 ALARM_IPC_IP_ADDRESS_CONFLICT_ON ALARM_IPC_IP_ADDRESS_CONFLICT_OFF",
    "308521915 ALARM_IPC_SFP_TEMP_HIGH_ON ALARM_IPC_SFP_TEMP_HIGH_OFF",
    "308521931 ALARM_DEVICE_REMOVE",
    "308521933 ALARM_IPC_LOW_TEMPERATURE_ON",
    "308522002 ALARM_DVR_DISK_FAULT_ON ALARM_DVR_DISK_FAULT_OFF",
    "308522104 ALARM_DVS_TYPE_DI_ON ALARM_DVS_TYPE_DI_OFF",
    "308522301 ALARM_eNVR_DISK_FULL_ON ALARM_eNVR_DISK_FULL_OFF",
};

std::uint64_t NumberAt(const std::string& bytes, std::size_t offset, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t at = offset; at < offset + size && at < bytes.size(); ++at) {
        value = value << 8 | static_cast<unsigned char>(bytes[at]);
    }
    return value;
}

// The report to the cloud platform, taken apart by its places.
struct KspReport {
    explicit KspReport(const FakePeer::Frame& frame) : body(frame.body) {
        std::memcpy(&id, body.data() + 32, body.size() == 4544 ? sizeof(id) : 0);  // host order
    }
    std::string Text(std::size_t offset, std::size_t size) const { return TextAt(body, offset, size); }
    std::string NodeCode() const { return Text(40, 256); }
    std::string FrontDevice() const { return Text(296, 256); }
    std::string InCode() const { return Text(744, 64); }
    std::string InName() const { return Text(808, 256); }
    std::string Type() const { return Text(1064, 64); }
    std::string Location() const { return Text(1132, 256); }
    std::string Description() const { return Text(1388, 1024); }

    std::string body;
    std::uint64_t id = 0;
};

struct OneDevice : BP::IDeviceMgr {
    int ProcessSdkException(const ACE_Message_Block*) override { return 1; }
    std::string GetReqDevID(std::uint32_t) override { return ""; }
    int HandleClusterTaskShiftIn(int, const std::string&) override { return 1; }
    bool FindMainDevice(const std::string& code, std::string& address) override {
        address = "10.0.0.2";
        return code == "12340000";
    }
};

// Links that real peers hold, and the gateway's way from the core to the link of OMU.
class AlarmDelivery : public AlarmFixture {
protected:
    void SetUp() override {
        AlarmFixture::SetUp();
        BP::CDeviceMgr::SetImplementation(&m_devices);
        BP::CDispatcher::SetSink([](std::unique_ptr<BP::CCmd> cmd) {
            if (!cmd->IsFedIn() || cmd->GetNetElemType() != kElementOMU) {
                return 0;
            }
            ACE_Message_Block* block = cmd->ReleaseMsgBlock();
            const int result = BP::CDispatcher::dispatcherOutWithoutTransaction(
                kElementOMU, cmd->GetNetLinkID().c_str(), "", cmd->GetReqID(), block, false, 0);
            cmd->SetMsgBlock(block);
            return result;
        });
        BP::LinkOptions options;
        options.localID = "GVX#0099";
        std::uint16_t port = 0;
        ASSERT_EQ(0, BP::CNetFactory::Start(options, {&OpenLink, &CloseLink}));
        ASSERT_EQ(0, BP::CNetFactory::Listen("127.0.0.1", 0, &port));
        m_omu = FakePeer::Connect(port);
        m_main = FakePeer::Connect(port);
        ASSERT_TRUE(m_omu != nullptr && m_omu->Register("OMU#0099") == 0u);
        ASSERT_TRUE(m_main != nullptr && m_main->Register("GVX#000") == 0u);
        ASSERT_TRUE(WaitUntil([] {
            unsigned int type = 0;
            std::string link;
            return GvxConnectionMgr()->GetLinkInfoByType(BP::SUBSYS_GVX, type, link) &&
                   GvxConnectionMgr()->GetOmuLinkId() == "OMU#0099";
        }));
    }
    void TearDown() override {
        BP::CNetFactory::Stop();
        BP::CDispatcher::SetSink({});
        BP::CDeviceMgr::SetImplementation(nullptr);
        AlarmFixture::TearDown();
    }
    static void OpenLink(const std::string& name, int type, const std::string& link, const std::string& ip,
                         unsigned int port) {
        GvxConnectionMgr()->OnLinkOpened(name, type, link, ip, port);
    }
    static void CloseLink(const std::string& name, int type, const std::string& link, const std::string& ip,
                          unsigned int port) {
        GvxConnectionMgr()->OnLinkClosed(name, type, link, ip, port);
    }

    // The next frame of an alarm; frames of other kinds are passed over, an alarm of another kind is a failure.
    static FakePeer::Frame NextAlarm(FakePeer& peer, std::uint16_t type) {
        for (;;) {
            const std::optional<FakePeer::Frame> frame = peer.ReadFrame();
            if (!frame) {
                ADD_FAILURE() << "no frame";
                return {};
            }
            const std::uint16_t got = frame->head.usiMsgType;
            if (got == 0x0C00 || got == 0x0C76 || got == 0x1008) {
                EXPECT_EQ(type, got);
                return *frame;
            }
        }
    }
    KspReport NextReport() { return KspReport(NextAlarm(*m_main, 0x0C76)); }

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
    std::unique_ptr<FakePeer> m_omu;
    std::unique_ptr<FakePeer> m_main;
};

TEST_F(AlarmDelivery, TypesOfTheManualAreSentOnceWithTheirIdentifier) {
    for (const char* row : kIdentifierRows) {
        std::istringstream words(row);
        std::uint64_t id = 0;
        words >> id;
        for (std::string type; words >> type;) {
            if (type.rfind("ALARM_GVX_", 0) == 0) {
                SendGatewayAlarm(type, "what");
                EXPECT_EQ(type, TextAt(NextAlarm(*m_omu, 0x1008).body, 520, 64));
            } else {
                ZVS_ALARM_REPORT report = DeviceAlarm(type);
                ASSERT_GT(GvxConnectionMgr()->SendDevAlarmReqMsgToSCU(report), 2);
                ASSERT_GT(GvxConnectionMgr()->sendGVXDeviceAlarmReportToKSP(report, PU_IPC), 2);
                EXPECT_EQ(type, TextAt(NextAlarm(*m_main, 0x0C00).body, 96, 64));
            }
            const KspReport sent = NextReport();
            EXPECT_EQ(id, sent.id) << type;
            EXPECT_EQ(type, sent.Type());
            EXPECT_EQ("node7", sent.NodeCode());
            const bool told = type.find("RECORD_FAIL") == std::string::npos || type.find("LOG") != std::string::npos;
            EXPECT_EQ(type.rfind("ALARM_GVX_", 0) != 0            ? "HostIP=10.0.0.1,LocalDesc=12345678[DevIP:10.0.0.2]"
                      : type.find("SERVERS") != std::string::npos ? "HostIP=10.0.0.1,LocalDesc=what"
                      : told                                      ? "where"
                                                                  : "HostIP=10.0.0.1,LocalDesc=Alarm from GVX",
                      sent.Location());
        }
    }
    SendGatewayAlarm("ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_ON", "10040201");
    EXPECT_EQ("hsm: get result over time", NextReport().Description());
    EXPECT_EQ("hsm: get result over time", NextAlarm(*m_omu, 0x1008).body.substr(864 + 6, 25));
    // A code that is not known goes out as it is, and the codes mean nothing in an alarm of another type.
    SendGatewayAlarm("ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_OFF", "10999999");
    SendGatewayAlarm("ALARM_GVX_SYS_PORT_CONFLICT", "10020201");
    EXPECT_EQ("10999999", NextReport().Description());
    EXPECT_EQ("10020201", NextReport().Description());
}

TEST_F(AlarmDelivery, AGatewayAlarmCarriesItsFieldsInTheirPlaces) {
    const ScopedTestClock clock;
    CEmergencyProtection alarms;
    alarms.SetGvxBPAlarmRepMsg("ALARM_X", "12", "", "", false);
    alarms.SetGvxBPAlarmRepMsg("ALARM_X", "12", "where", std::string(255, 'd'), true);
    const FakePeer::Frame first = NextAlarm(*m_omu, 0x1008);
    const FakePeer::Frame second = NextAlarm(*m_omu, 0x1008);
    EXPECT_EQ(864u + 128u - 116u, first.body.size());
    EXPECT_EQ(0x0100, first.head.usiProtocolVersion);
    EXPECT_FALSE(first.Transaction().empty());
    EXPECT_EQ(0u, NumberAt(first.body, 0, 8));
    EXPECT_EQ(1u, NumberAt(second.body, 0, 8));
    EXPECT_EQ("TARVEL", TextAt(first.body, 8, 64));
    EXPECT_EQ("0099", TextAt(first.body, 168, 32));
    EXPECT_EQ("GVX#0099", TextAt(first.body, 200, 64));
    EXPECT_EQ("CloudKSP_GVX", TextAt(first.body, 264, 256));
    EXPECT_EQ("12", TextAt(first.body, 584, 4));
    EXPECT_EQ("20260102030405", TextAt(first.body, 588, 20));
    EXPECT_EQ("10.0.0.1", TextAt(first.body, 608, 256));
    EXPECT_EQ(std::string("\0\4\0\0\0\0\0\5\0\0\0\0", 12), first.body.substr(864));
    EXPECT_EQ(std::string("\0\4\0\0\0\xFF", 6) + std::string(255, 'd') + std::string("\0\5\0\0\0\0", 6),
              second.body.substr(864));
}

TEST_F(AlarmDelivery, ADeviceAlarmCarriesItsFieldsInTheirPlaces) {
    ZVS_ALARM_REPORT report = DeviceAlarm("ALARM_IPC_HIGH_TEMPERATURE_ON", "CAM");
    std::strcpy(report.cExtParam, "extra");
    const int seq = GvxConnectionMgr()->SendDevAlarmReqMsgToSCU(report);
    EXPECT_EQ(1, GvxConnectionMgr()->sendGVXDeviceAlarmReportToKSP(report, PU_IPC));  // not in the dictionary
    const FakePeer::Frame frame = NextAlarm(*m_main, 0x0C00);
    EXPECT_EQ(static_cast<std::uint32_t>(seq), frame.head.uiSeqID);
    EXPECT_EQ(1u, NumberAt(frame.body, 200, 4));
    EXPECT_EQ(2u, NumberAt(frame.body, 236, 4));
    EXPECT_EQ("nvr1", TextAt(frame.body, 240, 32));
    EXPECT_EQ(std::string("\0\4\0\0\0\4what\0\5\0\0\0\5extra", 21), frame.body.substr(272));

    std::memset(report.cAlarmDesc, 'd', sizeof(report.cAlarmDesc));  // no terminator
    EXPECT_EQ(1, GvxConnectionMgr()->SendDevAlarmReqMsgToSCU(report));
    EXPECT_EQ(1u, m_log->Count("strncpy_s stAlarmDesc.cAlarmDesc failed!"));
    // A channel's device, and the words of the forms, two of which cross over.
    ZVS_ALARM_REPORT longCode = DeviceAlarm("ALARM_DVS_DISK_FULL_ON", std::string(60, 'c') + "123");
    const std::vector<std::pair<int, std::string>> forms = {{1, "QCN_IPC"},  {2, "QCN_DVR"}, {3, "QCN_DVS"},
                                                            {4, "QCN_eNVR"}, {5, "QCN_IPC"}, {0, "QCN_IPC"}};
    for (const auto& form : forms) {
        GvxConnectionMgr()->sendGVXDeviceAlarmReportToKSP(longCode, static_cast<_PU_DEV_FORM_TYPE>(form.first));
        const KspReport sent = NextReport();
        EXPECT_EQ(form.second, sent.InName());
        EXPECT_EQ(std::string(59, 'c') + "0000", sent.FrontDevice());
        EXPECT_EQ("HostIP=10.0.0.1,LocalDesc=" + sent.InCode(), sent.Location());
    }
    EXPECT_EQ(2u, m_log->Count("ePuDevFormType is default: "));
    EXPECT_EQ(1, GvxConnectionMgr()->sendGVXDeviceAlarmReportToKSP(DeviceAlarm("ALARM_DEVICE_REMOVE", "1234"), PU_IPC));
    EXPECT_TRUE(m_log->Contains("the length of strDevCode[4] must be longer than strDeviceIDTemp[4]"));
}

TEST_F(AlarmDelivery, WhatStopsOneReceiverDoesNotStopTheOther) {
    GVX_ALARM_REPORT report{};
    std::strcpy(report.cAlarmType, "ALARM_GVX_CONFIG_READ_FAIL");
    m_folder.Write("log.xml", "<Log/>");
    SendGatewayAlarm("ALARM_GVX_CONFIG_READ_FAIL", "no node code");
    EXPECT_EQ("no node code", NextAlarm(*m_omu, 0x1008).body.substr(870, 12));
    EXPECT_EQ(1, GvxConnectionMgr()->sendGVXAlarmReportToKSP(report));
    EXPECT_EQ(2u, m_log->Count("the Elem is [NodeCode]"));
    m_folder.Write("log.xml", "<Log><NodeCode>node7</NodeCode></Log>");
    m_omu->Close();
    ASSERT_TRUE(WaitUntil([this] { return m_log->Contains("OMU#0099", "Link closed"); }));
    SendGatewayAlarm("ALARM_GVX_CONFIG_READ_FAIL", "no OMU");
    EXPECT_EQ("no OMU", NextReport().Description());
    EXPECT_EQ(1, GvxConnectionMgr()->SendGvxAlarmReqMsgToOMU(report, false, false));

    CCloudConfigMgr::Instance()->SetCloudConfigInited(false);
    ZVS_ALARM_REPORT device = DeviceAlarm("ALARM_DEVICE_REMOVE");
    EXPECT_EQ(1, GvxConnectionMgr()->SendDevAlarmReqMsgToSCU(device));
    EXPECT_EQ(1u, device.bAction);
    EXPECT_EQ(1, GvxConnectionMgr()->sendGVXDeviceAlarmReportToKSP(device, PU_IPC));
    EXPECT_EQ(1, GvxConnectionMgr()->SendGvxAlarmReqMsgToOMU(report, false, false));
    EXPECT_EQ(1, GvxConnectionMgr()->sendGVXAlarmReportToKSP(report));
    SendGatewayAlarm("ALARM_GVX_CONFIG_READ_FAIL", "lost");
    EXPECT_EQ(5u, m_log->Count("Cloud config inited is false, no need to send alarm"));
    CCloudConfigMgr::Instance()->SetCloudConfigInited(true);
    SendGatewayAlarm("ALARM_GVX_CONFIG_READ_FAIL", "next");
    EXPECT_EQ("next", NextReport().Description());
}

}  // namespace
