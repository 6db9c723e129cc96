#include "base/zvs_error.h"
#include "bp/dispatcher.h"
#include "bp/frame_head.h"
#include "bp/service.h"
#include "bp/session.h"
#include "support/fake_peer.h"
#include "support/recording_logger.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

namespace {

constexpr std::uint32_t kRequest = 0x0131;

class Session : public ::testing::Test {
protected:
    void SetUp() override {
        BP::CDispatcher::SetWriter([this](const std::string& link, ACE_Message_Block* block) {
            m_link = link;
            ++m_answers;
            EXPECT_TRUE(BP::ReadFrameHead(block, m_answer));
            EXPECT_EQ(kNssHeaderBytes, block->length());
            if (m_writeResult == 0) {
                block->release();
            }
            return m_writeResult;
        });
        m_session.SetRespDevID("CAM001");
    }
    void TearDown() override {
        BP::CDispatcher::SetWriter(nullptr);
        BP::ClearSessionWork();
    }
    static std::unique_ptr<BP::CCmd> Command(std::uint32_t reqID, bool withFrame = true) {
        auto cmd = std::make_unique<BP::CCmd>();
        cmd->SetReqID(reqID);
        cmd->SetNetLinkID("SCU#1");
        if (withFrame) {
            const std::string bytes = FakePeer::MakeFrame(static_cast<std::uint16_t>(reqID), 77, "trans", 3);
            auto* block = new ACE_Message_Block(bytes.size());
            block->copy(bytes.data(), bytes.size());
            cmd->SetMsgBlock(block);
        }
        return cmd;
    }

    ScopedRecordingLogger m_log{OM_LOG_INFO};
    BP::CDevicePtzSession m_session;
    NssMsgHeader m_answer{};
    std::string m_link;
    int m_answers = 0;
    int m_writeResult = 0;
};

TEST_F(Session, RunsTheWorkOfItsRequestType) {
    const auto cmd = Command(kRequest);
    BP::RegisterSessionWork(kRequest, [](BP::CGvxSessionBase&, const BP::CCmd&) { return 1; });
    BP::RegisterSessionWork(kRequest, [&](BP::CGvxSessionBase& session, const BP::CCmd& served) {
        EXPECT_EQ(&m_session, &session);
        EXPECT_EQ(cmd.get(), &served);
        EXPECT_EQ(BP::SessionKind::DevicePtz, session.GetKind());
        return 42;
    });
    EXPECT_EQ(42, m_session.HandleCmd(cmd.get()));
    EXPECT_EQ(0, m_answers);
    EXPECT_EQ(ZVS_NULL_POINTER, m_session.HandleCmd(nullptr));
}

TEST_F(Session, AnswersARequestWithoutWorkOnItsOwnLink) {
    BP::RegisterSessionWork(kRequest, [](BP::CGvxSessionBase&, const BP::CCmd&) { return 0; });
    BP::RegisterSessionWork(kRequest, BP::SessionWork());
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, m_session.HandleCmd(Command(kRequest).get()));
    ASSERT_EQ(1, m_answers);
    EXPECT_EQ("SCU#1", m_link);
    EXPECT_EQ(0x9131, m_answer.usiMsgType);
    EXPECT_EQ(77u, m_answer.uiSeqID);
    EXPECT_EQ("trans", BP::TransactionOf(m_answer));
    EXPECT_EQ(static_cast<std::uint32_t>(ZVS_GVX_DEV_UN_SUPPORT), m_answer.uiRspCode);
}

TEST_F(Session, AnswersNeitherResponsesNorCommandsWithoutAFrame) {
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, m_session.HandleCmd(Command(0x9A5A).get()));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, m_session.HandleCmd(Command(0xFFFA).get()));
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, m_session.HandleCmd(Command(kRequest, false).get()));
    EXPECT_EQ(0, m_answers);
    m_writeResult = ZVS_NET_SEND_ERROR;
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, m_session.HandleCmd(Command(kRequest).get()));
    EXPECT_TRUE(m_log->Contains("The refusal of cmd[0x0131] did not leave."));
}

TEST_F(Session, WorkThatThrowsIsLoggedWithTheDevice) {
    BP::RegisterSessionWork(
        kRequest, [](BP::CGvxSessionBase&, const BP::CCmd&) -> int { throw std::runtime_error("lens gone"); });
    EXPECT_EQ(ZVS_FAIL, m_session.HandleCmd(Command(kRequest).get()));
    EXPECT_TRUE(m_log->Contains("lens gone [dev:CAM001]"));
    BP::RegisterSessionWork(kRequest, [](BP::CGvxSessionBase&, const BP::CCmd&) -> int { throw 5; });
    EXPECT_EQ(ZVS_FAIL, m_session.HandleCmd(Command(kRequest).get()));
    EXPECT_EQ(2u, m_log->Count("[dev:CAM001]"));
}

TEST_F(Session, WorkMayBeReplacedWhileItRuns) {
    std::atomic<int> served{0};
    std::atomic<bool> stop{false};
    const BP::SessionWork work = [&served](BP::CGvxSessionBase&, const BP::CCmd&) {
        ++served;
        BP::ClearSessionWork();  // also by the work itself
        return 0;
    };
    std::thread registering([&] {
        while (!stop) {
            BP::RegisterSessionWork(kRequest, work);
        }
    });
    const auto cmd = Command(kRequest, false);
    while (served < 100) {
        const int result = m_session.HandleCmd(cmd.get());
        EXPECT_TRUE(result == 0 || result == ZVS_GVX_DEV_UN_SUPPORT);
    }
    stop = true;
    registering.join();
}

TEST_F(Session, QuestionsWithoutAnImplementationAreAnsweredByNotFound) {
    BP::CPluginInfo info;
    EXPECT_EQ(1, BP::CDeviceMgr::ProcessSdkException(nullptr));
    EXPECT_EQ("", BP::CDeviceMgr::GetReqDevID(1));
    EXPECT_EQ(1, BP::CDeviceMgr::HandleClusterTaskShiftIn(0, ""));
    EXPECT_EQ(1, BP::CPluginMgr::RegisterPlugin());
    EXPECT_FALSE(BP::CPluginMgr::FindPlugin("file", info));
}

}  // namespace
