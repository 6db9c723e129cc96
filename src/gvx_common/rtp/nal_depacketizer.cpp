#include "gvx_common/rtp/nal_depacketizer.h"

namespace gvx {

namespace {

constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};

}  // namespace

bool NalDepacketizer::BeginPacket(const RtpView& packet, std::uint32_t lostBefore, std::int64_t arrivalUs) {
    lostBefore += m_carriedLoss;
    m_carriedLoss = 0;
    if (packet.payloadSize == 0) {
        m_carriedLoss = lostBefore;
        return false;
    }
    bool startUnsure = lostBefore != 0 || !m_started;
    if (IsOpen() && packet.timestamp != m_unit.rtpTime) {
        if (lostBefore != 0) {
            // Of a sender that sets markers the missing marker was lost; of others the end may have been.
            m_unit.lostPackets += m_anyMarker ? 1 : lostBefore;
            Damage(RtpDamage::LostPacket);
            // The one packet that is missing was that marker, so what follows begins here.
            if (m_anyMarker) {
                startUnsure = --lostBefore != 0;
            }
        }
        Finish();
    }
    if (!IsOpen()) {
        Open(packet, arrivalUs);
        m_leadIn = LeadIn{};
        m_hasSlice = false;
        m_beginsPicture = false;
        m_startUnsure = startUnsure;
        m_unit.lostPackets = lostBefore;
    } else if (lostBefore != 0) {
        m_unit.lostPackets += lostBefore;
        DropFragments(RtpDamage::LostPacket);
        Damage(RtpDamage::LostPacket);
    }
    m_started = true;
    return true;
}

void NalDepacketizer::EndPacket(bool marker) {
    m_unit.marker = marker;
    if (!marker) {
        return;
    }
    DropFragments(RtpDamage::MissingEnd);
    if (m_end == AccessUnitEnd::Marker) {
        m_anyMarker = true;
        if (m_hasSlice || m_unit.IsDamaged()) {
            Finish();
        }
    }
}

void NalDepacketizer::AddUnit(const NalKind& kind, const std::uint8_t* unit, std::size_t size) {
    DropFragments(RtpDamage::MissingEnd);
    const std::size_t before = Size();
    if (!Append(kStartCode, sizeof(kStartCode)) || !Append(unit, size)) {
        CutBack(before);
        return;
    }
    NoteUnit(kind);
}

void NalDepacketizer::BeginFragments(const NalKind& kind, const std::uint8_t* header, std::size_t headerSize) {
    DropFragments(RtpDamage::MissingEnd);
    const std::size_t before = Size();
    if (!Append(kStartCode, sizeof(kStartCode)) || !Append(header, headerSize)) {
        CutBack(before);
        return;
    }
    m_fragmentStart = before;
    m_fragmentType = kind.type;
    m_inFragments = true;
    NoteUnit(kind);
}

bool NalDepacketizer::AddFragment(std::uint8_t type, const std::uint8_t* bytes, std::size_t size) {
    if (!m_inFragments) {
        Damage(RtpDamage::MissingStart);
        return false;
    }
    if (type != m_fragmentType) {
        DropFragments(RtpDamage::MissingEnd);
        return false;
    }
    if (!Append(bytes, size)) {
        DropFragments(RtpDamage::TooLong);
        return false;
    }
    return true;
}

// A part of a unit is of no use (RFC 6184, 5.8: the receiver discards what follows a lost fragment).
void NalDepacketizer::DropFragments(RtpDamage damage) {
    if (m_inFragments) {
        m_inFragments = false;
        CutBack(m_fragmentStart);
        Damage(damage);
    }
}

void NalDepacketizer::NoteUnit(const NalKind& kind) {
    if (!m_leadIn.known) {
        m_leadIn.known = true;
        m_leadIn.firstType = kind.type;
    }
    if (kind.slice && !m_hasSlice) {
        m_hasSlice = true;
        m_beginsPicture = kind.firstSlice;
    } else if (!m_hasSlice) {
        ++m_leadIn.unitsBefore;
    }
    m_unit.keyFrame = m_unit.keyFrame || kind.key;
}

// Hands the access unit over. One before which packets are missing counts as whole only when it begins as those of its
// kind did before, with the first slice of a picture; the very first of the stream has nothing to be held against.
void NalDepacketizer::Finish() {
    DropFragments(RtpDamage::MissingEnd);
    LeadIn& usual = m_usualLeadIn[m_unit.keyFrame ? 1 : 0];
    if (m_startUnsure) {
        const bool asUsual = m_unit.lostPackets == 0 || m_leadIn == usual;
        if (m_hasSlice ? !(m_beginsPicture && asUsual) : m_unit.lostPackets != 0) {
            Damage(RtpDamage::LostPacket);
        }
    }
    if (!m_unit.IsDamaged() && m_hasSlice) {
        usual = m_leadIn;
    }
    HandOver();
}

void NalDepacketizer::Reset() {
    if (IsOpen()) {
        // Without its marker the rest may be on the way; where time stamps alone end an access unit, nobody can tell.
        if (m_anyMarker && !m_unit.marker) {
            Damage(RtpDamage::MissingEnd);
        }
        Finish();
    }
    m_usualLeadIn[0] = m_usualLeadIn[1] = LeadIn{};
    m_carriedLoss = 0;
    m_anyMarker = false;
    m_started = false;
}

}  // namespace gvx
