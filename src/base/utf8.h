#pragma once

#include <cstddef>
#include <string_view>

// Texts in UTF-8 as RFC 3629 allows it: the shortest form alone, no surrogates, nothing above U+10FFFF.
namespace gvx {

// U+FFFD, which stands where bytes are no character.
constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

// How many bytes at the begin of the text make one character; 0 when they make none, or the text is empty.
std::size_t Utf8CharacterLength(std::string_view text);

// Whether the whole text is made of characters; the empty text is.
bool IsUtf8(std::string_view text);

// As much of the text's begin as fits into that many bytes and does not end inside a character. Bytes that are no
// character count one by one.
std::string_view CutAtCharacter(std::string_view text, std::size_t bytes);

}  // namespace gvx
