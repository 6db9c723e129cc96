#include "gvx_common/rtp/h264_depacketizer.h"

namespace gvx {

namespace {

// Types of NAL units (ITU-T H.264, table 7-1) and of payloads (RFC 6184, table 1).
constexpr std::uint8_t kTypeMask = 0x1F;
constexpr std::uint8_t kLastSingle = 23;
constexpr std::uint8_t kStapA = 24;
constexpr std::uint8_t kFuA = 28;
constexpr std::uint8_t kFuStart = 0x80;
constexpr std::uint8_t kFuEnd = 0x40;

}  // namespace

void H264Depacketizer::OnPacket(const RtpView& packet, std::uint32_t lostBefore, std::int64_t arrivalUs) {
    if (!BeginPacket(packet, lostBefore, arrivalUs)) {
        return;
    }
    const std::uint8_t* payload = packet.payload;
    const std::uint8_t type = payload[0] & kTypeMask;
    if (type == kFuA) {
        TakeFragment(payload, packet.payloadSize);
    } else if (type == kStapA) {
        TakeAggregate(payload + 1, payload + packet.payloadSize);
    } else if (type == 0 || type > kLastSingle) {
        Damage(RtpDamage::ForbiddenType);
    } else {
        AddUnit(ClassifyNal(Codec::H264, payload, packet.payloadSize), payload, packet.payloadSize);
    }
    EndPacket(packet.marker);
}

// RFC 6184, 5.7.1: 16 bits of size before each unit.
void H264Depacketizer::TakeAggregate(const std::uint8_t* at, const std::uint8_t* end) {
    if (at == end) {
        Damage(RtpDamage::Malformed);
    }
    while (at != end) {
        const std::size_t size = end - at >= 2 ? LoadBe16(at) : 0;
        if (size == 0 || size > static_cast<std::size_t>(end - at) - 2) {
            Damage(RtpDamage::Malformed);
            return;
        }
        at += 2;
        const std::uint8_t type = at[0] & kTypeMask;
        if (type == 0 || type > kLastSingle) {
            Damage(RtpDamage::ForbiddenType);
        } else {
            AddUnit(ClassifyNal(Codec::H264, at, size), at, size);
        }
        at += size;
    }
}

// RFC 6184, 5.8.
void H264Depacketizer::TakeFragment(const std::uint8_t* payload, std::size_t size) {
    if (size < 2) {
        Damage(RtpDamage::Malformed);
        return;
    }
    const std::uint8_t fuHeader = payload[1];
    const std::uint8_t type = fuHeader & kTypeMask;
    if (type == 0 || type > kLastSingle) {
        Damage(RtpDamage::ForbiddenType);
        return;
    }
    if ((fuHeader & kFuStart) != 0) {
        const std::uint8_t start[] = {static_cast<std::uint8_t>((payload[0] & 0xE0) | type),
                                      size > 2 ? payload[2] : std::uint8_t{0}};
        BeginFragments(ClassifyNal(Codec::H264, start, sizeof(start)), start, 1);
    }
    if (AddFragment(type, payload + 2, size - 2) && (fuHeader & kFuEnd) != 0) {
        EndFragments();
    }
}

}  // namespace gvx
