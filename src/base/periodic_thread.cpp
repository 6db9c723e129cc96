#include "base/periodic_thread.h"

#include "base/log.h"
#include "base/shortage.h"

#include <exception>
#include <system_error>
#include <utility>

#include <pthread.h>

namespace gvx {

void PeriodicThread::Start(const char* name, std::chrono::milliseconds period, Turn turn) {
    Stop();
    m_stop = false;
    m_name = name;
    try {
        m_thread = std::thread([this, period, turn = std::move(turn)] { Run(period, turn); });
    } catch (const std::system_error& fault) {
        NoteShortage(fault);
        throw;
    }
    pthread_setname_np(m_thread.native_handle(), name);
}

void PeriodicThread::Wake() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_woken = true;
    }
    m_wake.notify_all();
}

void PeriodicThread::Stop() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void PeriodicThread::Run(std::chrono::milliseconds period, const Turn& turn) {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stop) {
        m_woken = false;
        lock.unlock();
        try {
            turn();
        } catch (const std::exception& fault) {  // no memory, in all likelihood: the next turn may have some
            GVX_LOG_ERR(m_name, "A turn of the thread ended early: %s", fault.what());
        }
        lock.lock();
        m_wake.wait_for(lock, period, [this] { return m_stop || m_woken; });
    }
}

}  // namespace gvx
