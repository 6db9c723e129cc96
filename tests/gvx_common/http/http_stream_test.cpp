#include "gvx_common/http/common_http_stream.h"

#include "base/bounded_string.h"
#include "base/zvs_error.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/security/gvx_security_mgr.h"
#include "support/recording_logger.h"
#include "support/settings_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Act = std::function<void(int link)>;

void Say(int link, const std::string& bytes) {
    send(link, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void WaitForClose(int link) {
    char piece[4096];
    while (recv(link, piece, sizeof(piece), 0) > 0) {
    }
}

void Drip(int link, const std::string& bytes) {
    char piece;
    for (const char c : bytes) {
        Say(link, std::string(1, c));
        pollfd closed{link, POLLIN, 0};
        if (poll(&closed, 1, 200) > 0 && recv(link, &piece, 1, 0) <= 0) {
            return;
        }
    }
}

void Reset(int link) {
    const linger none{1, 0};
    setsockopt(link, SOL_SOCKET, SO_LINGER, &none, sizeof(none));
}

// A device on the loopback that plays one act for one connection, once it has the request.
class ActingPeer {
public:
    explicit ActingPeer(Act act) : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        if (bind(m_listener, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(m_listener, 1) != 0) {
            ADD_FAILURE() << "no port";
        }
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
        port = ntohs(address.sin_port);
        m_thread = std::thread([this, act] {
            const int link = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            char piece[1024];
            std::string request;
            while (request.find("\r\n\r\n") == std::string::npos) {
                const ssize_t count = recv(link, piece, sizeof(piece), 0);
                if (count <= 0) {
                    break;
                }
                request.append(piece, static_cast<std::size_t>(count));
            }
            act(link);
            close(link);
        });
    }
    ~ActingPeer() {
        shutdown(m_listener, SHUT_RDWR);
        if (m_thread.joinable()) {
            m_thread.join();
        }
        close(m_listener);
    }

    std::uint16_t port = 0;

private:
    const int m_listener;
    std::thread m_thread;
};

class HttpStream : public testing::Test {
protected:
    void SetUp() override { Configure(""); }
    void TearDown() override { GvxSecurityMgr()->UnInit(); }
    void Configure(const std::string& settings) {
        m_folder.WriteConf("HTTP_EXCHANGE_TIMEOUT=2\n" + settings);
        ASSERT_EQ(0, GvxConfigMgr()->Init());
    }
    std::string Enciphered(const std::string& clear) {
        char text[512];
        EXPECT_EQ(0, GvxSecurityMgr()->EncryptString(clear.c_str(), text, sizeof(text)));
        return text;
    }
    int Init(const std::string& user = "admin", const std::string& password = "secret", std::uint16_t port = 9) {
        return m_stream.Init("127.0.0.1", port, user.c_str(), Enciphered(password).c_str());
    }
    // The result of a snapshot from a peer that acts so; what it stored is Picture().
    int Snapshot(const Act& act) {
        ActingPeer own(act);
        unlink(m_folder.Path("picture").c_str());
        long length = 0;
        EXPECT_EQ(0, Init("admin", "secret", own.port));
        EXPECT_NE(nullptr, m_stream.FormatARequestHeader("cam", "/snap", length, "GET ", nullptr, nullptr, 0, 0, 0));
        EXPECT_TRUE(m_stream.SendRequest(nullptr, 0, false));
        m_auth = {};
        const int result = m_stream.DealHttpSnapShot(m_folder.Path("picture").c_str(), m_auth);
        m_stream.Close();
        return result;
    }
    int SnapshotOf(const std::string& answer) {
        return Snapshot([&answer](int link) { Say(link, answer); });
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
    EXPECT_EQ(nullptr, m_stream.FormatRequestHeaderEx("A", "b", length));
    EXPECT_TRUE(m_log->Contains("NULL or <2 bytes"));
    EXPECT_EQ(nullptr,
              m_stream.FormatRequestHeader("cam", nullptr, longest.c_str(), length, "GET ", nullptr, nullptr, 0, 0, 0));
    EXPECT_TRUE(m_log->Contains("strncat_s  failed.", "GVX format requese header failed."));
    const std::string nearly(10200, 'y');
    EXPECT_NE(nullptr, m_stream.FormatARequestHeader("cam", nearly.c_str(), length, "", nullptr, nullptr, 0, 0, 0));
    EXPECT_EQ(nullptr, m_stream.FormatRequestBody("key", "value beyond the room", length));
    EXPECT_NE(nullptr, m_stream.FormatARequestHeader("cam", longest.c_str(), length, "", nullptr, nullptr, 0, 0, 0));
    EXPECT_EQ(nullptr, m_stream.FormatRequestHeaderEx("A", longest.c_str(), length));
    for (const char* bad : {"/a\r\nX: y", "/a\nb", "\x7f", "a\tb"}) {
        EXPECT_EQ(nullptr, m_stream.FormatRequestHeader("cam", "80", bad, length, "GET ", nullptr, nullptr, 0, 0, 0));
        EXPECT_EQ(nullptr, m_stream.FormatARequestHeader("cam", "/", length, "GET ", bad, nullptr, 0, 0, 0));
        EXPECT_NE(nullptr, m_stream.FormatARequestHeader("cam", "/", length, "GET ", nullptr, nullptr, 0, 0, 0));
        EXPECT_EQ(nullptr, m_stream.FormatRequestHeaderEx("A", bad, length));
        EXPECT_STREQ("", m_stream.GetRequest()) << "what is refused is not sent without its line";
    }
}

TEST_F(HttpStream, StoresAPictureWholeOrAsFarAsItCame) {
    const std::string standing(614400, 's');
    const std::string larger(700000, 'l');
    Configure("SNASHOT_PIC_MAX_SIZE=700000\n");
    struct Row {
        std::string length;
        std::string body;
        int result;
        std::string stored;
    };
    const Row rows[] = {
        {"5", "12345", 0, "12345"},
        {"614400", standing, 0, standing},
        {"700000", larger, 0, larger},
        {"700001", larger, 1, ""},
        {"10", "1234", 0, "1234"},  // closed early
        {"10", "", 0, ""},
        {"3", "12345", 0, "12345"},  // into the standing buffer, which has the room
        {"0", "x", 1, ""},
        {"-1", "x", 1, ""},
        {"2147483647", "x", 1, ""},
        {"99999999999", "x", 1, ""},
        {"4294967298", "xy", 1, ""},  // 2 in 32 bits
        {std::string(21, '1'), "x", 1, ""},
        {"none", "x", 1, ""},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.result, SnapshotOf(Answer(row.length, row.body))) << row.length << m_log->Dump();
        EXPECT_EQ(row.stored, Picture()) << row.length;
    }
    EXPECT_EQ(1, SnapshotOf("HTTP/1.1 200 OK\r\n\r\nx"));
    EXPECT_TRUE(m_log->Contains("snapLen is negative or zero."));
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

TEST_F(HttpStream, EveryBadPeerEndsWithItsResult) {
    const std::string head = "HTTP/1.1 200 OK\r\n";
    std::string whole = head + "Content-Length: 5\r\nX: ";
    whole += std::string(10240 - whole.size(), 'x');
    const std::string hundred = [] {
        std::string text;
        for (int i = 0; i < 100; ++i) {
            text += Challenge("Digest realm=\"r\", nonce=\"" + std::to_string(i) + "\", algorithm=MD5");
        }
        return text;
    }();
    struct Row {
        const char* what;
        Act act;
        int result;
        std::string stored;
    };
    const Row rows[] = {
        {"silent", WaitForClose, 1, ""},
        {"closes", [](int) {}, 1, ""},
        {"resets", Reset, 1, ""},
        {"silent in the header", [&](int link) { Say(link, head), WaitForClose(link); }, 1, ""},
        {"silent before the body", [&](int link) { Say(link, Answer("5", "")), WaitForClose(link); }, 1, ""},
        {"silent in the body", [&](int link) { Say(link, Answer("5", "12")), WaitForClose(link); }, 0, "12"},
        {"drips its header", [&](int link) { Drip(link, head + std::string(500, 'x')); }, 1, ""},
        {"drips its body", [&](int link) { Say(link, Answer("500", "")), Drip(link, std::string(500, 'x')); }, 0, "x"},
        {"resets in the body", [&](int link) { Say(link, Answer("50", "12")), Reset(link); }, 0, "12"},
        {"10240 bytes without an end", [&](int link) { Say(link, whole), WaitForClose(link); }, 1, ""},
        {"10240 bytes and a body", [&](int link) { Say(link, whole + "12345"); }, 0, "12345"},
        {"NUL bytes", [&](int link) { Say(link, std::string("HTTP/1.1 401\0 Unauthorized\r\n\r\n", 30)); }, 1, ""},
        {"100 challenges", [&](int link) { Say(link, Refusal(hundred)); }, ZVS_GVX_UNAUTHORIZED, ""},
    };
    for (const Row& row : rows) {
        const auto begun = std::chrono::steady_clock::now();
        EXPECT_EQ(row.result, Snapshot(row.act)) << row.what << m_log->Dump();
        EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(30)) << row.what;
        EXPECT_EQ(row.stored, Picture().substr(0, row.stored.size())) << row.what;
        EXPECT_EQ(row.stored.empty(), Picture().empty()) << row.what;
    }
}

TEST_F(HttpStream, ReadsHeadersAndBodiesApart) {
    const std::string answer = Answer("5", "12345");
    for (const bool header : {true, false}) {
        ActingPeer peer([&answer](int link) { Say(link, answer); });
        ASSERT_EQ(0, Init("admin", "secret", peer.port));
        long sent = 0;
        m_stream.FormatARequestHeader("cam", "/", sent, "GET ", nullptr, nullptr, 0, 0, 0);
        ASSERT_TRUE(m_stream.SendRequest(nullptr, sent, false));
        int length = -1;
        if (header) {
            EXPECT_STREQ(answer.substr(0, answer.size() - 5).c_str(), m_stream.GetResponseHeader(length));
            EXPECT_EQ(static_cast<int>(answer.size()) - 5, length);
            EXPECT_NE(nullptr, m_stream.GetResponse(length, false));
            EXPECT_EQ(0, length) << "one answer, one reading";
            char value[12] = "as before";
            EXPECT_EQ(1, m_stream.GetField(answer.c_str(), "content-length", value, sizeof(value)));
            EXPECT_STREQ("as before", value);
            EXPECT_EQ(-2, m_stream.GetField(answer.c_str(), "Expires", value, sizeof(value)));
            EXPECT_EQ(0, m_stream.GetField("Expires\r\n", "Expires", value, sizeof(value)));
        } else {
            ASSERT_NE(nullptr, m_stream.GetResponse(length, true));
            EXPECT_EQ(static_cast<int>(answer.size()), length);
            EXPECT_TRUE(m_log->Contains("m_nResponseSize: " + std::to_string(length), "Dumphttp.response"));
        }
        m_stream.Close();
    }
    const std::string tooMuch(620000, 'x');
    ActingPeer peer([&tooMuch](int link) { Say(link, tooMuch); });
    ASSERT_EQ(0, Init("admin", "secret", peer.port));
    ASSERT_TRUE(m_stream.SendRequest("GET / HTTP/1.1\r\n\r\n", 0, false));
    int length = 0;
    EXPECT_EQ(nullptr, m_stream.GetResponse(length, false)) << "more than the buffer holds";
    m_stream.Close();
}

TEST_F(HttpStream, FindsHeaderLines) {
    const char* text = "A: 1\r\nCSeq:  22\r\nEmpty:\r\nNo end: 3";
    char value[8] = {};
    int length = sizeof(value);
    EXPECT_EQ(0, CCommonHttpStream::ParseSession(text, "cseq", value, length, 0));
    EXPECT_EQ("  22", std::string(value, static_cast<std::size_t>(length)));
    EXPECT_EQ(1, CCommonHttpStream::ParseSession(text, "A", value, length = 1, 0));
    EXPECT_EQ(1, CCommonHttpStream::ParseSession(text, "Empty", value, length = 8, 0));
    EXPECT_EQ(2, CCommonHttpStream::ParseSession(text, "No end", value, length = 8, 0));
    EXPECT_EQ(2, CCommonHttpStream::ParseSession(text, "A: 1", value, length = 8, 3));
    EXPECT_EQ(2, CCommonHttpStream::ParseSession(text, "A", value, length = 8, 1000));
    EXPECT_EQ(2, CCommonHttpStream::ParseSession(nullptr, "A", value, length = 8, 0));
    int offset = 0;
    EXPECT_EQ(0, CCommonHttpStream::parseSession(text, "CSeq", value, length = 8, offset));
    EXPECT_EQ(15, offset);
    EXPECT_EQ(2, CCommonHttpStream::parseSession(text, "cseq", value, length = 8, offset));
    const char bytes[] = {'a', '\0', 'a', 'b', 'a', 'a', 'a', 'b'};
    EXPECT_EQ(bytes + 2, CCommonHttpStream::myStrStr(bytes, sizeof(bytes), "ab"));
    EXPECT_EQ(nullptr, CCommonHttpStream::myStrStr(bytes, sizeof(bytes), "aab")) << "it goes on behind a mismatch";
    EXPECT_EQ(nullptr, CCommonHttpStream::myStrStr(bytes, 3, "ab"));
    const std::pair<int, int> digits[] = {{-1, 0},      {0, 1},        {9, 1},         {10, 2},
                                          {9999999, 7}, {10000000, 8}, {2147483647, 8}};
    for (const auto& [number, count] : digits) {
        EXPECT_EQ(count, CCommonHttpStream::GetBitCount(number)) << number;
    }
}

TEST_F(HttpStream, ReadsChallenges) {
    struct Row {
        const char* what;
        std::string challenges;
        int type;
        int algorithms;
        std::string realm;
        std::string nonce;
        std::string qop;
    };
    const std::string basic = Challenge("Basic realm=\"b\"");
    const std::string md5 = Challenge("Digest realm=\"cam\", qop=\"auth,auth-int\", nonce=\"n1\", algorithm=MD5");
    const std::string sha = Challenge("Digest realm=\"cam\", nonce=\"n2\", algorithm=SHA-256");
    const Row rows[] = {
        {"none", "", HTTP_AUTH_BASIC, 0, "", "", ""},
        {"Basic", basic, HTTP_AUTH_BASIC, 0, "", "", ""},
        {"no algorithm", Challenge("Digest realm=\"cam\", nonce=\"n\""), HTTP_AUTH_DIGEST, 0, "cam", "n", ""},
        {"MD5 and qop", md5, HTTP_AUTH_DIGEST, 1, "cam", "n1", "auth,auth-int"},
        {"SHA-256", sha, HTTP_AUTH_DIGEST, 2, "cam", "n2", ""},
        {"both, the second shorter", md5 + sha, HTTP_AUTH_DIGEST, 3, "cam", "n2", "auth,auth-int"},
        {"both, the second longer", sha + md5, HTTP_AUTH_DIGEST, 2, "cam", "n2", ""},
        {"an unknown word", Challenge("Digest realm=\"c\", algorithm=SHA-512-256"), HTTP_AUTH_DIGEST, 0, "c", "", ""},
        {"session hash", Challenge("Digest algorithm=MD5-sess"), HTTP_AUTH_DIGEST, 1, "", "", ""},
        {"16 letters and no end", Challenge("Digest algorithm=" + std::string(16, 'M')), HTTP_AUTH_DIGEST, 0, "", "",
         ""},
        {"400 letters", Challenge("Digest algorithm=MD5" + std::string(400, 'M')), HTTP_AUTH_DIGEST, 1, "", "", ""},
        {"long realm and nonce",
         Challenge("Digest realm=\"" + std::string(129, 'r') + "\", nonce=\"" + std::string(65, 'n') + "\""),
         HTTP_AUTH_DIGEST, 0, std::string(127, 'r'), std::string(63, 'n'), ""},
        {"no quotes", Challenge("Digest realm=cam, nonce=n"), HTTP_AUTH_DIGEST, 0, "", "", ""},
        {"no closing quote", Challenge("Digest realm=\"cam"), HTTP_AUTH_DIGEST, 0, "cam", "", ""},
        {"longer than is looked at", Challenge("Digest realm=\"" + std::string(600, 'r') + "\""), HTTP_AUTH_DIGEST, 0,
         "", "", ""},
        {"no line end", "WWW-Authenticate: Digest realm=\"cam\"", HTTP_AUTH_DIGEST, 0, "cam", "", ""},
    };
    for (const Row& row : rows) {
        Common_HTTP_AUTH auth{};
        auth.authType = HTTP_AUTH_MAX;
        EXPECT_TRUE(CCommonHttpStream::IsUnauthorizedRsp(Refusal(row.challenges).c_str(), auth)) << row.what;
        EXPECT_EQ(row.type, auth.authType) << row.what;
        EXPECT_EQ(row.algorithms, auth.uiAlgorithm) << row.what;
        EXPECT_EQ(row.realm, auth.szRealm) << row.what;
        EXPECT_EQ(row.nonce, auth.szNonce) << row.what;
        EXPECT_EQ(row.qop, auth.szMsgQOP) << row.what;
    }
    EXPECT_FALSE(CCommonHttpStream::IsUnauthorizedRsp("HTTP/1.1 200 OK\r\n\r\n", m_auth));
    EXPECT_FALSE(CCommonHttpStream::IsUnauthorizedRsp(nullptr, m_auth));
}

TEST_F(HttpStream, AnswersADigestChallenge) {
    Init();
    strncpy_s(m_auth.szRealm, sizeof(m_auth.szRealm), "cam", 3);
    strncpy_s(m_auth.szNonce, sizeof(m_auth.szNonce), "abc", 3);
    const std::string rest = "username=\"admin\", realm=\"cam\", nonce=\"abc\", uri=\"/snap\", response=\"";
    // Computed with another implementation.
    const std::string md5 = "b501219273e1c1cde493274a183bd049\"";
    const std::pair<int, std::string> rows[] = {
        {0, "Digest " + rest + md5},
        {1, "Digest algorithm=MD5, " + rest + md5},
        {2, "Digest algorithm=SHA-256, " + rest + "ce013357f1440891c35191afa805f04f550c1c729e481bd1944c8deff8928686\""},
        {3, "Digest algorithm=MD5, " + rest + md5},
    };
    for (const auto& [mask, value] : rows) {
        m_auth.uiAlgorithm = static_cast<std::uint8_t>(mask);
        EXPECT_STREQ(value.c_str(), m_stream.GenDigestAuthorization(m_auth, "/snap")) << mask;
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
    EXPECT_TRUE(m_log->Contains("snprintf_s for szAuth failed"));

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
