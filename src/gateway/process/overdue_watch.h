#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace gvx {

// Watches over a stretch of work that may be held up for ever: when the stretch has been asked to end and has not done
// so within a limit, an action runs. The destructor tells that the stretch has ended, and waits for the watch's thread.
class OverdueWatch {
public:
    // begun answers true when the limit begins to count; it is asked again and again until then. It and the action run
    // on the watch's own thread.
    OverdueWatch(std::function<bool()> begun, std::chrono::milliseconds limit, std::function<void()> action);
    ~OverdueWatch();
    OverdueWatch(const OverdueWatch&) = delete;
    OverdueWatch& operator=(const OverdueWatch&) = delete;

    // How long the limit has been counting; 0 while it is not. Any thread.
    std::chrono::milliseconds SinceBegun() const;

private:
    void Run();

    const std::function<bool()> m_begun;
    const std::chrono::milliseconds m_limit;
    const std::function<void()> m_action;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_done = false;                              // Guarded by m_mutex.
    std::chrono::steady_clock::time_point m_since{};  // Guarded by m_mutex; the epoch: the limit does not count yet
    std::thread m_thread;
};

}  // namespace gvx
