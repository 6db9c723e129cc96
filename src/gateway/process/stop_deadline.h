#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace gvx {

// Runs an action when a stretch of work has not ended in time. The destructor calls it off and waits for its thread.
class StopDeadline {
public:
    StopDeadline(std::chrono::milliseconds limit, std::function<void()> action);
    ~StopDeadline();
    StopDeadline(const StopDeadline&) = delete;
    StopDeadline& operator=(const StopDeadline&) = delete;

private:
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_done = false;  // Guarded by m_mutex.
    std::thread m_thread;
};

}  // namespace gvx
