#pragma once

#include <ace/Time_Value.h>

#include <algorithm>
#include <cerrno>
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

    // False, without a wait, when the time is up; else it is worth another try. error: the errno of the write that
    // found no room; where it was the system that had none, the socket is ready all the while, and time passes instead.
    bool For(ACE_HANDLE handle, int error) {
        const auto now = Clock::now();
        if (m_deadline == Clock::time_point{}) {
            m_deadline = now + m_limit;
        }
        if (now >= m_deadline) {
            return false;
        }
        const std::chrono::nanoseconds left = m_deadline - now;
        const bool systemIsFull = error == ENOBUFS || error == ENOMEM;
        const timespec wait{0, static_cast<long>((systemIsFull ? std::min(left, kSystemPause) : left).count())};
        pollfd room{handle, POLLOUT, 0};
        ::ppoll(&room, systemIsFull ? 0 : 1, &wait, nullptr);
        return true;
    }

private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::nanoseconds kSystemPause = std::chrono::microseconds(500);
    const std::chrono::microseconds m_limit;
    Clock::time_point m_deadline{};
};

}  // namespace gvx
