#include "gateway/process/allocator.h"

#include "base/log.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <thread>
#include <utility>

#include <malloc.h>
#include <unistd.h>

namespace gvx {

namespace {

constexpr std::int64_t kLookMs = 3000;
constexpr std::int64_t kGivingMs = 60000;
constexpr std::int64_t kMuch = 8 << 20;
constexpr std::int64_t kStill = 1 << 20;

// Bytes in memory without those that are in use, and with an amount that stays about the same. What has been given back
// counts as free by the allocator's own figures. None when it cannot be known.
std::optional<std::int64_t> SpareBytes() {
    std::int64_t total = 0;
    std::int64_t resident = 0;
    if (!(std::ifstream("/proc/self/statm") >> total >> resident)) {
        return std::nullopt;
    }
    const struct mallinfo2 figures = ::mallinfo2();
    return resident * ::sysconf(_SC_PAGESIZE) - static_cast<std::int64_t>(figures.uordblks + figures.hblkhd);
}

}  // namespace

// Large buffers go back to the system as soon as they are freed: the threshold above which the allocator maps memory
// would else rise with the first of them that is freed. Few arenas, since hundreds of threads come and go.
void TuneAllocator() {
    constexpr int kMapBytes = 128 * 1024;
    constexpr unsigned int kLeastArenas = 4;
    ::mallopt(M_MMAP_THRESHOLD, kMapBytes);
    ::mallopt(M_TRIM_THRESHOLD, kMapBytes);
    ::mallopt(M_ARENA_MAX, static_cast<int>(std::max(std::thread::hardware_concurrency(), kLeastArenas)));
}

void SpareMemory::Look(std::int64_t nowMs) {
    if (nowMs < m_nextLookMs) {
        return;
    }
    m_nextLookMs = nowMs + kLookMs;
    const std::optional<std::int64_t> spare = SpareBytes();
    if (!spare) {
        return;
    }
    const std::int64_t before = std::exchange(m_spare, *spare);
    m_leastSpare = std::min(m_leastSpare, m_spare);
    if (m_spare - m_leastSpare < kMuch || std::abs(m_spare - before) > kStill || nowMs < m_nextGivingMs) {
        return;
    }
    ::malloc_trim(0);
    m_leastSpare = SpareBytes().value_or(m_leastSpare);
    m_nextGivingMs = nowMs + kGivingMs;
    GVX_DEBUG("%lld bytes without use went back to the system.", static_cast<long long>(m_spare - m_leastSpare));
}

}  // namespace gvx
