#include "gateway/process/overdue_watch.h"

#include <pthread.h>

namespace gvx {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLookPeriod(20);

}  // namespace

OverdueWatch::OverdueWatch(std::function<bool()> begun, std::chrono::milliseconds limit, std::function<void()> action)
    : m_begun(std::move(begun)), m_limit(limit), m_action(std::move(action)), m_thread([this] { Run(); }) {}

OverdueWatch::~OverdueWatch() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_done = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void OverdueWatch::Run() {
    ::pthread_setname_np(::pthread_self(), "OverdueWatch");
    const auto done = [this] { return m_done; };
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_begun()) {
        if (m_wake.wait_for(lock, kLookPeriod, done)) {
            return;
        }
    }
    m_since = Clock::now();
    if (!m_wake.wait_for(lock, m_limit, done)) {
        lock.unlock();
        m_action();
    }
}

std::chrono::milliseconds OverdueWatch::SinceBegun() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_since == Clock::time_point{}) {
        return std::chrono::milliseconds(0);
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_since);
}

}  // namespace gvx
