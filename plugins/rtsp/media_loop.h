#pragma once

#include "base/unique_fd.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace gvxrtsp {

// Who waits for a descriptor. Called on the loop's thread.
class ILoopWatcher {
public:
    virtual ~ILoopWatcher() = default;
    virtual void OnReady(int fd, std::uint32_t events) = 0;
};

// Who is called when a moment has come. Called on the loop's thread.
class ILoopTimer {
public:
    static constexpr std::int64_t kNever = INT64_MAX;

    virtual ~ILoopTimer() = default;
    // Monotonic microseconds; kNever for not at all. Asked for after each turn of the loop.
    virtual std::int64_t DueUs() const = 0;
    virtual void OnTimer(std::int64_t nowUs) = 0;
};

// One thread that serves the connections of many cameras: epoll, timers, and work that other threads hand over. What it
// serves belongs to its users, who take it away on the loop's thread.
class MediaLoop {
public:
    // How long a loop that has read something rests, so that packets of a picture and of several cameras are read
    // together, and one wake-up serves many.
    static constexpr std::int64_t kRestUs = 4000;

    MediaLoop() = default;
    ~MediaLoop() { Stop(); }
    MediaLoop(const MediaLoop&) = delete;
    MediaLoop& operator=(const MediaLoop&) = delete;

    // Makes the thread. False with one sentence in error.
    bool Start(std::string& error);
    // Does the work that is waiting and ends the thread. May be called again.
    void Stop();

    // Work for the loop's thread, in the order in which it is given. Any thread.
    void Post(std::function<void()> work);
    // The same, and waits until it is done; what it throws is thrown here. On the loop's own thread, and when there is
    // none, it is done at once.
    void Call(const std::function<void()>& work);

    // On the loop's thread only. events are those of epoll; watching again changes them. False when the system
    // refuses. The watcher must stay until Unwatch, which comes before the descriptor is closed.
    bool Watch(int fd, std::uint32_t events, ILoopWatcher* watcher);
    void Unwatch(int fd);
    void AddTimer(ILoopTimer* timer) { m_timers.push_back(timer); }
    void RemoveTimer(ILoopTimer* timer);

    // Connections that are being made, on the loop's thread only: ten thousand cameras that go at once must not take
    // all descriptors. Those that somebody waits for come before looks at cameras.
    static constexpr int kMostConnecting = 256;
    static constexpr int kMostLooking = 128;
    // Asked from OnTimer: a timer that is refused is called before the others the next time.
    bool MayConnect(bool wanted) {
        const bool may = m_connecting < (wanted ? kMostConnecting : kMostLooking);
        m_refusal = may ? Refusal::None : wanted ? Refusal::Wanted : Refusal::Look;
        return may;
    }
    void AddConnecting(int change) { m_connecting += change; }

    // How much is on it, for spreading cameras over loops.
    std::size_t Load() const { return m_load.load(std::memory_order_relaxed); }
    void AddLoad(std::ptrdiff_t change) { m_load.fetch_add(static_cast<std::size_t>(change)); }

private:
    struct Entry {
        ILoopWatcher* watcher;
        std::uint64_t number;
    };

    enum class Refusal { None, Look, Wanted };  // by weight

    void Run();
    void Turn();
    void DoWork();
    std::int64_t RunTimers();
    void Wake();

    gvx::UniqueFd m_epoll;
    gvx::UniqueFd m_wake;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
    std::atomic<std::size_t> m_load{0};
    // Of the loop's thread.
    std::unordered_map<int, Entry> m_entries;
    std::vector<ILoopTimer*> m_timers;
    std::uint64_t m_nextNumber = 1;
    std::int64_t m_lastReadUs = 0;
    bool m_hasRead = false;  // in the last turn
    int m_connecting = 0;
    Refusal m_refusal = Refusal::None;  // of the timer that is being called

    std::mutex m_mutex;  // guards what follows
    std::vector<std::function<void()>> m_work;
    bool m_running = false;
};

}  // namespace gvxrtsp
