#include "gvx_common/rtp/rtp_poller.h"

#include "base/clock.h"
#include "base/log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace gvx {

namespace {

constexpr std::uint64_t kWakeKey = 0;
constexpr std::uint64_t kControlBit = std::uint64_t{1} << 32;
constexpr std::int64_t kMostWaitUs = 1000000;

bool Watch(int epoll, int handle, std::uint64_t key) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = key;
    return ::epoll_ctl(epoll, EPOLL_CTL_ADD, handle, &event) == 0;
}

void Rest(std::int64_t microseconds) {
    const timespec rest{0, static_cast<long>(std::min<std::int64_t>(microseconds, 999999) * 1000)};
    ::nanosleep(&rest, nullptr);
}

}  // namespace

RtpPoller::RtpPoller(int restUs)
    : m_restUs(restUs), m_epoll(::epoll_create1(EPOLL_CLOEXEC)), m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_epoll.Valid() && (!m_wake.Valid() || !Watch(m_epoll.Get(), m_wake.Get(), kWakeKey))) {
        m_epoll.Reset();
    }
    if (!m_epoll.Valid()) {
        GVX_LOG_ERR("Rtp poller", "No descriptor to wait with, errno: %d.", errno);
    }
}

int RtpPoller::Add(CCommonRtpReceiver& receiver) {
    {
        const std::lock_guard<std::recursive_mutex> guard(m_mutex);
        const int handle = receiver.GetHandle();
        const int controlHandle = receiver.GetControlHandle();
        const std::uint32_t id = m_nextId;
        if (handle == -1 || !Watch(m_epoll.Get(), handle, id)) {
            return ZVS_FAIL;
        }
        if (!Watch(m_epoll.Get(), controlHandle, id | kControlBit)) {
            ::epoll_ctl(m_epoll.Get(), EPOLL_CTL_DEL, handle, nullptr);
            return ZVS_FAIL;
        }
        m_entries.emplace(id, Entry{&receiver, handle, controlHandle, 0});
        ++m_nextId;
        m_nextTimerUs = 0;
    }
    Wake();
    return ZVS_SUCCEED;
}

int RtpPoller::Remove(CCommonRtpReceiver& receiver) {
    const std::lock_guard<std::recursive_mutex> guard(m_mutex);
    const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                    [&](const auto& entry) { return entry.second.receiver == &receiver; });
    if (found == m_entries.end()) {
        return ZVS_FAIL;
    }
    ::epoll_ctl(m_epoll.Get(), EPOLL_CTL_DEL, found->second.handle, nullptr);
    ::epoll_ctl(m_epoll.Get(), EPOLL_CTL_DEL, found->second.controlHandle, nullptr);
    m_entries.erase(found);
    return ZVS_SUCCEED;
}

void RtpPoller::Wake() {
    const std::uint64_t one = 1;
    // A counter that is full has a wake-up pending.
    [[maybe_unused]] const ssize_t written = ::write(m_wake.Get(), &one, sizeof(one));
}

int RtpPoller::Poll(int timeoutMs) {
    std::int64_t waitUs;
    {
        const std::lock_guard<std::recursive_mutex> guard(m_mutex);
        waitUs = std::min(static_cast<std::int64_t>(timeoutMs) * 1000,
                          m_nextTimerUs - CurrentClock().MonotonicMicroseconds());
    }
    std::array<epoll_event, 256> events;
    const int count = Gather(events.data(), static_cast<int>(events.size()), waitUs);
    if (count < 0) {
        return errno == EINTR ? 0 : -1;
    }
    const std::lock_guard<std::recursive_mutex> guard(m_mutex);
    int served = 0;
    for (int i = 0; i < count; ++i) {
        const std::uint64_t key = events[static_cast<std::size_t>(i)].data.u64;
        if (key == kWakeKey) {
            std::uint64_t counter;
            [[maybe_unused]] const ssize_t read = ::read(m_wake.Get(), &counter, sizeof(counter));
        } else {
            Serve(key);
            served += (key & kControlBit) == 0;
        }
    }
    const std::int64_t nowUs = CurrentClock().MonotonicMicroseconds();
    if (nowUs >= m_nextTimerUs) {
        m_nextTimerUs = RunTimers(nowUs);
    }
    return served;
}

// As epoll_wait, once packets have gathered.
int RtpPoller::Gather(epoll_event* events, int room, std::int64_t waitUs) {
    if (m_isFlowing && waitUs > 0) {
        Rest(std::min<std::int64_t>(2 * static_cast<std::int64_t>(m_restUs), waitUs));
        const int count = ::epoll_wait(m_epoll.Get(), events, room, 0);
        if (count != 0) {
            return count;
        }
        m_isFlowing = false;
    }
    const std::int64_t begin = CurrentClock().MonotonicMicroseconds();
    const int waitMs = static_cast<int>((std::clamp<std::int64_t>(waitUs, 0, kMostWaitUs) + 999) / 1000);
    const int count = ::epoll_wait(m_epoll.Get(), events, room, waitMs);
    if (count <= 0 || m_restUs <= 0) {
        return count;
    }
    m_isFlowing = CurrentClock().MonotonicMicroseconds() - begin <= m_restUs;
    Rest(m_restUs);
    return ::epoll_wait(m_epoll.Get(), events, room, 0);
}

// A receiver may have been removed since the kernel told of it; numbers are not used twice.
void RtpPoller::Serve(std::uint64_t key) {
    const auto found = m_entries.find(static_cast<std::uint32_t>(key));
    if (found == m_entries.end()) {
        return;
    }
    CCommonRtpReceiver& receiver = *found->second.receiver;
    if ((key & kControlBit) != 0) {
        receiver.ReceiveControl();
        return;
    }
    receiver.Receive();
    // A gap has a moment of its own, which the timers do not know of yet.
    const std::int64_t dueUs = receiver.OrderDueUs();
    if (dueUs >= 0) {
        const auto entry = m_entries.find(static_cast<std::uint32_t>(key));
        if (entry != m_entries.end()) {
            entry->second.timerUs = std::min(entry->second.timerUs, dueUs);
            m_nextTimerUs = std::min(m_nextTimerUs, dueUs);
        }
    }
}

// Runs what is due; when the next is.
std::int64_t RtpPoller::RunTimers(std::int64_t nowUs) {
    // A callback may remove receivers, and so entries.
    m_due.clear();
    for (const auto& entry : m_entries) {
        if (entry.second.timerUs <= nowUs) {
            m_due.push_back(entry.first);
        }
    }
    for (const std::uint32_t id : m_due) {
        const auto found = m_entries.find(id);
        if (found != m_entries.end()) {
            const int nextMs = found->second.receiver->OnTimer();
            const auto entry = m_entries.find(id);
            if (entry != m_entries.end()) {
                entry->second.timerUs = nowUs + static_cast<std::int64_t>(std::max(nextMs, 1)) * 1000;
            }
        }
    }
    std::int64_t next = nowUs + kMostWaitUs;
    for (const auto& entry : m_entries) {
        next = std::min(next, entry.second.timerUs);
    }
    return next;
}

}  // namespace gvx
