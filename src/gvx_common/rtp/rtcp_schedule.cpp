#include "gvx_common/rtp/rtcp_schedule.h"

#include "base/random.h"

#include <algorithm>

namespace gvx {

namespace {

constexpr double kLeastSeconds = 5.0;
constexpr double kShareOfSession = 0.05;
constexpr double kShareOfSenders = 0.25;
constexpr double kCompensation = 2.71828 - 1.5;  // for what reconsideration puts off
constexpr double kIpAndUdpHead = 28.0;           // counted in, 6.2
constexpr double kFirstGuessBytes = 100.0;       // of a report, before one was seen

}  // namespace

void RtcpSchedule::Start(std::int64_t nowUs, std::uint32_t bandwidth, const Session& session) {
    std::uint32_t seed = 0;
    CBB::GenerateRandom(&seed, sizeof(seed));
    m_random.seed(seed);
    m_bytesASecond = std::max(1.0, bandwidth * kShareOfSession / 8);
    m_averageBytes = kFirstGuessBytes + kIpAndUdpHead;
    m_initial = true;
    m_lastUs = nowUs;
    m_nextUs = nowUs + Interval(session);
}

bool RtcpSchedule::IsDue(std::int64_t nowUs, const Session& session) {
    if (nowUs < m_nextUs) {
        return false;
    }
    m_nextUs = m_lastUs + Interval(session);
    return m_nextUs <= nowUs;
}

void RtcpSchedule::OnSent(std::int64_t nowUs, std::size_t bytes, const Session& session) {
    Average(bytes);
    m_initial = false;
    m_lastUs = nowUs;
    m_nextUs = nowUs + Interval(session);
}

void RtcpSchedule::Average(std::size_t bytes) {
    m_averageBytes += (static_cast<double>(bytes) + kIpAndUdpHead - m_averageBytes) / 16;
}

std::int64_t RtcpSchedule::Interval(const Session& session) {
    double share = m_bytesASecond;
    unsigned int sharers = session.members;
    if (session.senders <= session.members * kShareOfSenders) {
        share *= session.weSend ? kShareOfSenders : 1 - kShareOfSenders;
        sharers = session.weSend ? session.senders : session.members - session.senders;
    }
    const double least = m_initial ? kLeastSeconds / 2 : kLeastSeconds;
    const double seconds = std::max(least, m_averageBytes * sharers / share);
    const double drawn = seconds * std::uniform_real_distribution<double>(0.5, 1.5)(m_random) / kCompensation;
    return static_cast<std::int64_t>(drawn * 1e6);
}

}  // namespace gvx
