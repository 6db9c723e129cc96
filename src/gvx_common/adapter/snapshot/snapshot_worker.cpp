#include "gvx_common/adapter/snapshot/snapshot_worker.h"

#include <ace/Thread.h>

#include <cstddef>
#include <new>

namespace gvx {

bool SnapshotWorker::Spawn(Body body, void* argument, ACE_thread_t& thread) {
    constexpr std::size_t kStackBytes = 128 * 1024;
    struct Launch {
        Body body;
        void* argument;
    };
    auto* const launch = new (std::nothrow) Launch{body, argument};
    const auto run = [](void* launched) -> void* {
        const Launch taken = *static_cast<Launch*>(launched);
        delete static_cast<Launch*>(launched);
        taken.body(taken.argument);
        return nullptr;
    };
    if (launch == nullptr ||
        ACE_Thread::spawn(static_cast<void* (*)(void*)>(run), launch, THR_NEW_LWP | THR_JOINABLE, &thread, nullptr,
                          ACE_DEFAULT_THREAD_PRIORITY, nullptr, kStackBytes) == -1) {
        delete launch;
        return false;
    }
    return true;
}

void SnapshotWorker::Join(ACE_thread_t thread) {
    ACE_Thread::join(thread);
}

void SnapshotWorker::Pause(std::chrono::milliseconds time) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (time.count() > 0) {
        m_ended.wait_for(lock, time, [this] { return m_noPauses; });
    }
}

void SnapshotWorker::EndPauses() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_noPauses = true;
    m_ended.notify_all();
}

}  // namespace gvx
