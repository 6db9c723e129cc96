#include "rtsp/login_policy.h"

#include <algorithm>

namespace gvxrtsp {
namespace {

constexpr std::int64_t kMinuteUs = 60LL * 1000000;

}  // namespace

std::int64_t LoginPolicy::NextUs(std::int64_t nowUs) {
    while (!m_logins.empty() && m_logins.front() + kMinuteUs <= nowUs) {
        m_logins.pop_front();
    }
    const bool full = m_logins.size() >= static_cast<std::size_t>(m_loginsPerMinute);
    return std::max(m_notBeforeUs, full ? m_logins.front() + kMinuteUs : 0);
}

void LoginPolicy::OnLogin(std::int64_t nowUs) {
    m_logins.push_back(nowUs);
}

void LoginPolicy::OnFailure(std::int64_t nowUs, double jitter) {
    m_notBeforeUs = std::max(m_notBeforeUs,
                             nowUs + static_cast<std::int64_t>(static_cast<double>(m_pauseUs) * (0.8 + 0.4 * jitter)));
    m_pauseUs = std::min(m_pauseUs * 2, kLongestPauseUs);
}

void LoginPolicy::OnRefusal(std::int64_t nowUs) {
    if (++m_refusals >= kMaxRefusals) {
        m_notBeforeUs = nowUs + kRefusedPauseUs;
    }
}

void LoginPolicy::OnSuccess() {
    m_pauseUs = kFirstPauseUs;
    m_refusals = 0;
    m_notBeforeUs = 0;
}

void LoginPolicy::Reset() {
    OnSuccess();
    m_logins.clear();
}

}  // namespace gvxrtsp
