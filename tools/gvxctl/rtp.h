#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Reading of RTP from outside: nothing is read beyond what arrived. One thread an object.
namespace gvxctl {

// Payload types of the gateway.
constexpr std::uint8_t kPayloadG711U = 0;
constexpr std::uint8_t kPayloadG711A = 8;
constexpr std::uint8_t kPayloadH264 = 99;
constexpr std::uint8_t kPayloadH265 = 108;
constexpr std::uint8_t kPayloadMetadata = 107;

// A packet's head (RFC 3550, section 5.1) and where its payload lies within the bytes given. Host order.
struct RtpPacket {
    std::uint8_t payloadType = 0;
    bool marker = false;
    bool extended = false;
    std::uint16_t seq = 0;
    std::uint32_t timestamp = 0;
    std::uint32_t ssrc = 0;
    const std::uint8_t* payload = nullptr;
    std::size_t payloadLength = 0;
};

// Contributing sources, header extension and padding are skipped. False, with a static reason, for anything that is
// no packet; the packet is then as it was.
bool ParseRtp(const std::uint8_t* data, std::size_t length, RtpPacket& packet, const char*& reason);

// Follows sequence numbers (RFC 3550, appendix A.1) and says what to do with each packet.
class SequenceTracker {
public:
    enum class Verdict { First, Next, AfterGap, Late };

    Verdict Take(std::uint16_t seq);

    std::uint64_t Lost() const { return m_lost; }
    std::uint64_t Late() const { return m_late; }          // older than what was seen already, duplicates included
    std::uint64_t Restarts() const { return m_restarts; }  // jumps too far to be loss; nothing is counted as lost

private:
    bool m_started = false;
    std::uint16_t m_expected = 0;
    std::uint64_t m_lost = 0;
    std::uint64_t m_late = 0;
    std::uint64_t m_restarts = 0;
};

// Cuts interleaved data into packets: "$", channel, 16-bit length, packet (RFC 2326, section 10.12).
class InterleaveCutter {
public:
    enum class Result { NeedMore, Ready, Broken };

    void Feed(const std::uint8_t* data, std::size_t length);
    // data points into the cutter until the next Feed. Broken is final: a byte that is no "$" stands where one must.
    Result Next(std::uint8_t& channel, const std::uint8_t*& data, std::size_t& length);

private:
    std::string m_bytes;
    std::size_t m_read = 0;
};

}  // namespace gvxctl
