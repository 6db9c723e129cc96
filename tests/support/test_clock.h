#pragma once

#include "base/clock.h"

#include <atomic>
#include <chrono>
#include <cstdint>

// A clock that stands still until a test moves it. Any thread.
class TestClock : public gvx::Clock {
public:
    // 2026-01-02 03:04:05 UTC, and some time since start.
    static constexpr std::int64_t kStartWallMicroseconds = 1767323045LL * 1000000;
    static constexpr std::int64_t kStartMonotonicMicroseconds = 1000LL * 1000000;

    std::int64_t WallMicroseconds() const noexcept override { return m_wall.load(); }
    std::int64_t MonotonicMicroseconds() const noexcept override { return m_monotonic.load(); }

    // Both clocks go on together.
    void Advance(std::chrono::microseconds by) {
        m_wall += by.count();
        m_monotonic += by.count();
    }
    void AdvanceMs(std::int64_t milliseconds) { Advance(std::chrono::milliseconds(milliseconds)); }
    void AdvanceSeconds(std::int64_t seconds) { Advance(std::chrono::seconds(seconds)); }
    // A step of wall time alone, such as an operator or NTP makes; may go back.
    void StepWall(std::chrono::microseconds by) { m_wall += by.count(); }
    void SetWallMicroseconds(std::int64_t value) { m_wall = value; }
    void SetMonotonicMicroseconds(std::int64_t value) { m_monotonic = value; }

private:
    std::atomic<std::int64_t> m_wall{kStartWallMicroseconds};
    std::atomic<std::int64_t> m_monotonic{kStartMonotonicMicroseconds};
};

// Installs a test clock for a scope; the system's comes back at its end.
class ScopedTestClock {
public:
    ScopedTestClock() { gvx::SetClock(&m_clock); }
    ~ScopedTestClock() { gvx::SetClock(nullptr); }
    ScopedTestClock(const ScopedTestClock&) = delete;
    ScopedTestClock& operator=(const ScopedTestClock&) = delete;

    TestClock& operator*() { return m_clock; }
    TestClock* operator->() { return &m_clock; }

private:
    TestClock m_clock;
};
