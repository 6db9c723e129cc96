#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace gvx {

// Types of RTCP packets (RFC 3550, 12.1; RFC 4585, 6.1).
enum RtcpType : std::uint8_t {
    RTCP_SENDER_REPORT = 200,
    RTCP_RECEIVER_REPORT = 201,
    RTCP_SOURCE_DESCRIPTION = 202,
    RTCP_BYE = 203,
    RTCP_TRANSPORT_FEEDBACK = 205,
    RTCP_PAYLOAD_FEEDBACK = 206,
};

// Sender information (RFC 3550, 6.4.1), in host byte order.
struct RtcpSenderInfo {
    std::uint32_t ssrc = 0;
    std::uint64_t ntpTime = 0;  // seconds since 1900 in the upper 32 bits, fractions of 2^-32 s in the lower
    std::uint32_t rtpTime = 0;  // the same moment on the stream's clock
    std::uint32_t packets = 0;
    std::uint32_t octets = 0;
};

// A report block (RFC 3550, 6.4.1), in host byte order.
struct RtcpReportBlock {
    std::uint32_t ssrc = 0;              // of the source reported on
    std::uint8_t fractionLost = 0;       // since the last report, of 256
    std::int32_t cumulativeLost = 0;     // 24 bits, negative when duplicates came
    std::uint32_t highestSeq = 0;        // with the count of cycles above
    std::uint32_t jitter = 0;            // ticks of the stream's clock
    std::uint32_t lastSenderReport = 0;  // middle 32 bits of its NTP time; 0 for none
    std::uint32_t delaySinceLast = 0;    // units of 1/65536 s
};

// NTP time of wall time since 1970, and back.
std::uint64_t NtpOfWallUs(std::int64_t wallUs);
std::int64_t WallUsOfNtp(std::uint64_t ntpTime);

// What a compound packet says, item by item, on the caller's thread.
class IRtcpVisitor {
public:
    virtual ~IRtcpVisitor() = default;
    virtual void OnSenderReport(const RtcpSenderInfo&) {}
    virtual void OnReportBlock(std::uint32_t /*reporter*/, const RtcpReportBlock&) {}
    // The name is not terminated and may hold anything.
    virtual void OnCname(std::uint32_t /*ssrc*/, const char* /*name*/, std::size_t /*size*/) {}
    virtual void OnBye(std::uint32_t /*ssrc*/) {}
    // Picture loss indication (RFC 4585, 6.3.1).
    virtual void OnPictureLoss(std::uint32_t /*sender*/, std::uint32_t /*media*/) {}
};

// Reads a compound packet. It is checked whole first (RFC 3550, A.2: version, lengths, padding only in the last one;
// the first is a report, or feedback as RFC 5506 allows): for false nothing was told. Unknown types and items are
// passed over. Never logs. Any thread.
bool ParseRtcp(const std::uint8_t* data, std::size_t size, IRtcpVisitor& visitor);

// Builds a compound packet in a buffer of its own. What does not fit any more is left out whole and answered with
// false. One thread.
class RtcpBuilder {
public:
    static constexpr std::size_t kRoom = 1024;

    // A report begins the packet (6.1). block may be null: no source was heard since the last.
    bool AddSenderReport(const RtcpSenderInfo& info, const RtcpReportBlock* block);
    bool AddReceiverReport(std::uint32_t ssrc, const RtcpReportBlock* block);
    // A source description of a CNAME alone, 255 bytes at most (6.5.1).
    bool AddCname(std::uint32_t ssrc, const std::string& name);
    bool AddBye(std::uint32_t ssrc);
    bool AddPictureLoss(std::uint32_t sender, std::uint32_t media);

    const std::uint8_t* Data() const { return m_bytes.data(); }
    std::size_t Size() const { return m_size; }

private:
    std::uint8_t* Begin(std::uint8_t type, unsigned int count, std::size_t size);

    std::array<std::uint8_t, kRoom> m_bytes{};
    std::size_t m_size = 0;
};

}  // namespace gvx
