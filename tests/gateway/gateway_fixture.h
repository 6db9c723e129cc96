#pragma once

#include "gateway/alarms/plugin_troubles.h"
#include "gateway/process/gateway.h"
#include "plugins_bad/moody_plugin.h"
#include "support/fake_peer.h"
#include "support/recording_logger.h"
#include "support/settings_folder.h"
#include "support/test_clock.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <functional>
#include <memory>
#include <string>

// A configuration folder of a gateway that listens on the loopback, and the options that name it.
class GatewayFolder : public SettingsFolder {
public:
    explicit GatewayFolder(const std::string& settings = std::string()) { Settings(settings); }

    void Settings(const std::string& settings) const { WriteConf("GVX_LISTEN_IP=127.0.0.1\n" + settings); }
    gvx::GatewayOptions Options() const;
};

struct Answer {
    std::uint32_t code = ~0u;  // ~0: none came
    std::string text;          // the XML or JSON body
    Json::Value json;          // the JSON body, null for XML
};

// A running gateway with the plug-in "moody", linked to a main service that the test plays.
class GatewayTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Of a loaded plug-in that is made from moody_plugin.cpp; null when there is none.
    static MoodyState* StateOf(const std::string& plugin);
    // A peer that has registered with the gateway.
    std::unique_ptr<FakePeer> Link(const std::string& id) const;
    // Answers the report of used ports, which holds up all later link events until then.
    bool AnswerIfPortReport(const FakePeer::Frame& frame);
    // Sends a request and waits for its answer; other frames are passed over, that report is answered.
    Answer AskXml(std::uint16_t type, const std::string& content);
    Answer AskJson(std::uint16_t type, const std::string& json);
    // The two halves, for requests that overlap.
    std::uint32_t Send(std::uint16_t type, const std::string& body);
    std::uint32_t SendXml(std::uint16_t type, const std::string& content);
    std::uint32_t SendJson(std::uint16_t type, const std::string& json);
    Answer WaitAnswer(std::uint16_t type, std::uint32_t seq);

    Answer AddDevice(const std::string& device, const std::string& moods = std::string());
    Answer DeleteDevice(const std::string& device);
    // Over UDP; nobody listens on the port unless another is given.
    Answer Start(const std::string& device, const std::string& stream, const std::string& more = std::string(),
                 std::uint16_t port = 9);
    Answer Stop(const std::string& device, const std::string& stream);
    // Whether the gateway knows of such a trouble, that many times at least.
    static bool HasTrouble(gvx::PluginTrouble::Kind kind, const std::string& device, std::uint64_t count = 1);
    // Ends a gateway that left something behind when it stopped, as soon as it has as many objects more than before.
    void EndLeftBehind(int alive);

    ScopedRecordingLogger log;
    // Nothing expires, so that no test depends on the machine's speed.
    GatewayFolder folder{
        "GVX_PLUGIN_LIST=moody\nGVX_PLUGIN_CALL_LIMIT=1\n[MESSAGE]\nMU_NSS_TIMEOUT=0\nOTHERS_NSS_TIMEOUT=0\n"};
    std::unique_ptr<gvx::Gateway> gateway;
    std::unique_ptr<FakePeer> peer;
    MoodyState* moody = nullptr;                               // until the gateway unloads it
    bool stopped = false;                                      // the test has stopped the gateway itself
    std::function<void(const FakePeer::Frame&)> onOtherFrame;  // called by WaitAnswer for what it passes over

private:
    std::uint32_t m_seq = 100;
    int m_aliveBefore = 0;  // what earlier tests left behind
};

// The gateway's time goes on when the test says so.
class TimelessGatewayTest : public GatewayTest {
protected:
    ScopedTestClock clock;
};
