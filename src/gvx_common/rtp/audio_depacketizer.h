#pragma once

#include "gvx_common/rtp/rtp_depacketizer.h"

namespace gvx {

// G.711 and what else has one payload a packet and no head of its own (RFC 3551, 4.5.14): each packet is an access
// unit.
class G711Depacketizer : public RtpDepacketizer {
public:
    explicit G711Depacketizer(IRtpAccessUnitSink& sink, std::size_t maxBytes = kDefaultMaxBytes)
        : RtpDepacketizer(sink, maxBytes) {}

    void OnPacket(const RtpView& packet, std::uint32_t lostBefore, std::int64_t arrivalUs) override;
    void Reset() override { m_carriedLoss = 0; }

private:
    std::uint32_t m_carriedLoss = 0;
};

// What the fmtp line of mpeg4-generic says (RFC 3640, 4.1). The defaults are those of mode AAC-hbr (3.3.6); for AAC-lbr
// they are 6, 2 and 2. Lengths are in bits, 16 at most.
struct AacFormat {
    unsigned int sizeLength = 13;
    unsigned int indexLength = 3;
    unsigned int indexDeltaLength = 3;
    unsigned int samplesPerUnit = 1024;  // ticks from one access unit of a packet to the next
};

// AAC in RTP (RFC 3640) without interleaving: several whole access units in a packet, or one over several packets.
// Access units come without ADTS head. Lost packets lie between whole units as a rule, and lostPackets tells of them.
// Interleaved units (an index or index delta that is not 0) are called damaged.
class AacDepacketizer : public RtpDepacketizer {
public:
    explicit AacDepacketizer(IRtpAccessUnitSink& sink, const AacFormat& format = AacFormat(),
                             std::size_t maxBytes = kDefaultMaxBytes)
        : RtpDepacketizer(sink, maxBytes), m_format(format) {}

    void OnPacket(const RtpView& packet, std::uint32_t lostBefore, std::int64_t arrivalUs) override;
    void Reset() override;

private:
    void TakeUnits(const RtpView& packet, std::size_t headBits, std::int64_t arrivalUs);
    void TakePart(const RtpView& packet, const std::uint8_t* bytes, std::size_t size, std::size_t whole,
                  std::int64_t arrivalUs);
    void Finish(RtpDamage damage);
    void HandOverDamaged(const RtpView& packet, RtpDamage damage, std::int64_t arrivalUs);
    void OpenUnit(const RtpView& packet, std::int64_t arrivalUs);

    const AacFormat m_format;
    std::size_t m_wholeSize = 0;  // of the access unit whose parts are being gathered
    std::uint32_t m_lost = 0;     // told of with the next access unit
    bool m_behindLoss = false;    // packets are missing before the one in hand
};

}  // namespace gvx
