#include "base/utf8.h"

namespace gvx {

std::size_t Utf8CharacterLength(std::string_view text) {
    const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    if (text.empty()) {
        return 0;
    }
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        return 1;
    }
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (lead < 0xC2 || lead > 0xF4 || length > text.size()) {
        return 0;
    }
    // The table of RFC 3629, section 4: the second byte decides on what is too long, a surrogate or too high.
    const unsigned char least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (byte(1) < least || byte(1) > most) {
        return 0;
    }
    for (std::size_t at = 2; at < length; ++at) {
        if ((byte(at) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return length;
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = Utf8CharacterLength(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

std::string_view CutAtCharacter(std::string_view text, std::size_t bytes) {
    if (text.size() <= bytes) {
        return text;
    }
    for (std::size_t back = 1; back <= 3 && back <= bytes; ++back) {
        if (Utf8CharacterLength(text.substr(bytes - back)) > back) {
            return text.substr(0, bytes - back);
        }
    }
    return text.substr(0, bytes);
}

}  // namespace gvx
