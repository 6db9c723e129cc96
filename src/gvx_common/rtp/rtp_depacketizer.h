#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "gvx_common/rtp/rtp_view.h"

namespace gvx {

// Why an access unit is not what its sender sent.
enum class RtpDamage : std::uint8_t {
    None,
    LostPacket,     // packets are missing inside, or at an edge where it cannot be told whose they were
    MissingStart,   // a fragment came whose first one did not
    MissingEnd,     // a fragmented unit was not finished
    ForbiddenType,  // a payload that the format or the negotiated mode does not allow
    Malformed,      // lengths that contradict each other
    TooLong,        // beyond the most bytes of an access unit
};

// The name of the damage for logs, such as "lost packet".
const char* RtpDamageName(RtpDamage damage);

// One access unit on its way to the receiver's user.
struct RtpAccessUnit {
    // H.264 and H.265: NAL units, each behind 00 00 00 01. Audio: the coded bytes as they are. Belongs to the
    // depacketiser and is valid during the call. A damaged one holds the units that arrived whole, perhaps none
    // (size 0, and data may then be null).
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
    std::uint32_t rtpTime = 0;       // RTP time stamp, ticks of the stream's clock
    std::int64_t arrivalUs = 0;      // gvx::Clock monotonic time at which its first packet was read
    std::int64_t captureWallUs = 0;  // the sender's wall time since 1970 by its last report; 0 before there is one
    std::uint32_t ssrc = 0;
    std::uint32_t lostPackets = 0;  // missing inside and directly before; whole access units may have been among them
    std::uint8_t payloadType = 0;
    bool marker = false;    // its last packet carried the marker; for AAC, the packet that it came in
    bool keyFrame = false;  // holds an IDR (H.264) or IRAP (H.265) picture; audio: always
    RtpDamage damage = RtpDamage::None;

    bool IsDamaged() const { return damage != RtpDamage::None; }
};

// Takes access units, in the order of the stream, on the thread that gave the packet in.
class IRtpAccessUnitSink {
public:
    virtual ~IRtpAccessUnitSink() = default;
    virtual void OnAccessUnit(const RtpAccessUnit& unit) = 0;
};

struct RtpDepacketizerStatistics {
    std::uint64_t accessUnits = 0;  // handed over, damaged ones included
    std::uint64_t damaged = 0;
    std::uint64_t bytes = 0;
};

// Joins the payloads of one stream to access units in a buffer that is kept and reused: a steady stream allocates
// nothing. Packets are given in order and once each. One thread at a time; the sink is called on it.
class RtpDepacketizer {
public:
    static constexpr std::size_t kDefaultMaxBytes = 8u << 20;

    // The sink must outlive it. maxBytes bounds an access unit and with it the memory that is kept; what would exceed
    // it is left out and the unit called damaged.
    explicit RtpDepacketizer(IRtpAccessUnitSink& sink, std::size_t maxBytes) : m_sink(sink), m_maxBytes(maxBytes) {}
    virtual ~RtpDepacketizer() = default;
    RtpDepacketizer(const RtpDepacketizer&) = delete;
    RtpDepacketizer& operator=(const RtpDepacketizer&) = delete;

    // lostBefore: how many packets are missing between the one given before and this one.
    virtual void OnPacket(const RtpView& packet, std::uint32_t lostBefore, std::int64_t arrivalUs) = 0;

    // The stream ends or another source takes over: hands over what is gathered, damaged unless it is known to be
    // whole, and begins anew.
    virtual void Reset() = 0;

    const RtpDepacketizerStatistics& GetStatistics() const { return m_statistics; }

protected:
    // The access unit under construction.
    bool IsOpen() const { return m_open; }
    void Open(const RtpView& packet, std::int64_t arrivalUs);
    // False when the access unit would grow too long; it is then damaged and takes nothing more.
    bool Append(const std::uint8_t* bytes, std::size_t size);
    void CutBack(std::size_t size) { m_size = size; }
    std::size_t Size() const { return m_size; }
    // The first damage stands.
    void Damage(RtpDamage damage);
    void HandOver();

    RtpAccessUnit m_unit;  // data and size are filled in by HandOver; the rest by Open and the derived class

private:
    bool Grow(std::size_t least);

    IRtpAccessUnitSink& m_sink;
    const std::size_t m_maxBytes;
    std::unique_ptr<std::uint8_t[]> m_buffer;
    std::size_t m_capacity = 0;
    std::size_t m_size = 0;
    bool m_open = false;
    bool m_refused = false;
    RtpDepacketizerStatistics m_statistics;
};

}  // namespace gvx
