#pragma once

#include "file/media_source.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace gvxfile {

// A few threads on which all streams of the process are played: each stream has its turns on one of them, when they are
// due. The threads end with the last user. Any thread, except that a turn neither adds nor removes.
class PlayThreads {
public:
    static constexpr std::size_t kThreads = 4;
    static constexpr std::int64_t kNoTurn = -1;

    class Task {
    public:
        virtual ~Task() = default;
        // Does what is due; memory is that of the thread. When the next turn is to be, in microseconds of the monotonic
        // clock; kNoTurn: never again.
        virtual std::int64_t Turn(PictureMemory& memory) noexcept = 0;

    private:
        friend class PlayThreads;
        std::atomic<std::size_t> m_worker{kThreads};  // which serves it; kThreads: none
    };

    // The threads of the process, which live while anyone holds them.
    static std::shared_ptr<PlayThreads> Get();

    PlayThreads() = default;
    ~PlayThreads();
    PlayThreads(const PlayThreads&) = delete;
    PlayThreads& operator=(const PlayThreads&) = delete;

    // The task's first turn is at that time. Throws std::system_error when a thread cannot be made.
    void Add(Task& task, std::int64_t due);

    // The task's next turn is at once. Any thread, also while the task is removed; nothing for one that was not added.
    void Wake(Task& task);

    // Waits for a turn that runs; the task then has no more of them. Does nothing for one that was not added.
    void Remove(Task& task);

private:
    struct Worker {
        std::mutex mutex;
        std::condition_variable wake;
        std::condition_variable turnEnded;
        std::multimap<std::int64_t, Task*> waiting;  // All guarded by mutex.
        Task* running = nullptr;
        bool runningIsRemoved = false;
        bool runningIsWoken = false;
        std::size_t tasks = 0;
        bool stop = false;
        std::thread thread;
    };

    static void Run(Worker& worker);

    std::mutex m_mutex;  // Guards the choice of a worker; outside of theirs.
    std::array<Worker, kThreads> m_workers;
};

}  // namespace gvxfile
