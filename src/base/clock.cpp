#include "base/clock.h"

#include <atomic>
#include <new>

namespace gvx {
namespace {

std::int64_t ReadMicroseconds(clockid_t id) noexcept {
    timespec now{};
    clock_gettime(id, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

class SystemClock : public Clock {
public:
    std::int64_t WallMicroseconds() const noexcept override { return ReadMicroseconds(CLOCK_REALTIME); }
    std::int64_t MonotonicMicroseconds() const noexcept override { return ReadMicroseconds(CLOCK_MONOTONIC); }
};

// Threads may ask for the time while the process ends, so neither object is ever destroyed. Its memory is there from the
// begin: whoever asks first may have none.
const SystemClock& TheSystemClock() noexcept {
    alignas(SystemClock) static unsigned char room[sizeof(SystemClock)];
    static const SystemClock* const clock = new (room) SystemClock;
    return *clock;
}

std::atomic<const Clock*> g_installedClock{nullptr};

}  // namespace

const Clock& CurrentClock() noexcept {
    const Clock* installed = g_installedClock.load(std::memory_order_acquire);
    return installed != nullptr ? *installed : TheSystemClock();
}

void SetClock(const Clock* clock) noexcept {
    g_installedClock.store(clock, std::memory_order_release);
}

}  // namespace gvx
