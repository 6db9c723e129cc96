#include "gvx_common/rtp/audio_depacketizer.h"

namespace gvx {

namespace {

// Up to 16 bits from a bit position on; the caller has made sure that they are there.
unsigned int ReadBits(const std::uint8_t* bytes, std::size_t at, unsigned int count) {
    unsigned int value = 0;
    for (; count != 0; --count, ++at) {
        value = value << 1 | (bytes[at / 8] >> (7 - at % 8) & 1u);
    }
    return value;
}

}  // namespace

void G711Depacketizer::OnPacket(const RtpView& packet, std::uint32_t lostBefore, std::int64_t arrivalUs) {
    m_carriedLoss += lostBefore;
    if (packet.payloadSize == 0) {
        return;
    }
    Open(packet, arrivalUs);
    m_unit.lostPackets = m_carriedLoss;
    m_unit.marker = packet.marker;
    m_unit.keyFrame = true;
    m_carriedLoss = 0;
    Append(packet.payload, packet.payloadSize);
    HandOver();
}

void AacDepacketizer::OnPacket(const RtpView& packet, std::uint32_t lostBefore, std::int64_t arrivalUs) {
    m_lost += lostBefore;
    m_behindLoss = lostBefore != 0;
    if (IsOpen() && (lostBefore != 0 || packet.timestamp != m_unit.rtpTime)) {
        Finish(lostBefore != 0 ? RtpDamage::LostPacket : RtpDamage::MissingEnd);
    }
    if (packet.payloadSize == 0) {
        return;
    }
    // RFC 3640, 3.2.1: 16 bits tell how many bits of AU headers follow, which are padded to whole bytes.
    const std::size_t headBits = packet.payloadSize >= 2 ? LoadBe16(packet.payload) : 0;
    const std::size_t firstBits = m_format.sizeLength + m_format.indexLength;
    if (headBits < firstBits || firstBits == 0 || 2 + (headBits + 7) / 8 > packet.payloadSize) {
        if (IsOpen()) {
            Finish(RtpDamage::Malformed);
        } else {
            HandOverDamaged(packet, RtpDamage::Malformed, arrivalUs);
        }
        return;
    }
    TakeUnits(packet, headBits, arrivalUs);
}

void AacDepacketizer::TakeUnits(const RtpView& packet, std::size_t headBits, std::int64_t arrivalUs) {
    const std::uint8_t* const heads = packet.payload + 2;
    const std::uint8_t* bytes = heads + (headBits + 7) / 8;
    const std::uint8_t* const end = packet.payload + packet.payloadSize;
    RtpView view = packet;
    std::size_t at = 0;
    for (unsigned int indexLength = m_format.indexLength; at + m_format.sizeLength + indexLength <= headBits;
         indexLength = m_format.indexDeltaLength) {
        const bool first = at == 0;
        const std::size_t size = ReadBits(heads, at, m_format.sizeLength);
        const unsigned int index = ReadBits(heads, at + m_format.sizeLength, indexLength);
        at += m_format.sizeLength + indexLength;
        const auto left = static_cast<std::size_t>(end - bytes);
        if (index != 0) {
            HandOverDamaged(view, RtpDamage::ForbiddenType, arrivalUs);
            return;
        }
        if (first && (IsOpen() || size > left)) {
            TakePart(view, bytes, left, size, arrivalUs);
            return;
        }
        if (size == 0 || size > left) {
            HandOverDamaged(view, RtpDamage::Malformed, arrivalUs);
            return;
        }
        OpenUnit(view, arrivalUs);
        m_unit.marker = packet.marker;
        Append(bytes, size);
        HandOver();
        bytes += size;
        view.timestamp += m_format.samplesPerUnit;
    }
}

// RFC 3640, 3.2.3: each packet with a part of an access unit tells the size of the whole.
void AacDepacketizer::TakePart(const RtpView& packet, const std::uint8_t* bytes, std::size_t size, std::size_t whole,
                               std::int64_t arrivalUs) {
    if (!IsOpen()) {
        OpenUnit(packet, arrivalUs);
        // Parts look alike: behind a gap this may be a later one.
        if (m_behindLoss) {
            Damage(RtpDamage::MissingStart);
        }
        m_wholeSize = whole;
    }
    m_unit.marker = packet.marker;
    if (whole != m_wholeSize || Size() + size > whole) {
        Finish(RtpDamage::Malformed);
        return;
    }
    Append(bytes, size);
    if (Size() == whole) {
        HandOver();
    } else if (packet.marker) {
        Finish(RtpDamage::MissingEnd);
    }
}

void AacDepacketizer::OpenUnit(const RtpView& packet, std::int64_t arrivalUs) {
    Open(packet, arrivalUs);
    m_unit.keyFrame = true;
    m_unit.lostPackets = m_lost;
    m_lost = 0;
}

void AacDepacketizer::Finish(RtpDamage damage) {
    m_unit.lostPackets += m_lost;
    m_lost = 0;
    Damage(damage);
    CutBack(0);
    HandOver();
}

void AacDepacketizer::HandOverDamaged(const RtpView& packet, RtpDamage damage, std::int64_t arrivalUs) {
    OpenUnit(packet, arrivalUs);
    m_unit.marker = packet.marker;
    Finish(damage);
}

void AacDepacketizer::Reset() {
    if (IsOpen()) {
        Finish(RtpDamage::MissingEnd);
    }
    m_lost = 0;
}

}  // namespace gvx
