#include "base/base64.h"
#include "base/http_digest.h"
#include "base/random.h"
#include "base/text_cipher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace {

std::string Encode(const std::string& bytes) {
    std::string text(CBB::CBase64::GetEncodeBinarySize(bytes.size()), 'x');
    EXPECT_EQ(CBB::CBase64::EncodeBinary(bytes.data(), bytes.size(), text.data(), text.size()), 0);
    return text.c_str();
}

TEST(Base64, CodesTheVectorsOfRfc4648BothWays) {
    const char* const rows[][2] = {{"", ""},
                                   {"f", "Zg=="},
                                   {"fo", "Zm8="},
                                   {"foo", "Zm9v"},
                                   {"foob", "Zm9vYg=="},
                                   {"fooba", "Zm9vYmE="},
                                   {"foobar", "Zm9vYmFy"}};
    for (const auto& row : rows) {
        EXPECT_EQ(Encode(row[0]), row[1]);
        char bytes[8];
        std::size_t count = sizeof(bytes);
        ASSERT_EQ(CBB::CBase64::DecodeBinary(row[1], std::strlen(row[1]), bytes, count), 0) << row[1];
        EXPECT_EQ(std::string(bytes, count), row[0]);
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
    EXPECT_EQ(CBB::CBase64::GetEncodeBinarySize(static_cast<std::size_t>(-1)), 0u);
}

TEST(Base64, RefusesTextsOfAnotherForm) {
    char bytes[16];
    for (const char* text : {"Zg=", "Z===", "====", "Zm9v\n", "Zm 9", "Zm9-", "Zg==Zg==", "Zm9vY"}) {
        std::size_t count = sizeof(bytes);
        EXPECT_EQ(CBB::CBase64::DecodeBinary(text, std::strlen(text), bytes, count), 1) << text;
        EXPECT_EQ(count, 0u);
    }
}

// RFC 7616, section 3.9.1.
TEST(HttpDigest, AnswersTheExampleOfRfc7616WithBothHashes) {
    const char* const nonce = "7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v";
    const char* const cnonce = "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ";
    const char* const realm = "http-auth@example.org";
    char ha1[kZvsHttpDigestTextBytes];
    char response[kZvsHttpDigestTextBytes];
    ASSERT_EQ(ZVS_Security_Http_MD5_DigestCalcHA1("MD5", "Mufasa", realm, "Circle of Life", nonce, cnonce, ha1), 0);
    ASSERT_EQ(ZVS_Security_Http_MD5_DigestCalcResponse(ha1, nonce, "00000001", cnonce, "auth", "GET", "/dir/index.html",
                                                       "", response),
              0);
    EXPECT_STREQ(response, "8ca523f5e9506fed4657c9700eebdbec");
    ASSERT_EQ(ZVS_Security_Http_SHA256_DigestCalcHA1("", "Mufasa", realm, "Circle of Life", nonce, "", ha1), 0);
    ASSERT_EQ(ZVS_Security_Http_SHA256_DigestCalcResponse(ha1, nonce, "00000001", cnonce, "auth", "GET",
                                                          "/dir/index.html", nullptr, response),
              0);
    EXPECT_STREQ(response, "753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1");
}

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
    EXPECT_EQ(ZVS_Security_Http_MD5_DigestCalcHA1("", "", "", "", "", "", nullptr), 1);
}

class TextCipher : public testing::Test {
protected:
    TextCipher() { CBB::GenerateRandom(m_key.data(), m_key.size()); }
    gvx::CipherKey m_key{};
    char m_clear[32] = "before";
};

TEST_F(TextCipher, GivesTheTextBackAndNeverTheSameRecordTwice) {
    std::string first;
    std::string second;
    ASSERT_TRUE(gvx::EncryptText(m_key, "pass word", first));
    ASSERT_TRUE(gvx::EncryptText(m_key, "pass word", second));
    EXPECT_NE(first, second);
    ASSERT_TRUE(gvx::DecryptText(m_key, first, m_clear, sizeof(m_clear)));
    EXPECT_STREQ(m_clear, "pass word");
    ASSERT_TRUE(gvx::EncryptText(m_key, "", first));
    ASSERT_TRUE(gvx::DecryptText(m_key, first, m_clear, sizeof(m_clear)));
    EXPECT_STREQ(m_clear, "");
    EXPECT_FALSE(gvx::EncryptText(m_key, std::string(gvx::kMaxCipherTextBytes + 1, 'x'), first));
    EXPECT_EQ(first, "");
}

TEST_F(TextCipher, RefusesAlteredForeignAndCutRecordsAndWipesTheBuffer) {
    std::string stored;
    ASSERT_TRUE(gvx::EncryptText(m_key, "pass word", stored));
    for (std::size_t at = 0; at < stored.size(); at += 5) {
        std::string altered = stored;
        altered[at] = altered[at] == 'A' ? 'B' : 'A';
        std::memset(m_clear, 'x', sizeof(m_clear));
        EXPECT_FALSE(gvx::DecryptText(m_key, altered, m_clear, sizeof(m_clear))) << at;
        EXPECT_EQ(std::count(m_clear, m_clear + sizeof(m_clear), '\0'), static_cast<long>(sizeof(m_clear)));
    }
    gvx::CipherKey other = m_key;
    other[0] = static_cast<unsigned char>(other[0] ^ 1);
    EXPECT_FALSE(gvx::DecryptText(other, stored, m_clear, sizeof(m_clear)));
    for (const std::string& wrong : {std::string(), std::string("plain"), stored.substr(0, 8), stored.substr(0, 36)}) {
        EXPECT_FALSE(gvx::DecryptText(m_key, wrong, m_clear, sizeof(m_clear))) << wrong;
    }
    EXPECT_FALSE(gvx::DecryptText(m_key, stored, m_clear, 9)) << "no room for the terminator";
    EXPECT_TRUE(gvx::DecryptText(m_key, stored, m_clear, 10));
    EXPECT_FALSE(gvx::DecryptText(m_key, stored, nullptr, 10));
}

}  // namespace
