#include "support/rtsp_client.h"

#include "support/settings_folder.h"
#include "gvx_common/security/gvx_security_mgr.h"
#include "support/recording_logger.h"
#include "support/scripted_server.h"

#include <atomic>
#include <iterator>
#include <memory>

#include <gtest/gtest.h>

// Sessions with devices that do not behave, driven as a plug-in drives them: each step ends with its result.

namespace {

using Link = ScriptedServer::Link;

constexpr char kOptions[] = "RTSP/1.0 200 OK\r\nPublic: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN\r\n\r\n";
constexpr char kSdp[] = "v=0\r\nm=video 0 RTP/AVP 96\r\na=control:track1\r\n";
constexpr char kSession[] =
    "RTSP/1.0 200 OK\r\nSession: 42;timeout=60\r\nTransport: RTP/AVP/TCP;interleaved=0-1\r\n\r\n";

std::string DescribeAnswer() {
    return "RTSP/1.0 200 OK\r\nContent-Length: " + std::to_string(sizeof(kSdp) - 1) + "\r\n\r\n" + kSdp;
}

class RogueDevice : public testing::Test {
protected:
    void TearDown() override { CSecurityMgr::Instance()->UnInit(); }

    std::unique_ptr<RtspClient> Client(const ScriptedServer& device, int limitMs = 20000) {
        char password[128] = {};
        EXPECT_EQ(0, CSecurityMgr::Instance()->EncryptString("secret", password, sizeof(password)));
        auto client = std::make_unique<RtspClient>("rtsp://127.0.0.1:" + std::to_string(device.Port()) + "/live",
                                                   "admin", password, std::chrono::milliseconds(limitMs));
        EXPECT_EQ(0, client->Connect());
        return client;
    }
    // Goes through a session and gives the results, up to the first that is not 0.
    static std::string Run(RtspClient& client) {
        std::string results;
        const auto step = [&results](const char* name, int result) {
            results += (results.empty() ? "" : " ") + std::string(name) + "=" + std::to_string(result);
            return result == 0;
        };
        step("OPTIONS", client.Options()) && step("DESCRIBE", client.Describe()) &&
            step("SETUP", client.Setup(*client.Sessions().front(), "RTP/AVP/TCP;unicast;interleaved=0-1")) &&
            step("PLAY", client.Play()) && step("TEARDOWN", client.Teardown());
        return results;
    }

    ScopedRecordingLogger m_log;
    SettingsFolder m_folder;
};

TEST_F(RogueDevice, SilentOrGoneAtEachStep) {
    const std::string answers[] = {kOptions, DescribeAnswer(), kSession, kSession};
    const std::string names[] = {"OPTIONS", "DESCRIBE", "SETUP", "PLAY", "TEARDOWN"};
    for (const bool silent : {true, false}) {
        std::string expected;
        for (std::size_t good = 0; good < std::size(names); ++good) {
            ScriptedServer device([&answers, good, silent](Link& link) {
                for (std::size_t i = 0; i < good; ++i) {
                    link.ReadRequest();
                    link.Write(answers[i]);
                }
                link.ReadRequest();
                if (silent) {
                    link.WaitClosed();
                }
                link.Reset();
            });
            const auto client = Client(device, silent ? 300 : 20000);
            EXPECT_EQ(expected + names[good] + "=-1", Run(*client)) << m_log->Dump();
            expected += names[good] + "=0 ";
        }
    }
}

TEST_F(RogueDevice, ChallengesForEver) {
    std::atomic<int> requests{0};
    ScriptedServer device([&requests](Link& link) {
        while (link.ReadRequest().find("OPTIONS") == 0) {
            link.Write("RTSP/1.0 401 No\r\nWWW-Authenticate: Digest realm=\"r\", nonce=\"" +
                       std::to_string(++requests) + "\"\r\nContent-Length: 2\r\n\r\nno");
        }
    });
    EXPECT_EQ("OPTIONS=-401", Run(*Client(device)));
    EXPECT_EQ(2, requests);
}

TEST_F(RogueDevice, ChallengesThatAreNone) {
    const std::pair<std::string, const char*> rows[] = {
        {"Digest realm=\"" + std::string(129, 'r') + "\", nonce=\"n\"", "OPTIONS=1"},
        {"Digest realm=\"r\", nonce=\"" + std::string(65, 'n') + "\"", "OPTIONS=1"},
        {"Digest realm=r, nonce=n", "OPTIONS=1"},
        {"Digest realm=\"r\", nonce=\"n\", algorithm=ABCDEFGHIJKLMNOP", "OPTIONS=-401"},
        {std::string("Digest re\0alm", 13), "OPTIONS=1"},
    };
    for (const auto& [challenge, expected] : rows) {
        ScriptedServer device([challenge = challenge](Link& link) {
            while (link.ReadRequest().find("OPTIONS") == 0) {
                link.Write("RTSP/1.0 401 No\r\nWWW-Authenticate: " + challenge + "\r\n\r\n");
            }
        });
        EXPECT_EQ(expected, Run(*Client(device))) << challenge;
    }
}

}  // namespace
