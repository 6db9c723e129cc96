#include "gvx_common/rtsp/common_rtsp_method_describe.h"
#include "gvx_common/rtsp/common_rtsp_method_options.h"

#include "base/zvs_error.h"
#include "gvx_common/socket/common_socket_stream.h"
#include "support/recording_logger.h"
#include "support/scripted_server.h"
#include "support/test_clock.h"

#include <chrono>
#include <climits>
#include <future>
#include <thread>

#include <gtest/gtest.h>

namespace {

int Parse(CCommonRtspMethodBase& method, const std::string& answer) {
    return method.SetRecvPack(answer.c_str(), static_cast<int>(answer.size())) == 0 ? method.ParseRecvPack() : -1;
}

std::string Request(CCommonRtspMethodBase& method) {
    char text[2048] = {};
    const std::uint32_t length = method.GetSendPack(text, sizeof(text));
    return length > 1 ? std::string(text, length) : std::string();
}

class RtspRequest : public testing::Test {
protected:
    void SetUp() override { m_method.SetUrl("rtsp://192.0.2.64/live"); }
    // "refused" and what stays when it is not built.
    std::string Build(CCommonRtspMethodBase& method) {
        const std::string refused = method.BuidSendPack() == 0 ? "" : "refused";
        return refused + Request(method);
    }

    const std::string m_line = "SETUP rtsp://192.0.2.64/live RTSP/1.0\r\n";
    ScopedRecordingLogger m_log;
    CCommonRtspMethodBase m_method{"SETUP"};
};

TEST_F(RtspRequest, HoldsItsHeadersUntilInit) {
    m_method.SetSendParam("CSeq", 7);
    m_method.SetSendParam("Session", "1");
    m_method.SetSendParam("Session", "2");
    m_method.SetSendParam("Accept", "x");
    m_method.SetSendParam("Accept", "");
    m_method.SetSendParam("Long", std::string(512, 'x').c_str());
    m_method.SetSendParam("Null", nullptr);
    const std::string request = Build(m_method);
    EXPECT_TRUE(request == m_line + "CSeq: 7\r\nSession: 2\r\n\r\n" ||
                request == m_line + "Session: 2\r\nCSeq: 7\r\n\r\n")
        << request;
    char narrow[16] = {};
    EXPECT_EQ(1u, m_method.GetSendPack(narrow, sizeof(narrow)));
    EXPECT_EQ(0, m_method.Init());
    EXPECT_EQ("", Request(m_method));
    EXPECT_EQ(m_line + "\r\n", Build(m_method));
    for (const char* name : {"A", "B", "C", "D", "E"}) {
        m_method.SetSendParam(name, std::string(500, *name).c_str());
    }
    EXPECT_EQ(7 + m_line.size() + 3 * 505, Build(m_method).size()) << "refused, and up to the last header that fits";
}

TEST_F(RtspRequest, IsNotBuiltWithAControlCharacterOrWithoutItsLine) {
    m_method.SetSendParam("Session", "1\r\nX: y");
    EXPECT_EQ("refused", Build(m_method));
    m_method.SetSendParam("Session", "1");
    EXPECT_EQ(m_line + "Session: 1\r\n\r\n", Build(m_method));
    for (const char* url : {"rtsp://192.0.2.64/\nTEARDOWN *", ""}) {
        m_method.SetUrl(url);
        EXPECT_EQ("refused", Build(m_method));
    }
    m_method.SetUrl("*");
    m_method.SetSendParam("X\r\nY", "1");
    EXPECT_EQ("refused", Build(m_method));
    CCommonRtspMethodBase nameless("");
    nameless.SetUrl("*");
    EXPECT_EQ("refused", Build(nameless));
}

TEST(RtspAnswer, StatusAndLinesDecide) {
    struct Row {
        std::string answer;
        int base;
        int options;
    };
    const std::string ok = "RTSP/1.0 200 OK\r\n";
    constexpr int kUnsupported = ZVS_GVX_DEV_UN_SUPPORT;
    for (const Row& row : {Row{ok + "Public: OPTIONS\r\n\r\n", 0, 0},
                           {"RTSP/1.0 200 OK\nPublic: OPTIONS", 0, 0},
                           {"RTSP/1.0 200 OK\rPublic: OPTIONS\r\r", 0, 0},
                           {"RTSP/1.0 200", 0, 1},
                           {"RTSP/1.0 401 No\r\nWWW-Authenticate: Basic realm=\"r\"\r\n\r\n", -401, -401},
                           {"RTSP/1.0 401 No\r\n\r\n", -401, 1},
                           {"RTSP/1.0 401 No\r\nWWW-Authenticate: Basic\r\n\r\n", -401, 1},
                           {"RTSP/1.0 551 No\r\nnonsense\r\n\r\n", kUnsupported, 1},
                           {"RTSP/1.0 404 Not Found\r\n\r\n", 1, 1},
                           {"RTSP/1.0 4294967496 OK\r\n\r\n", 1, 1},
                           {"RTSP/1.0 OK\r\n\r\n", 1, 1},
                           {"", 1, 1},
                           {ok + "nonsense\r\n\r\n", 1, 1},
                           {ok + std::string(256, 'n') + ": v\r\n\r\n", 1, 1},
                           {ok + "N: " + std::string(512, 'v') + "\r\n\r\n", 1, 1}}) {
        CCommonRtspMethodBase base("SETUP");
        CCommonRtspMethodOptions options("OPTIONS");
        EXPECT_EQ(row.base, Parse(base, row.answer)) << row.answer;
        EXPECT_EQ(row.options, Parse(options, row.answer)) << row.answer;
    }
    CCommonRtspMethodOptions method("OPTIONS");
    ASSERT_EQ(0, Parse(method, ok + "Public: OPTIONS, DESCRIBE SETUP,\r\n\r\n"));
    EXPECT_EQ((std::vector<std::string>{"OPTIONS", "DESCRIBE", "SETUP"}), method.GetMethodNames());
    EXPECT_EQ(1, method.SetRecvPack(nullptr, 0));
    EXPECT_EQ(1, method.SetRecvPack("x", -1));
    EXPECT_EQ(1, method.SetRecvPack("x", 4096));
    EXPECT_EQ(1, method.SetRecvPack(std::string(4096, 'x').c_str(), 1));

    // Headers are asked for by their exact name, and the first counts.
    ASSERT_EQ(0, Parse(method, ok + "Session:   12;timeout=60\r\nSession: 13\r\nN: 99999999999\r\nW: " +
                                   std::string(64, '1') + "\r\nPublic: x\r\nEmpty:\r\n\r\n"));
    char value[13 + 1] = {};
    EXPECT_STREQ("12;timeout=60", method.GetRecvParam("Session", value, 13));
    EXPECT_STREQ("12;timeout=60", value);
    EXPECT_EQ(nullptr, method.GetRecvParam("Session", value, 12));
    EXPECT_STREQ("", method.GetRecvParam("Empty", value, 0));
    EXPECT_EQ(nullptr, method.GetRecvParam("session", value, 12));
    int number = 0;
    EXPECT_EQ(0, method.GetRecvParam("Session", number));
    EXPECT_EQ(12, number);
    EXPECT_EQ(0, method.GetRecvParam("N", number));
    EXPECT_EQ(INT_MAX, number);
    EXPECT_EQ(1, method.GetRecvParam("W", number));
}

TEST(RtspChallenge, IsSplitWithinItsBounds) {
    const std::string r63(63, 'r');
    const std::string n63(63, 'n');
    const std::pair<std::string, std::string> rows[] = {
        {"Digest realm=\"camera\", nonce=\"n1\", algorithm=MD5, qop=\"auth\"", "camera|n1|MD5"},
        {"Digest algorithm=SHA-256 realm=\"" + r63 + "\", nonce=\"" + n63 + "\"", r63 + "|" + n63 + "|SHA-256"},
        {"Basic realm=\"\"", "||"},
        {"Digest realm=camera\", nonce=\"n\"", "amera|n|"},
        {"Digest realm=camera, nonce=\"n\"", "amera, nonce=|n|"},
        {"Digest realm=\"r\", algorithm=\"MD5\"", "r||\"MD5\""},
        {"Digest realm=\"r\", algorithm=" + std::string(100, 'A'), "r||" + std::string(62, 'A')},
        {"Digest realm=\"" + r63 + "r\"", "refused"},
        {"Digest realm=\"r\", nonce=\"" + n63 + "n\"", "refused"},
        {"Digest realm=\"r\", nonce=\"n", "refused"},
        {"Digest realm=\"r\", nonce=", "refused"},
        {"Digest realm=camera", "refused"},
        {"Digest realm=", "refused"},
        {"Digest", "refused"},
    };
    for (const auto& [challenge, expected] : rows) {
        std::string realm, nonce = "old", algo = "old";
        const bool split = CCommonRtspMethodBase::DivideRealmAndNonce(challenge.c_str(), realm, nonce, algo) == 0;
        EXPECT_EQ(expected, split ? realm + "|" + nonce + "|" + algo : "refused") << challenge;
    }
    std::string text;
    EXPECT_EQ(1, CCommonRtspMethodBase::DivideRealmAndNonce(nullptr, text, text, text));
}

class RtspDescribe : public testing::Test {
protected:
    // Parses an answer of which the rest comes from a device that does what the script says.
    int Describe(const std::string& atHand, ScriptedServer::Script script, bool connect = true) {
        std::promise<void> connected;  // a reset must not meet the connecting
        ScriptedServer device([&script, &connected](ScriptedServer::Link& link) {
            connected.get_future().wait();
            script(link);
        });
        CCommonSocketStream stream;
        stream.SetTimeout(RECV_TYPE, ACE_Time_Value(m_receiveSeconds));
        EXPECT_EQ(0, stream.Connect("127.0.0.1", device.Port(), 0));
        connected.set_value();
        m_describe.SetSocketStream(connect ? &stream : nullptr);
        EXPECT_EQ(0, m_describe.Init());
        const int result = Parse(m_describe, atHand);
        EXPECT_EQ(0, stream.GetDeadline());
        return result;
    }
    static std::string Head(long long length, const char* extra = "") {
        return "RTSP/1.0 200 OK\r\n" + std::string(extra) + "Content-Length: " + std::to_string(length) + "\r\n\r\n";
    }

    const std::string m_sdp = "v=0\r\nm=video 0 RTP/AVP 96\r\na=control:1\r\n";
    int m_receiveSeconds = 20;
    ScopedRecordingLogger m_log;
    CCommonRtspMethodDescribe m_describe{"DESCRIBE"};
};

TEST_F(RtspDescribe, ReadsTheRestOfTheBodyAndCutsOneThatDoesNotFit) {
    EXPECT_EQ(0, Describe(Head(static_cast<long long>(m_sdp.size())) + m_sdp.substr(0, 9),
                          [this](ScriptedServer::Link& link) {
                              for (const char byte : m_sdp.substr(9)) {
                                  link.Write(std::string(1, byte));
                              }
                              link.WaitClosed();
                          }))
        << m_log->Dump();
    ASSERT_EQ(1u, m_describe.GetSessionList()->size());
    EXPECT_STREQ("video", m_describe.GetSessionList()->front()->m_szSessionName);
    // The name in lower case wins, and says that nothing is missing.
    EXPECT_EQ(0, Describe(Head(4000, "Content-length: 5\r\n") + m_sdp, [](ScriptedServer::Link&) {}));
    std::string body = m_sdp;
    while (body.size() < 6000) {
        body += "a=x:" + std::string(100, 'y') + "\r\n";
    }
    EXPECT_EQ(0, Describe(Head(6000), [&body](ScriptedServer::Link& link) { link.Write(body), link.WaitClosed(); }));
    EXPECT_EQ(1u, m_describe.GetSessionList()->size());
}

TEST_F(RtspDescribe, RefusesAnswersWithoutALengthOrABody) {
    const auto idle = [](ScriptedServer::Link&) {};
    const std::string ok = "RTSP/1.0 200 OK\r\n";
    struct Row {
        std::string answer;
        bool connected;
        const char* reason;
    };
    const Row rows[] = {
        {ok + "Content-Length: 5", true, "Sdp line is NULL."},
        {ok + "\r\n" + m_sdp, true, "Failed to get the param of Content-Length."},
        {Head(5) + m_sdp, false, "SocketStream is NULL."},
        {Head(0), true, "Failed to parse sdp packet."},
        {Head(-1) + m_sdp, true, "Failed to init sdp packet."},
        {Head(99999999999) + m_sdp, true, "Recv from server error"},
        {Head(static_cast<long long>(m_sdp.size()) + 1) + m_sdp, true, "Recv from server error"},
        {"RTSP/1.0 404 Not Found\r\n\r\n", true, "Failed to parse packet. iRet: 1."},
        {"RTSP/1.0 551 No\r\n\r\n", true, "Failed to parse packet. iRet: 189108033."},
        {"RTSP/1.0 401 No\r\n\r\n", true, "Cant find name: WWW-Authenticate."},
        {"RTSP/1.0 401 No\r\nWWW-Authenticate: x\r\n\r\n", true, "Failed to divide realm and nonce."},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(1, Describe(row.answer, idle, row.connected)) << row.reason;
        EXPECT_TRUE(m_log->Contains(row.reason)) << row.reason << "\n" << m_log->Dump();
    }
    EXPECT_EQ(-401, Describe("RTSP/1.0 401 No\r\nWWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n\r\n", idle));
    std::string realm, nonce, algo;
    m_describe.GetRealmAndNonce(realm, nonce, algo);
    EXPECT_EQ("r/n/", realm + "/" + nonce + "/" + algo);
}

TEST_F(RtspDescribe, EndsWhenTheDeviceIsSilentResetsOrDrips) {
    m_receiveSeconds = 0;
    EXPECT_EQ(1, Describe(Head(1000) + m_sdp, [](ScriptedServer::Link& link) { link.WaitClosed(); }));
    EXPECT_TRUE(m_log->Contains("Recv from server error: 62.")) << m_log->Dump();
    m_receiveSeconds = 20;
    EXPECT_EQ(1, Describe(Head(1000) + m_sdp, [](ScriptedServer::Link& link) { link.Reset(); }));
    ScopedTestClock clock;
    m_log->Clear();
    int dripped = 0;
    constexpr int kMissing = 3000;
    EXPECT_EQ(1, Describe(Head(kMissing + static_cast<int>(m_sdp.size())) + m_sdp,
                          [&clock, &dripped](ScriptedServer::Link& link) {
                              for (; dripped < kMissing && link.Write("a"); ++dripped) {
                                  clock->AdvanceSeconds(1);
                                  std::this_thread::sleep_for(std::chrono::milliseconds(1));
                              }
                          }));
    EXPECT_LT(dripped, kMissing);
    EXPECT_TRUE(m_log->Contains("Recv from server error: 62.")) << m_log->Dump();
}

}  // namespace
