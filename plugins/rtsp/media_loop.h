#pragma once

#include "base/unique_fd.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace gvxrtsp {

// Who waits for a descriptor. Called on the loop's thread.
class ILoopWatcher {
public:
    virtual ~ILoopWatcher() = default;
    virtual void OnReady(int fd, std::uint32_t events) = 0;
};

class MediaLoop;

// Who is called when a moment has come. It is made, used and deleted on the loop's thread.
class LoopTimer {
public:
    static constexpr std::int64_t kNever = INT64_MAX;

    // The loop must outlive it.
    explicit LoopTimer(MediaLoop& loop);
    virtual ~LoopTimer();
    LoopTimer(const LoopTimer&) = delete;
    LoopTimer& operator=(const LoopTimer&) = delete;

    // To tell when the next call is due; one that tells nothing, as behind a fault, is called again in a second.
    virtual void OnTimer(std::int64_t nowUs) = 0;

protected:
    // Monotonic microseconds: kNever for not at all, a moment that has gone for the loop's next turn.
    void SetDue(std::int64_t dueUs);
    // The same, unless it is due earlier.
    void SetDueBy(std::int64_t dueUs) { SetDue(std::min(dueUs, m_place->dueUs)); }

    MediaLoop& m_loop;

private:
    friend class MediaLoop;
    struct Due {
        std::int64_t dueUs;
        std::uint64_t number;  // of those that are due at one moment, who said so first comes first
        LoopTimer* timer;
        bool operator<(const Due& other) const {
            return dueUs != other.dueUs ? dueUs < other.dueUs : number < other.number;
        }
    };

    std::set<Due>::iterator m_place;
    std::list<LoopTimer*>* m_queue = nullptr;  // in which it waits for a connection
    std::list<LoopTimer*>::iterator m_queuePlace;
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

    // Connections that are being made, on the loop's thread only: ten thousand cameras that go at once must not take
    // all descriptors. Those that somebody waits for come before looks at cameras.
    static constexpr int kMostConnecting = 256;
    static constexpr int kMostLooking = 128;
    // Asked from OnTimer. A timer that is refused is called when its turn has come, those that are wanted first.
    bool MayConnect(LoopTimer& timer, bool wanted);
    void AddConnecting(int change) { m_connecting += change; }

    // How much is on it, for spreading cameras over loops.
    std::size_t Load() const { return m_load.load(std::memory_order_relaxed); }
    void AddLoad(std::ptrdiff_t change) { m_load.fetch_add(static_cast<std::size_t>(change)); }

private:
    struct Entry {
        ILoopWatcher* watcher = nullptr;
        std::uint64_t number = 0;
    };

    friend class LoopTimer;

    void Run();
    void Turn();
    void DoWork();
    void Rest();
    bool HasRoom(bool wanted) const { return m_connecting < (wanted ? kMostConnecting : kMostLooking); }
    std::int64_t RunTimers();
    void CallTimer(LoopTimer& timer, std::int64_t nowUs);
    static void LeaveQueue(LoopTimer& timer);
    void Wake();

    gvx::UniqueFd m_epoll;
    gvx::UniqueFd m_wake;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
    std::atomic<std::size_t> m_load{0};
    // Of the loop's thread.
    std::vector<Entry> m_entries;  // by descriptor
    std::set<LoopTimer::Due> m_timers;
    std::uint64_t m_timerNumber = 0;
    std::int64_t m_timersUs = 0;  // of the last look at them
    std::uint64_t m_nextNumber = 1;
    std::int64_t m_lastReadUs = 0;
    bool m_hasRead = false;  // in the last turn
    int m_connecting = 0;
    std::array<std::list<LoopTimer*>, 2> m_waiting;  // for a connection: to look, and those that are wanted
    const LoopTimer* m_turn = nullptr;               // whose turn has come

    std::mutex m_mutex;  // guards what follows
    std::vector<std::function<void()>> m_work;
    bool m_running = false;
};

}  // namespace gvxrtsp
