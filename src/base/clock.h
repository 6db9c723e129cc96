#pragma once

#include <cstdint>
#include <ctime>

// The one source of time. Wall time is for what goes on the wire and into names; monotonic time is for waiting
// and ageing. Tests install a clock of their own; nobody else reads the system's clocks directly.
namespace gvx {

class Clock {
public:
    virtual ~Clock() = default;
    virtual std::int64_t WallMicroseconds() const noexcept = 0;       // since 1970-01-01 00:00:00 UTC
    virtual std::int64_t MonotonicMicroseconds() const noexcept = 0;  // since an arbitrary moment
};

// The clock in force; never null. Any thread.
const Clock& CurrentClock() noexcept;

// Installs a clock, which must live until it is replaced; null brings back the system's. For tests.
void SetClock(const Clock* clock) noexcept;

inline std::time_t WallSeconds() noexcept {
    return static_cast<std::time_t>(CurrentClock().WallMicroseconds() / 1000000);
}
inline std::int64_t MonotonicMilliseconds() noexcept {
    return CurrentClock().MonotonicMicroseconds() / 1000;
}

}  // namespace gvx
