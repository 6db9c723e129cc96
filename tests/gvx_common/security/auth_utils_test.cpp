#include "gvx_common/security/GvxAuthUtils.h"

#include "support/settings_folder.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "support/recording_logger.h"

#include <gtest/gtest.h>

namespace {

// RFC 7616, section 3.9.1.
const AuthorizationInfoDigest kMufasa = {"Mufasa",
                                         "http-auth@example.org",
                                         "/dir/index.html",
                                         "7ypf/xlj9XXwfDPEoM4URrv/xwf94BcCAzFZH4GiTo0v",
                                         "MD5",
                                         "f2/wE4q74E6zIJEtWaHKaf5wv/H5QzzpXusqGemxURZJ",
                                         "auth",
                                         "00000001",
                                         "GET",
                                         ""};
constexpr char kMd5[] = "8ca523f5e9506fed4657c9700eebdbec";
constexpr char kSha256[] = "753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1";

TEST(AuthUtils, TakesTheResponsesOfTheStandardAlone) {
    ScopedRecordingLogger log;
    using Check = bool (*)(const AuthorizationInfoDigest&, const char*, const std::string&);
    struct Row {
        Check check;
        std::string response;
        const char* nullWords;
        const char* wrongWords;
    };
    const Row rows[] = {
        {&GvxAuthUtils::DigestAccessAuthenMD5, kMd5,
         "failed to pass digest access authorization md5: because paasowrd is null.",
         "failed to pass digest access authorization md5: because client response not equal to computed resposne."},
        {&GvxAuthUtils::DigestAccessAuthenSHA256, kSha256,
         "failed to pass digest access authorization SHA-256: because paasowrd is null.",
         "failed to pass digest access authorization sha-256: because client response not equal to computed resposne."},
    };
    for (const Row& row : rows) {
        EXPECT_TRUE(row.check(kMufasa, "Circle of Life", row.response)) << log->Dump();
        EXPECT_FALSE(row.check(kMufasa, nullptr, row.response));
        EXPECT_EQ(1u, log->Count(row.nullWords));
        std::string otherEnd = row.response;
        otherEnd.back() ^= 1;
        for (const std::string& wrong :
             {std::string(), otherEnd, row.response.substr(1), row.response + "0", std::string(1, '\0')}) {
            EXPECT_FALSE(row.check(kMufasa, "Circle of Life", wrong)) << wrong;
        }
        EXPECT_FALSE(row.check(kMufasa, "circle of life", row.response));
        EXPECT_EQ(6u, log->Count(row.wrongWords));
    }
}

TEST(AuthUtils, RefusesBasicWhereTheSettingSaysSo) {
    ScopedRecordingLogger log;
    SettingsFolder folder;
    folder.WriteConf("[SECURITY_CFG]\nAUTH_ALLOW_BASIC=0\n");
    ASSERT_EQ(0, CGvxConfigMgr::Instance()->Init()) << log->Dump();
    const std::uint64_t before = GvxAuthUtils::BasicRefusals();
    for (const char* device : {"192.0.2.1", "192.0.2.1", "192.0.2.2"}) {
        EXPECT_FALSE(GvxAuthUtils::AllowBasic(device));
    }
    EXPECT_EQ(before + 3, GvxAuthUtils::BasicRefusals());
    EXPECT_EQ(1u, log->Count("[dev:192.0.2.1]"));
    EXPECT_EQ(1u, log->Count("[dev:192.0.2.2]"));
    folder.WriteConf("[SECURITY_CFG]\nAUTH_ALLOW_BASIC=1\n");
    ASSERT_EQ(0, CGvxConfigMgr::Instance()->Init());
    EXPECT_TRUE(GvxAuthUtils::AllowBasic("192.0.2.1"));
}

}  // namespace
