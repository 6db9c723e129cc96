#pragma once

#include <cstdint>

#include "gvx_common/rtp/rtcp_packet.h"

namespace gvx {

// What a receiver keeps about the source that it listens to: sequence numbers, losses and jitter for its reports, and
// the source's own last report (RFC 3550, A.1, A.3 and A.8). One thread.
class RtpSource {
public:
    // RFC 3550, A.1: a number that far ahead, or that far behind, is not of this run of numbers.
    static constexpr std::uint16_t kMaxDropout = 3000;
    static constexpr std::uint16_t kMaxMisorder = 100;

    // Begins anew with a validated source.
    void Start(std::uint32_t ssrc, std::uint16_t firstSeq);

    // A packet of the source. The number continued past 16 bits, or -1 when it is not of this run: the source
    // may have begun anew, which the caller finds out with the next packet.
    std::int64_t Update(std::uint16_t seq);

    // Interarrival jitter (A.8). arrival is in ticks of the stream's clock, from any start.
    void UpdateJitter(std::uint32_t arrival, std::uint32_t rtpTime);

    void OnSenderReport(const RtcpSenderInfo& info, std::int64_t nowUs);

    // A report block about the time since the last one (A.3).
    RtcpReportBlock MakeReport(std::int64_t nowUs);

    // The source's wall time in microseconds since 1970 at that RTP time; 0 before its first report.
    std::int64_t CaptureWallUs(std::uint32_t rtpTime, std::uint32_t clockRate) const;

    // The first number, continued as those of Update.
    std::int64_t First() const { return static_cast<std::int64_t>(m_first); }
    std::uint32_t Ssrc() const { return m_ssrc; }
    std::uint64_t Received() const { return m_received; }
    std::int64_t Lost() const;
    std::uint32_t Jitter() const { return m_jitter >> 4; }
    bool HasSenderReport() const { return m_reportAtUs >= 0; }

private:
    std::uint64_t Expected() const { return m_highest - m_first + 1; }

    std::uint32_t m_ssrc = 0;
    // Numbers continued past 16 bits. They begin one cycle up, so that one behind the first stays positive.
    std::uint64_t m_first = 0;
    std::uint64_t m_highest = 0;
    std::uint64_t m_received = 0;
    std::uint64_t m_expectedPrior = 0;
    std::uint64_t m_receivedPrior = 0;
    std::uint32_t m_jitter = 0;  // scaled by 16
    std::uint32_t m_transit = 0;
    bool m_hasTransit = false;
    RtcpSenderInfo m_report;
    std::int64_t m_reportAtUs = -1;
};

}  // namespace gvx
