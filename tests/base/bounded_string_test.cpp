#include "base/fixed_text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace {

TEST(BoundedString, CopiesAndAppendsWhatFitsAndNothingElse) {
    char target[4] = "old";
    EXPECT_EQ(strncpy_s(target, sizeof(target), "abc", 3), 0);
    EXPECT_STREQ(target, "abc");
    EXPECT_EQ(strncpy_s(target, sizeof(target), "abcdef", 2), 0);
    EXPECT_STREQ(target, "ab");
    EXPECT_EQ(strncat_s(target, sizeof(target), "cdef", 1), 0);
    EXPECT_STREQ(target, "abc");
    EXPECT_EQ(strncat_s(target, sizeof(target), "f", 1), ERANGE);
    EXPECT_STREQ(target, "");
    target[0] = 'x';
    EXPECT_EQ(strncpy_s(target, sizeof(target), "abcd", 10), ERANGE);
    EXPECT_STREQ(target, "");
    target[0] = 'x';
    EXPECT_EQ(strncpy_s(target, sizeof(target), nullptr, 1), EINVAL);
    EXPECT_STREQ(target, "");
    const char unterminated[2] = {'a', 'b'};
    EXPECT_EQ(strncpy_s(target, sizeof(target), unterminated, sizeof(unterminated)), 0);
    EXPECT_EQ(strncpy_s(nullptr, 4, "a", 1), EINVAL);
    target[0] = 'x';
    EXPECT_EQ(strncpy_s(target, 0, "a", 1), EINVAL);
    EXPECT_EQ(target[0], 'x');
}

TEST(FixedText, FillsItsFieldOrLeavesItEmpty) {
    char field[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(gvx::TextOf(field), "abcd");
    EXPECT_TRUE(gvx::PutText(field, "xyz"));
    EXPECT_EQ(gvx::TextOf(field), "xyz");
    EXPECT_FALSE(gvx::PutText(field, "wxyz"));
    EXPECT_EQ(gvx::TextOf(field), "");
}

TEST(BoundedString, CopiesAndFillsMemoryWithinItsTarget) {
    unsigned char target[4] = {1, 2, 3, 4};
    EXPECT_EQ(memcpy_s(target, sizeof(target), "abcd", 4), 0);
    EXPECT_EQ(std::memcmp(target, "abcd", 4), 0);
    EXPECT_EQ(memcpy_s(target, sizeof(target), "abcde", 5), ERANGE);
    EXPECT_EQ(std::memcmp(target, "\0\0\0\0", 4), 0);
    EXPECT_EQ(memset_s(target, sizeof(target), 7, 2), 0);
    EXPECT_EQ(std::memcmp(target, "\7\7\0\0", 4), 0);
    EXPECT_EQ(memset_s(target, sizeof(target), 9, 5), ERANGE);
    EXPECT_EQ(std::memcmp(target, "\x9\x9\x9\x9", 4), 0);
}

TEST(BoundedString, PrintsOrFailsWithAnEmptyText) {
    char target[6] = "old";
    EXPECT_EQ(snprintf_s(target, sizeof(target), 5, "%d%s", 12, "abc"), 5);
    EXPECT_STREQ(target, "12abc");
    EXPECT_EQ(snprintf_s(target, sizeof(target), 4, "%s", "12345"), -1);
    EXPECT_STREQ(target, "");
    EXPECT_EQ(snprintf_s(target, sizeof(target), 100, "%s", "123456"), -1);
    EXPECT_EQ(sprintf_s(nullptr, 5, "%d", 1), -1);
}

TEST(BoundedScan, ReadsWhatFitsAndStopsAtWhatDoesNot) {
    int number = 0;
    unsigned int hex = 0;
    char word[6] = "";
    char rest[8] = "";
    EXPECT_EQ(sscanf_s("12 hello ff;a b", "%d %s %x;%[^\n]", &number, word, 6u, &hex, rest, 8u), 4);
    EXPECT_EQ(number, 12);
    EXPECT_STREQ(word, "hello");
    EXPECT_EQ(hex, 0xFFu);
    EXPECT_STREQ(rest, "a b");
    int behind = 77;
    EXPECT_EQ(sscanf_s("5 abcd 9", "%d %s %d", &number, word, 4u, &behind), 1);
    EXPECT_EQ(number, 5);
    EXPECT_STREQ(word, "");
    EXPECT_EQ(behind, 77);
    EXPECT_EQ(sscanf_s("abcd", "%3s", word, 4u), 1);
    EXPECT_STREQ(word, "abc");
    EXPECT_EQ(sscanf_s("key=abcd;", "key=%[a-z];", word, 4u), 0);
    EXPECT_EQ(sscanf_s("xyz 7:42", "%2c%*c %*d:%n%d", word, 4u, &number, &behind), 2);
    EXPECT_EQ(std::string(word, 2), "xy");
    EXPECT_EQ(number, 6);
    EXPECT_EQ(behind, 42);
    EXPECT_EQ(sscanf_s("", "%d", &number), EOF);
    EXPECT_EQ(sscanf_s("x", "%d", &number), 0);
    EXPECT_EQ(sscanf_s(nullptr, "%d", &number), -1);
    long long wide = 0;
    unsigned char narrow = 0;
    EXPECT_EQ(sscanf_s("9000000000 200", "%lld %hhu", &wide, &narrow), 2);
    EXPECT_EQ(wide, 9000000000LL);
    EXPECT_EQ(narrow, 200);
}

}  // namespace
