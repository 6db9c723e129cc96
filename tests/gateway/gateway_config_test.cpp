#include "gateway/gateway_fixture.h"

#include "base/zvs_error.h"
#include "gateway/plugins/plugin_guard.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "nss/nss_msg_type.h"
#include "support/wait_until.h"

#include <thread>

namespace {

// Settings in their sections, as an edit needs them.
class GatewayConfigTest : public GatewayTest {
protected:
    GatewayConfigTest() {
        folder.WriteConf(
            "[GATEWAY]\nGVX_PLUGIN_LIST=moody,hiksdk\nGVX_PLUGIN_CALL_LIMIT=1\n"
            "[MESSAGE]\nMU_NSS_TIMEOUT=0\nOTHERS_NSS_TIMEOUT=0\nGVX_MESSAGE_IP=127.0.0.1\n"
            "[SERVICE_CAPACITY]\nMAX_CAPS=128\nGVX_MAX_DEVICES=0\n[MEDIA]\nGVX_MEDIA_SEND_UDP=47000-47400\n"
            "[SIF_CFG]\nGVX_SIP_LOG_SWITCH=0\n[LOG_CFG]\nGVX_HIKSDK_LOG_SWITCH=0\n"
            "[GB35114_CFG]\nGB35114_SECURITY_LEVEL=A\nGB35114_KEYLABEL=gvx001\n"
            "GB35114_SERVER_ID=34020000002000000001\nGB35114_DATE_INTERNAL=600\n");
    }
    Answer Edit(const std::string& section, const std::string& key, const std::string& value) {
        return AskXml(NSS_CONFIG_EDIT_REQ, "<ConfigInfo><ConfigName>" + key + "</ConfigName><ConfigType>" + section +
                                               "</ConfigType><ConfigValue>" + value + "</ConfigValue></ConfigInfo>");
    }
};

TEST_F(GatewayConfigTest, EditIsTakenOrRefusedWithAReason) {
    const std::string secret = "S3cr3t-pa55";
    EXPECT_EQ(Edit("LOG_CFG", "Password", secret).code, 0u);
    EXPECT_EQ(Edit("SERVICE_CAPACITY", "MAX_CAPS", "99").code, 0u);
    const std::string rows[][4] = {
        {"SERVICE_CAPACITY", "MAX_CAPS", "151", "151 is no value for MAX_CAPS."},
        {"MESSAGE", "MAX_CAPS", "98", "MAX_CAPS does not stand in the section [MESSAGE]; look in [SERVICE_CAPACITY]."},
        {"GATEWAY", "GVX_PLUGIN_LIST", "x", "GVX_PLUGIN_LIST can not be edited at run time."},
        {"MESSAGE", "MU_NSS_TIMEOUT", "soon", "MU_NSS_TIMEOUT is a number from 0 to 86400."},
        {"SIF_CFG", "GVX_SIP_LOG_SWITCH", "1", "A plug-in with a SIP stack is missing or refuses the switch."},
        {"MESSAGE", "GVX_MESSAGE_IP", "1234567890123456789012345678901234", "a section and a value have 31."},
        {"SERVICE_CAPACITY", "MAX_CAPS", "98;", "would be another after a restart"},
        {"SERVICE_CAPACITY", "MAX_CAPS", "98x", "98x is no value for MAX_CAPS."},
        {"SERVICE_CAPACITY", "MAX_CAP", "98", "MAX_CAP is no setting; MAX_CAPS is the nearest."},
        {"LOG_CFG", "ServerPort", "99999", "ServerPort is a number from 0 to 65535."},
        {"LOG_CFG", "Password", secret + std::string(64, 'x'), ""},
        {"MESSAGE", "Password", secret, ""},
    };
    for (const auto& [place, key, value, reason] : rows) {
        const Answer answer = Edit(place, key, value);
        EXPECT_NE(answer.code, 0u) << reason;
        EXPECT_NE(answer.text.find(reason), std::string::npos) << answer.text;
    }
    EXPECT_EQ(AskXml(NSS_CONFIG_EDIT_REQ, "").code, static_cast<unsigned>(ZVS_PARA_INVALID));
    const std::tuple<const char*, unsigned, const char*> changes[] = {
        {R"(MU_NSS_TIMEOUT","ConfigValue":"7"})", 1, "MU_NSS_TIMEOUT can not be edited at run time."},
        {R"(MAX_CAPS","ConfigValue":78})", 2, "ConfigValue is no text."},
        {R"(MAX_CAPS","ConfigValue":"78x"})", 1, "The value is not allowed or could not be written; the log says why."},
        {R"(MAX_CAP","ConfigValue":"78"})", 1, "MAX_CAP is no setting; MAX_CAPS is the nearest."},
    };
    for (const auto& [change, code, reason] : changes) {
        const Answer refused = AskJson(NSS_SET_GVX_PLUGIN_CONFIG_REQ,
                                       R"({"ConfigSection":"SERVICE_CAPACITY","ConfigName":")" + std::string(change));
        EXPECT_EQ(refused.code, code);
        EXPECT_EQ(refused.json["Reason"].asString(), reason);
    }
    EXPECT_EQ(GvxConfigMgr()->GetConfValue("MAX_CAPS", ""), "99");
    AskJson(NSS_SET_GVX_PLUGIN_CONFIG_REQ,
            R"({"ConfigSection":"LOG_CFG","ConfigName":"Password","ConfigValue":")" + secret + "\"}");
    EXPECT_EQ(log->Dump().find(secret), std::string::npos) << log->Dump();
}

TEST_F(GatewayConfigTest, APluginThatHangsInASwitchHoldsUpItsOwnEditsAlone) {
    const auto edit = [](const char* section, const char* key, const char* value) {
        return std::string(R"({"ConfigSection":")") + section + R"(","ConfigName":")" + key + R"(","ConfigValue":")" +
               value + "\"}";
    };
    MoodyState* const state = StateOf("hiksdk");
    ASSERT_NE(state, nullptr);
    state->release = false;
    const std::uint32_t hangs = SendJson(NSS_SET_GVX_PLUGIN_CONFIG_REQ, edit("LOG_CFG", "GVX_HIKSDK_LOG_SWITCH", "1"));
    ASSERT_TRUE(WaitUntil([state] { return state->hanging == 1; })) << log->Dump();
    EXPECT_EQ(AskJson(NSS_SET_GVX_PLUGIN_CONFIG_REQ, edit("SERVICE_CAPACITY", "MAX_CAPS", "97")).code, 0u);
    EXPECT_EQ(GvxConfigMgr()->GetConfValue("GVX_HIKSDK_LOG_SWITCH", ""), "0");
    state->release = true;
    EXPECT_EQ(WaitAnswer(NSS_SET_GVX_PLUGIN_CONFIG_REQ, hangs).code, 0u);
    EXPECT_EQ(GvxConfigMgr()->GetConfValue("GVX_HIKSDK_LOG_SWITCH", ""), "1");

    ASSERT_EQ(AddDevice("CAM1").code, 0u);
    state->release = false;
    log->Clear();
    std::thread reload([] { GvxConfigMgr()->SetHikAndDahuaSDKSwitch("GVX_HIKSDK_LOG_SWITCH", 1); });
    ASSERT_TRUE(WaitUntil([state] { return state->hanging == 1; })) << log->Dump();
    gateway->StopWaiting();
    reload.join();
    EXPECT_TRUE(log->Contains("A call of plug-in hiksdk is not waited for: the gateway stops.")) << log->Dump();
    EXPECT_FALSE(log->Contains("has not returned within")) << "a stop cannot wait so long";
    EXPECT_FALSE(gateway->Stop()) << "the plug-in is still at it";
    EXPECT_FALSE(gateway->Context().devices.Contains("CAM1"));
    state->release = true;
    EndLeftBehind(0);
}

TEST_F(GatewayConfigTest, SettingsOfSecureVideoComeWithARequestAndWithAnAnswer) {
    const auto body = [](const std::string& level) {
        return R"({"GB35114_SECURITY_LEVEL":")" + level + R"(","GB35114_KEYLABEL":"gvx002",)" +
               R"("GB35114_SERVER_ID":"34020000002000000002","GB35114_DATE_INTERNAL":300})";
    };
    const auto level = [] { return GvxConfigMgr()->GetConfValue("GB35114_SECURITY_LEVEL", ""); };
    EXPECT_EQ(AskJson(NSS_MODIFY_GB35114_CONF_REQ, body("B")).code, 0u);
    EXPECT_EQ(AskJson(NSS_MODIFY_GB35114_CONF_REQ, body("D")).code, 1u);
    EXPECT_EQ(level() + GvxConfigMgr()->GetConfValue("GB35114_DATE_INTERNAL", ""), "B300");
    SendJson(NSS_GET_GB35114_CONF_RSP, body("C"));
    EXPECT_TRUE(WaitUntil([&] { return level() == "C"; })) << log->Dump();
}

TEST_F(GatewayConfigTest, LimitsActOnTheNextDeviceAndStream) {
    ASSERT_EQ(Edit("SERVICE_CAPACITY", "MAX_CAPS", "2").code, 0u);
    ASSERT_EQ(AddDevice("CAM1").code, 0u);
    const Answer tooMany = AddDevice("CAM2");
    EXPECT_EQ(tooMany.code, static_cast<unsigned>(ZVS_FAIL));
    EXPECT_NE(tooMany.text.find("MAX_CAPS allows 2."), std::string::npos) << tooMany.text;
    for (const auto& [range, low, high] : {std::tuple{"", 47000u, 47400u}, {"48000-48400", 48000u, 48400u}}) {
        ASSERT_TRUE(*range == '\0' || Edit("MEDIA", "GVX_MEDIA_SEND_UDP", range).code == 0);
        const Answer started = Start("CAM1", "S");
        const unsigned int port = started.json["SrcVideoPort"].asUInt();
        EXPECT_TRUE(started.code == 0 && port >= low && port <= high && port % 2 == 0) << started.text << port;
        EXPECT_EQ(AskJson(NSS_STOP_STREAM_REQ, R"({"DevCode":"CAM1","ServiceID":"S"})").code, 0u);
    }
    ASSERT_EQ(DeleteDevice("CAM1").code, 0u);
    EXPECT_EQ(AddDevice("CAM2").code, 0u) << "a deleted camera makes room";
    ASSERT_EQ(Edit("SERVICE_CAPACITY", "GVX_MAX_DEVICES", "2").code, 0u);
    EXPECT_EQ(AddDevice("CAM3").code, 0u) << "devices count in place of cameras";
    EXPECT_NE(AddDevice("CAM4").text.find("GVX_MAX_DEVICES allows 2."), std::string::npos);
    EXPECT_EQ(DeleteDevice("CAM2").code + DeleteDevice("CAM3").code, 0u);
}

TEST_F(GatewayConfigTest, ChangedTimeoutActsOnTheNextCommandServed) {
    ASSERT_EQ(AddDevice("CAM1", "RequestKeyframe=hang").code, 0u);
    ASSERT_EQ(Start("CAM1", "S").code, 0u);
    const std::string body = R"({"DevCode":"CAM1","ServiceID":"S"})";
    const std::uint32_t hangs = SendJson(NSS_GET_IFRAME_REQ, body);
    // The first must have left the queue before the time is moved, or it expires as well.
    ASSERT_TRUE(WaitUntil([] { return !gvx::PluginCallWatch::Instance().OpenCalls().empty(); }));
    SendJson(NSS_GET_IFRAME_REQ, body);  // waits behind it
    ASSERT_EQ(Edit("MESSAGE", "MU_NSS_TIMEOUT", "2").code, 0u);
    // Never destroyed: a thread may still read it when the system's clock is back.
    static TestClock clock;
    clock.SetWallMicroseconds(gvx::CurrentClock().WallMicroseconds() + 3000000);
    clock.SetMonotonicMicroseconds(gvx::CurrentClock().MonotonicMicroseconds() + 3000000);
    gvx::SetClock(&clock);
    moody->release = true;
    EXPECT_EQ(WaitAnswer(NSS_GET_IFRAME_REQ, hangs).code, 0u);
    EXPECT_TRUE(log->WaitFor("Cmd[0x0504] wait more than 2 s")) << log->Dump();
    gvx::SetClock(nullptr);
    EXPECT_EQ(DeleteDevice("CAM1").code, 0u);
}

}  // namespace
