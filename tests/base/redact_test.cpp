#include "base/redact.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

TEST(Redact, HidesTheSecretAndKeepsTheRest) {
    const std::pair<const char*, const char*> rows[] = {
        {"login user=admin password=a,b!c next", "login user=admin password=*** next"},
        {"(Passwd = secret1), user=x", "(Passwd = ***), user=x"},
        {"GET /a?pwd=x%26y&user=b", "GET /a?pwd=***&user=b"},
        {"password=\"a b \\\" c\" user=x", "password=\"***\" user=x"},
        {"password[a b] user[x]", "password[***] user[x]"},
        {"accessKey=abc token: xyz client_secret=q", "accessKey=*** token: *** client_secret=***"},
        {"password=", "password="},
        {"password=***", "password=***"},
        {"pass: 1", "pass: ***"},
        {"<UserName>admin</UserName><Password>a&lt;b</Password><Port>1</Port>",
         "<UserName>admin</UserName><Password>***</Password><Port>1</Port>"},
        {"<ns:OldPassword type=\"x\">ab", "<ns:OldPassword type=\"x\">***"},
        {"<Password><![CDATA[a<b]]></Password>", "<Password>***</Password>"},
        {"<Password/><Port>1</Port>", "<Password/><Port>1</Port>"},
        {"<Login Password='ab' User='x'/>", "<Login Password='***' User='x'/>"},
        {R"({"User":"a","Password" : "b\"c","Port":80})", R"({"User":"a","Password" : "***","Port":80})"},
        {R"({"tokens":["a","b"],"x":1})", R"({"tokens":[***],"x":1})"},
        {R"({"token":{"id":5}})", R"({"token":{"id":5}})"},
        {R"("body":"{\"password\":\"abc\",\"a\":1}")", R"("body":"{\"password\":\"***\",\"a\":1}")"},
        {R"({"pwd":123,"a":1})", R"({"pwd":***,"a":1})"},
        {"Host: a\r\nAuthorization: Digest username=\"u\", response=\"r\"\r\nAccept: b",
         "Host: a\r\nAuthorization: ***\r\nAccept: b"},
        {"Proxy-Authorization: Basic abc=", "Proxy-Authorization: ***"},
        {"m=video 0\r\na=crypto:1 SIMPLE inline:a;b, \"c\r\na=x", "m=video 0\r\na=crypto:1 SIMPLE inline:***\r\na=x"},
        {"Set-Cookie: sid=1; Path=/\r\nCookie: sid=1\r\nHost: a", "Set-Cookie: ***\r\nCookie: ***\r\nHost: a"},
        {"Authentication-Info: rspauth=\"ab\", qop=auth", "Authentication-Info: ***"},
        {"m=video 0\r\na=key-mgmt:mikey AB==\r\nk=clear:ab c\r\na=x", "m=video 0\r\na=key-mgmt:***\r\nk=***\r\na=x"},
        {"k=prompt k=clear:x", "k=prompt k=clear:x"},
        {"<Extend>{&quot;password&quot;:&quot;a\\&quot;b,c&quot;,&quot;n&quot;:1}</Extend>",
         "<Extend>{&quot;password&quot;:&quot;***&quot;,&quot;n&quot;:1}</Extend>"},
        {"rtsp://admin:p@ss@10.0.0.1:554/a?b", "rtsp://***@10.0.0.1:554/a?b"},
        {"rtsp://admin:a/b#c@host/x", "rtsp://***@host/x"},
        {"http://host:80/mail?to=a@b", "http://host:80/mail?to=a@b"},
        {"http://[::1]:80/x", "http://[::1]:80/x"},
        {"", ""},
        {"[dev:7, ch:1] 12:30:05 a=b <c>", "[dev:7, ch:1] 12:30:05 a=b <c>"},
        {"key[GVX_MESSAGE_IP] default[1]", "key[GVX_MESSAGE_IP] default[1]"},
        {"keyframe=1 monkeys: 3", "keyframe=1 monkeys: 3"},
        {"section=WRONG, key=MAX_CAPS, value=200", "section=WRONG, key=MAX_CAPS, value=200"},
        {"key=SFTP_PASSWORD, oldValue=a, newValue=b", "key=SFTP_PASSWORD, oldValue=***, newValue=***"},
        {"wrong password", "wrong password"},
        {"= : < [ :// <>", "= : < [ :// <>"},
    };
    for (const auto& [line, expected] : rows) {
        EXPECT_EQ(RedactSecrets(line), expected);
        EXPECT_EQ(RedactSecrets(expected), expected) << "a second pass must change nothing";
    }
}

}  // namespace
