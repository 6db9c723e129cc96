#pragma once

#include <cstddef>

namespace CBB {

// Base64 with "+", "/" and "=" padding (RFC 4648, section 4), without line feeds. Bounded: nothing is written
// beyond the given size, and a target that is too small fails before anything is written to it. Any thread.
class CBase64 {
public:
    // Size that EncodeBinary needs for so many bytes, terminator included; 0 when the number is too great.
    static std::size_t GetEncodeBinarySize(std::size_t byteCount);

    // Encodes with a terminator. 0 for success; 1 for a null pointer or a target below GetEncodeBinarySize.
    static int EncodeBinary(const void* data, std::size_t byteCount, char* text, std::size_t textSize);

    // Greatest number of bytes that a text of this length can stand for.
    static std::size_t GetDecodeBinarySize(std::size_t textLength);

    // Decodes; byteCount is the target's size on the way in and the number of bytes on the way out. 0 for success;
    // 1 for a null pointer, a text that is not base64 (length, alphabet, padding) or a target that is too small,
    // with byteCount then 0. An empty text gives no bytes.
    static int DecodeBinary(const char* text, std::size_t textLength, void* data, std::size_t& byteCount);
};

}  // namespace CBB
