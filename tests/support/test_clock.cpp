#include "support/test_clock.h"

ScopedTestClock::ScopedTestClock() {
    gvx::SetClock(&m_clock);
}

ScopedTestClock::~ScopedTestClock() {
    gvx::SetClock(nullptr);
}
