#include "gvx_common/rtp/common_rtp_sender.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/random.h"
#include "gvx_common/rtp/rtp_view.h"

#include <algorithm>

#include <sys/socket.h>

namespace {

constexpr std::size_t kHeadLen = 12;
constexpr std::size_t kMostPayload = 65507 - kHeadLen;  // the longest datagram of IPv4
constexpr int kSendBufferBytes = 384 * 1024;

}  // namespace

CCommonRtpSender::~CCommonRtpSender() {
    Close();
}

int CCommonRtpSender::Open(const RtpSenderParams& params) {
    if (params.iPayloadType < 0 || params.iPayloadType > 127) {
        GVX_LOG_ERR("Rtp sender", "The payload type is wrong, type[%d].", params.iPayloadType);
        return ZVS_PARA_INVALID;
    }
    const int result = OpenBase(params.endpoint, SO_SNDBUF, kSendBufferBytes);
    if (result != ZVS_SUCCEED) {
        return result;
    }
    CBB::GenerateRandom(&m_seq, sizeof(m_seq));
    CBB::GenerateRandom(&m_timeOffset, sizeof(m_timeOffset));
    m_payloadType = static_cast<std::uint8_t>(params.iPayloadType);
    m_lastSentUs = -1;
    m_sentSinceReport = false;
    m_heardReceiver = false;
    m_statistics = RtpSenderStatistics{};
    return ZVS_SUCCEED;
}

int CCommonRtpSender::Send(const void* payload, std::size_t size, bool marker, std::uint32_t rtpTime) {
    if (payload == nullptr || size == 0 || size > kMostPayload) {
        return ZVS_PARA_INVALID;
    }
    if (!IsOpen()) {
        return ZVS_GVX_OPEN_SOCKET_ERROR;
    }
    m_lastRtpTime = rtpTime + m_timeOffset;
    m_packet.resize(kHeadLen);
    m_packet[0] = 0x80;
    m_packet[1] = static_cast<std::uint8_t>((marker ? 0x80 : 0) | m_payloadType);
    gvx::StoreBe16(&m_packet[2], m_seq++);
    gvx::StoreBe32(&m_packet[4], m_lastRtpTime);
    gvx::StoreBe32(&m_packet[8], GetSsrc());
    const auto* bytes = static_cast<const std::uint8_t*>(payload);
    m_packet.insert(m_packet.end(), bytes, bytes + size);
    bool left = false;
    if (InterleavedSend()) {
        left = InterleavedSend()(RTP_FLOW_MEDIA, m_packet.data(), m_packet.size());
    } else if (Remote().sin_port != 0) {
        left = ::sendto(GetHandle(), m_packet.data(), m_packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr*>(&Remote()), sizeof(Remote())) >= 0;
    }
    if (!left) {
        ++m_statistics.failed;
        return ZVS_GVX_OPEN_SOCKET_ERROR;
    }
    m_lastSentUs = gvx::CurrentClock().MonotonicMicroseconds();
    m_sentSinceReport = true;
    ++m_statistics.packets;
    m_statistics.octets += size;
    return ZVS_SUCCEED;
}

void CCommonRtpSender::AddReport(gvx::RtcpBuilder& packet, std::int64_t nowUs) {
    // Who has not sent since the report before is a receiver (RFC 3550, 6.4).
    if (!m_sentSinceReport) {
        packet.AddReceiverReport(GetSsrc(), nullptr);
        return;
    }
    m_sentSinceReport = false;
    gvx::RtcpSenderInfo info;
    info.ssrc = GetSsrc();
    info.ntpTime = gvx::NtpOfWallUs(gvx::CurrentClock().WallMicroseconds());
    // The media clock at this moment, which is later than that of the last packet.
    info.rtpTime = m_lastRtpTime + static_cast<std::uint32_t>((nowUs - m_lastSentUs) * ClockRate() / 1000000);
    info.packets = static_cast<std::uint32_t>(m_statistics.packets);
    info.octets = static_cast<std::uint32_t>(m_statistics.octets);
    packet.AddSenderReport(info, nullptr);
}

gvx::RtcpSchedule::Session CCommonRtpSender::GetSession() const {
    return {m_heardReceiver ? 2u : 1u, m_sentSinceReport ? 1u : 0u, m_sentSinceReport};
}

void CCommonRtpSender::OnReportBlock(std::uint32_t, const gvx::RtcpReportBlock& block) {
    m_heardReceiver = true;
    if (block.ssrc != GetSsrc()) {
        return;
    }
    ++m_statistics.reports;
    m_statistics.fractionLost = block.fractionLost;
    m_statistics.cumulativeLost = block.cumulativeLost;
    m_statistics.jitter = block.jitter;
    if (block.lastSenderReport != 0) {
        // RFC 3550, 6.4.1: arrival less LSR less DLSR, in units of 1/65536 s.
        const auto now = static_cast<std::uint32_t>(gvx::NtpOfWallUs(gvx::CurrentClock().WallMicroseconds()) >> 16);
        const auto trip = static_cast<std::int32_t>(now - block.lastSenderReport - block.delaySinceLast);
        m_statistics.roundTripUs = static_cast<std::int64_t>(std::max(trip, 0)) * 1000000 / 65536;
    }
}

void CCommonRtpSender::OnBye(std::uint32_t) {
    m_heardReceiver = false;
    if (m_sink != nullptr) {
        m_sink->OnReceiverEnd();
    }
}

void CCommonRtpSender::OnPictureLoss(std::uint32_t, std::uint32_t media) {
    if (media == GetSsrc() && m_sink != nullptr) {
        m_sink->OnPictureRequested();
    }
}
