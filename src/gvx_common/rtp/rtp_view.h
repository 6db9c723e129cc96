#pragma once

#include <cstddef>
#include <cstdint>

namespace gvx {

// Big-endian numbers at any alignment.
inline std::uint16_t LoadBe16(const std::uint8_t* at) {
    return static_cast<std::uint16_t>(at[0] << 8 | at[1]);
}
inline std::uint32_t LoadBe32(const std::uint8_t* at) {
    return static_cast<std::uint32_t>(LoadBe16(at)) << 16 | LoadBe16(at + 2);
}
inline void StoreBe16(std::uint8_t* at, std::uint32_t value) {
    at[0] = static_cast<std::uint8_t>(value >> 8);
    at[1] = static_cast<std::uint8_t>(value);
}
inline void StoreBe32(std::uint8_t* at, std::uint32_t value) {
    StoreBe16(at, value >> 16);
    StoreBe16(at + 2, value);
}

// A received RTP packet taken apart (RFC 3550, 5.1). Numbers are in host byte order; the payload points into the bytes
// that were parsed.
struct RtpView {
    const std::uint8_t* payload = nullptr;
    std::size_t payloadSize = 0;
    std::uint32_t timestamp = 0;
    std::uint32_t ssrc = 0;
    std::uint16_t seq = 0;
    std::uint8_t payloadType = 0;
    bool marker = false;
};

// Reads the head past CSRC list and extension and takes padding off the payload. False for what is no RTP packet of
// version 2 or contradicts its own length (RFC 3550, A.1); view is then as it was. Never logs: packets come from
// anybody. Any thread.
bool ParseRtp(const std::uint8_t* data, std::size_t size, RtpView& view) noexcept;

// Whether a packet on a port that carries both is RTCP (RFC 5761, section 4): its second byte is 192 to 223.
inline bool IsRtcp(const std::uint8_t* data, std::size_t size) noexcept {
    return size >= 2 && data[1] >= 192 && data[1] <= 223;
}

}  // namespace gvx
