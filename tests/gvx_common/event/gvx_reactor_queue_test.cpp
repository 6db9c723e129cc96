#include "gvx_common/event/gvx_reactor.h"

#include "base/log.h"
#include "bp/service.h"
#include "event_test_support.h"
#include "bp/cmd.h"
#include "gvx_common/records/adapter_common_message.h"
#include "support/recording_logger.h"
#include "support/test_clock.h"

#include <atomic>
#include <thread>

namespace {

constexpr std::size_t kQueueLimit = 513;

// Ends the reactor while the gate's command runs, so that all that is queued behind it stays queued.
void StopWithQueueKept(CGvxReactor& reactor, Gate& gate) {
    std::thread opener([&] {
        EXPECT_TRUE(WaitUntil([&] { return !reactor.IsRunning(); }));
        gate.Open();
    });
    EXPECT_EQ(0, reactor.UnInit());
    opener.join();
}

class GvxReactorQueueTest : public ::testing::Test {
protected:
    std::time_t Now() const { return BP::OSTime::Time(); }
    // The queue's order is served in full once this is done.
    void ServeAll(Gate& gate, std::size_t count) {
        gate.Open();
        ASSERT_TRUE(m_served.WaitForCount(count)) << m_served.Count();
    }

    ScopedTestClock m_clock;
    ServedCmds m_served{{NSS_PTZ_CONTROL_REQ, NSS_ADD_MAIN_DEV_REQ, NSS_DEL_MAIN_DEV_REQ, NSS_STOP_STREAM_REQ,
                         NSS_START_STREAM_REQ, NSS_GET_DEV_LOG_REQ, NSS_SNAPSHOT_RSP, GVX_INTERNAL_REQ_DELETE}};
    CGvxReactor m_reactor;  // ends first, and with it every session
};

TEST_F(GvxReactorQueueTest, LimitRefusesAllButStopStreamAndUrgentExceptions) {
    Gate gate(m_reactor);
    for (std::size_t i = 0; i < kQueueLimit; ++i) {
        ASSERT_EQ(0, Push(m_reactor, NSS_PTZ_CONTROL_REQ, "dev")) << i;
    }
    ScopedRecordingLogger log;
    EXPECT_EQ(1, Push(m_reactor, NSS_PTZ_CONTROL_REQ, "dev"));
    EXPECT_EQ(1, Push(m_reactor, NSS_DEL_MAIN_DEV_REQ, "other")) << "a deletion is refused as well";
    EXPECT_EQ(1u, log->Count("device cmd queue excceed max size.")) << "a line an episode";
    EXPECT_EQ(0, Push(m_reactor, NSS_STOP_STREAM_REQ, "dev"));

    const auto pushException = [this](std::uint16_t type, std::size_t bytes) {
        ADAPTER_COMMON_MESSAGE message{};
        message.ExceptionType = type;
        const std::string text(reinterpret_cast<const char*>(&message), sizeof(message));
        return m_reactor.PushMessage(
            TestCmd(GVX_INTERNAL_REQ_SDK_EXCEPTION, "dev").Block(text.substr(0, bytes)).Entry());
    };
    EXPECT_EQ(0, pushException(1, sizeof(ADAPTER_COMMON_MESSAGE)));
    EXPECT_EQ(1, pushException(2, sizeof(ADAPTER_COMMON_MESSAGE)));
    EXPECT_EQ(1, pushException(1, 2)) << "a block that holds no record is not read beyond its end";
    EXPECT_EQ(1, m_reactor.PushMessage(BP::CGvxNssCmd_{}));
    EXPECT_EQ(1, Push(m_reactor, GVX_INTERNAL_REQ_SDK_EXCEPTION, "dev"));
    EXPECT_TRUE(log->Contains("Make sure there is something wrong", "Point pMb is null."));
    ServeAll(gate, kQueueLimit + 1);
}

TEST_F(GvxReactorQueueTest, DeletionGoesFirstAndPurgesItsDevice) {
    Gate gate(m_reactor);
    ScopedRecordingLogger log;
    EXPECT_EQ(0, Push(m_reactor, NSS_PTZ_CONTROL_REQ, "A"));
    EXPECT_EQ(0, Push(m_reactor, NSS_ADD_MAIN_DEV_REQ, "A"));
    EXPECT_EQ(0, Push(m_reactor, NSS_PTZ_CONTROL_REQ, "B"));
    EXPECT_EQ(0, Push(m_reactor, NSS_DEL_MAIN_DEV_REQ, "A"));
    ServeAll(gate, 3);
    EXPECT_EQ((std::vector<std::string>{"0110@A", "0109@A", "0131@B"}), m_served.All());
    EXPECT_EQ(1u, log->Count(" dev[A] discard cmd[0x0131]."));
    EXPECT_EQ(1u, log->Count("DiscardOthersCmd dev[B] push back cmd[0x0131]."));
    // The notification of the purged command finds an empty queue; what follows is served as ever.
    EXPECT_EQ(0, Push(m_reactor, NSS_PTZ_CONTROL_REQ, "A"));
    EXPECT_TRUE(m_served.WaitForCount(4));
    // As it is after an end and a new start.
    const long before = g_bp_memstat.load();
    EXPECT_EQ(0, m_reactor.UnInit());
    EXPECT_EQ(0, m_reactor.UnInit());
    EXPECT_EQ(0, m_reactor.Init());
    EXPECT_EQ(before, g_bp_memstat.load());
    EXPECT_EQ(0, Push(m_reactor, NSS_PTZ_CONTROL_REQ, "A"));
    EXPECT_TRUE(m_served.WaitForCount(5));
}

TEST_F(GvxReactorQueueTest, ExpiryByClassAndList) {
    struct Row {
        std::uint32_t reqID;
        long waited;
        bool served;
        bool stamped = true;  // a command without a timestamp never expires
    };
    const std::vector<Row> rows = {
        {NSS_START_STREAM_REQ, 9, true},       {NSS_START_STREAM_REQ, 10, false},
        {NSS_GET_DEV_LOG_REQ, 29, true},       {NSS_GET_DEV_LOG_REQ, 30, false},
        {NSS_ADD_MAIN_DEV_REQ, 9999, true},    {NSS_STOP_STREAM_REQ, 9999, true},
        {GVX_INTERNAL_REQ_DELETE, 9999, true}, {NSS_GET_DEV_LOG_REQ, 9999, true, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.reqID);
        const std::size_t before = m_served.Count();
        Gate gate(m_reactor);
        ScopedRecordingLogger log;
        EXPECT_EQ(0, Push(m_reactor, row.reqID, "dev", row.stamped ? Now() : 0));
        EXPECT_EQ(0, Push(m_reactor, NSS_ADD_MAIN_DEV_REQ, "marker"));
        m_clock->AdvanceSeconds(row.waited);
        ServeAll(gate, before + (row.served ? 2u : 1u));
        EXPECT_EQ(row.served ? 0u : 1u, log->Count("will discard."));
        EXPECT_EQ("0109@marker", m_served.All().back());
    }
}

TEST_F(GvxReactorQueueTest, LimitOfZeroDisablesExpiryOfItsClassAlone) {
    // "131" stands inside "0xab1310", so the PTZ command 0x0131 is on the list of those that never expire.
    const ScopedSettings settings("MU_NSS_TIMEOUT=0\nNEVER_TIMEOUT_MESSAGE_TYPE=0xab1310\n");
    Gate gate(m_reactor);
    for (const std::uint32_t reqID : {NSS_START_STREAM_REQ + 0u, NSS_GET_DEV_LOG_REQ + 0u, NSS_PTZ_CONTROL_REQ + 0u}) {
        EXPECT_EQ(0, Push(m_reactor, reqID, "dev", Now()));
    }
    m_clock->AdvanceSeconds(100000);
    ServeAll(gate, 2);
    EXPECT_EQ((std::vector<std::string>{"0501@dev", "0131@dev"}), m_served.All());
}

TEST_F(GvxReactorQueueTest, CommandWhoseBellFailsTakesBackTheOneAtTheBack) {
    std::atomic<int> live{0};
    Gate gate(m_reactor);
    const auto push = [&](std::uint32_t reqID, const std::string& devID) {
        return m_reactor.PushMessage(TestCmd(reqID, devID).Counted(live).Entry());
    };
    ASSERT_EQ(0, push(NSS_PTZ_CONTROL_REQ, "B"));
    ASSERT_EQ(0, push(NSS_PTZ_CONTROL_REQ, "C"));
    StopWithQueueKept(m_reactor, gate);
    ScopedRecordingLogger log;
    EXPECT_EQ(1, push(NSS_DEL_MAIN_DEV_REQ, "A"));
    EXPECT_TRUE(log->Contains("Input param is null Reactor["));
    EXPECT_EQ(2, live.load()) << "C's command is destroyed, the deletion is not";
    BP::CGvxNssCmd_ out;
    for (const char* devID : {"A", "B"}) {
        ASSERT_EQ(0, m_reactor.PopMessage(out));
        EXPECT_EQ(devID, out.m_devID);
        delete out.m_pCmd;
    }
    EXPECT_EQ(1, m_reactor.PopMessage(out));
    EXPECT_EQ(0, live.load());
}

TEST_F(GvxReactorQueueTest, ReactorEndsWithAFullQueueUnserved) {
    std::atomic<int> live{0};
    {
        CGvxReactor reactor;
        Gate gate(reactor);
        for (int i = 0; i < 600; ++i) {
            ASSERT_EQ(0, reactor.PushMessage(TestCmd(NSS_STOP_STREAM_REQ, "dev").Counted(live).Entry()));
        }
        StopWithQueueKept(reactor, gate);
        EXPECT_NE(0, Push(reactor, NSS_STOP_STREAM_REQ, "dev"));
        EXPECT_EQ(600, live.load());
    }
    EXPECT_EQ(0u, m_served.Count());
    EXPECT_EQ(0, live.load());
}

}  // namespace
