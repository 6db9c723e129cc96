#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace gvx {

// Reads the bits of a NAL unit's payload, with the emulation prevention bytes taken out (ITU-T H.264 section 7.4.1,
// H.265 section 7.4.2). Reading past the end gives zeroes and Ok() turns false, so that a parser checks once. One
// thread.
class BitReader {
public:
    // `skip` bytes of NAL header are left out. Looks at the first 4096 bytes at most: parameter sets are short.
    BitReader(const std::uint8_t* nal, std::size_t length, std::size_t skip);

    std::uint32_t Bits(unsigned count);  // at most 32
    bool Flag() { return Bits(1) != 0; }
    void Skip(std::size_t count);
    std::uint32_t Ue();  // Exp-Golomb, unsigned (H.264 section 9.1); more than 32 bits is an error
    std::int32_t Se();   // the signed form
    bool Ok() const { return m_ok; }
    void Fail() { m_ok = false; }  // a value was read that cannot be

private:
    std::vector<std::uint8_t> m_bytes;
    std::size_t m_position = 0;  // in bits
    bool m_ok = true;
};

}  // namespace gvx
