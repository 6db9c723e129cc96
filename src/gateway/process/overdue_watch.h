#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace gvx {

// Watches over stretches of work that may be held up for ever: when a stretch has been asked to end and has not done so
// within a limit, an action runs. Its one thread is made ahead of them all, so that none is missing when it counts. The
// operations but SinceBegun belong to one thread.
class OverdueWatch {
public:
    OverdueWatch() = default;
    // Waits for the watch's thread.
    ~OverdueWatch();
    OverdueWatch(const OverdueWatch&) = delete;
    OverdueWatch& operator=(const OverdueWatch&) = delete;

    // Makes the thread, which begins with prepare. False when the system gives none.
    bool Start(std::function<void()> prepare);

    // A stretch begins; the one before has ended. begun answers true when the limit begins to count; it is asked again
    // and again until then. It and the action run on the watch's thread.
    void Begin(std::function<bool()> begun, std::chrono::milliseconds limit, std::function<void()> action);
    // The stretch has ended. An action that runs already is waited for.
    void End();

    // How long the limit of the stretch, or of the last one, has been counting; 0 when it has not. Any thread.
    std::chrono::milliseconds SinceBegun() const;

private:
    void Run();
    void Watch(std::unique_lock<std::mutex>& lock);

    mutable std::mutex m_mutex;  // Guards all below but the thread.
    std::condition_variable m_wake;
    std::function<bool()> m_begun;
    std::chrono::milliseconds m_limit{0};
    std::function<void()> m_action;
    bool m_watching = false;
    unsigned long m_stretch = 0;  // counts them
    bool m_stop = false;
    std::chrono::steady_clock::time_point m_since{};  // the epoch: the limit does not count yet
    std::thread m_thread;
};

}  // namespace gvx
