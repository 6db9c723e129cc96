#include "base/redact.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct RedactCase {
    const char* line;
    const char* expected;
};

class Redact : public testing::TestWithParam<RedactCase> {};

TEST_P(Redact, HidesTheSecretAndKeepsTheRest) {
    EXPECT_EQ(RedactSecrets(GetParam().line), GetParam().expected);
    EXPECT_EQ(RedactSecrets(GetParam().expected), GetParam().expected) << "a second pass must change nothing";
}

INSTANTIATE_TEST_SUITE_P(
    Pairs, Redact,
    testing::Values(RedactCase{"login user=admin password=a,b!c next", "login user=admin password=*** next"},
                    RedactCase{"(Passwd = secret1), user=x", "(Passwd = ***), user=x"},
                    RedactCase{"GET /a?pwd=x%26y&user=b", "GET /a?pwd=***&user=b"},
                    RedactCase{"password=\"a b \\\" c\" user=x", "password=\"***\" user=x"},
                    RedactCase{"password[a b] user[x]", "password[***] user[x]"},
                    RedactCase{"accessKey=abc token: xyz client_secret=q",
                               "accessKey=*** token: *** client_secret=***"},
                    RedactCase{"password=", "password="}, RedactCase{"password=***", "password=***"},
                    RedactCase{"pass: 1", "pass: ***"}));

INSTANTIATE_TEST_SUITE_P(
    Documents, Redact,
    testing::Values(
        RedactCase{"<UserName>admin</UserName><Password>a&lt;b</Password><Port>1</Port>",
                   "<UserName>admin</UserName><Password>***</Password><Port>1</Port>"},
        RedactCase{"<ns:OldPassword type=\"x\">ab", "<ns:OldPassword type=\"x\">***"},
        RedactCase{"<Password><![CDATA[a<b]]></Password>", "<Password>***</Password>"},
        RedactCase{"<Password/><Port>1</Port>", "<Password/><Port>1</Port>"},
        RedactCase{"<Login Password='ab' User='x'/>", "<Login Password='***' User='x'/>"},
        RedactCase{R"({"User":"a","Password" : "b\"c","Port":80})", R"({"User":"a","Password" : "***","Port":80})"},
        RedactCase{R"({"tokens":["a","b"],"x":1})", R"({"tokens":[***],"x":1})"},
        RedactCase{R"({"token":{"id":5}})", R"({"token":{"id":5}})"},
        RedactCase{R"("body":"{\"password\":\"abc\",\"a\":1}")", R"("body":"{\"password\":\"***\",\"a\":1}")"},
        RedactCase{R"({"pwd":123,"a":1})", R"({"pwd":***,"a":1})"}));

INSTANTIATE_TEST_SUITE_P(
    HeadersAndUrls, Redact,
    testing::Values(RedactCase{"Host: a\r\nAuthorization: Digest username=\"u\", response=\"r\"\r\nAccept: b",
                               "Host: a\r\nAuthorization: ***\r\nAccept: b"},
                    RedactCase{"Proxy-Authorization: Basic abc=", "Proxy-Authorization: ***"},
                    RedactCase{"m=video 0\r\na=crypto:1 SIMPLE inline:a;b, \"c\r\na=x",
                               "m=video 0\r\na=crypto:1 SIMPLE inline:***\r\na=x"},
                    RedactCase{"rtsp://admin:p@ss@10.0.0.1:554/a?b", "rtsp://***@10.0.0.1:554/a?b"},
                    RedactCase{"rtsp://admin:a/b#c@host/x", "rtsp://***@host/x"},
                    RedactCase{"http://host:80/mail?to=a@b", "http://host:80/mail?to=a@b"},
                    RedactCase{"http://[::1]:80/x", "http://[::1]:80/x"}));

INSTANTIATE_TEST_SUITE_P(NothingToHide, Redact,
                         testing::Values(RedactCase{"", ""},
                                         RedactCase{"[dev:7, ch:1] 12:30:05 a=b <c>", "[dev:7, ch:1] 12:30:05 a=b <c>"},
                                         RedactCase{"key[GVX_MESSAGE_IP] default[1]", "key[GVX_MESSAGE_IP] default[1]"},
                                         RedactCase{"keyframe=1 monkeys: 3", "keyframe=1 monkeys: 3"},
                                         RedactCase{"wrong password", "wrong password"},
                                         RedactCase{"= : < [ :// <>", "= : < [ :// <>"}));

}  // namespace
