#include "gvx_common/rtp/h265_depacketizer.h"

namespace gvx {

namespace {

// Types of NAL units (ITU-T H.265, table 7-1) and of payloads (RFC 7798, 4.4).
constexpr std::uint8_t kLastSlice = 31;
constexpr std::uint8_t kFirstIrap = 16;
constexpr std::uint8_t kLastIrap = 23;
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

// first_slice_segment_in_pic_flag leads the slice segment header (7.3.6.1).
NalDepacketizer::NalFacts H265Depacketizer::FactsOf(std::uint8_t header, const std::uint8_t* rest, std::size_t size) {
    NalFacts facts;
    facts.type = TypeOf(header);
    facts.slice = facts.type <= kLastSlice;
    facts.firstSlice = facts.slice && size != 0 && (rest[0] & 0x80) != 0;
    facts.keyPicture = facts.type >= kFirstIrap && facts.type <= kLastIrap;
    return facts;
}

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
        AddUnit(FactsOf(payload[0], payload + kHeaderLen, size - kHeaderLen), payload, size);
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
            AddUnit(FactsOf(at[0], at + kHeaderLen, size - kHeaderLen), at, size);
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
        const std::uint8_t header[kHeaderLen] = {static_cast<std::uint8_t>((payload[0] & 0x81) | type << 1),
                                                 payload[1]};
        BeginFragments(FactsOf(header[0], payload + kFuHeadLen, size - kFuHeadLen), header, kHeaderLen);
    }
    if (AddFragment(type, payload + kFuHeadLen, size - kFuHeadLen) && (fuHeader & kFuEnd) != 0) {
        EndFragments();
    }
}

}  // namespace gvx
