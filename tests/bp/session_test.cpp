#include "base/zvs_error.h"
#include "bp/dispatcher.h"
#include "bp/message_block_ptr.h"
#include "bp/session.h"
#include "support/caught_frames.h"
#include "support/fake_peer.h"
#include "support/recording_logger.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

namespace {

constexpr std::uint32_t kRequest = 0x0131;

class Session : public ::testing::Test {
protected:
    void SetUp() override { m_session.SetRespDevID("CAM001"); }
    void TearDown() override { BP::ClearSessionWork(); }
    static std::unique_ptr<BP::CCmd> Command(std::uint32_t reqID, bool withFrame = true) {
        auto cmd = std::make_unique<BP::CCmd>();
        cmd->SetReqID(reqID);
        cmd->SetNetLinkID("SCU#1");
        if (withFrame) {
            cmd->SetMsgBlock(BlockOf(FakePeer::MakeFrame(static_cast<std::uint16_t>(reqID), 77, "trans", 3)));
        }
        return cmd;
    }

    ScopedRecordingLogger m_log{OM_LOG_INFO};
    BP::CDevicePtzSession m_session;
    CaughtFrames m_answers;
};

TEST(CommandClone, IsAFrameOfItsOwnThatLivesGrowsAndIsClonedAsAnyOther) {
    BP::CCmd cmd;
    auto* const block = new ACE_Message_Block(64);
    block->copy("head and body", 13);
    block->rd_ptr(5);
    cmd.SetMsgBlock(block);
    cmd.SetTransID("a transaction text that is longer than a string keeps within itself");
    std::unique_ptr<BP::CCmd> clone(cmd.NewClone());
    cmd.SetMsgBlock(nullptr);
    EXPECT_EQ(clone->GetTransID(), cmd.GetTransID());
    const BP::MessageBlockPtr frame(clone->ReleaseMsgBlock());
    clone.reset();
    const BP::MessageBlockPtr second(frame->clone());
    ASSERT_EQ(frame->size(4096), 0);
    EXPECT_EQ(std::string(frame->rd_ptr(), frame->length()), "and body");
    EXPECT_EQ(std::string(second->rd_ptr(), second->length()), "and body");
}

TEST_F(Session, RunsTheWorkOfItsRequestTypeEvenOneThatThrows) {
    const auto cmd = Command(kRequest);
    BP::RegisterSessionWork(kRequest, [](BP::CGvxSessionBase&, const BP::CCmd&) { return 1; });
    BP::RegisterSessionWork(kRequest, [&](BP::CGvxSessionBase& session, const BP::CCmd& served) {
        EXPECT_EQ(&m_session, &session);
        EXPECT_EQ(cmd.get(), &served);
        EXPECT_EQ(BP::SessionKind::DevicePtz, session.GetKind());
        return 42;
    });
    EXPECT_EQ(42, m_session.HandleCmd(cmd.get()));
    const std::pair<BP::SessionWork, unsigned int> throwing[] = {
        {[](auto&, auto&) -> int { throw std::runtime_error("lens gone"); }, ZVS_FAIL},
        {[](auto&, auto&) -> int { throw 5; }, ZVS_FAIL},
        {[](auto&, auto&) -> int { throw std::bad_alloc(); }, ZVS_ALLOC_MEMORY_ERROR}};
    for (const auto& [work, code] : throwing) {
        BP::RegisterSessionWork(kRequest, work);
        EXPECT_EQ(ZVS_FAIL, m_session.HandleCmd(cmd.get()));
        EXPECT_EQ(code, m_answers.Take().at(0).Head().uiRspCode);
    }
    EXPECT_TRUE(m_log->Contains("lens gone [dev:CAM001]"));
    EXPECT_EQ(ZVS_NULL_POINTER, m_session.HandleCmd(nullptr));
}

TEST_F(Session, AnswersARequestWithoutWorkOnItsOwnLink) {
    BP::RegisterSessionWork(kRequest, [](BP::CGvxSessionBase&, const BP::CCmd&) { return 0; });
    BP::RegisterSessionWork(kRequest, BP::SessionWork());
    EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, m_session.HandleCmd(Command(kRequest).get()));
    ASSERT_EQ(1u, m_answers.Count());
    const CaughtFrame answer = m_answers.All()[0];
    EXPECT_EQ("SCU#1", answer.linkID);
    EXPECT_EQ(FakePeer::MakeFrame(0x9131, 77, "trans", ZVS_GVX_DEV_UN_SUPPORT), answer.bytes);
    // Neither responses nor commands without a frame are answered.
    for (const auto& [reqID, withFrame] : {std::pair(0x9A5Au, true), {0xFFFAu, true}, {kRequest, false}}) {
        EXPECT_EQ(ZVS_GVX_DEV_UN_SUPPORT, m_session.HandleCmd(Command(reqID, withFrame).get()));
    }
    EXPECT_EQ(1u, m_answers.Count());
}

}  // namespace
