#include "gvxctl/depacketizer.h"

namespace gvxctl {
namespace {

constexpr std::size_t kMaxUnitBytes = 64u << 20;  // a sender that never ends a unit must not fill the memory

constexpr std::uint8_t kH264StapA = 24;
constexpr std::uint8_t kH264FuA = 28;
constexpr std::uint8_t kH265Aggregate = 48;
constexpr std::uint8_t kH265Fu = 49;

constexpr std::uint8_t kFuStart = 0x80;
constexpr std::uint8_t kFuEnd = 0x40;

}  // namespace

void Depacketizer::Take(const std::uint8_t* payload, std::size_t length, bool afterGap) {
    if (afterGap) {
        DropOpenUnit();
    }
    const std::size_t headBytes = m_codec == Codec::H264 ? 1 : 2;
    if (length < headBytes) {
        ++m_badPayloads;
        return;
    }
    m_codec == Codec::H264 ? TakeH264(payload, length) : TakeH265(payload, length);
}

void Depacketizer::Finish() {
    DropOpenUnit();
}

void Depacketizer::TakeH264(const std::uint8_t* payload, std::size_t length) {
    const std::uint8_t type = payload[0] & 0x1Fu;
    if (type >= 1 && type <= 23) {
        DropOpenUnit();
        Emit(payload, length);
    } else if (type == kH264StapA) {
        DropOpenUnit();
        TakeAggregate(payload + 1, length - 1);
    } else if (type == kH264FuA && length > 2) {
        const auto nalHead = static_cast<std::uint8_t>((payload[0] & 0xE0u) | (payload[1] & 0x1Fu));
        TakeFragment(payload[1], &nalHead, 1, payload + 2, length - 2);
    } else {
        ++m_badPayloads;
        DropOpenUnit();
    }
}

void Depacketizer::TakeH265(const std::uint8_t* payload, std::size_t length) {
    const std::uint8_t type = (payload[0] >> 1) & 0x3Fu;
    if (type < kH265Aggregate) {
        DropOpenUnit();
        Emit(payload, length);
    } else if (type == kH265Aggregate) {
        DropOpenUnit();
        TakeAggregate(payload + 2, length - 2);
    } else if (type == kH265Fu && length > 3) {
        const std::uint8_t nalHead[2] = {static_cast<std::uint8_t>((payload[0] & 0x81u) | ((payload[2] & 0x3Fu) << 1)),
                                         payload[1]};
        TakeFragment(payload[2], nalHead, sizeof nalHead, payload + 3, length - 3);
    } else {
        ++m_badPayloads;
        DropOpenUnit();
    }
}

void Depacketizer::TakeAggregate(const std::uint8_t* data, std::size_t length) {
    while (length >= 2) {
        const std::size_t size = static_cast<std::size_t>(data[0]) << 8 | data[1];
        if (size == 0 || size > length - 2) {
            break;
        }
        Emit(data + 2, size);
        data += 2 + size;
        length -= 2 + size;
    }
    if (length != 0) {
        ++m_badPayloads;
    }
}

void Depacketizer::TakeFragment(std::uint8_t fuHead, const std::uint8_t* nalHead, std::size_t nalHeadLength,
                                const std::uint8_t* data, std::size_t length) {
    if ((fuHead & kFuStart) != 0) {
        DropOpenUnit();
        m_open = true;
        m_skipping = false;
        m_unit.assign(nalHead, nalHead + nalHeadLength);
    } else if (!m_open) {
        SkipRest(fuHead);
        return;
    }
    if (m_unit.size() + length > kMaxUnitBytes) {
        DropOpenUnit();
        return;
    }
    m_unit.append(data, data + length);
    if ((fuHead & kFuEnd) != 0) {
        m_open = false;
        Emit(reinterpret_cast<const std::uint8_t*>(m_unit.data()), m_unit.size());
    }
}

void Depacketizer::DropOpenUnit() {
    if (m_open) {
        m_open = false;
        m_skipping = true;
        ++m_dropped;
    }
}

// Fragments that follow a unit already thrown away belong to it; others are the rest of one whose beginning is lost.
void Depacketizer::SkipRest(std::uint8_t fuHead) {
    if (!m_skipping) {
        ++m_dropped;
    }
    m_skipping = (fuHead & kFuEnd) == 0;
}

void Depacketizer::Emit(const std::uint8_t* nal, std::size_t length) {
    ++m_units;
    m_skipping = false;
    m_output(nal, length);
}

}  // namespace gvxctl
