#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace fuzz {

inline void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// An input read from its front; at its end everything is 0 and empty.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_at(data), m_left(size) {}

    bool IsEmpty() const { return m_left == 0; }
    std::uint8_t Byte() {
        if (m_left == 0) {
            return 0;
        }
        --m_left;
        return *m_at++;
    }
    std::uint16_t Word() {
        const unsigned int high = Byte();
        return static_cast<std::uint16_t>(high << 8 | Byte());
    }
    std::uint32_t Long() {
        const std::uint32_t high = Word();
        return high << 16 | Word();
    }
    // At most so many bytes, in a block of just their number, so that a sanitizer sees the first one beyond.
    std::vector<std::uint8_t> Bytes(std::size_t size) {
        size = std::min(size, m_left);
        std::vector<std::uint8_t> bytes(m_at, m_at + size);
        m_at += size;
        m_left -= size;
        return bytes;
    }
    // Bytes spun out of four of the input.
    std::vector<std::uint8_t> Spun(std::size_t size) {
        std::uint32_t state = Long() | 1u;
        std::vector<std::uint8_t> bytes(size);
        for (std::uint8_t& byte : bytes) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            byte = static_cast<std::uint8_t>(state);
        }
        return bytes;
    }

private:
    const std::uint8_t* m_at;
    std::size_t m_left;
};

}  // namespace fuzz
