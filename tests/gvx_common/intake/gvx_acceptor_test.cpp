#include "gvx_common/intake/gvx_acceptor.h"

#include "base/log.h"
#include "bp/message_block_ptr.h"
#include "bp/poll_reactor.h"
#include "support/fake_peer.h"
#include "support/recording_logger.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <ace/Event_Handler_Handle_Timeout_Upcall.h>
#include <ace/INET_Addr.h>
#include <ace/Reactor_Impl.h>
#include <ace/Timer_Heap_T.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>

namespace {

// Timers that follow the clock of the test.
using TestTimers = ACE_Timer_Heap_T<ACE_Event_Handler*, ACE_Event_Handler_Handle_Timeout_Upcall,
                                    ACE_SYNCH_RECURSIVE_MUTEX, ACE_FPointer_Time_Policy>;

ACE_Time_Value TestNow() {
    const std::int64_t now = gvx::CurrentClock().WallMicroseconds();
    return ACE_Time_Value(static_cast<time_t>(now / 1000000), static_cast<suseconds_t>(now % 1000000));
}

// The test's own thread serves the reactor.
class AcceptorTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(nullptr, m_reactor);
        m_timers.gettimeofday(&TestNow);
        m_reactor->implementation()->timer_queue(&m_timers);
        m_acceptor.SetMsgQueue(&m_queue);
        ASSERT_EQ(0, m_acceptor.start(ACE_INET_Addr(static_cast<u_short>(0), "127.0.0.1"), m_reactor.get()));
        ACE_INET_Addr bound;
        ASSERT_EQ(0, m_acceptor.acceptor().get_local_addr(bound));
        m_port = bound.get_port_number();
    }
    void TearDown() override {
        m_clients.clear();
        EXPECT_TRUE(WaitUntil([this] { return Serve(), m_log->Count("GVX Close fd[") == m_opened; }));
        m_acceptor.stop();
        EXPECT_EQ(m_memstatBefore, g_bp_memstat);
        m_reactor.reset();
    }

    void Serve() {
        const ACE_Time_Value moment(0, 1000);  // with nothing left of it, the reactor passes over its timers
        ACE_Time_Value wait = moment;
        while (m_reactor->handle_events(wait) > 0) {
            wait = moment;
        }
    }
    void Connect(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            m_clients.push_back(FakePeer::Connect(m_port));
            ASSERT_NE(nullptr, m_clients.back());
            ACE_Time_Value limit(20);
            ASSERT_EQ(1, m_reactor->handle_events(limit));
            ++m_opened;
        }
    }
    BP::MessageBlockPtr Next() {
        EXPECT_TRUE(WaitUntil([this] { return Serve(), !m_queue.is_empty(); }));
        ACE_Message_Block* block = nullptr;
        m_queue.dequeue_head(block);
        return BP::MessageBlockPtr(block);
    }
    std::size_t ClosedAmong(std::size_t first, std::size_t last) const {
        std::size_t closed = 0;
        for (; first < last; ++first) {
            closed += m_clients[first]->Connected() ? 0 : 1;
        }
        return closed;
    }

    ScopedRecordingLogger m_log{OM_LOG_INFO};
    ScopedTestClock m_clock;
    const long m_memstatBefore = g_bp_memstat;
    TestTimers m_timers;
    GvxReceiverQueue m_queue{std::size_t{1} << 24, std::size_t{1} << 24};
    std::unique_ptr<ACE_Reactor> m_reactor = BP::MakePollReactor();
    CGVXAcceptor m_acceptor;
    std::uint16_t m_port = 0;
    std::vector<std::unique_ptr<FakePeer>> m_clients;
    std::size_t m_opened = 0;
};

TEST_F(AcceptorTest, PostsWhatItReadsBehindTheHeadAndClosesForWantOfAQueue) {
    Connect(2);
    ASSERT_TRUE(m_clients[0]->SendRaw(std::string(1500, 'a')));
    const BP::MessageBlockPtr block = Next();
    ASSERT_NE(nullptr, block);
    ASSERT_EQ(1064u, block->length());
    std::int32_t length = 0;
    std::memcpy(&length, block->rd_ptr() + 36, sizeof(length));
    EXPECT_EQ(1024, length);
    EXPECT_STREQ("127.0.0.1", block->rd_ptr());
    EXPECT_STREQ("20260102030405", block->rd_ptr() + 16);
    EXPECT_EQ(std::string(1024, 'a'), std::string(block->rd_ptr() + 40, 1024));
    EXPECT_EQ(m_clients[0]->LocalPort(), block->msg_priority());
    EXPECT_EQ(40u + 476, Next()->length());
    EXPECT_TRUE(::fcntl(m_acceptor.get_handle(), F_GETFD) & FD_CLOEXEC);

    m_queue.deactivate();
    ASSERT_TRUE(m_clients[0]->SendRaw("lost"));
    ASSERT_TRUE(WaitUntil([this] { return Serve(), m_log->Contains("handle_input enqueue_tail failed!"); }));
    m_queue.activate();
    ASSERT_TRUE(m_clients[0]->SendRaw("taken"));
    EXPECT_EQ(45u, Next()->length());
    m_acceptor.SetMsgQueue(nullptr);
    Connect(1);
    ASSERT_TRUE(m_clients[2]->SendRaw("x"));
    EXPECT_TRUE(WaitUntil([this] { return Serve(), ClosedAmong(2, 3) == 1; }));
    EXPECT_EQ(0u, ClosedAmong(0, 2));

    CGVXAcceptor other;
    EXPECT_EQ(1, other.start(ACE_INET_Addr(m_port, "127.0.0.1"), m_reactor.get())) << "the port is taken";
    EXPECT_EQ(0, other.start(ACE_INET_Addr(static_cast<u_short>(0), "127.0.0.1"), m_reactor.get()));
    const ACE_HANDLE handle = other.get_handle();
    other.stop();
    other.stop();
    EXPECT_EQ(nullptr, m_reactor->find_handler(handle));
}

// Half of them silent, half of them sending at the same moment, ten seconds after they have connected.
TEST_F(AcceptorTest, ConnectionsGoAsTheyFallSilent) {
    constexpr std::size_t kAll = 200;
    constexpr std::size_t kSilent = 100;
    Connect(kAll);
    m_clock->AdvanceSeconds(10);
    for (std::size_t client = kSilent; client < kAll; ++client) {
        ASSERT_TRUE(m_clients[client]->SendRaw("alarm " + std::to_string(client) + "\n"));
    }
    ASSERT_TRUE(WaitUntil([&] { return Serve(), m_queue.message_count() == kAll - kSilent; }));
    EXPECT_EQ(0u, m_log->Count("socket timeout"));

    m_clock->AdvanceSeconds(20);
    ASSERT_TRUE(WaitUntil([&] { return Serve(), ClosedAmong(0, kSilent) == kSilent; }));
    EXPECT_EQ(0u, ClosedAmong(kSilent, kAll)) << "they have been silent for 20 s";
    m_clock->AdvanceSeconds(30);
    ASSERT_TRUE(WaitUntil([&] { return Serve(), ClosedAmong(kSilent, kAll) == kAll - kSilent; }));
    EXPECT_EQ(kAll, m_log->Count("socket timeout, will close the connection"));
}

}  // namespace
