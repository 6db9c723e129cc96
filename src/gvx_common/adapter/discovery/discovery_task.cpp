#include "gvx_common/adapter/discovery/discovery_task.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/Thread.h>
#include <ace/Thread_Semaphore.h>

#include <algorithm>
#include <exception>

#include <pthread.h>

namespace gvx {

namespace {

constexpr const char* kTitle = "Device discovery";
constexpr std::size_t kStackBytes = 128 * 1024;
constexpr int kThreadsOfTask = 2;
constexpr int kLastNumber = 255;
// Longest sleep in one piece, so that a clock that is set is followed.
constexpr std::chrono::milliseconds kMaxSleep(20);

// The number that stands in text from that place on; -1 where there is none.
int NumberAt(const std::string& text, std::size_t place) {
    const bool hasNumber = place < text.size() && text[place] >= '0' && text[place] <= '9';
    return hasNumber ? CGvxUtility::toInt(text.substr(place)) : -1;
}

}  // namespace

std::list<std::string> ListProbeAddresses(const std::list<DISCOVERY_IP_INFO>& ranges) {
    std::list<std::string> addresses;
    for (const DISCOVERY_IP_INFO& range : ranges) {
        const std::string first = TextOf(range.strStartIp);
        const std::size_t dot = first.find_last_of('.');
        const std::size_t place = dot == std::string::npos ? first.size() : dot + 1;
        const int start = NumberAt(first, place);
        if (start < 0 || start > kLastNumber) {
            GVX_LOG_ERR(kTitle, "Fail to init start[%d] addr.", start);
            continue;
        }
        int end = NumberAt(TextOf(range.strEndIp), place);
        if (end < 0) {
            GVX_LOG_ERR(kTitle, "Fail to init end[%d] addr.", end);
            continue;
        }
        end = std::min(end, kLastNumber);
        for (int number = start; number <= end; ++number) {
            char address[sizeof range.strStartIp] = {};
            if (snprintf_s(address, sizeof address, sizeof address - 1, "%s%d", first.substr(0, place).c_str(),
                           number) < 0) {
                GVX_LOG_ERR(kTitle, "snprintf_s chIp failed");
                continue;
            }
            addresses.emplace_back(address);
        }
    }
    return addresses;
}

struct DiscoveryTask::Launch {
    std::shared_ptr<State> state;
    std::string name;
    Body body;
    void* argument;
};

bool DiscoveryTask::TakeSignals(ACE_Thread_Semaphore& semaphore, std::chrono::milliseconds limit) {
    // The semaphore itself could wait by wall time alone, which may be set meanwhile.
    const auto until = std::chrono::steady_clock::now() + limit;
    while (m_owed > 0) {
        if (semaphore.tryacquire() == 0) {
            --m_owed;
            continue;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now >= until) {
            return false;
        }
        std::unique_lock<std::mutex> lock(m_state->mutex);
        m_state->changed.wait_until(lock, std::min(until, now + kMaxSleep));
    }
    return true;
}

void DiscoveryTask::Begin(bool local) {
    m_owed = kThreadsOfTask;
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->local = local;
    m_state->stopped = false;
    m_state->abandoned = false;
    m_state->endMs = 0;
}

void DiscoveryTask::LimitTo(int seconds) {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->endMs = MonotonicMilliseconds() + std::int64_t{seconds} * 1000;
}

bool DiscoveryTask::Spawn(const char* name, Body body, void* argument) {
    auto launch = std::make_unique<Launch>(Launch{m_state, name, body, argument});
    {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        ++m_state->threads;
    }
    ACE_thread_t thread = 0;
    if (ACE_Thread::spawn(reinterpret_cast<ACE_THR_FUNC>(&DiscoveryTask::Run), launch.get(), THR_NEW_LWP | THR_DETACHED,
                          &thread, nullptr, ACE_DEFAULT_THREAD_PRIORITY, nullptr, kStackBytes) == -1) {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        --m_state->threads;
        return false;
    }
    static_cast<void>(launch.release());  // the thread's
    return true;
}

void* DiscoveryTask::Run(void* argument) {
    const std::unique_ptr<Launch> launch(static_cast<Launch*>(argument));
    CGvxUtility::pthreadSetThreadname(pthread_self(), launch->name.c_str());
    try {
        launch->body(launch->argument);
    } catch (const std::exception& fault) {
        GVX_LOG_ERR(kTitle, "Thread %s ends: %s.", launch->name.c_str(), fault.what());
    } catch (...) {
        GVX_LOG_ERR(kTitle, "Thread %s ends: an exception that says nothing.", launch->name.c_str());
    }
    const std::lock_guard<std::mutex> lock(launch->state->mutex);
    --launch->state->threads;
    launch->state->changed.notify_all();
    return nullptr;
}

void DiscoveryTask::Stop() {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->stopped = true;
    m_state->changed.notify_all();
}

void DiscoveryTask::Abandon() {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->abandoned = true;
    m_state->stopped = true;
    m_state->changed.notify_all();
}

bool DiscoveryTask::IsAbandoned() const {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->abandoned;
}

bool DiscoveryTask::IsStopped() const {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->stopped;
}

bool DiscoveryTask::IsLocal() const {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->local;
}

bool DiscoveryTask::IsOver() const {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->stopped || MonotonicMilliseconds() >= m_state->endMs;
}

void DiscoveryTask::Wait(std::chrono::milliseconds span) {
    std::unique_lock<std::mutex> lock(m_state->mutex);
    const std::int64_t until = std::min(MonotonicMilliseconds() + span.count(), m_state->endMs);
    while (!m_state->stopped) {
        const std::chrono::milliseconds left(until - MonotonicMilliseconds());
        if (left.count() <= 0) {
            return;
        }
        m_state->changed.wait_for(lock, std::min(left, kMaxSleep));
    }
}

bool DiscoveryTask::WaitEnd(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_state->mutex);
    return m_state->changed.wait_for(lock, limit, [this] { return m_state->threads == 0; });
}

}  // namespace gvx
