#pragma once

#include "base/periodic_thread.h"
#include "gateway/admin/status.h"

#include <chrono>
#include <vector>

namespace gvx {

// Asks each event thread for a sign of life once a period, through its own reactor, so that the answer comes by the
// road of every other event: the link thread, the general reactor and the reactors of devices. The thread of link
// events is looked at from outside. A thread counts as alive while the last question has been open for no longer than
// its limit, or it has served a command since.
class Heartbeats {
public:
    static constexpr std::chrono::milliseconds kPeriod{1000};
    // Of the threads that all devices need. The gateway calls no plug-in on them, so what such a call may take has no
    // part in it.
    static constexpr std::chrono::milliseconds kSharedLimit{10000};

    // Starts the thread "Heartbeat"; deviceLimit is how long the thread of devices may be silent, at which plug-ins
    // work. Without a thread, which is a log line, every event thread counts as alive.
    Heartbeats(GatewayContext& context, std::chrono::milliseconds deviceLimit);
    ~Heartbeats();
    Heartbeats(const Heartbeats&) = delete;
    Heartbeats& operator=(const Heartbeats&) = delete;

    // Any thread.
    std::vector<ThreadStatus> Threads() const;
    // Whether the threads that all devices need are alive. Any thread.
    bool SharedThreadsAlive() const;

    // One round; the thread's work, and that of tests.
    void Ask();

private:
    struct Book;  // what is known of each thread

    GatewayContext& m_context;
    const std::int64_t m_deviceLimitMs;
    PeriodicThread m_thread;
};

}  // namespace gvx
