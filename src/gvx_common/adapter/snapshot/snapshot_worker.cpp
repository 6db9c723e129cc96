#include "gvx_common/adapter/snapshot/snapshot_worker.h"

#include <ace/Thread.h>

#include <cstddef>
#include <new>

#include <pthread.h>

namespace gvx {

bool SnapshotWorker::Spawn(Body body, void* argument, ACE_thread_t& thread) {
    constexpr std::size_t kStackBytes = 128 * 1024;
    struct Launch {
        Body body;
        void* argument;
        std::shared_ptr<Run> run;
    };
    const auto run = [](void* launched) -> void* {
        const std::unique_ptr<Launch> taken(static_cast<Launch*>(launched));
        taken->body(taken->argument);
        const std::lock_guard<std::mutex> lock(taken->run->m_mutex);
        taken->run->m_ended = true;
        taken->run->m_changed.notify_all();
        return nullptr;
    };
    try {
        m_run = std::make_shared<Run>();
        auto launch = std::make_unique<Launch>(Launch{body, argument, m_run});
        if (ACE_Thread::spawn(static_cast<void* (*)(void*)>(run), launch.get(), THR_NEW_LWP | THR_JOINABLE, &thread,
                              nullptr, ACE_DEFAULT_THREAD_PRIORITY, nullptr, kStackBytes) == -1) {
            return false;
        }
        static_cast<void>(launch.release());  // the thread's
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void SnapshotWorker::EndPauses() {
    const std::lock_guard<std::mutex> lock(m_run->m_mutex);
    m_run->m_noPauses = true;
    m_run->m_changed.notify_all();
}

bool SnapshotWorker::Join(ACE_thread_t thread, std::chrono::milliseconds limit) {
    {
        std::unique_lock<std::mutex> lock(m_run->m_mutex);
        m_run->m_changed.wait_for(lock, limit, [this] { return m_run->m_ended; });
        if (m_run->m_captures) {
            m_run->m_leftBehind = true;
            pthread_detach(thread);
            return false;
        }
    }
    ACE_Thread::join(thread);
    return true;
}

bool SnapshotWorker::Run::BeginCapture() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_captures = !m_noPauses;
    return m_captures;
}

bool SnapshotWorker::Run::EndCapture() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_captures = false;
    return !m_leftBehind;
}

void SnapshotWorker::Run::Pause(std::chrono::milliseconds time) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (time.count() > 0) {
        m_changed.wait_for(lock, time, [this] { return m_noPauses; });
    }
}

}  // namespace gvx
