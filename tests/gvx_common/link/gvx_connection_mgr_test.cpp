#include "gvx_common/link/gvx_connection_mgr.h"

#include "base/cbb_xml.h"
#include "base/json_io.h"
#include "base/zvs_error.h"
#include "bp/dispatcher.h"
#include "bp/net_factory.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "nss/nss_msg.h"
#include "support/recording_logger.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

struct SentFrame {
    std::string linkID;
    std::string bytes;

    unsigned Number(std::size_t offset, std::size_t size) const {
        unsigned value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
        }
        return value;
    }
    unsigned Type() const { return Number(2, 2); }
    unsigned Seq() const { return Number(4, 4); }
    unsigned Trace() const { return Number(8, 4); }
    std::string Transaction() const { return std::string(bytes.c_str() + 12); }
    unsigned RspCode() const { return Number(76, 4); }
    unsigned Length() const { return Number(112, 4); }
    unsigned Tag() const { return Number(116, 2); }
    std::string Value() const { return bytes.substr(122); }
};

class TestService : public BP::IService {
public:
    std::uint32_t GetServiceID() const override { return 7; }
};

class TestRegistry : public BP::IPluginRegistry {
public:
    int RegisterPlugin() override {
        ++registrations;
        return 0;
    }
    bool FindPlugin(const std::string&, BP::CPluginInfo&) override { return false; }
    int registrations = 0;
};

std::vector<ADAPTER_COMMON_MESSAGE> g_events;
void RecordEvent(ADAPTER_COMMON_MESSAGE& message) {
    g_events.push_back(message);
}

// The record is packed, so a member is read by value: an assertion would bind a reference to it.
LINKCLOSE_NET_ELE_E EventOf(const ADAPTER_COMMON_MESSAGE& message) {
    return message.eLinkCloseNetEle;
}

// Frames are caught where they would enter a link; everything above is the real thing.
class ConnectionMgrTest : public testing::Test {
protected:
    void SetUp() override {
        static TestService service;
        GvxConnectionMgr()->SetGvxService(&service);
        GvxConnectionMgr()->SetException(&RecordEvent);
        g_events.clear();
        BP::CPluginMgr::SetImplementation(&m_registry);
        BP::CDispatcher::SetWriter([this](const std::string& linkID, ACE_Message_Block* block) {
            if (m_writeResult == 0) {
                m_frames.push_back({linkID, std::string(block->rd_ptr(), block->length())});
                block->release();
                AnswerPortReport();
            }
            return m_writeResult;
        });
        BP::CDispatcher::SetSink([this](std::unique_ptr<BP::CCmd> cmd) {
            m_fedIn.push_back(std::move(cmd));
            return 0;
        });
        OpenMainService();
        m_frames.clear();
    }
    void TearDown() override {
        for (const char* link : {"SCU#7", "SCU#1", "SCU#001"}) {
            GvxConnectionMgr()->OnLinkClosed("", 0, link, "127.0.0.1", 1);
        }
        GvxConnectionMgr()->OnLinkClosed("", 0, "GVX#000", "127.0.0.1", 1);
        BP::CDispatcher::SetWriter({});
        BP::CDispatcher::SetSink({});
        BP::CPluginMgr::SetImplementation(nullptr);
    }
    // The opening of the main-service link waits for this answer.
    void AnswerPortReport() {
        if (m_frames.back().Type() != NSS_PLUGIN_SEND_PORTLIST_DATA_REQ) {
            return;
        }
        auto* answer = new ACE_Message_Block();
        CNssXMLMsg message(NSS_PLUGIN_SEND_PORTLIST_DATA_RSP, 1, m_frames.back().Transaction().c_str(), 0, 0);
        EXPECT_EQ(0, message.encode(answer));
        BP::CDispatcher::FrameArrived(kElementGVX, m_frames.back().linkID, answer);
    }
    static void OpenMainService() { GvxConnectionMgr()->OnLinkOpened("", 0, "GVX#000", "127.0.0.1", 9000); }

    static std::unique_ptr<BP::CCmd> Request(unsigned short type, unsigned seq, const char* trans, unsigned trace) {
        CNssXMLMsg message(type, seq, trans, 0, trace);
        message.SetXML("<Content/>", 10);
        auto* block = new ACE_Message_Block();
        EXPECT_EQ(0, message.encode(block));
        auto cmd = std::make_unique<BP::CCmd>();
        cmd->SetReqID(type);
        cmd->SetMsgBlock(block);
        cmd->SetTransID(trans);
        cmd->SetServiceID(7);
        cmd->SetNetLinkID("SCU#7");
        return cmd;
    }

    ScopedRecordingLogger m_log;
    TestRegistry m_registry;
    int m_writeResult = 0;
    std::vector<SentFrame> m_frames;
    std::vector<std::unique_ptr<BP::CCmd>> m_fedIn;
};

TEST_F(ConnectionMgrTest, PeerTypeIsTheFirstNameFoundInTheFixedOrder) {
    CGvxConnectionMgr& mgr = *GvxConnectionMgr();
    EXPECT_EQ(60105, mgr.JudgeElementType(0, "OMU#1"));
    EXPECT_EQ(10105, mgr.JudgeElementType(0, "MU-of-SCU#1"));
    EXPECT_EQ(30105, mgr.JudgeElementType(10105, "MU#1"));
    EXPECT_EQ(40105, mgr.JudgeElementType(0, "GVX#1"));
    EXPECT_EQ(80105, mgr.JudgeElementType(0, "scu#1"));
    // "IMGU" contains no "MU" text of its own, so it reaches its own row.
    EXPECT_EQ(240105, mgr.JudgeElementType(0, "IMGU#1"));
}

TEST_F(ConnectionMgrTest, MainServiceLinkRegistersPluginsAndFeedsAlarmControlIn) {
    EXPECT_EQ(1, m_registry.registrations);
    ASSERT_EQ(2u, m_fedIn.size());
    EXPECT_EQ(0xDC11u, m_fedIn[0]->GetReqID());
    EXPECT_EQ(0x0DA9u, m_fedIn[1]->GetReqID());

    unsigned type = 0;
    std::string link;
    ASSERT_TRUE(GvxConnectionMgr()->GetLinkInfoByType(BP::SUBSYS_SCU, type, link));
    EXPECT_EQ("GVX#000", link);
    EXPECT_EQ(60105u, type);
    GvxConnectionMgr()->OnLinkClosed("", 0, "GVX#000", "127.0.0.1", 9000);
    EXPECT_FALSE(GvxConnectionMgr()->GetLinkInfoByType(BP::SUBSYS_SCU, type, link));
    EXPECT_TRUE(m_log->Contains("Sub system type is [1], not connect."));
}

TEST_F(ConnectionMgrTest, EveryScuOpenAsksForThePortAndReportsEvenWhenTheLinkIsKnown) {
    for (int i = 0; i < 2; ++i) {
        GvxConnectionMgr()->OnLinkOpened("", 0, "SCU#7", "127.0.0.1", 5000);
    }
    ASSERT_EQ(2u, m_frames.size());
    EXPECT_EQ("GVX#000", m_frames[0].linkID) << "every frame leaves by the main-service link";
    EXPECT_EQ(0x02D4u, m_frames[0].Type());
    EXPECT_EQ(NSS_TAG_XML_CONTENT, m_frames[0].Tag());
    EXPECT_NE(std::string::npos, m_frames[0].Value().find("<Content>query</Content>"));
    EXPECT_EQ(m_frames[0].bytes.size(), m_frames[0].Length());
    ASSERT_EQ(2u, g_events.size());
    EXPECT_EQ(NET_ELE_SCU_OPEN, EventOf(g_events[0]));
    EXPECT_STREQ("SCU#7", g_events[0].chNetEleLinkId);
    EXPECT_EQ("SCU#7", GvxConnectionMgr()->GetScuLinkId());
}

TEST_F(ConnectionMgrTest, MediaLinkIsForgottenOnlyWhenAForeignScuCloses) {
    CGvxConnectionMgr& mgr = *GvxConnectionMgr();
    mgr.OnLinkOpened("", 0, "SCU#7", "127.0.0.1", 5000);
    mgr.OnLinkOpened("", 0, "MU#7", "127.0.0.1", 6000);
    mgr.OnLinkClosed("", 0, "MU#7", "127.0.0.1", 6000);
    EXPECT_EQ(NET_ELE_MU, EventOf(g_events.back()));

    mgr.NotifyConnectMU("SCU#7", 6000);
    EXPECT_TRUE(m_log->Contains("The link ID[MU#7] is already exsit."));
    mgr.OnLinkClosed("", 0, "SCU#7", "127.0.0.1", 5000);
    EXPECT_TRUE(m_log->Contains("The link strIP: 127.0.0.1, uiMUServerPort: 6000"));

    // The SCU of this node's own name keeps its media link.
    const std::string own = GvxConfigMgr()->GetGvxNetElementID();
    const std::string ownScu = "SCU" + (own.size() > 3 ? own.substr(3) : std::string("#"));
    mgr.OnLinkClosed("", 0, ownScu, "127.0.0.1", 5000);
    EXPECT_TRUE(m_log->Contains("strLocolLinkID is:"));
}

TEST_F(ConnectionMgrTest, AnIdentifierTooLongForTheRecordIsNotReported) {
    const std::string longId = "SCU#" + std::string(37, 'x');
    GvxConnectionMgr()->OnLinkOpened("", 0, longId, "127.0.0.1", 1);
    EXPECT_TRUE(g_events.empty());
    EXPECT_TRUE(m_log->Contains("strncpy_s SdkParms.chNetEleLinkId failed!"));
    GvxConnectionMgr()->OnLinkClosed("", 0, longId, "127.0.0.1", 1);
}

TEST_F(ConnectionMgrTest, XmlRequestCarriesTheGivenTransactionAndReturnsItsSequenceNumber) {
    CBB::CXml xml;
    xml.AddElem("Content", "x");
    const unsigned seq = GvxConnectionMgr()->SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_QUERY_GVX_TYPE_REQ,
                                                               xml, "SCU#7", "T-1");
    ASSERT_EQ(1u, m_frames.size());
    EXPECT_EQ(seq, m_frames[0].Seq());
    EXPECT_EQ("T-1", m_frames[0].Transaction());
    EXPECT_EQ("GVX#000", m_frames[0].linkID);
    EXPECT_EQ(0u, BP::CTransactionMgr::OpenTransactions()) << "no transaction stays open for the answer";

    GvxConnectionMgr()->SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_QUERY_GVX_TYPE_REQ, xml, "SCU#7", "");
    EXPECT_FALSE(m_frames[1].Transaction().empty());
}

TEST_F(ConnectionMgrTest, StructRequestIsHeadAndBytes) {
    const unsigned seq = GvxConnectionMgr()->SendReqMsgWithStruct(
        BP::SUBSYS_OMU, kElementOMU, NSS_GVX_PLUGIN_ALARM_REPORT_REQ, "abc", 3, "OMU#1");
    GvxConnectionMgr()->SendReqMsgWithStruct(BP::SUBSYS_OMU, kElementOMU, NSS_GVX_PLUGIN_ALARM_REPORT_REQ, nullptr, 0,
                                             "OMU#1");
    ASSERT_EQ(2u, m_frames.size());
    EXPECT_EQ(0x0100u, m_frames[0].Number(0, 2));
    EXPECT_EQ(0x0C76u, m_frames[0].Type());
    EXPECT_EQ(seq, m_frames[0].Seq());
    EXPECT_EQ(119u, m_frames[0].Length());
    EXPECT_EQ("abc", m_frames[0].bytes.substr(116));
    EXPECT_EQ(116u, m_frames[1].bytes.size());
}

TEST_F(ConnectionMgrTest, ResponsesRepeatWhatTheirFormRepeats) {
    auto cmd = Request(0x0501, 4711, "T-2", 99);
    CBB::CXml xml;
    xml.AddElem("Content", "ok");
    Json::Value value(Json::objectValue);
    value["a"] = 1;
    GvxConnectionMgr()->SendRespMsgWithXml(cmd.get(), &xml, 5, false);
    GvxConnectionMgr()->SendRespMsgWithXml(cmd.get(), nullptr, 6, true);
    GvxConnectionMgr()->SendRespMsgWithStruct(cmd.get(), "xy", 2, 7);
    GvxConnectionMgr()->SendRespMsgWithJson(cmd.get(), value, 8);
    ASSERT_EQ(4u, m_frames.size());
    for (std::size_t i = 0; i < m_frames.size(); ++i) {
        EXPECT_EQ(0x9501u, m_frames[i].Type());
        EXPECT_EQ("T-2", m_frames[i].Transaction());
        EXPECT_EQ(5u + i, m_frames[i].RspCode());
        EXPECT_EQ(m_frames[i].bytes.size(), m_frames[i].Length());
        const bool json = i == 3;
        EXPECT_EQ(json ? 0u : 4711u, m_frames[i].Seq());
        EXPECT_EQ(json ? 0u : 99u, m_frames[i].Trace());
    }
    EXPECT_EQ(116u, m_frames[1].bytes.size());
    EXPECT_EQ("xy", m_frames[2].bytes.substr(116));
    EXPECT_EQ(NSS_TAG_JSON_CONTENT, m_frames[3].Tag());
    EXPECT_EQ("{\"a\":1}\n", m_frames[3].Value());
}

TEST_F(ConnectionMgrTest, ALengthWithoutBytesSendsTheHeadAlone) {
    auto cmd = Request(0x0501, 1, "T-3", 0);
    GvxConnectionMgr()->SendRespMsgWithStruct(cmd.get(), nullptr, 40, 0);
    ASSERT_EQ(1u, m_frames.size());
    EXPECT_EQ(116u, m_frames[0].bytes.size());
    EXPECT_EQ(116u, m_frames[0].Length());
}

TEST_F(ConnectionMgrTest, ATransactionThatFillsItsFieldIsAnswered) {
    const std::string full(64, 't');
    auto cmd = Request(0x0501, 1, full.c_str(), 0);
    GvxConnectionMgr()->SendRespMsgWithXml(cmd.get(), nullptr, 0, false);
    GvxConnectionMgr()->SendRespMsgWithJson(cmd.get(), Json::Value(Json::objectValue), 0);
    ASSERT_EQ(2u, m_frames.size());
    EXPECT_EQ(full, m_frames[0].bytes.substr(12, 64));
    EXPECT_EQ(full, m_frames[1].bytes.substr(12, 64));
}

TEST_F(ConnectionMgrTest, SynchronousRequestReturnsItsAnswerAndUsesTheCallersLink) {
    std::thread peer;
    BP::CDispatcher::SetWriter([&](const std::string& linkID, ACE_Message_Block* block) {
        m_frames.push_back({linkID, std::string(block->rd_ptr(), block->length())});
        block->release();
        peer = std::thread([&, trans = m_frames.back().Transaction()] {
            auto* answer = new ACE_Message_Block();
            CNssXMLMsg message(0x9BAB, 1, trans.c_str(), 0, 0);
            EXPECT_EQ(0, message.encode(answer));
            BP::CDispatcher::FrameArrived(kElementGVX, "GVX#000", answer);
        });
        return 0;
    });
    const std::unique_ptr<BP::CCmd> answer(
        GvxConnectionMgr()->SyncSendReqMsg(7, kElementSCU, "SCU#7", "T-4", 0x0BAB, "abc", 3, 20));
    peer.join();
    ASSERT_NE(nullptr, answer);
    EXPECT_EQ(0x9BABu, answer->GetReqID());
    EXPECT_EQ("SCU#7", m_frames[0].linkID);
    EXPECT_EQ("abc", m_frames[0].bytes.substr(116));
}

TEST_F(ConnectionMgrTest, FailedSendsGiveTheirResultsAndLeakNothing) {
    m_writeResult = ZVS_NET_SEND_ERROR;
    CBB::CXml xml;
    xml.AddElem("Content", "x");
    CGvxConnectionMgr& mgr = *GvxConnectionMgr();
    EXPECT_EQ(1u, mgr.SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_QUERY_GVX_TYPE_REQ, xml, "", ""));
    EXPECT_EQ(1u, mgr.SendReqMsgWithStruct(BP::SUBSYS_SCU, kElementSCU, NSS_QUERY_GVX_TYPE_REQ, "a", 1, ""));
    EXPECT_EQ(1, mgr.SendRetMsgWithJson(NSS_QUERY_GVX_TYPE_REQ, "{}", kElementSCU, "", ""));
    EXPECT_TRUE(m_log->Contains("Send msg out failed, sub system type is [1], element type is [10105]"));

    // An alarm report gives the dispatcher's own value and logs nothing of its own.
    m_log->Clear();
    auto* block = new ACE_Message_Block();
    CNssXMLMsg message(NSS_ALARM_REPORT_REQ, 1, "T", 0, 0);
    ASSERT_EQ(0, message.encode(block));
    EXPECT_EQ(ZVS_NET_SEND_ERROR, mgr.SendMsgOut(0, "", "T", NSS_ALARM_REPORT_REQ, block, 0, false));
    EXPECT_FALSE(m_log->Contains("ReqID is"));
    if (block != nullptr) {
        block->release();
    }
    mgr.SendRespMsgWithXml(nullptr, nullptr, 0, false);
    EXPECT_TRUE(m_log->Contains("Cmd pointer is null."));
}

// A success alone stands in the operation log, which has a file of its own where one is set.
TEST_F(ConnectionMgrTest, ADeviceStatusReportStandsInTheOperationLog) {
    const auto operations = std::make_shared<RecordingLogger>();
    OMAdapter::getInstance()->setOperationLogger(operations);
    CBB::CXml xml;
    xml.AddElem("Content", "x");
    CGvxConnectionMgr& mgr = *GvxConnectionMgr();
    EXPECT_GT(mgr.SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_DEV_STATUS_REPORT_REQ, xml, "SCU#7", "trans9"), 2u);
    mgr.SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_QUERY_GVX_TYPE_REQ, xml, "SCU#7", "");
    m_writeResult = ZVS_NET_SEND_ERROR;
    mgr.SendReqMsgWithXml(BP::SUBSYS_SCU, kElementSCU, NSS_DEV_STATUS_REPORT_REQ, xml, "SCU#7", "");
    OMAdapter::getInstance()->setOperationLogger(nullptr);
    ASSERT_EQ(1u, operations->Lines().size());
    EXPECT_EQ("[NSS_DEV_STATUS_REPORT_REQ] [" + GvxConfigMgr()->GetGvxNetElementID() +
                  "] [SCU#7] [trans9] gvx send device status report to scu, successful",
              operations->Lines()[0].text);
    EXPECT_EQ(0u, m_log->Count("gvx send device status report to scu"));
}

}  // namespace
