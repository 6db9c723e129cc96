#include "gvx_common/security/GvxAuthUtils.h"

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

TEST(AuthUtils, TakesTheResponsesOfTheStandardAlone) {
    ScopedRecordingLogger log;
    const auto check = [](bool (*matches)(const AuthorizationInfoDigest&, const char*, const std::string&),
                          const std::string& response) {
        EXPECT_TRUE(matches(kMufasa, "Circle of Life", response));
        EXPECT_FALSE(matches(kMufasa, nullptr, response));
        EXPECT_FALSE(matches(kMufasa, "circle of life", response));
        std::string otherEnd = response;
        otherEnd.back() ^= 1;
        for (const std::string& wrong :
             {std::string(), otherEnd, response.substr(1), response + "0", std::string(1, '\0')}) {
            EXPECT_FALSE(matches(kMufasa, "Circle of Life", wrong)) << wrong;
        }
    };
    check(&GvxAuthUtils::DigestAccessAuthenMD5, "8ca523f5e9506fed4657c9700eebdbec");
    check(&GvxAuthUtils::DigestAccessAuthenSHA256, "753927fa0e85d155564e2e272a28d1802ca10daf4496794697cf8db5856cb6c1");
    EXPECT_EQ(14u, log->Count("failed to pass digest access authorization"));
}

}  // namespace
