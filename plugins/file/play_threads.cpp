#include "file/play_threads.h"

#include "base/clock.h"

#include <algorithm>
#include <chrono>

#include <pthread.h>

namespace gvxfile {

namespace {

// Longest sleep in one piece, so that a clock that is set is followed.
constexpr std::int64_t kMaxSleepUs = 100000;

}  // namespace

std::shared_ptr<PlayThreads> PlayThreads::Get() {
    static std::mutex mutex;
    static std::weak_ptr<PlayThreads> threads;
    const std::lock_guard<std::mutex> guard(mutex);
    std::shared_ptr<PlayThreads> found = threads.lock();
    if (found == nullptr) {
        found = std::make_shared<PlayThreads>();
        threads = found;
    }
    return found;
}

PlayThreads::~PlayThreads() {
    for (Worker& worker : m_workers) {
        {
            const std::lock_guard<std::mutex> guard(worker.mutex);
            worker.stop = true;
        }
        worker.wake.notify_all();
        if (worker.thread.joinable()) {
            worker.thread.join();
        }
    }
}

void PlayThreads::Add(Task& task, std::int64_t due) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::size_t best = 0;
    std::size_t least = SIZE_MAX;
    for (std::size_t i = 0; i < kThreads; ++i) {
        const std::lock_guard<std::mutex> workerGuard(m_workers[i].mutex);
        if (m_workers[i].tasks < least) {
            best = i;
            least = m_workers[i].tasks;
        }
    }
    Worker& worker = m_workers[best];
    if (!worker.thread.joinable()) {
        worker.thread = std::thread(&PlayThreads::Run, std::ref(worker));
        pthread_setname_np(worker.thread.native_handle(), "GvxFilePlay");
    }
    {
        const std::lock_guard<std::mutex> workerGuard(worker.mutex);
        task.m_worker = best;
        ++worker.tasks;
        worker.waiting.emplace(due, &task);
    }
    worker.wake.notify_one();
}

void PlayThreads::Wake(Task& task) {
    const std::size_t index = task.m_worker;
    if (index == kThreads) {
        return;
    }
    Worker& worker = m_workers[index];
    {
        const std::lock_guard<std::mutex> guard(worker.mutex);
        worker.runningIsWoken = worker.runningIsWoken || worker.running == &task;
        const auto place = std::find_if(worker.waiting.begin(), worker.waiting.end(),
                                        [&task](const auto& entry) { return entry.second == &task; });
        if (place == worker.waiting.end()) {
            return;
        }
        auto entry = worker.waiting.extract(place);
        entry.key() = gvx::CurrentClock().MonotonicMicroseconds();
        worker.waiting.insert(std::move(entry));
    }
    worker.wake.notify_one();
}

void PlayThreads::Remove(Task& task) {
    if (task.m_worker == kThreads) {
        return;
    }
    Worker& worker = m_workers[task.m_worker];
    std::unique_lock<std::mutex> lock(worker.mutex);
    task.m_worker = kThreads;
    --worker.tasks;
    if (worker.running == &task) {
        worker.runningIsRemoved = true;
        worker.turnEnded.wait(lock, [&] { return worker.running != &task; });
        return;
    }
    const auto place = std::find_if(worker.waiting.begin(), worker.waiting.end(),
                                    [&task](const auto& entry) { return entry.second == &task; });
    if (place != worker.waiting.end()) {
        worker.waiting.erase(place);
    }
}

void PlayThreads::Run(Worker& worker) {
    PictureMemory memory;
    std::unique_lock<std::mutex> lock(worker.mutex);
    while (!worker.stop) {
        if (worker.waiting.empty()) {
            worker.wake.wait(lock);
            continue;
        }
        const auto first = worker.waiting.begin();
        const std::int64_t left = first->first - gvx::CurrentClock().MonotonicMicroseconds();
        if (left > 0) {
            worker.wake.wait_for(lock, std::chrono::microseconds(std::min(left, kMaxSleepUs)));
            continue;
        }
        Task* const task = first->second;
        auto entry = worker.waiting.extract(first);  // used again, so that no turn needs memory for the next
        worker.running = task;
        worker.runningIsRemoved = false;
        worker.runningIsWoken = false;
        lock.unlock();
        const std::int64_t next = task->Turn(memory);
        lock.lock();
        worker.running = nullptr;
        if (worker.runningIsRemoved) {
            worker.turnEnded.notify_all();
        } else if (next != kNoTurn) {
            const bool woken = worker.runningIsWoken;
            entry.key() = woken ? gvx::CurrentClock().MonotonicMicroseconds() : next;
            worker.waiting.insert(std::move(entry));
        }
    }
}

}  // namespace gvxfile
