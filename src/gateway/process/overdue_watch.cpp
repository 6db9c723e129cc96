#include "gateway/process/overdue_watch.h"

#include "base/shortage.h"

#include <system_error>
#include <utility>

#include <pthread.h>

namespace gvx {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLookPeriod(20);

}  // namespace

OverdueWatch::~OverdueWatch() {
    if (!m_thread.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
        m_watching = false;
    }
    m_wake.notify_all();
    m_thread.join();
}

bool OverdueWatch::Start(std::function<void()> prepare) {
    try {
        m_thread = std::thread([this, prepare = std::move(prepare)] {
            prepare();
            Run();
        });
    } catch (const std::system_error& fault) {
        NoteShortage(fault);
        return false;
    }
    return true;
}

void OverdueWatch::Begin(std::function<bool()> begun, std::chrono::milliseconds limit, std::function<void()> action) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_begun = std::move(begun);
        m_limit = limit;
        m_action = std::move(action);
        m_since = {};
        ++m_stretch;
        m_watching = true;
    }
    m_wake.notify_all();
}

void OverdueWatch::End() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_watching = false;
    }
    m_wake.notify_all();
}

void OverdueWatch::Run() {
    ::pthread_setname_np(::pthread_self(), "OverdueWatch");
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stop) {
        m_wake.wait(lock, [this] { return m_stop || m_watching; });
        Watch(lock);
    }
}

// The action runs under the lock: the end of the stretch waits for it.
void OverdueWatch::Watch(std::unique_lock<std::mutex>& lock) {
    const auto ended = [this, stretch = m_stretch] { return !m_watching || m_stretch != stretch; };
    while (!ended() && !m_begun()) {
        m_wake.wait_for(lock, kLookPeriod, ended);
    }
    if (ended()) {
        return;
    }
    m_since = Clock::now();
    if (!m_wake.wait_for(lock, m_limit, ended)) {
        m_action();
        m_watching = false;
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
