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
        {"Authorization : Basic dXNl==\nCookie\t: a=1; b=2", "Authorization : ***\nCookie\t: ***"},
        {"Authorization: Digest a=\"b\",\r\n response=\"r\"\n\tx\r\nA: b", "Authorization: ***\r\nA: b"},
        {"Set-Cookie:\r\n sid=1\r\n\r\n body", "Set-Cookie:***\r\n\r\n body"},
        {R"({"Authorization" : "a","b":1})", R"({"Authorization" : "***","b":1})"},
        {R"("rtsp:\/\/admin:p\/w@h\/","http:\/\/h:80\/?a@b")", R"("rtsp:\/\/***@h\/","http:\/\/h:80\/?a@b")"},
        {R"(rtsp://admin:12\34@h/ rtsp:\\/\\/a:b@h\\/)", R"(rtsp://***@h/ rtsp:\\/\\/***@h\\/)"},
        {"loginpass=1&psw=2&userpw=3&X-Signature=4&sig=5&auth=6",
         "loginpass=***&psw=***&userpw=***&X-Signature=***&sig=***&auth=***"},
        {"<a:UserPass>x</a:UserPass>", "<a:UserPass>***</a:UserPass>"},
        {"zoneBypass=1 compass: 90 design: 2 qop=auth, AUTH_ALLOW_BASIC=1",
         "zoneBypass=1 compass: 90 design: 2 qop=auth, AUTH_ALLOW_BASIC=1"},
        {R"(<Param name="Password" value="x"/><Param name="Port" value="8"/>)",
         R"(<Param name="Password" value="***"/><Param name="Port" value="8"/>)"},
        {R"({"name":"password","value":"x"},{"name":"a","value":"b"})",
         R"({"name":"password","value":"***"},{"name":"a","value":"b"})"},
        {"<ConfigName>A_KEY</ConfigName><ConfigValue>x</ConfigValue>",
         "<ConfigName>A_KEY</ConfigName><ConfigValue>***</ConfigValue>"},
        {"<a>&lt;Password&gt;x&lt;/Password&gt;&lt;pw&gt;y</a>",
         "<a>&lt;Password&gt;***&lt;/Password&gt;&lt;pw&gt;***</a>"},
        {"<Password><![CDATA[a</b]]></Password>", "<Password>***</Password>"},
        {R"({\\\"Password\\\":\\\"x\\\",\\\"a\\\":1})", R"({\\\"Password\\\":\\\"***\\\",\\\"a\\\":1})"},
        {R"({\"pwd\":\"a\\\"b\\\\\",\"a\":1})", R"({\"pwd\":\"***\",\"a\":1})"},
        {R"("v=0\r\nk=clear:ab")", R"("v=0\r\nk=***)"},
        {"rtsp://admin:p@ss@10.0.0.1:554/a?b", "rtsp://***@10.0.0.1:554/a?b"},
        {"rtsp://admin:a/b#c@host/x", "rtsp://***@host/x"},
        {"http://host:80/mail?to=a@b", "http://host:80/mail?to=a@b"},
        {"http://[::1]:80/x", "http://[::1]:80/x"},
        {"url=rtsp%3A%2F%2Fadmin%3Ap%252Fw%40h%2Fa&mail=joe@x", "url=rtsp%3A%2F%2F***%40h%2Fa&mail=joe@x"},
        {"a=%2F%2Fuser:pass@host%2Fx b=http%253a%252f%252fu%253Ap%2540h",
         "a=%2F%2F***@host%2Fx b=http%253a%252f%252f***%2540h"},
        {"?u=http%3A%2F%2Fh%3A80%2Fm&mail=a@b %2F%2Fjoe@x 100%2F%2Fs",
         "?u=http%3A%2F%2Fh%3A80%2Fm&mail=a@b %2F%2Fjoe@x 100%2F%2Fs"},
        {"rtsp://admin:p%2Fw@h/ x%2F", "rtsp://***@h/ x%2F"},
        {"Authorization=Basic dXNlcjpw= next=1", "Authorization=*** next=1"},
        {"authorization = Digest username=\"u, v\", nonce=\"b\", response=r, then more",
         "authorization = ***, then more"},
        {R"({"head":"Authorization=Bearer ab.c","a":"Digest x"})", R"({"head":"Authorization=***","a":"Digest x"})"},
        {R"({"head":"Authorization=Digest a=\"b\", response=\"r\"","a":1})", R"({"head":"Authorization=***","a":1})"},
        {"?Authorization=abc&auth=basic user=digest x", "?Authorization=***&auth=*** user=digest x"},
        {"&amp;lt;Password&amp;gt;a&amp;amp;b&amp;lt;/Password&amp;gt;&lt;/x&gt;",
         "&amp;lt;Password&amp;gt;***&amp;lt;/Password&amp;gt;&lt;/x&gt;"},
        {"&lt;a&gt;{&amp;quot;pwd&amp;quot;:&amp;quot;a "
         "b&amp;quot;,&amp;quot;n&amp;quot;:1}&amp;lt;pw&amp;gt;y&lt;/a&gt;",
         "&lt;a&gt;{&amp;quot;pwd&amp;quot;:&amp;quot;***&amp;quot;,&amp;quot;n&amp;quot;:1}&amp;lt;pw&amp;gt;***&lt;/"
         "a&gt;"},
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
