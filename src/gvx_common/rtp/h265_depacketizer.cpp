#include "gvx_common/rtp/h265_depacketizer.h"

namespace gvx {

namespace {

// Types of NAL units (ITU-T H.265, table 7-1) and of payloads (RFC 7798, 4.4).
constexpr std::uint8_t kLastSingle = 47;
constexpr std::uint8_t kAggregate = 48;
constexpr std::uint8_t kFragment = 49;
constexpr std::uint8_t kFuStart = 0x80;
constexpr std::uint8_t kFuEnd = 0x40;
constexpr std::uint8_t kFuTypeMask = 0x3F;
constexpr std::size_t kHeaderLen = 2;

std::uint8_t TypeOf(std::uint8_t firstByte) {
    return (firstByte >> 1) & 0x3F;
}

}  // namespace

void H265Depacketizer::OnPacket(const RtpView& packet, std::uint32_t lostBefore, std::int64_t arrivalUs) {
    if (!BeginPacket(packet, lostBefore, arrivalUs)) {
        return;
    }
    const std::uint8_t* payload = packet.payload;
    const std::size_t size = packet.payloadSize;
    const std::uint8_t type = TypeOf(payload[0]);
    if (size < kHeaderLen) {
        Damage(RtpDamage::Malformed);
    } else if (type == kFragment) {
        TakeFragment(payload, size);
    } else if (type == kAggregate) {
        TakeAggregate(payload + kHeaderLen, payload + size);
    } else if (type > kLastSingle) {
        Damage(RtpDamage::ForbiddenType);
    } else {
        AddUnit(ClassifyNal(Codec::H265, payload, size), payload, size);
    }
    EndPacket(packet.marker);
}

// RFC 7798, 4.4.2: 16 bits of size before each unit.
void H265Depacketizer::TakeAggregate(const std::uint8_t* at, const std::uint8_t* end) {
    if (at == end) {
        Damage(RtpDamage::Malformed);
    }
    while (at != end) {
        const std::size_t size = end - at >= 2 ? LoadBe16(at) : 0;
        if (size < kHeaderLen || size > static_cast<std::size_t>(end - at) - 2) {
            Damage(RtpDamage::Malformed);
            return;
        }
        at += 2;
        if (TypeOf(at[0]) > kLastSingle) {
            Damage(RtpDamage::ForbiddenType);
        } else {
            AddUnit(ClassifyNal(Codec::H265, at, size), at, size);
        }
        at += size;
    }
}

// RFC 7798, 4.4.3: payload header, FU header, and the unit without its own header. Layer and TID of the payload header
// are those of the unit.
void H265Depacketizer::TakeFragment(const std::uint8_t* payload, std::size_t size) {
    constexpr std::size_t kFuHeadLen = kHeaderLen + 1;
    if (size < kFuHeadLen) {
        Damage(RtpDamage::Malformed);
        return;
    }
    const std::uint8_t fuHeader = payload[kHeaderLen];
    const std::uint8_t type = fuHeader & kFuTypeMask;
    if (type > kLastSingle) {
        Damage(RtpDamage::ForbiddenType);
        return;
    }
    if ((fuHeader & kFuStart) != 0) {
        const std::uint8_t start[] = {static_cast<std::uint8_t>((payload[0] & 0x81) | type << 1), payload[1],
                                      size > kFuHeadLen ? payload[kFuHeadLen] : std::uint8_t{0}};
        BeginFragments(ClassifyNal(Codec::H265, start, sizeof(start)), start, kHeaderLen);
    }
    if (AddFragment(type, payload + kFuHeadLen, size - kFuHeadLen) && (fuHeader & kFuEnd) != 0) {
        EndFragments();
    }
}

}  // namespace gvx
