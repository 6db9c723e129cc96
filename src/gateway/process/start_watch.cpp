#include "gateway/process/start_watch.h"

namespace gvx {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLookPeriod(20);

}  // namespace

StartWatch::StartWatch(std::function<int()> pendingSignal, std::chrono::milliseconds limit,
                       std::function<void(int)> action)
    : m_pendingSignal(std::move(pendingSignal)),
      m_limit(limit),
      m_action(std::move(action)),
      m_thread([this] { Run(); }) {}

StartWatch::~StartWatch() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_done = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void StartWatch::Run() {
    const auto done = [this] { return m_done; };
    std::unique_lock<std::mutex> lock(m_mutex);
    int signal = 0;
    while (signal == 0) {
        if (m_wake.wait_for(lock, kLookPeriod, done)) {
            return;
        }
        signal = m_pendingSignal();
    }
    m_noticed = Clock::now();
    if (!m_wake.wait_for(lock, m_limit, done)) {
        lock.unlock();
        m_action(signal);
    }
}

std::chrono::milliseconds StartWatch::SinceSignal() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_noticed == Clock::time_point{}) {
        return std::chrono::milliseconds(0);
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_noticed);
}

}  // namespace gvx
