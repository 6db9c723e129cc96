#pragma once

#include "base/bounded_string.h"

#include <cstddef>
#include <string>
#include <string_view>

// Texts in fields of a fixed size, as frames and records carry them. Any thread.

namespace gvx {

// The text of a field, which may fill it without a terminator.
template <std::size_t N>
std::string TextOf(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

// Puts a text and a terminator into a field; a text ends at its first NUL. False when it does not fit: the field is
// then empty, since nothing is ever cut.
[[nodiscard]] inline bool PutText(char* field, std::size_t size, std::string_view text) {
    return strncpy_s(field, size, text.empty() ? "" : text.data(), text.size()) == 0;
}

template <std::size_t N>
[[nodiscard]] bool PutText(char (&field)[N], std::string_view text) {
    return PutText(field, N, text);
}

}  // namespace gvx
