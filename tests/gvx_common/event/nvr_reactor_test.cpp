#include "gvx_common/event/NVR_Reactor.h"

#include "event_test_support.h"
#include "gvx_common/event/QcnReactor.h"
#include "support/recording_logger.h"

#include <atomic>
#include <fstream>
#include <iterator>
#include <thread>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/syscall.h>

namespace {

constexpr ACE_Reactor_Mask kRead = ACE_Event_Handler::READ_MASK;
constexpr ACE_Reactor_Mask kWrite = ACE_Event_Handler::WRITE_MASK;
constexpr ACE_Reactor_Mask kExcept = ACE_Event_Handler::EXCEPT_MASK;

class NvrReactorTest : public ::testing::Test {
protected:
    void TearDown() override { m_reactor.close(); }

    // One pass that does not wait.
    int Pass() {
        ACE_Time_Value noWait = ACE_Time_Value::zero;
        return m_reactor.handle_events(&noWait);
    }
    void Passes(int count) {
        while (count-- > 0) {
            Pass();
        }
    }

    NVR_Reactor m_reactor{new QcnReactor(), true};
    SocketPair m_pair;
    RecordingHandler m_handler{m_pair.ours.Get()};
};

TEST_F(NvrReactorTest, RegistrationRefusesWhatCannotBeServedAndASecondHandler) {
    EXPECT_EQ(-1, m_reactor.register_handler(nullptr, kRead));
    EXPECT_EQ(-1, m_reactor.register_handler(-1, &m_handler, kRead));
    EXPECT_EQ(-1, m_reactor.register_handler(m_pair.ours.Get(), &m_handler, 0));
    EXPECT_EQ(-1, m_reactor.remove_handler(nullptr, kRead));
    EXPECT_EQ(0, static_cast<ACE_Reactor&>(m_reactor).register_handler(&m_handler, kRead));
    EXPECT_EQ(-1, m_reactor.remove_handler(&m_handler, kRead)) << "the base type has registered nothing";
    RecordingHandler other(m_pair.ours.Get());
    ASSERT_EQ(0, m_reactor.register_handler(&m_handler, kRead));
    EXPECT_EQ(-1, m_reactor.register_handler(&other, kRead));
    m_pair.Send("x");
    Pass();
    EXPECT_EQ("input", m_handler.Calls());
    EXPECT_EQ("", other.Calls());
}

TEST_F(NvrReactorTest, AnswerOfTheHandlerDecides) {
    ASSERT_EQ(0, m_reactor.register_handler(&m_handler, kRead));
    m_pair.Send("x");
    Passes(2);
    EXPECT_EQ("input input", m_handler.Calls()) << "0: armed again";
    m_handler.Answer({1, 1, 0});
    Pass();
    EXPECT_EQ("input input input", m_handler.Calls()) << "above 0: again on the same pass";

    m_handler.Answer({-1});
    Passes(2);
    EXPECT_EQ("input close:1", m_handler.Calls()) << "-1: told to close, and not armed again";

    ASSERT_EQ(0, m_reactor.remove_handler(&m_handler, kRead)) << "the record stays until somebody removes it";
    ASSERT_EQ(0, m_reactor.register_handler(&m_handler, kRead));
    m_handler.Answer({-2});
    Passes(2);
    EXPECT_EQ("input", m_handler.Calls()) << "below -1: neither closed nor armed";

    ASSERT_EQ(0, m_reactor.remove_handler(&m_handler, kRead));
    ASSERT_EQ(0, m_reactor.register_handler(&m_handler, kRead | kWrite));
    Passes(3);
    EXPECT_EQ("output", m_handler.Calls()) << "one of several ready events is served; output that gives 0 is over";
    ASSERT_EQ(0, m_reactor.remove_handler(&m_handler, kRead | kWrite));
    ASSERT_EQ(0, m_reactor.register_handler(&m_handler, kWrite));
    Pass();
    EXPECT_EQ("output", m_handler.Calls()) << "until it is registered anew";
}

TEST_F(NvrReactorTest, DataOutranksHangUpAndBareHangUpRemoves) {
    ASSERT_EQ(0, m_reactor.register_handler(&m_handler, kRead));
    m_pair.Send("x");
    m_pair.peer.Reset();
    Pass();
    EXPECT_EQ("input", m_handler.Calls());
    EXPECT_EQ(0, m_reactor.remove_handler(&m_handler, kRead)) << "still registered";

    ASSERT_EQ(0, m_reactor.register_handler(&m_handler, kExcept));
    Pass();
    EXPECT_EQ("", m_handler.Calls()) << "a hang-up alone tells nobody";
    EXPECT_EQ(-1, m_reactor.remove_handler(&m_handler, kExcept)) << "but removes the handle";
}

TEST_F(NvrReactorTest, HandlerMayRemoveItselfWhileItRuns) {
    class SelfRemovingHandler : public RecordingHandler {
    public:
        using RecordingHandler::RecordingHandler;
        int handle_input(ACE_HANDLE handle) override {
            RecordingHandler::handle_input(handle);
            return static_cast<NVR_Reactor*>(reactor())->remove_handler(this, kRead);
        }
    } handler(m_pair.ours.Get());
    ASSERT_EQ(0, m_reactor.register_handler(&handler, kRead));
    handler.reactor(&m_reactor);
    m_pair.Send("x");
    Passes(2);
    EXPECT_EQ("input", handler.Calls());
}

TEST_F(NvrReactorTest, EventTakenTogetherWithATimerIsNotDispatched) {
    class NoBellReactor : public NVR_Reactor {
    public:
        NoBellReactor() : NVR_Reactor(new QcnReactor(), true) {}
        // Timers of this one do not ring, so the data is what epoll_wait gives.
        int notify(ACE_Event_Handler*, ACE_Reactor_Mask, ACE_Time_Value*) override { return 0; }
    };
    NoBellReactor reactor;
    RecordingHandler timer;
    ASSERT_EQ(0, reactor.register_handler(&m_handler, kRead));
    ASSERT_NE(-1, reactor.schedule_timer(&timer, nullptr, ACE_Time_Value::zero));
    m_pair.Send("x");
    ACE_Time_Value noWait = ACE_Time_Value::zero;
    EXPECT_EQ(1, reactor.handle_events(&noWait));
    EXPECT_EQ("timeout", timer.Calls());
    m_pair.Send("y");
    EXPECT_EQ(0, reactor.handle_events(&noWait));
    EXPECT_EQ("", m_handler.Calls()) << "lost until something arms the handle";
    reactor.close();
}

TEST_F(NvrReactorTest, OneTimerAPassAndCancelledByIdAlone) {
    RecordingHandler byId;
    RecordingHandler byHandler;
    const long id = m_reactor.schedule_timer(&byId, nullptr, ACE_Time_Value::zero);
    ASSERT_NE(-1, m_reactor.schedule_timer(&byHandler, nullptr, ACE_Time_Value::zero));
    EXPECT_EQ(0, m_reactor.cancel_timer(&byHandler));
    EXPECT_EQ(1, m_reactor.cancel_timer(id));
    EXPECT_EQ(0, m_reactor.cancel_timer(id));
    ASSERT_NE(-1, m_reactor.schedule_timer(&byHandler, nullptr, ACE_Time_Value::zero));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(1, Pass());
        EXPECT_EQ("timeout", byHandler.Calls());
    }
    Pass();
    EXPECT_EQ("", byId.Calls());
}

// "S" for a thread of this process that waits in the kernel; empty for one that is not there.
std::string ThreadState(int tid) {
    std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
    const std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const std::size_t behindName = text.rfind(')');
    return behindName != std::string::npos && behindName + 2 < text.size() ? text.substr(behindName + 2, 1) : "";
}

TEST_F(NvrReactorTest, ScheduleFromAnotherThreadShortensAnEndlessWait) {
    RecordingHandler timer;
    std::atomic<int> tid{0};
    std::atomic<bool> giveUp{false};
    std::thread loop([&] {
        tid = static_cast<int>(::syscall(SYS_gettid));
        while (m_reactor.handle_events(nullptr) >= 0 && !timer.WasCalled() && !giveUp) {
        }
    });
    // Without a timer the loop has nothing to wait for but the bell.
    EXPECT_TRUE(WaitUntil([&] { return tid != 0 && ThreadState(tid) == "S"; }));
    EXPECT_NE(-1, m_reactor.schedule_timer(&timer, nullptr, ACE_Time_Value(0, 20000)));
    EXPECT_TRUE(WaitUntil([&] { return timer.WasCalled(); }));
    giveUp = true;
    m_reactor.notify(nullptr, kExcept);
    loop.join();
    EXPECT_EQ("timeout", timer.Calls());
}

// Rings while the loop takes the last item of the queue must not be emptied out with the pipe.
TEST_F(NvrReactorTest, NotificationsOfManyThreadsAllArriveAndTheBellNeverBlocks) {
    class Counter : public ACE_Event_Handler {
    public:
        int handle_exception(ACE_HANDLE) override {
            ++m_calls;
            return 0;
        }
        int m_calls = 0;  // of the loop's thread
    } counter;
    constexpr int kThreads = 3;
    constexpr int kRings = 5000;
    std::vector<std::thread> ringers;
    for (int i = 0; i < kThreads; ++i) {
        ringers.emplace_back([&] {
            for (int ring = 0; ring < kRings; ++ring) {
                EXPECT_EQ(0, m_reactor.notify(&counter, kExcept));
                if (ring % 16 == 0) {
                    std::this_thread::yield();
                }
            }
        });
    }
    for (int idle = 0; counter.m_calls < kThreads * kRings && idle < 3;) {
        ACE_Time_Value wait(10);
        idle = m_reactor.handle_events(&wait) > 0 ? 0 : idle + 1;
    }
    EXPECT_EQ(kThreads * kRings, counter.m_calls);
    for (std::thread& ringer : ringers) {
        ringer.join();
    }
    // Far more bytes than the pipe takes, and nobody who reads them.
    for (int ring = 0; ring < kRings; ++ring) {
        ASSERT_EQ(0, m_reactor.notify(&counter, kExcept));
    }
    for (int ring = 1; ring <= kRings; ++ring) {
        ASSERT_EQ(1, Pass());
        ASSERT_EQ(kThreads * kRings + ring, counter.m_calls) << "each pass serves one";
    }
    EXPECT_EQ(0, Pass()) << "and the bell is silent then";
}

TEST_F(NvrReactorTest, ABurstOfNotificationsLeavesTheirTurnsToHandlesAndTimers) {
    RecordingHandler notified;
    for (int item = 0; item < 6; ++item) {
        ASSERT_EQ(0, m_reactor.notify(&notified, kExcept));
    }
    Passes(2);
    ASSERT_EQ(0, m_reactor.register_handler(&m_handler, kRead));
    m_pair.Send("x");
    Passes(2);
    EXPECT_EQ("input", m_handler.Calls());
    ASSERT_EQ(0, m_reactor.remove_handler(&m_handler, kRead));
    Passes(1);
    ASSERT_NE(-1, m_reactor.schedule_timer(&m_handler, nullptr, ACE_Time_Value::zero));
    Passes(1);
    EXPECT_EQ("timeout", m_handler.Calls());
    EXPECT_EQ("exception exception exception exception", notified.Calls());
    Passes(2);
    EXPECT_EQ("exception exception", notified.Calls());
    ASSERT_EQ(0, m_reactor.notify(&notified, kExcept));
    ASSERT_EQ(0, m_reactor.notify(&notified, kExcept));
    Passes(1);
    EXPECT_EQ(1, m_reactor.purge_pending_notifications(&notified));
    Passes(2);
    EXPECT_EQ("exception", notified.Calls());
}

TEST_F(NvrReactorTest, NullNotificationsOnlyWakeAndPurgedOnesAreNotServed) {
    ASSERT_EQ(0, m_reactor.notify(nullptr, kExcept));
    ASSERT_EQ(0, m_reactor.notify(nullptr, kExcept));
    ASSERT_EQ(0, m_reactor.notify(&m_handler, kExcept));
    EXPECT_EQ(1, Pass());
    EXPECT_EQ("exception", m_handler.Calls()) << "wake-ups in front are consumed in the same pass";
    ASSERT_EQ(0, m_reactor.notify(nullptr, kExcept));
    EXPECT_EQ(1, m_reactor.handle_events(nullptr)) << "an endless wait ends";
    ASSERT_EQ(0, m_reactor.notify(&m_handler, kExcept));
    EXPECT_EQ(1, m_reactor.purge_pending_notifications(&m_handler));
    Pass();
    EXPECT_EQ("", m_handler.Calls());
    // A closed reactor refuses.
    EXPECT_EQ(0, m_reactor.close());
    EXPECT_FALSE(m_reactor.IsUsable());
    EXPECT_EQ(-1, m_reactor.handle_events(nullptr));
    EXPECT_EQ(1, m_reactor.notify(&m_handler, kExcept));
    EXPECT_EQ(-1, m_reactor.schedule_timer(&m_handler, nullptr, ACE_Time_Value::zero));
    EXPECT_EQ(0, m_reactor.cancel_timer(1L));
}

TEST(NvrReactorDescriptors, AreClosedOnExecAndWithoutThemTheReactorIsRefused) {
    const int lowestFree = ::dup(0);
    ::close(lowestFree);
    {
        NVR_Reactor reactor(new QcnReactor(), true);
        for (int fd = lowestFree; fd < lowestFree + 3; ++fd) {
            EXPECT_EQ(FD_CLOEXEC, ::fcntl(fd, F_GETFD)) << "epoll and the two ends of the bell";
        }
        reactor.close();
    }
    rlimit former{};
    ::getrlimit(RLIMIT_NOFILE, &former);
    for (const int left : {0, 1, 2}) {
        ScopedRecordingLogger log;
        const rlimit tight{static_cast<rlim_t>(lowestFree + left), former.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &tight);
        const auto reactor = std::make_unique<CGvxReactor>();
        ::setrlimit(RLIMIT_NOFILE, &former);
        EXPECT_FALSE(reactor->IsRunning()) << left;
        EXPECT_TRUE(log->Contains("failed to Init iret[1]"));
        EXPECT_NE(0, Push(*reactor, NSS_PTZ_CONTROL_REQ, "dev")) << "a command is refused and nothing is lost";
    }
}

}  // namespace
