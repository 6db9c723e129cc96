#pragma once

#include <cstdint>
#include <deque>

namespace gvxrtsp {

// When a camera may be logged in to: never more often than so many times a minute, later and later after each failure,
// and for ten minutes not at all once it has refused the password three times, since cameras lock accounts. Times are
// monotonic microseconds. One thread.
class LoginPolicy {
public:
    static constexpr std::int64_t kFirstPauseUs = 500000;
    static constexpr std::int64_t kLongestPauseUs = 30000000;
    static constexpr int kMaxRefusals = 3;
    static constexpr std::int64_t kRefusedPauseUs = 600LL * 1000000;

    explicit LoginPolicy(int loginsPerMinute) : m_loginsPerMinute(loginsPerMinute) {}

    // The first moment at which the next login may begin; not after nowUs when it may at once.
    std::int64_t NextUs(std::int64_t nowUs);

    void OnLogin(std::int64_t nowUs);
    // jitter is a number from 0 to 1: the pause is taken between 0.8 and 1.2 of its length, so that cameras that went
    // together do not come back together.
    void OnFailure(std::int64_t nowUs, double jitter);
    void OnRefusal(std::int64_t nowUs);
    // A picture came: the pauses begin anew.
    void OnSuccess();
    // The password is another one.
    void Reset();

    bool IsLockedOut(std::int64_t nowUs) const { return m_refusals >= kMaxRefusals && nowUs < m_notBeforeUs; }

private:
    const int m_loginsPerMinute;
    std::deque<std::int64_t> m_logins;  // of the last minute
    std::int64_t m_notBeforeUs = 0;
    std::int64_t m_pauseUs = kFirstPauseUs;
    int m_refusals = 0;
};

}  // namespace gvxrtsp
