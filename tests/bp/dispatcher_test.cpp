#include "base/zvs_error.h"
#include "bp/dispatcher.h"
#include "bp/link_engine.h"
#include "support/caught_frames.h"
#include "support/fake_peer.h"
#include "support/recording_logger.h"
#include "support/run_threads.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>

namespace {

constexpr std::uint16_t kRequest = 0x0BAA;
constexpr std::uint16_t kResponse = 0x9BAA;

ACE_Message_Block* Block(std::uint16_t type, const std::string& transID) {
    return BlockOf(FakePeer::MakeFrame(type, 1, transID));
}

class Dispatcher : public ::testing::Test {
protected:
    void SetUp() override {
        BP::CDispatcher::SetSink([this](std::unique_ptr<BP::CCmd> cmd) {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_sunk.push_back(cmd->GetTransID());
            return m_sinkResult.load();
        });
    }
    void TearDown() override {
        BP::CDispatcher::SetSink(nullptr);
        BP::CTransactionMgr::Resume();
    }
    static std::unique_ptr<BP::CCmd> SendAndWait(const std::string& trans, unsigned int seconds) {
        return std::unique_ptr<BP::CCmd>(BP::CDispatcher::dispatcherSyncMsgOut(9, 40105, "GVX#1", trans, kRequest,
                                                                               Block(kRequest, trans), false, seconds));
    }
    bool Written() const {
        return WaitUntil([this] { return m_frames.Count() > 0; });
    }
    std::vector<std::string> Sunk() {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_sunk;
    }

    ScopedRecordingLogger m_log{OM_LOG_INFO};
    CaughtFrames m_frames;
    std::atomic<int> m_sinkResult{0};

private:
    std::mutex m_mutex;
    std::vector<std::string> m_sunk;  // Guarded by m_mutex.
};

TEST_F(Dispatcher, OutTakesTheBlockOnSuccessAndLeavesItOnFailure) {
    ACE_Message_Block* none = nullptr;
    EXPECT_EQ(ZVS_NULL_POINTER, BP::CDispatcher::dispatcherOutWithoutTransaction(0, "GVX#1", "t", 1, none, false, 0));
    ACE_Message_Block* block = Block(kRequest, "t");
    EXPECT_EQ(ZVS_PARA_INVALID, BP::CDispatcher::dispatcherOutWithoutTransaction(0, "GVX#1", "t", 1, block, true, 0));
    m_frames.AnswerWith(ZVS_NET_SEND_ERROR);
    EXPECT_EQ(ZVS_NET_SEND_ERROR, BP::CDispatcher::dispatcherOutWithoutTransaction(0, "", "t", 1, block, false, 0));
    EXPECT_EQ(ZVS_NET_SEND_ERROR,
              BP::CDispatcher::dispatcherOutWithTransaction(9, 0, nullptr, "t", 1, block, false, 0));
    EXPECT_EQ(0u, BP::CTransactionMgr::OpenTransactions());
    m_frames.AnswerWith(0);
    block->wr_ptr(block->wr_ptr() - 1);
    EXPECT_EQ(ZVS_PARA_INVALID, BP::CDispatcher::dispatcherOutWithoutTransaction(0, "GVX#1", "t", 1, block, false, 0));
    block->wr_ptr(1);
    EXPECT_EQ(0, BP::CDispatcher::dispatcherOutWithTransaction(9, 0, "GVX#1", "t", 1, block, false, 0));
    EXPECT_EQ(nullptr, block);
    EXPECT_EQ(1u, BP::CTransactionMgr::OpenTransactions());
    BP::CTransactionMgr::RemoveTransaction("t");
    EXPECT_EQ(0u, BP::CTransactionMgr::OpenTransactions());
}

TEST_F(Dispatcher, OpenTransactionsEndByTheirAnswerOrByTheirAge) {
    ScopedTestClock clock;
    for (const char* trans : {"a", "b", "c", ""}) {
        ACE_Message_Block* block = Block(kRequest, trans);
        ASSERT_EQ(0, BP::CDispatcher::dispatcherOutWithTransaction(9, 0, "GVX#1", trans, 1, block, false, 0));
        clock->AdvanceSeconds(20);
    }
    EXPECT_EQ(3u, BP::CTransactionMgr::OpenTransactions());
    EXPECT_EQ(0, BP::CDispatcher::FrameArrived(40105, "GVX#1", Block(kResponse, "b")));
    EXPECT_EQ(std::vector<std::string>{"b"}, Sunk());
    EXPECT_EQ(1u, BP::CTransactionMgr::ExpireTransactions());
    EXPECT_EQ(1u, BP::CTransactionMgr::OpenTransactions());
    clock->AdvanceSeconds(60);
    EXPECT_EQ(1u, BP::CTransactionMgr::ExpireTransactions());
}

TEST_F(Dispatcher, InKeepsTheCallersBlockWhenRefusedAndTakesItOtherwise) {
    // As the core does on the opening of the main-service link: storage, but nothing written to it.
    auto* block = new ACE_Message_Block(kNssHeaderBytes);
    m_sinkResult = 5;
    EXPECT_EQ(5, BP::CDispatcher::dispatcherInWithoutTransaction(40105, "", 0xDC11, "", block, 0));
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(kNssHeaderBytes, block->space());
    m_sinkResult = 0;
    EXPECT_EQ(0, BP::CDispatcher::dispatcherInWithoutTransaction(40105, "", 0xDC11, "one", block, 0));
    EXPECT_EQ(nullptr, block);
    EXPECT_EQ(0, BP::CDispatcher::dispatcherInWithoutTransaction(40105, nullptr, 0x0DA9, nullptr, block, 0));
    BP::CDispatcher::SetSink(nullptr);
    EXPECT_NE(0, BP::CDispatcher::FrameArrived(40105, "GVX#1", Block(kRequest, "t")));
    BP::CDispatcher::SetSink([](std::unique_ptr<BP::CCmd>) -> int { throw std::runtime_error("sink fault"); });
    EXPECT_EQ(ZVS_FAIL, BP::CDispatcher::FrameArrived(40105, "GVX#1", Block(kRequest, "t")));
    EXPECT_TRUE(m_log->Contains("sink fault"));
    EXPECT_EQ(ZVS_PARA_INVALID, BP::CDispatcher::FrameArrived(40105, "GVX#1", new ACE_Message_Block(10)));
}

TEST_F(Dispatcher, SynchronousSendGetsItsAnswerAndAllElseReachesTheSink) {
    std::unique_ptr<BP::CCmd> answer;
    std::thread waiting([&] { answer = SendAndWait("mine", 60); });
    ASSERT_TRUE(Written());
    EXPECT_EQ(0, BP::CDispatcher::FrameArrived(40105, "GVX#1", Block(kRequest, "mine")));    // no response
    EXPECT_EQ(0, BP::CDispatcher::FrameArrived(40105, "GVX#1", Block(kResponse, "other")));  // another's
    EXPECT_EQ(0, BP::CDispatcher::FrameArrived(40105, "GVX#1", Block(0x9BAB, "mine")));      // of another request
    EXPECT_EQ(0, BP::CDispatcher::FrameArrived(40105, "GVX#2", Block(kResponse, "mine")));   // of nobody who was asked
    EXPECT_EQ(0, BP::CDispatcher::FrameArrived(40105, "GVX#1", Block(kResponse, "mine")));
    EXPECT_EQ(0, BP::CDispatcher::FrameArrived(40105, "GVX#1", Block(kResponse, "mine")));  // twice
    waiting.join();
    ASSERT_NE(nullptr, answer);
    EXPECT_EQ(kResponse, answer->GetReqID());
    EXPECT_EQ("mine", answer->GetTransID());
    EXPECT_EQ(9u, answer->GetServiceID());
    EXPECT_EQ((std::vector<std::string>{"mine", "other", "mine", "mine", "mine"}), Sunk());
}

TEST_F(Dispatcher, SynchronousSendEndsByTimeAndALateAnswerReachesTheSink) {
    ScopedTestClock clock;
    for (const unsigned int limit : {0u, 30u}) {  // none given: the dispatcher's own
        std::atomic<bool> ended{false};
        std::thread waiting([&] {
            EXPECT_EQ(nullptr, SendAndWait("late", limit));
            ended = true;
        });
        EXPECT_TRUE(WaitUntil([&] {
            clock->AdvanceSeconds(1);
            return ended.load();
        }));
        waiting.join();
    }
    EXPECT_TRUE(m_log->Contains("No answer within 5 s."));
    EXPECT_TRUE(m_log->Contains("No answer within 30 s."));
    EXPECT_EQ(0, BP::CDispatcher::FrameArrived(40105, "GVX#1", Block(kResponse, "late")));
    EXPECT_EQ(std::vector<std::string>{"late"}, Sunk());
}

TEST_F(Dispatcher, StopEndsEveryWaitAndWhatCouldNeverBeAnsweredIsNotSent) {
    std::thread waiting([] { EXPECT_EQ(nullptr, SendAndWait("stopped", 3600)); });
    ASSERT_TRUE(Written());
    BP::CTransactionMgr::StopWaiting();
    waiting.join();
    EXPECT_EQ(nullptr, SendAndWait("after", 3600));
    EXPECT_EQ(1u, m_frames.Count());
    BP::CTransactionMgr::Resume();
    EXPECT_EQ(nullptr, SendAndWait("resumed", 1));
    EXPECT_EQ(2u, m_frames.Count());

    EXPECT_EQ(nullptr, SendAndWait("", 3600));
    {
        const BP::LinkThreadMark mark;
        EXPECT_EQ(nullptr, SendAndWait("t", 3600));
    }
    EXPECT_EQ(2u, m_frames.Count());
    m_frames.AnswerWith(ZVS_NET_SEND_ERROR);
    EXPECT_EQ(nullptr, SendAndWait("t", 3600));
}

TEST_F(Dispatcher, ManySynchronousSendsAtOnceEachGetTheirOwnAnswer) {
    const CaughtFrames answered([](const CaughtFrame& frame) {
        BP::CDispatcher::FrameArrived(40105, "GVX#1", Block(kResponse, frame.Transaction()));
    });
    RunThreads(4, [](int /*thread*/) {
        for (int count = 0; count < 200; ++count) {
            const std::string trans = BP::CMKTransID::GenerateTransID();
            EXPECT_LE(trans.size(), 40u);
            const auto answer = SendAndWait(trans, 60);
            ASSERT_NE(nullptr, answer);
            EXPECT_EQ(trans, answer->GetTransID());
        }
    });
    EXPECT_TRUE(Sunk().empty());
}

}  // namespace
