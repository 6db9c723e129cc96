#include "gvx_common/intake/gvx_qfc.h"

#include "support/recording_logger.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace {

// Holds its worker up until it is let go on.
class TestQueue : public CQueueFlowControl {
public:
    TestQueue() : CQueueFlowControl("Test", "T") {}

    int QFC_MsgProc(void*) override {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_served;
        m_go.wait(lock, [this] { return !m_held; });
        return 0;
    }
    void QFC_MsgFree(void*) override { ++m_freed; }
    void Hold(bool held) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_held = held;
        m_go.notify_all();
    }
    unsigned Served() const { return m_served; }
    unsigned Freed() const { return m_freed; }
    unsigned Settled() const { return m_ulProcTimeOutCnt + m_ulProcSuccedCnt; }
    unsigned Accepted(int messages) {
        static int number = 7;
        unsigned accepted = 0;
        for (int i = 0; i < messages; ++i) {
            accepted += enqueue_tail(&number) == 0 ? 1 : 0;
        }
        return accepted;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_go;
    bool m_held = false;  // Guarded by m_mutex.
    std::atomic<unsigned> m_served{0};
    std::atomic<unsigned> m_freed{0};
};

// The threads of a queue never end, so each is kept for the process.
TestQueue& KeptQueue() {
    static auto& queues = *new std::vector<TestQueue*>;
    queues.push_back(new TestQueue);
    return *queues.back();
}

class FlowControlTest : public testing::Test {
protected:
    ~FlowControlTest() override { m_queue.Fini(); }

    void PassTimer() { EXPECT_EQ(0, CQfcAlarmTimer().handle_timeout(ACE_Time_Value::zero, &m_queue)); }
    std::size_t Raised(const std::string& reason) const {
        return m_log->Count("On Flux Control Warn Protocal=T,Msg Queue=Test,FlowControlCode=[" + reason);
    }
    std::size_t Cleared(const std::string& reason) const {
        return m_log->Count("On Flux Control Resume Protocal=T,MsgQueue=Test,FlowControlCode=[" + reason);
    }
    std::size_t ErrorLines(const char* text) const {
        const auto lines = m_log->Find(text, "Flow control");
        return static_cast<std::size_t>(
            std::count_if(lines.begin(), lines.end(), [](const auto& line) { return line.level == OM_LOG_ERR; }));
    }
    // 59 s after its last cause an alarm stays, 60 s after it clears, once.
    void ExpectClearsAfterAMinute(const char* reason) {
        m_clock->AdvanceSeconds(59);
        PassTimer();
        EXPECT_EQ(0u, Cleared(reason));
        m_clock->AdvanceSeconds(1);
        PassTimer();
        PassTimer();
        EXPECT_EQ(1u, Cleared(reason));
        EXPECT_EQ(1u, Raised(reason));
    }

    ScopedRecordingLogger m_log;
    ScopedTestClock m_clock;
    TestQueue& m_queue = KeptQueue();
};

TEST_F(FlowControlTest, ShedsWhatIsTooMuchAndWhatWaitsTooLong) {
    ASSERT_TRUE(m_queue.Init());
    m_queue.Hold(true);
    ASSERT_EQ(1u, m_queue.Accepted(1));
    ASSERT_TRUE(WaitUntil([this] { return m_queue.Served() == 1; }));
    EXPECT_EQ(1024u, m_queue.Accepted(1026));
    EXPECT_TRUE(
        m_log->Contains("[QueName: Test , Protocal :T]The message count is reached the upper limit 1024, "
                        "discarded: 2"));
    EXPECT_EQ(1u, ErrorLines("reached the upper limit")) << "one an episode";
    ExpectClearsAfterAMinute("queue full");

    m_queue.Hold(false);
    ASSERT_TRUE(WaitUntil([this] { return m_queue.Settled() == 1025; }));
    EXPECT_EQ(1u, m_queue.Served()) << "what has waited for a minute is not worked on";
    EXPECT_EQ(1025u, m_queue.Freed());
    ExpectClearsAfterAMinute("over time");
    EXPECT_EQ(1024u, m_log->Count("[QueName: Test , Protocal :T]The message process timeout."));
    EXPECT_EQ(1u, ErrorLines("The message process timeout."));

    // A second episode raises it again.
    m_queue.SetMaxQueMsgCount(0);
    EXPECT_EQ(0u, m_queue.Accepted(3));
    EXPECT_EQ(2u, Raised("queue full"));
    EXPECT_EQ(2u, ErrorLines("reached the upper limit"));
}

TEST_F(FlowControlTest, NothingWaitsBesideAnIdleWorker) {
    m_queue.SetMaxMsgProcThreadNum(4);
    ASSERT_TRUE(m_queue.Init());
    for (unsigned round = 1; round <= 50; ++round) {
        m_queue.Hold(true);
        ASSERT_EQ(4u, m_queue.Accepted(4));
        ASSERT_TRUE(WaitUntil([&] { return m_queue.Served() == 4 * round; })) << m_queue.Served();
        m_queue.Hold(false);
        ASSERT_TRUE(WaitUntil([&] { return m_queue.Freed() == 4 * round; }));
    }
}

TEST_F(FlowControlTest, RefusesWhatComesTooFast) {
    m_queue.SetMaxEnQueRate(100);
    EXPECT_EQ(100u, m_queue.Accepted(103));
    PassTimer();
    PassTimer();
    EXPECT_EQ(1u, m_log->Count("Recieve total message : ")) << "a period without arrivals prints nothing";
    EXPECT_TRUE(
        m_log->Contains("Recieve total message : 103, discard: exceed rate limit : 3, queue full : 0, process "
                        "timeout : 0, process succeed : 0.",
                        "Flow control message statistics in this period."));
    m_clock->AdvanceSeconds(1);
    EXPECT_EQ(0u, m_queue.Accepted(1)) << "a window spans two seconds of the clock";
    ExpectClearsAfterAMinute("speed limit exceeded");
    EXPECT_EQ(100u, m_queue.Accepted(101)) << "a new window";
    m_clock->StepWall(std::chrono::seconds(-10));
    EXPECT_EQ(1u, m_queue.Accepted(1)) << "a clock that is set back opens a window too";
}

TEST_F(FlowControlTest, LimitsStartAndEnd) {
    ASSERT_TRUE(m_queue.initAllMaxValue(1024, 1500, CQueueFlowControl::kNoRateLimit, 40, 60));
    EXPECT_EQ(32u, m_queue.thr_count());
    EXPECT_TRUE(m_queue.Init());
    EXPECT_EQ(32u, m_queue.thr_count());

    // 1.5 s of waiting, measured in whole seconds: one second is within, two are not.
    m_queue.Hold(true);
    ASSERT_EQ(40u, m_queue.Accepted(40));
    ASSERT_TRUE(WaitUntil([this] { return m_queue.Served() > 0; }));
    m_clock->AdvanceSeconds(1);
    m_queue.Hold(false);
    ASSERT_TRUE(WaitUntil([this] { return m_queue.Served() == 40 && m_queue.Freed() == 40; }));

    m_queue.Fini();
    ASSERT_TRUE(m_queue.Init()) << "the threads of before serve on";
    EXPECT_EQ(1u, m_queue.Accepted(1));
    EXPECT_TRUE(WaitUntil([this] { return m_queue.Freed() == 41; }));
}

}  // namespace
