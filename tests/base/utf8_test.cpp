#include "base/utf8.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <string_view>

using namespace std::literals;

TEST(Utf8, TakesCharactersInTheirShortestFormAlone) {
    for (const std::string_view good : {""sv, "a"sv, "\x7F"sv, "\xC2\x80"sv, "\xDF\xBF"sv, "\xE0\xA0\x80"sv,
                                        "\xED\x9F\xBF"sv, "\xEF\xBF\xBF"sv, "\xF0\x90\x80\x80"sv, "\xF4\x8F\xBF\xBF"sv}) {
        EXPECT_TRUE(gvx::IsUtf8(good)) << good;
        EXPECT_EQ(good.size(), gvx::Utf8CharacterLength(good)) << good;
    }
    EXPECT_TRUE(gvx::IsUtf8("a\0b \xC3\xA4\xF0\x9F\x98\x80"sv));
    for (const std::string_view bad :
         {"\x80"sv, "\xC0\x80"sv, "\xC1\xBF"sv, "\xE0\x9F\xBF"sv, "\xED\xA0\x80"sv, "\xF0\x8F\xBF\xBF"sv,
          "\xF4\x90\x80\x80"sv, "\xF5\x80\x80\x80"sv, "\xF8\x88\x80\x80\x80"sv, "\xE6\x91"sv, "\xE6\x91z"sv, "\xC3"sv}) {
        EXPECT_FALSE(gvx::IsUtf8(bad)) << bad;
        EXPECT_EQ(0u, gvx::Utf8CharacterLength(bad)) << bad;
    }
}

TEST(Utf8, ACutTextEndsBehindACharacter) {
    const std::string_view text = "a\xC3\xA4\xF0\x9F\x98\x80" "b";
    const std::size_t ends[] = {0, 1, 1, 3, 3, 3, 3, 7, 8, 8};
    for (std::size_t bytes = 0; bytes < std::size(ends); ++bytes) {
        EXPECT_EQ(text.substr(0, ends[bytes]), gvx::CutAtCharacter(text, bytes)) << bytes;
    }
    EXPECT_EQ("a\x80\x80", gvx::CutAtCharacter("a\x80\x80\x80\x80", 3)) << "bytes that are no character";
}
