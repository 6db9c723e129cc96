#include "gateway/gateway_fixture.h"

#include "base/json_io.h"
#include "nss/nss_msg_type.h"
#include "support/wait_until.h"

#include <filesystem>

#include <dlfcn.h>

namespace {

std::string TransactionOf(std::uint32_t seq) {
    return "trans-" + std::to_string(seq);
}

}  // namespace

std::string BadPluginDir() {
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "plugins_bad").string();
}

gvx::GatewayOptions GatewayFolder::Options() const {
    gvx::GatewayOptions options;
    options.configDir = Path();
    options.pluginDir = BadPluginDir();
    options.listenPort = 0;
    return options;
}

void Moody::Find() {
    void* handle = dlopen((BadPluginDir() + "/gvx_plugin_moody.so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(handle, nullptr);
    m_release = reinterpret_cast<MoodyReleaseFunc>(dlsym(handle, MOODY_RELEASE_SYMBOL));
    m_alive = reinterpret_cast<MoodyAliveFunc>(dlsym(handle, MOODY_ALIVE_SYMBOL));
    m_refused = reinterpret_cast<MoodyRefusedFunc>(dlsym(handle, MOODY_REFUSED_SYMBOL));
    m_report = reinterpret_cast<MoodyReportFunc>(dlsym(handle, MOODY_REPORT_SYMBOL));
    dlclose(handle);  // the gateway keeps it loaded
    ASSERT_TRUE(m_release != nullptr && m_alive != nullptr && m_refused != nullptr && m_report != nullptr);
}

void GatewayTest::SetUp() {
    gateway = std::make_unique<gvx::Gateway>();
    ASSERT_FALSE(gateway->LoadConfiguration(folder.Options()).Failed());
    const gvx::StartResult result = gateway->Start(folder.Options());
    ASSERT_EQ(result.code, gvx::ExitCode::Ok) << result.reason;
    ASSERT_NO_FATAL_FAILURE(moody.Find());
    moody.Release(false);
    peer = FakePeer::Connect(gateway->Port());
    ASSERT_NE(peer, nullptr);
    ASSERT_EQ(peer->Register("GVX#900"), 0u);
}

void GatewayTest::TearDown() {
    if (gateway != nullptr && !stopped) {
        EXPECT_TRUE(gateway->Stop()) << log->Dump();
    }
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

void GatewayTest::AnswerPortReport() {
    auto frame = peer->ReadFrame();
    while (frame && !AnswerIfPortReport(*frame)) {
        frame = peer->ReadFrame();
    }
    EXPECT_TRUE(frame.has_value()) << "the ports in use are not reported";
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

Answer GatewayTest::Start(const std::string& device, const std::string& stream, const std::string& more) {
    return AskJson(NSS_START_STREAM_REQ, R"({"DevCode":")" + device + R"(","ServiceID":")" + stream +
                                             R"(","DstIP":"127.0.0.1","DstVideoPort":9)" + more + "}");
}

Answer GatewayTest::Stop(const std::string& device, const std::string& stream) {
    return AskJson(NSS_STOP_STREAM_REQ, R"({"DevCode":")" + device + R"(","ServiceID":")" + stream + R"("})");
}
