#pragma once

#include "gvx_common/event/gvx_reactor.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <pthread.h>

// How far the thread of a reactor has come. Shared by the reactor and its thread, so it outlives both.
class CGvxReactor::ThreadState {
public:
    // The thread has made all that its owner looks at.
    void Started() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_thread = pthread_self();
        m_started = true;
        m_changed.notify_all();
    }
    void WaitStarted() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_started; });
    }
    // The thread will not touch the reactor any more. Nothing happens on any other thread.
    void EndedIfOwnThread() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_started && pthread_equal(m_thread, pthread_self()) != 0) {
            m_ended = true;
            m_changed.notify_all();
        }
    }
    // False when the thread has not ended within a tenth of a second.
    bool WaitEnded() {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(100), [this] { return m_ended; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    pthread_t m_thread{};    // Guarded by m_mutex.
    bool m_started = false;  // Guarded by m_mutex.
    bool m_ended = false;    // Guarded by m_mutex.
};
