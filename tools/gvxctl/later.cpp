#include "gvxctl/later.h"

#include "base/clock.h"

#include <chrono>

namespace gvxctl {

Later::~Later() {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_ends = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void Later::Do(int delayMs, std::function<void()> action) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_due.emplace(gvx::MonotonicMilliseconds() + delayMs, std::move(action));
    if (!m_thread.joinable()) {
        m_thread = std::thread([this] { Run(); });
    }
    m_changed.notify_all();
}

void Later::Run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_ends) {
        if (m_due.empty()) {
            m_changed.wait(lock);
            continue;
        }
        const std::int64_t left = m_due.begin()->first - gvx::MonotonicMilliseconds();
        if (left > 0) {
            m_changed.wait_for(lock, std::chrono::milliseconds(left));
            continue;
        }
        const std::function<void()> action = std::move(m_due.begin()->second);
        m_due.erase(m_due.begin());
        lock.unlock();
        action();
        lock.lock();
    }
}

}  // namespace gvxctl
