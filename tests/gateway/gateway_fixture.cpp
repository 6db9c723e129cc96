#include "gateway/gateway_fixture.h"

#include "base/json_io.h"
#include "gateway/plugins/plugin_guard.h"
#include "nss/nss_msg_type.h"
#include "support/wait_until.h"

#include <algorithm>

#include <dlfcn.h>

namespace {

// Where the build puts the plug-ins that misbehave.
std::string BadPluginDir() {
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "plugins_bad").string();
}

std::string TransactionOf(std::uint32_t seq) {
    return "trans-" + std::to_string(seq);
}

}  // namespace

gvx::GatewayOptions GatewayFolder::Options() const {
    gvx::GatewayOptions options;
    options.configDir = Path();
    options.pluginDir = BadPluginDir();
    options.listenPort = 0;
    return options;
}

MoodyState* GatewayTest::StateOf(const std::string& plugin) {
    void* loaded = dlopen((BadPluginDir() + "/gvx_plugin_" + plugin + ".so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (loaded == nullptr) {
        return nullptr;
    }
    auto* const state = static_cast<MoodyState*>(dlsym(loaded, "g_moody"));
    dlclose(loaded);  // the gateway keeps it loaded
    return state;
}

void GatewayTest::SetUp() {
    gateway = std::make_unique<gvx::Gateway>();
    ASSERT_FALSE(gateway->TakeFolders(folder.Options()).Failed());
    ASSERT_FALSE(gateway->LoadConfiguration().Failed());
    const gvx::StartResult result = gateway->Start(folder.Options());
    ASSERT_EQ(result.code, gvx::ExitCode::Ok) << result.reason;
    moody = StateOf("moody");
    ASSERT_NE(moody, nullptr);
    moody->release = false;
    m_aliveBefore = moody->alive;
    peer = Link("GVX#900");
}

void GatewayTest::TearDown() {
    if (gateway != nullptr && !stopped) {
        EXPECT_TRUE(gateway->Stop()) << log->Dump();
    }
}

std::unique_ptr<FakePeer> GatewayTest::Link(const std::string& id) const {
    auto linked = FakePeer::Connect(gateway->Port());
    EXPECT_TRUE(linked != nullptr && linked->Register(id) == 0u) << id;
    return linked != nullptr ? std::move(linked) : std::make_unique<FakePeer>(-1);
}

std::uint32_t GatewayTest::Send(std::uint16_t type, const std::string& body) {
    ++m_seq;
    EXPECT_TRUE(peer->SendFrame(type, m_seq, TransactionOf(m_seq), 0, body));
    return m_seq;
}

std::uint32_t GatewayTest::SendXml(std::uint16_t type, const std::string& content) {
    return Send(type, FakePeer::MakeItem(NSS_TAG_XML_CONTENT, "<Content>" + content + "</Content>"));
}

std::uint32_t GatewayTest::SendJson(std::uint16_t type, const std::string& json) {
    return Send(type, FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, json));
}

bool GatewayTest::AnswerIfPortReport(const FakePeer::Frame& frame) {
    return frame.head.usiMsgType == NSS_PLUGIN_SEND_PORTLIST_DATA_REQ &&
           peer->SendFrame(NSS_PLUGIN_SEND_PORTLIST_DATA_RSP, frame.head.uiSeqID, frame.Transaction());
}

Answer GatewayTest::WaitAnswer(std::uint16_t type, std::uint32_t seq) {
    Answer answer;
    while (const auto frame = peer->ReadFrame()) {
        AnswerIfPortReport(*frame);
        // A JSON answer repeats the transaction alone, an XML one the sequence number too.
        if (frame->head.usiMsgType != type + kNssResponseOffset || frame->Transaction() != TransactionOf(seq)) {
            if (onOtherFrame) {
                onOtherFrame(*frame);
            }
            continue;
        }
        answer.code = frame->head.uiRspCode;
        if (frame->body.size() > kNssTlvHeadBytes) {
            answer.text = frame->body.substr(kNssTlvHeadBytes);
            gvx::ParseJson(answer.text.data(), answer.text.size(), answer.json, nullptr);
        }
        return answer;
    }
    ADD_FAILURE() << "no answer to request " << type << "\n" << log->Dump();
    return answer;
}

Answer GatewayTest::AskXml(std::uint16_t type, const std::string& content) {
    return WaitAnswer(type, SendXml(type, content));
}

Answer GatewayTest::AskJson(std::uint16_t type, const std::string& json) {
    return WaitAnswer(type, SendJson(type, json));
}

Answer GatewayTest::AddDevice(const std::string& device, const std::string& moods) {
    return AskXml(NSS_ADD_MAIN_DEV_REQ,
                  "<DevCode>" + device + "</DevCode><PluginName>moody</PluginName><Extend>" + moods + "</Extend>");
}

Answer GatewayTest::DeleteDevice(const std::string& device) {
    return AskXml(NSS_DEL_MAIN_DEV_REQ, "<DevCode>" + device + "</DevCode>");
}

Answer GatewayTest::Start(const std::string& device, const std::string& stream, const std::string& more,
                          std::uint16_t port) {
    return AskJson(NSS_START_STREAM_REQ, R"({"DevCode":")" + device + R"(","ServiceID":")" + stream +
                                             R"(","DstIP":"127.0.0.1","DstVideoPort":)" + std::to_string(port) + more +
                                             "}");
}

Answer GatewayTest::Stop(const std::string& device, const std::string& stream) {
    return AskJson(NSS_STOP_STREAM_REQ, R"({"DevCode":")" + device + R"(","ServiceID":")" + stream + R"("})");
}

bool GatewayTest::HasTrouble(gvx::PluginTrouble::Kind kind, const std::string& device, std::uint64_t count) {
    const auto troubles = gvx::PluginTroubles::Instance().List();
    return std::any_of(troubles.begin(), troubles.end(), [&](const gvx::PluginTrouble& trouble) {
        return trouble.kind == kind && trouble.device == device && trouble.count >= count;
    });
}

void GatewayTest::EndLeftBehind(int alive) {
    moody->release = true;
    EXPECT_TRUE(WaitUntil(
        [&] { return gvx::PluginCallWatch::Instance().OpenCalls().empty() && moody->alive == m_aliveBefore + alive; }));
    ASSERT_TRUE(gateway->Context().work.WaitIdle(std::chrono::seconds(20)));
    gateway->Release();
    stopped = true;
}
