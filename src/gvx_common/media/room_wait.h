#pragma once

#include <ace/Time_Value.h>

#include <chrono>
#include <ctime>

#include <poll.h>

namespace gvx {

// Waits for room in a socket, as often as needed, but no longer than the limit (below 1 s) over all the waits of one
// object, counted from the first. One thread.
class RoomWait {
public:
    explicit RoomWait(const ACE_Time_Value& limit)
        : m_limit(std::chrono::seconds(limit.sec()) + std::chrono::microseconds(limit.usec())) {}

    // False, without a wait, when the time is up; else it is worth another try.
    bool For(ACE_HANDLE handle) {
        const auto now = Clock::now();
        if (m_deadline == Clock::time_point{}) {
            m_deadline = now + m_limit;
        }
        if (now >= m_deadline) {
            return false;
        }
        const timespec left{0, static_cast<long>(std::chrono::nanoseconds(m_deadline - now).count())};
        pollfd room{handle, POLLOUT, 0};
        ::ppoll(&room, 1, &left, nullptr);
        return true;
    }

private:
    using Clock = std::chrono::steady_clock;
    const std::chrono::microseconds m_limit;
    Clock::time_point m_deadline{};
};

}  // namespace gvx
