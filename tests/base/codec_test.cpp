#include "base/base64.h"
#include "base/http_digest.h"
#include "base/random.h"
#include "base/text_cipher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace {

TEST(Base64, CodesTheVectorsOfRfc4648BothWaysAndRefusesOtherForms) {
    const char* const rows[][2] = {{"", ""},
                                   {"f", "Zg=="},
                                   {"fo", "Zm8="},
                                   {"foo", "Zm9v"},
                                   {"foob", "Zm9vYg=="},
                                   {"fooba", "Zm9vYmE="},
                                   {"foobar", "Zm9vYmFy"}};
    for (const auto& row : rows) {
        const std::size_t size = std::strlen(row[0]);
        std::string text(CBB::CBase64::GetEncodeBinarySize(size), 'x');
        EXPECT_EQ(CBB::CBase64::EncodeBinary(row[0], size, text.data(), text.size()), 0);
        EXPECT_STREQ(text.c_str(), row[1]);
        char bytes[8];
        std::size_t count = sizeof(bytes);
        ASSERT_EQ(CBB::CBase64::DecodeBinary(row[1], std::strlen(row[1]), bytes, count), 0) << row[1];
        EXPECT_EQ(std::string(bytes, count), row[0]);
    }
    for (const char* text : {"Zg=", "Z===", "====", "Zm9v\n", "Zm 9", "Zm9-", "Zg==Zg==", "Zm9vY"}) {
        char bytes[16];
        std::size_t count = sizeof(bytes);
        EXPECT_EQ(CBB::CBase64::DecodeBinary(text, std::strlen(text), bytes, count), 1) << text;
        EXPECT_EQ(count, 0u);
    }
}

TEST(Base64, WritesNothingWhereTheTargetIsTooSmall) {
    char text[9] = "--------";
    EXPECT_EQ(CBB::CBase64::EncodeBinary("foobar", 6, text, 8), 1);
    EXPECT_STREQ(text, "--------");
    EXPECT_EQ(CBB::CBase64::EncodeBinary("foobar", 6, text, 9), 0);
    char bytes[6] = "-----";
    std::size_t count = 4;
    EXPECT_EQ(CBB::CBase64::DecodeBinary("Zm9vYmE=", 8, bytes, count), 1);
    EXPECT_EQ(count, 0u);
    EXPECT_STREQ(bytes, "-----");
    count = 5;
    EXPECT_EQ(CBB::CBase64::DecodeBinary("Zm9vYmE=", 8, bytes, count), 0);
}

// The forms that requests of ours are answered in are held by the tests of AuthUtils.
TEST(HttpDigest, KnowsSessionsBodiesAndTheFormWithoutQop) {
    char text[kZvsHttpDigestTextBytes];
    const char* const nonce = "dcd98b7102dd2f0e8b11d0f600bfb0c093";
    ASSERT_EQ(ZVS_Security_Http_MD5_DigestCalcHA1("md5-Sess", "Mufasa", "testrealm@host.com", "Circle Of Life", "n",
                                                  "c", text),
              0);
    EXPECT_STREQ(text, "4b46545303c488ad2e58128f83727dee");
    char ha1[kZvsHttpDigestTextBytes];
    ASSERT_EQ(
        ZVS_Security_Http_MD5_DigestCalcHA1(nullptr, "Mufasa", "testrealm@host.com", "Circle Of Life", nonce, "", ha1),
        0);
    ASSERT_EQ(ZVS_Security_Http_MD5_DigestCalcResponse(ha1, nonce, "", "", "", "GET", "/dir/index.html", "", text), 0);
    EXPECT_STREQ(text, "670fd8c2df070c60b045671b8b24ff02");
    ASSERT_EQ(ZVS_Security_Http_MD5_DigestCalcResponse(ha1, "n", "00000001", "c", "auth-int", "POST", "/x", "e", text),
              0);
    EXPECT_STREQ(text, "913164612663d81605490fdcd18a6d47");
}

TEST(TextCipher, GivesTheTextBackAndRefusesAlteredForeignAndCutRecords) {
    gvx::CipherKey key{};
    CBB::GenerateRandom(key.data(), key.size());
    char clear[32] = "before";
    std::string first;
    std::string second;
    ASSERT_TRUE(gvx::EncryptText(key, "pass word", first));
    ASSERT_TRUE(gvx::EncryptText(key, "pass word", second));
    EXPECT_NE(first, second);
    ASSERT_TRUE(gvx::DecryptText(key, first, clear, sizeof(clear)));
    EXPECT_STREQ(clear, "pass word");
    ASSERT_TRUE(gvx::EncryptText(key, "", first));
    ASSERT_TRUE(gvx::DecryptText(key, first, clear, sizeof(clear)));
    EXPECT_STREQ(clear, "");
    EXPECT_FALSE(gvx::EncryptText(key, std::string(gvx::kMaxCipherTextBytes + 1, 'x'), first));
    EXPECT_EQ(first, "");

    const std::string& stored = second;
    for (std::size_t at = 0; at < stored.size(); at += 5) {
        std::string altered = stored;
        altered[at] = altered[at] == 'A' ? 'B' : 'A';
        std::memset(clear, 'x', sizeof(clear));
        EXPECT_FALSE(gvx::DecryptText(key, altered, clear, sizeof(clear))) << at;
        EXPECT_EQ(std::count(clear, clear + sizeof(clear), '\0'), static_cast<long>(sizeof(clear)));
    }
    gvx::CipherKey other = key;
    other[0] = static_cast<unsigned char>(other[0] ^ 1);
    EXPECT_FALSE(gvx::DecryptText(other, stored, clear, sizeof(clear)));
    for (const std::string& wrong : {std::string(), std::string("plain"), stored.substr(0, 8), stored.substr(0, 36)}) {
        EXPECT_FALSE(gvx::DecryptText(key, wrong, clear, sizeof(clear))) << wrong;
    }
    EXPECT_FALSE(gvx::DecryptText(key, stored, clear, 9)) << "no room for the terminator";
    EXPECT_TRUE(gvx::DecryptText(key, stored, clear, 10));
    EXPECT_FALSE(gvx::DecryptText(key, stored, nullptr, 10));
}

}  // namespace
