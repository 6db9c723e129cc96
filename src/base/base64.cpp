#include "base/base64.h"

#include <openssl/evp.h>

#include <climits>
#include <cstring>
#include <string>

namespace CBB {
namespace {

constexpr std::size_t kMaxBytes = INT_MAX / 2;  // the encoder counts in int

bool IsAlphabet(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

// Number of "=" at the end; false when the text is not of base64's form. The decoder itself is lenient: it skips
// blanks and stops at "-".
bool CheckForm(const char* text, std::size_t length, std::size_t& padding) {
    padding = 0;
    if (length % 4 != 0 || length > kMaxBytes) {
        return false;
    }
    while (padding < 2 && padding < length && text[length - 1 - padding] == '=') {
        ++padding;
    }
    for (std::size_t at = 0; at < length - padding; ++at) {
        if (!IsAlphabet(text[at])) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::size_t CBase64::GetEncodeBinarySize(std::size_t byteCount) {
    return byteCount > kMaxBytes ? 0 : (byteCount + 2) / 3 * 4 + 1;
}

int CBase64::EncodeBinary(const void* data, std::size_t byteCount, char* text, std::size_t textSize) {
    const std::size_t needed = GetEncodeBinarySize(byteCount);
    if ((data == nullptr && byteCount != 0) || text == nullptr || needed == 0 || textSize < needed) {
        return 1;
    }
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text), static_cast<const unsigned char*>(data),
                                       static_cast<int>(byteCount));
    text[length] = '\0';
    return 0;
}

std::size_t CBase64::GetDecodeBinarySize(std::size_t textLength) {
    return textLength / 4 * 3;
}

int CBase64::DecodeBinary(const char* text, std::size_t textLength, void* data, std::size_t& byteCount) {
    const std::size_t room = byteCount;
    byteCount = 0;
    std::size_t padding = 0;
    if (text == nullptr || data == nullptr || !CheckForm(text, textLength, padding)) {
        return 1;
    }
    const std::size_t wanted = GetDecodeBinarySize(textLength) - padding;
    if (wanted > room) {
        return 1;
    }
    // The decoder writes whole groups of three bytes, padding included.
    std::string whole(GetDecodeBinarySize(textLength) + 1, '\0');
    if (EVP_DecodeBlock(reinterpret_cast<unsigned char*>(whole.data()), reinterpret_cast<const unsigned char*>(text),
                        static_cast<int>(textLength)) < 0) {
        return 1;
    }
    std::memcpy(data, whole.data(), wanted);
    byteCount = wanted;
    return 0;
}

}  // namespace CBB
