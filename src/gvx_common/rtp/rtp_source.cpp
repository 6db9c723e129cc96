#include "gvx_common/rtp/rtp_source.h"

#include <algorithm>
#include <limits>

namespace gvx {

namespace {

constexpr std::uint64_t kCycle = 0x10000;

}  // namespace

void RtpSource::Start(std::uint32_t ssrc, std::uint16_t firstSeq) {
    const RtcpSenderInfo report = m_report;
    const std::int64_t reportAtUs = ssrc == m_ssrc ? m_reportAtUs : -1;
    *this = RtpSource();
    m_ssrc = ssrc;
    m_first = kCycle + firstSeq;
    m_highest = m_first - 1;
    // Numbers that begin anew do not change the source's clock.
    m_report = report;
    m_reportAtUs = reportAtUs;
}

std::int64_t RtpSource::Update(std::uint16_t seq) {
    const auto highest = static_cast<std::uint16_t>(m_highest);
    const auto ahead = static_cast<std::uint16_t>(seq - highest);
    const auto behind = static_cast<std::uint16_t>(highest - seq);
    std::uint64_t number;
    if (ahead < kMaxDropout) {
        number = m_highest + ahead;
        m_highest = number;
    } else if (behind <= kMaxMisorder) {
        number = m_highest - behind;
    } else {
        return -1;
    }
    ++m_received;
    return static_cast<std::int64_t>(number);
}

void RtpSource::UpdateJitter(std::uint32_t arrival, std::uint32_t rtpTime) {
    const std::uint32_t transit = arrival - rtpTime;
    if (m_hasTransit) {
        const auto difference = static_cast<std::int32_t>(transit - m_transit);
        const std::uint32_t size =
            difference < 0 ? 0u - static_cast<std::uint32_t>(difference) : static_cast<std::uint32_t>(difference);
        m_jitter += size - ((m_jitter + 8) >> 4);
    }
    m_transit = transit;
    m_hasTransit = true;
}

void RtpSource::OnSenderReport(const RtcpSenderInfo& info, std::int64_t nowUs) {
    m_report = info;
    m_reportAtUs = nowUs;
}

std::int64_t RtpSource::Lost() const {
    return static_cast<std::int64_t>(Expected()) - static_cast<std::int64_t>(m_received);
}

RtcpReportBlock RtpSource::MakeReport(std::int64_t nowUs) {
    RtcpReportBlock block;
    block.ssrc = m_ssrc;
    block.cumulativeLost = static_cast<std::int32_t>(std::clamp<std::int64_t>(Lost(), -0x800000, 0x7FFFFF));
    const std::uint64_t expected = Expected() - m_expectedPrior;
    const std::uint64_t received = m_received - m_receivedPrior;
    m_expectedPrior = Expected();
    m_receivedPrior = m_received;
    if (expected > received) {
        block.fractionLost =
            static_cast<std::uint8_t>(std::min<std::uint64_t>(255, (expected - received) * 256 / expected));
    }
    block.highestSeq = static_cast<std::uint32_t>(m_highest - kCycle);
    block.jitter = Jitter();
    if (HasSenderReport()) {
        block.lastSenderReport = static_cast<std::uint32_t>(m_report.ntpTime >> 16);
        const std::uint64_t since = static_cast<std::uint64_t>(std::max<std::int64_t>(0, nowUs - m_reportAtUs));
        block.delaySinceLast = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(since * 65536 / 1000000, std::numeric_limits<std::uint32_t>::max()));
    }
    return block;
}

std::int64_t RtpSource::CaptureWallUs(std::uint32_t rtpTime, std::uint32_t clockRate) const {
    if (!HasSenderReport() || clockRate == 0) {
        return 0;
    }
    const std::int64_t ticks = static_cast<std::int32_t>(rtpTime - m_report.rtpTime);
    return WallUsOfNtp(m_report.ntpTime) + ticks * 1000000 / static_cast<std::int64_t>(clockRate);
}

}  // namespace gvx
