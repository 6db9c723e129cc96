#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace gvx {

// Watches over a start, which a plug-in may hold up for ever: when a stop signal has come and the start has not come to
// its end within a limit, an action runs. The destructor tells that it has, and waits for the watch's thread.
class StartWatch {
public:
    // pendingSignal gives the number of the signal that has come, 0 for none; it and the action run on the watch's own
    // thread.
    StartWatch(std::function<int()> pendingSignal, std::chrono::milliseconds limit,
               std::function<void(int signal)> action);
    ~StartWatch();
    StartWatch(const StartWatch&) = delete;
    StartWatch& operator=(const StartWatch&) = delete;

    // How long the signal has been noticed; 0 while none is.
    std::chrono::milliseconds SinceSignal() const;

private:
    void Run();

    const std::function<int()> m_pendingSignal;
    const std::chrono::milliseconds m_limit;
    const std::function<void(int)> m_action;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_done = false;                                // Guarded by m_mutex.
    std::chrono::steady_clock::time_point m_noticed{};  // Guarded by m_mutex; the epoch: no signal has come
    std::thread m_thread;
};

}  // namespace gvx
