#include "gvx_common/event/gvx_reactor.h"

#include "event_test_support.h"
#include "gvx_common/event/gvx_reactor_mgr.h"
#include "support/recording_logger.h"

#include <pthread.h>

namespace {

constexpr unsigned long kRead = ACE_Event_Handler::READ_MASK;

TEST(GvxReactorHandlers, RegisteredHandlerIsServedAndUnregisteredThroughAnyReactor) {
    CGvxReactor other;
    SocketPair pair;
    RecordingHandler handler(pair.ours.Get());
    EXPECT_EQ(1, other.UnRegistHandle(&handler, kRead)) << "no reactor knows it";
    EXPECT_EQ(0, CGvxReactorManager::Instance()->RegistHandle(&handler, kRead));
    handler.Answer({-2});
    pair.Send("x");
    EXPECT_TRUE(WaitUntil([&] { return handler.WasCalled(); }));
    EXPECT_EQ(1, other.RegistHandle(nullptr, kRead));
    EXPECT_EQ(1, other.UnRegistHandle(nullptr, kRead));
    EXPECT_EQ(0, other.UnRegistHandle(&handler, kRead));
    ScopedRecordingLogger log;
    EXPECT_EQ(0, other.UnRegistHandle(&handler, kRead)) << "the refusal of the reactor is a warning only";
    EXPECT_EQ(1u, log->CountLevel(OM_LOG_WARNING));
    RecordingHandler unusable(-1);
    EXPECT_EQ(1, other.RegistHandle(&unusable, kRead));
    EXPECT_EQ(nullptr, unusable.reactor());
}

// Keeps the thread that its timer ran on.
class ThreadNoting : public RecordingHandler {
public:
    int handle_timeout(const ACE_Time_Value& now, const void* arg) override {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        m_threadName = name;
        return RecordingHandler::handle_timeout(now, arg);
    }
    std::string m_threadName;  // read after a call was seen
};

TEST(GvxReactorHandlers, TimersRunOnTheReactorsThreadAndEnd) {
    CGvxReactor reactor(1048576, "Timers");
    ThreadNoting handler;
    ScopedRecordingLogger log;
    const long id = reactor.RegistTimer(&handler, nullptr, ACE_Time_Value(0, 1000), ACE_Time_Value(0, 1000));
    ASSERT_NE(-1, id);
    EXPECT_TRUE(WaitUntil([&] { return handler.Calls().find("timeout") != std::string::npos; }));
    EXPECT_EQ(0, reactor.UnRegistTimer(id, 1));
    EXPECT_EQ(1, reactor.UnRegistTimer(id, 1));
    EXPECT_EQ(1, reactor.UnRegistTimer(-1, 1));
    EXPECT_EQ(-1, reactor.RegistTimer(nullptr, nullptr, ACE_Time_Value::zero, ACE_Time_Value::zero));
    reactor.UnInit();  // a call that was on its way is over
    EXPECT_EQ("Timers", handler.m_threadName);
    EXPECT_TRUE(log->Contains("Cancel timer success, timerID[" + std::to_string(id) + "]."));
}

}  // namespace
