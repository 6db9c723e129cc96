#include "gvx_common/http/common_http_stream.h"

#include "base/bounded_string.h"
#include "base/zvs_error.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/security/gvx_security_mgr.h"
#include "support/recording_logger.h"
#include "support/scripted_server.h"
#include "support/settings_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>

#include <sys/resource.h>
#include <unistd.h>

namespace {

using Link = ScriptedServer::Link;

class HttpStream : public testing::Test {
protected:
    void SetUp() override { Configure(""); }
    void TearDown() override { GvxSecurityMgr()->UnInit(); }
    void Configure(const std::string& settings) {
        m_folder.WriteConf("HTTP_EXCHANGE_TIMEOUT=2\n" + settings);
        ASSERT_EQ(0, GvxConfigMgr()->Init());
    }
    int Init(const std::string& user = "admin", const std::string& password = "secret", std::uint16_t port = 9) {
        char enciphered[512];
        EXPECT_EQ(0, GvxSecurityMgr()->EncryptString(password.c_str(), enciphered, sizeof(enciphered)));
        return m_stream.Init("127.0.0.1", port, user.c_str(), enciphered);
    }
    // The result of a snapshot from a peer that acts so once it has the request; what it stored is Picture().
    int Snapshot(const ScriptedServer::Script& act) {
        ScriptedServer peer([&act](Link& link) {
            link.ReadRequest();
            act(link);
        });
        unlink(m_folder.Path("picture").c_str());
        long length = 0;
        EXPECT_EQ(0, Init("admin", "secret", peer.Port()));
        EXPECT_NE(nullptr, m_stream.FormatARequestHeader("cam", "/snap", length, "GET ", nullptr, nullptr, 0, 0, 0));
        EXPECT_TRUE(m_stream.SendRequest(nullptr, 0, false));
        m_auth = {};
        const int result = m_stream.DealHttpSnapShot(m_folder.Path("picture").c_str(), m_auth);
        m_stream.Close();
        return result;
    }
    std::string Picture() const { return m_folder.Read("picture"); }

    ScopedRecordingLogger m_log;
    SettingsFolder m_folder;
    CCommonHttpStream m_stream;
    Common_HTTP_AUTH m_auth{};
};

std::string Answer(const std::string& lengthText, const std::string& body) {
    return "HTTP/1.1 200 OK\r\ncontent-length: " + lengthText + "\r\n\r\n" + body;
}

std::string Refusal(const std::string& challenges) {
    return "HTTP/1.1 401 Unauthorized\r\n" + challenges + "\r\n";
}

std::string Challenge(const std::string& value) {
    return "WWW-Authenticate: " + value + "\r\n";
}

TEST_F(HttpStream, ComposesRequestsAsDevicesKnowThem) {
    long length = 0;
    const char* request =
        m_stream.FormatRequestHeader("cam", "8080", "/snap.jpg", length, "GET ", "c=1", "http://me/", 5, 9, 0);
    ASSERT_NE(nullptr, request);
    EXPECT_EQ(length, static_cast<long>(std::strlen(request)));
    const std::string text = request;
    EXPECT_EQ(0u, text.find("GET /snap.jpg HTTP/1.1\r\nReferer:http://me/\r\nAccept: image/jpeg, "
                            "application/x-ms-application, image/gif, application/xaml+xml, image/pjpeg, "
                            "application/x-ms-xbap, application/vnd.ms-excel, application/vnd.ms-powerpoint, "
                            "application/msword, */*\r\nUser-Agent:Mozilla/4.0 (compatible; MSIE 5.00; Windows "
                            "98)User-Agent: Mozilla/4.0 (compatible; MSIE 7.0; Windows NT 6.1; Trident/4.0; SLCC2; "));
    EXPECT_NE(std::string::npos,
              text.find("aff-kingsoft-ciba)\r\nAccept-Encoding: gzip, deflate\r\nHost: cam:8080\r\nConnection: "
                        "close\r\nSet Cookie:0c=1\r\nRange: bytes=5-9\r\n\r\n"));
    EXPECT_STREQ("PUT /x HTTP/1.1\r\nHost:cam\r\nReferer:r\r\nSet Cookie:0c\r\nRange: bytes=5-\r\n\r\n",
                 m_stream.FormatARequestHeader("cam", "/x", length, "PUT ", "c", "r", 5, 5, 0));
    EXPECT_STREQ("PUT /x HTTP/1.1\r\nHost:cam\r\n\r\n",
                 m_stream.FormatARequestHeader("cam", "/x", length, "PUT ", nullptr, nullptr, 0, 9, 0));
    EXPECT_STREQ("PUT /x HTTP/1.1\r\nHost:cam\r\nA:b\r\n\r\n", m_stream.FormatRequestHeaderEx("A", "b", length));
    // Nothing stands between the pairs, and each call adds the whole body again.
    EXPECT_NE(nullptr, m_stream.FormatRequestBody("a", "1", length));
    EXPECT_STREQ("PUT /x HTTP/1.1\r\nHost:cam\r\nA:b\r\n\r\na=1a=1b=2", m_stream.FormatRequestBody("b", "2", length));
    EXPECT_EQ(static_cast<long>(std::strlen(m_stream.GetRequest())), length);
}

TEST_F(HttpStream, RefusesWhatDoesNotFitOrWouldEndALineEarly) {
    long length = 0;
    const std::string longest(10200, 'x');
    const auto format = [&](const char* path, const char* cookie) {
        return m_stream.FormatARequestHeader("cam", path, length, "", cookie, nullptr, 0, 0, 0);
    };
    EXPECT_EQ(nullptr, m_stream.FormatRequestHeaderEx("A", "b", length)) << "to no request";
    EXPECT_EQ(nullptr,
              m_stream.FormatRequestHeader("cam", nullptr, longest.c_str(), length, "GET ", nullptr, nullptr, 0, 0, 0));
    EXPECT_NE(nullptr, format(longest.c_str(), nullptr));
    EXPECT_EQ(nullptr, m_stream.FormatRequestBody("key", "value beyond the room", length));
    EXPECT_NE(nullptr, format(longest.c_str(), nullptr));
    EXPECT_EQ(nullptr, m_stream.FormatRequestHeaderEx("A", longest.c_str(), length));
    for (const char* bad : {"/a\r\nX: y", "/a\nb", "\x7f", "a\tb"}) {
        EXPECT_EQ(nullptr, m_stream.FormatRequestHeader("cam", "80", bad, length, "GET ", nullptr, nullptr, 0, 0, 0));
        EXPECT_EQ(nullptr, format("/", bad));
        EXPECT_NE(nullptr, format("/", nullptr));
        EXPECT_EQ(nullptr, m_stream.FormatRequestHeaderEx("A", bad, length));
        EXPECT_STREQ("", m_stream.GetRequest()) << "what is refused is not sent without its line";
    }
}

TEST_F(HttpStream, StoresAPictureWholeOrAsFarAsItCameFromAnyPeer) {
    Configure("SNASHOT_PIC_MAX_SIZE=700000\n");
    const std::string standing(614400, 's');
    const std::string larger(700000, 'l');
    const std::string head = "HTTP/1.1 200 OK\r\n";
    std::string whole = head + "Content-Length: 5\r\nX: ";
    whole.resize(10240, 'x');
    std::string hundred;
    for (int i = 0; i < 100; ++i) {
        hundred += Challenge("Digest realm=\"r\", nonce=\"" + std::to_string(i) + "\", algorithm=MD5");
    }
    enum End { Closes, IsSilent, Resets, Drips };
    struct Row {
        std::string answer;
        int result;
        std::string stored;
        End end = Closes;
    };
    const Row rows[] = {
        {Answer("5", "12345"), 0, "12345"},
        {Answer("614400", standing), 0, standing},
        {Answer("700000", larger), 0, larger},
        {Answer("700001", larger), 1, ""},
        {Answer("10", "1234"), 0, "1234"},
        {Answer("10", ""), 0, ""},
        {Answer("3", "12345"), 0, "12345"},  // into the standing buffer, which has the room
        {Answer("0", "x"), 1, ""},
        {Answer("-1", "x"), 1, ""},
        {Answer("2147483647", "x"), 1, ""},
        {Answer("4294967298", "xy"), 1, ""},  // 2 in 32 bits
        {Answer(std::string(21, '1'), "x"), 1, ""},
        {Answer("none", "x"), 1, ""},
        {head + "\r\nx", 1, ""},
        {"", 1, ""},
        {"", 1, "", IsSilent},
        {"", 1, "", Resets},
        {head, 1, "", IsSilent},
        {head, 1, "", Drips},
        {Answer("5", ""), 1, "", IsSilent},
        {Answer("5", "12"), 0, "12", IsSilent},
        {Answer("50", "12"), 0, "12", Resets},
        {Answer("500", ""), 0, "x", Drips},
        {whole, 1, "", IsSilent},
        {whole + "12345", 0, "12345"},
        {std::string("HTTP/1.1 401\0 Unauthorized\r\n\r\n", 30), 1, ""},
        {Refusal(hundred), ZVS_GVX_UNAUTHORIZED, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.answer.substr(0, 100) + " end " + std::to_string(row.end));
        EXPECT_EQ(row.result, Snapshot([&row](Link& link) {
                      link.Write(row.answer);
                      if (row.end == IsSilent) {
                          link.WaitClosed();
                      } else if (row.end == Resets) {
                          link.Reset();
                      }
                      for (int i = 0; row.end == Drips && i < 500 && link.Write("x"); ++i) {
                          std::this_thread::sleep_for(std::chrono::milliseconds(100));
                      }
                  }))
            << m_log->Dump();
        EXPECT_EQ(row.stored, row.end == Drips ? Picture().substr(0, 1) : Picture());
    }
    // A file that is there grows; one that can not be written is told.
    m_folder.Write("grown", "before,");
    EXPECT_EQ(0, m_stream.save2file(m_folder.Path("grown").c_str(), "after", 5));
    EXPECT_EQ("before,after", m_folder.Read("grown"));
    EXPECT_EQ(1, m_stream.save2file(m_folder.Path("none/x").c_str(), "after", 5));
    // A write that falls short removes what it left.
    rlimit former{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &former));
    const rlimit small{2, former.rlim_max};
    const auto ignored = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
    const int shortWrite = m_stream.save2file(m_folder.Path("short").c_str(), "after", 5);
    setrlimit(RLIMIT_FSIZE, &former);
    signal(SIGXFSZ, ignored);
    EXPECT_EQ(1, shortWrite);
    EXPECT_NE(0, access(m_folder.Path("short").c_str(), F_OK));
    EXPECT_EQ(2, m_stream.save2file(nullptr, "after", 5));
    EXPECT_EQ(2, m_stream.DealHttpSnapShot(nullptr, m_auth));
}

TEST_F(HttpStream, ReadsHeadersAndBodiesApart) {
    const std::string answer = Answer("5", "12345");
    const std::string answers[] = {answer, answer, std::string(620000, 'x')};
    ScriptedServer peer([&answers, round = 0](Link& link) mutable {
        link.ReadRequest();
        link.Write(answers[round++]);
    });
    const auto ask = [&] {
        m_stream.Close();
        ASSERT_EQ(0, Init("admin", "secret", peer.Port()));
        ASSERT_TRUE(m_stream.SendRequest("GET / HTTP/1.1\r\n\r\n", 0, false));
    };
    int length = -1;
    ask();
    EXPECT_STREQ(answer.substr(0, answer.size() - 5).c_str(), m_stream.GetResponseHeader(length));
    EXPECT_EQ(static_cast<int>(answer.size()) - 5, length);
    EXPECT_NE(nullptr, m_stream.GetResponse(length, false));
    EXPECT_EQ(0, length) << "one answer, one reading";
    ask();
    ASSERT_NE(nullptr, m_stream.GetResponse(length, true));
    EXPECT_EQ(static_cast<int>(answer.size()), length);
    EXPECT_TRUE(m_log->Contains("m_nResponseSize: " + std::to_string(length), "Dumphttp.response"));
    char value[12] = "as before";
    EXPECT_EQ(1, m_stream.GetField(answer.c_str(), "content-length", value, sizeof(value)));
    EXPECT_STREQ("as before", value);
    EXPECT_EQ(-2, m_stream.GetField(answer.c_str(), "Expires", value, sizeof(value)));
    EXPECT_EQ(0, m_stream.GetField("Expires\r\n", "Expires", value, sizeof(value)));
    ask();
    EXPECT_EQ(nullptr, m_stream.GetResponse(length, false)) << "more than the buffer holds";
}

TEST_F(HttpStream, ReadsChallenges) {
    struct Row {
        std::string challenges;
        int type;
        int algorithms;
        std::string realm, nonce, qop;
    };
    constexpr int kDigest = HTTP_AUTH_DIGEST;
    const std::string md5 = Challenge("Digest realm=\"cam\", qop=\"auth,auth-int\", nonce=\"n1\", algorithm=MD5");
    const std::string sha = Challenge("Digest realm=\"cam\", nonce=\"n2\", algorithm=SHA-256");
    const Row rows[] = {
        {"", HTTP_AUTH_BASIC, 0, "", "", ""},
        {Challenge("Basic realm=\"b\""), HTTP_AUTH_BASIC, 0, "", "", ""},
        {Challenge("Digest realm=\"cam\", nonce=\"n\""), kDigest, 0, "cam", "n", ""},
        {md5, kDigest, 1, "cam", "n1", "auth,auth-int"},
        {md5 + sha, kDigest, 3, "cam", "n2", "auth,auth-int"},  // the second is shorter
        {sha + md5, kDigest, 2, "cam", "n2", ""},
        {Challenge("Digest realm=\"c\", algorithm=SHA-512-256"), kDigest, 0, "c", "", ""},
        {Challenge("Digest algorithm=" + std::string(16, 'M')), kDigest, 0, "", "", ""},
        {Challenge("Digest algorithm=MD5" + std::string(400, 'M')), kDigest, 1, "", "", ""},
        {Challenge("Digest realm=\"" + std::string(129, 'r') + "\", nonce=\"" + std::string(65, 'n') + "\""), kDigest,
         0, std::string(127, 'r'), std::string(63, 'n'), ""},
        {Challenge("Digest realm=cam, nonce=n"), kDigest, 0, "", "", ""},
        {Challenge("Digest realm=\"cam"), kDigest, 0, "cam", "", ""},
        {Challenge("Digest realm=\"" + std::string(600, 'r') + "\""), kDigest, 0, "", "", ""},
    };
    for (const Row& row : rows) {
        Common_HTTP_AUTH auth{};
        auth.authType = HTTP_AUTH_MAX;
        EXPECT_TRUE(CCommonHttpStream::IsUnauthorizedRsp(Refusal(row.challenges).c_str(), auth)) << row.challenges;
        EXPECT_EQ(row.type, auth.authType) << row.challenges;
        EXPECT_EQ(row.algorithms, auth.uiAlgorithm) << row.challenges;
        EXPECT_EQ(row.realm + "/" + row.nonce + "/" + row.qop,
                  std::string(auth.szRealm) + "/" + auth.szNonce + "/" + auth.szMsgQOP)
            << row.challenges;
    }
    EXPECT_FALSE(CCommonHttpStream::IsUnauthorizedRsp("HTTP/1.1 200 OK\r\n\r\n", m_auth));
}

TEST_F(HttpStream, AnswersADigestChallenge) {
    Init();
    strncpy_s(m_auth.szRealm, sizeof(m_auth.szRealm), "cam", 3);
    strncpy_s(m_auth.szNonce, sizeof(m_auth.szNonce), "abc", 3);
    const std::string rest = "username=\"admin\", realm=\"cam\", nonce=\"abc\", uri=\"/snap\", response=\"";
    // Computed with another implementation.
    const std::string md5 = "b501219273e1c1cde493274a183bd049\"";
    const std::string rows[] = {
        "Digest " + rest + md5,
        "Digest algorithm=MD5, " + rest + md5,
        "Digest algorithm=SHA-256, " + rest + "ce013357f1440891c35191afa805f04f550c1c729e481bd1944c8deff8928686\"",
        "Digest algorithm=MD5, " + rest + md5,
    };
    for (const std::string& value : rows) {
        EXPECT_EQ(value, m_stream.GenDigestAuthorization(m_auth, "/snap"));
        ++m_auth.uiAlgorithm;
    }
    strncpy_s(m_auth.szMsgQOP, sizeof(m_auth.szMsgQOP), "auth", 4);
    const std::string value = m_stream.GenDigestAuthorization(m_auth, "/snap");
    EXPECT_EQ(24u, std::strlen(m_auth.szCNonce));
    EXPECT_STREQ("00000001", m_auth.szNonceCount);
    const std::string end = std::string("\", qop=auth, nc=00000001, cnonce=\"") + m_auth.szCNonce + "\"";
    EXPECT_EQ(value.size() - end.size(), value.find(end)) << value;
    EXPECT_EQ(nullptr, m_stream.GenDigestAuthorization(m_auth, std::string(400, 'u').c_str()));
    EXPECT_EQ(nullptr, m_stream.GenDigestAuthorization(m_auth, nullptr));
    EXPECT_FALSE(m_log->Contains("secret"));
}

TEST_F(HttpStream, SendsBasicCredentialsWithoutTheirLineFeeds) {
    const std::string longest(64, 'p');
    Init(std::string(55, 'u'), longest);
    const std::string value = m_stream.GenBasicAuthorization();
    EXPECT_EQ(0u, value.find("Basic dXV1"));
    EXPECT_EQ('\n', value.back());
    EXPECT_EQ('\n', value[6 + 72]);
    long length = 0;
    m_stream.FormatARequestHeader("cam", "/", length, "GET ", nullptr, nullptr, 0, 0, 0);
    const std::string request = m_stream.FormatRequestHeaderEx("Authorization", value.c_str(), length);
    EXPECT_NE(std::string::npos, request.find("cHBw\r\n\r\n")) << request;
    EXPECT_EQ(3, std::count(request.begin(), request.end(), '\n') - 1) << request;
    Init(std::string(57, 'u'), longest);
    EXPECT_EQ(nullptr, m_stream.GenBasicAuthorization());

    Configure("AUTH_ALLOW_BASIC=0\n");
    EXPECT_EQ(nullptr, m_stream.GenBasicAuthorization());
    EXPECT_FALSE(m_log->Contains(longest));
}

TEST_F(HttpStream, TakesCredentialsWhateverTheConnectionDoes) {
    EXPECT_EQ(2, m_stream.Init(nullptr, 1, "u", "p"));
    EXPECT_EQ(2, m_stream.Init("127.0.0.1", 1, nullptr, "p"));
    EXPECT_EQ(2, m_stream.Init("127.0.0.1", 1, "u", nullptr));
    EXPECT_EQ(1, m_stream.Init("127.0.0.1", 1, std::string(60, 'u').c_str(), "p"));
    EXPECT_EQ(1, m_stream.Init("127.0.0.1", 1, "u", std::string(60, 'p').c_str())) << "no enciphered form";
    EXPECT_EQ(1, Init("admin", "secret", 1)) << "nobody listens there";
    EXPECT_STREQ("Basic YWRtaW46c2VjcmV0\n", m_stream.GenBasicAuthorization());
    m_stream.Init("127.0.0.1", 1, "admin", "not enciphered");
    EXPECT_STREQ("Basic YWRtaW46\n", m_stream.GenBasicAuthorization()) << "it goes on with nothing";
    EXPECT_TRUE(m_log->Contains("Failed.", "decrypt password"));
}

}  // namespace
