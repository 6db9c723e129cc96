#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace gvx {

// A thread that does the same thing once a period until it is stopped. The operations belong to one thread at a time,
// and not to the thread itself.
class PeriodicThread {
public:
    using Turn = std::function<void()>;

    PeriodicThread() = default;
    ~PeriodicThread() { Stop(); }
    PeriodicThread(const PeriodicThread&) = delete;
    PeriodicThread& operator=(const PeriodicThread&) = delete;

    // Makes the thread, which runs the turn at once, and again each time a period has gone by since the end of the
    // last. A turn that throws a std::exception is logged, and the next one comes in its time. The name is that of the
    // thread, a static text of at most 15 characters. Throws std::system_error when the thread cannot be made, and
    // std::bad_alloc. Stops the thread of an earlier start.
    void Start(const char* name, std::chrono::milliseconds period, Turn turn);

    // The next turn begins at once, also when one runs now. Any thread, at any time; nothing happens without a thread.
    void Wake();

    // Ends the wait for the next turn. Returns when no turn runs any more; nothing happens without a thread.
    void Stop();

private:
    void Run(std::chrono::milliseconds period, const Turn& turn);

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;   // Guarded by m_mutex.
    bool m_woken = false;  // Guarded by m_mutex.
    const char* m_name = "";
    std::thread m_thread;
};

}  // namespace gvx
