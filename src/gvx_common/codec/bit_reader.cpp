#include "gvx_common/codec/bit_reader.h"

#include <algorithm>

namespace gvx {

BitReader::BitReader(const std::uint8_t* nal, std::size_t length, std::size_t skip) {
    constexpr std::size_t kMaxBytes = 4096;
    length = std::min(length, kMaxBytes);
    m_bytes.reserve(length);
    unsigned zeroes = 0;
    for (std::size_t i = skip; i < length; ++i) {
        if (zeroes >= 2 && nal[i] == 3) {
            zeroes = 0;
            continue;
        }
        zeroes = nal[i] == 0 ? zeroes + 1 : 0;
        m_bytes.push_back(nal[i]);
    }
}

std::uint32_t BitReader::Bits(unsigned count) {
    std::uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i) {
        const std::size_t byte = m_position / 8;
        if (byte >= m_bytes.size()) {
            m_ok = false;
            return 0;
        }
        value = (value << 1) | ((m_bytes[byte] >> (7 - m_position % 8)) & 1u);
        ++m_position;
    }
    return value;
}

void BitReader::Skip(std::size_t count) {
    m_position += count;
    m_ok = m_ok && m_position <= m_bytes.size() * 8;
}

std::uint32_t BitReader::Ue() {
    unsigned zeroes = 0;
    while (m_ok && !Flag()) {
        if (++zeroes > 31) {
            m_ok = false;
        }
    }
    return m_ok ? (1u << zeroes) - 1 + Bits(zeroes) : 0;
}

std::int32_t BitReader::Se() {
    const std::uint32_t code = Ue();
    const auto half = static_cast<std::int32_t>(code / 2);
    return code % 2 != 0 ? half + 1 : -half;
}

}  // namespace gvx
