#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace gvxctl {

// Does things after a while, in the order in which they are due, on a thread of its own. What has not been done at its
// end is dropped.
class Later {
public:
    Later() = default;
    ~Later();
    Later(const Later&) = delete;
    Later& operator=(const Later&) = delete;

    // Any thread.
    void Do(int delayMs, std::function<void()> action);

private:
    void Run();

    std::mutex m_mutex;  // guards what follows
    std::condition_variable m_changed;
    std::multimap<std::int64_t, std::function<void()>> m_due;  // by monotonic milliseconds
    bool m_ends = false;
    std::thread m_thread;  // started with the first action
};

}  // namespace gvxctl
