#include "gvxctl/rtp.h"

namespace gvxctl {
namespace {

constexpr std::size_t kRtpHeadBytes = 12;
constexpr std::size_t kInterleaveHeadBytes = 4;
constexpr std::int32_t kMaxDropout = 3000;  // RFC 3550, appendix A.1
constexpr std::int32_t kMaxMisorder = 100;

std::uint16_t Read16(const std::uint8_t* data) {
    return static_cast<std::uint16_t>(data[0] << 8 | data[1]);
}

std::uint32_t Read32(const std::uint8_t* data) {
    return static_cast<std::uint32_t>(Read16(data)) << 16 | Read16(data + 2);
}

}  // namespace

bool ParseRtp(const std::uint8_t* data, std::size_t length, RtpPacket& packet, const char*& reason) {
    if (length < kRtpHeadBytes) {
        reason = "shorter than an RTP head";
        return false;
    }
    if (data[0] >> 6 != 2) {
        reason = "not RTP version 2";
        return false;
    }
    std::size_t begin = kRtpHeadBytes + 4u * (data[0] & 0x0Fu);
    const bool extended = (data[0] & 0x10u) != 0;
    if (extended) {
        if (begin + 4 > length) {
            reason = "header extension beyond the packet";
            return false;
        }
        begin += 4 + 4u * Read16(data + begin + 2);
    }
    if (begin > length) {
        reason = "header beyond the packet";
        return false;
    }
    const std::size_t padding = (data[0] & 0x20u) != 0 ? data[length - 1] : 0;
    if (padding > length - begin || ((data[0] & 0x20u) != 0 && padding == 0)) {
        reason = "padding beyond the payload";
        return false;
    }
    packet.payloadType = data[1] & 0x7Fu;
    packet.marker = (data[1] & 0x80u) != 0;
    packet.extended = extended;
    packet.seq = Read16(data + 2);
    packet.timestamp = Read32(data + 4);
    packet.ssrc = Read32(data + 8);
    packet.payload = data + begin;
    packet.payloadLength = length - begin - padding;
    return true;
}

SequenceTracker::Verdict SequenceTracker::Take(std::uint16_t seq) {
    const auto distance = static_cast<std::int16_t>(static_cast<std::uint16_t>(seq - m_expected));
    Verdict verdict = Verdict::Next;
    if (!m_started) {
        m_started = true;
        verdict = Verdict::First;
    } else if (distance < 0 && distance >= -kMaxMisorder) {
        ++m_late;
        return Verdict::Late;
    } else if (distance < 0 || distance > kMaxDropout) {
        ++m_restarts;
        verdict = Verdict::AfterGap;
    } else if (distance > 0 && !(seq == 1 && distance == 1)) {
        // The gateway leaves number 0 out when a frame ends on 65535, so a step from there to 1 is no loss.
        m_lost += static_cast<std::uint64_t>(distance);
        verdict = Verdict::AfterGap;
    }
    m_expected = static_cast<std::uint16_t>(seq + 1);
    return verdict;
}

void InterleaveCutter::Feed(const std::uint8_t* data, std::size_t length) {
    m_bytes.erase(0, m_read);
    m_read = 0;
    m_bytes.append(data, data + length);
}

InterleaveCutter::Result InterleaveCutter::Next(std::uint8_t& channel, const std::uint8_t*& data, std::size_t& length) {
    const std::size_t left = m_bytes.size() - m_read;
    if (left == 0) {
        return Result::NeedMore;
    }
    const auto* head = reinterpret_cast<const std::uint8_t*>(m_bytes.data()) + m_read;
    if (head[0] != '$') {
        return Result::Broken;
    }
    if (left < kInterleaveHeadBytes || left < kInterleaveHeadBytes + Read16(head + 2)) {
        return Result::NeedMore;
    }
    channel = head[1];
    data = head + kInterleaveHeadBytes;
    length = Read16(head + 2);
    m_read += kInterleaveHeadBytes + length;
    return Result::Ready;
}

}  // namespace gvxctl
