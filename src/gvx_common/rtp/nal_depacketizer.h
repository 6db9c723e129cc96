#pragma once

#include <cstddef>
#include <cstdint>

#include "gvx_common/codec/nal_unit.h"
#include "gvx_common/rtp/rtp_depacketizer.h"

namespace gvx {

// Where an access unit of video ends.
enum class AccessUnitEnd {
    Marker,     // at the marker bit, as RFC 6184, 5.1 and RFC 7798, 4.1 have it, or when the time stamp changes
    TimeStamp,  // only when the time stamp changes: for senders that mark each NAL unit, as this gateway does
};

// What H.264 and H.265 share: access units out of whole and fragmented NAL units. A marker behind parameter sets alone
// does not end an access unit, since many senders mark those too.
class NalDepacketizer : public RtpDepacketizer {
public:
    void Reset() override;

protected:
    NalDepacketizer(IRtpAccessUnitSink& sink, AccessUnitEnd end, std::size_t maxBytes)
        : RtpDepacketizer(sink, maxBytes), m_end(end) {}

    // Every packet is put between these two. False for one without payload, which is passed over.
    bool BeginPacket(const RtpView& packet, std::uint32_t lostBefore, std::int64_t arrivalUs);
    void EndPacket(bool marker);

    void AddUnit(const NalKind& kind, const std::uint8_t* unit, std::size_t size);
    // The header is that of the NAL unit as its sender had it.
    void BeginFragments(const NalKind& kind, const std::uint8_t* header, std::size_t headerSize);
    // False, with the damage noted, when no unit of that type is under construction.
    bool AddFragment(std::uint8_t type, const std::uint8_t* bytes, std::size_t size);
    void EndFragments() { m_inFragments = false; }

private:
    // How an access unit begins: what stands before its first slice.
    struct LeadIn {
        std::uint8_t firstType = 0;
        std::uint32_t unitsBefore = 0;
        bool known = false;
        bool operator==(const LeadIn& other) const {
            return known && other.known && firstType == other.firstType && unitsBefore == other.unitsBefore;
        }
    };

    void NoteUnit(const NalKind& kind);
    void DropFragments(RtpDamage damage);
    void Finish();

    const AccessUnitEnd m_end;
    bool m_inFragments = false;
    std::uint8_t m_fragmentType = 0;
    std::size_t m_fragmentStart = 0;
    // Of the access unit under construction.
    LeadIn m_leadIn;
    bool m_hasSlice = false;
    bool m_beginsPicture = false;  // its first slice is the first of its picture
    bool m_startUnsure = false;    // packets are missing before it that may have been its own
    // Of the stream.
    LeadIn m_usualLeadIn[2];  // of the last whole access unit, by whether it was a key picture
    std::uint32_t m_carriedLoss = 0;
    bool m_anyMarker = false;
    bool m_started = false;
};

}  // namespace gvx
