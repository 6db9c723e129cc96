#include "gateway/gateway_fixture.h"

#include "base/json_io.h"
#include "base/zvs_error.h"
#include "gvx_common/forms/record_forms.h"
#include "gvx_common/forms/request_table.h"
#include "nss/nss_msg_type.h"
#include "plugins_bad/keeper_plugin.h"
#include "support/sample_record.h"
#include "support/wait_until.h"

#include <dlfcn.h>

#include <set>

namespace {

// Requests whose operation is not given all that the record holds, or whose answer is only a part of it.
const std::set<std::uint16_t> kPartly = {
    NSS_GET_DEVICE_ABILITY_REQ,        NSS_GUARD_SET_REQ,           NSS_DEL_IPC_COORDINATE_COMMUNITY_REQ,
    NSS_DEVICE_FUNC_GVX_REQ,           NSS_FIX_MANUAL_POS_REQ,      NSS_STOP_IPCA_REQ,
    NSS_PTZ_SET_AUTOSCAN_BOUNDARY_REQ, NSS_BATCH_GET_DEV_8021X_REQ, NSS_VALIDATE_DEVICE_REQ,
};

class OperationTest : public GatewayTest {
protected:
    void SetUp() override {
        folder.Settings(
            "GVX_PLUGIN_LIST=moody,keeper\nGVX_PLUGIN_CALL_LIMIT=1\n[MESSAGE]\nMU_NSS_TIMEOUT=0\nOTHERS_NSS_TIMEOUT="
            "0\n");
        GatewayTest::SetUp();
        void* plugin = dlopen((folder.Options().pluginDir + "/gvx_plugin_keeper.so").c_str(), RTLD_NOW | RTLD_NOLOAD);
        ASSERT_NE(plugin, nullptr);
        keeper = static_cast<KeeperState*>(dlsym(plugin, "g_keeper"));
        dlclose(plugin);  // the gateway keeps it loaded
        ASSERT_NE(keeper, nullptr);
        ASSERT_EQ(AskXml(NSS_ADD_MAIN_DEV_REQ,
                         "<DevCode>K</DevCode><PluginName>keeper</PluginName><LensList><Lens>"
                         "<LensCode>K0</LensCode><Channel>0</Channel></Lens></LensList>")
                      .code,
                  0u);
    }

    Answer Ask(const gvx::RequestRow& row, Json::Value body) {
        if (row.scope == gvx::RequestScope::Plugin) {
            body["PluginName"] = "keeper";
        } else {
            body["DevCode"] = "K";
            body["LensCode"] = "K0";
        }
        return AskJson(row.reqID, gvx::WriteJson(body));
    }
    Json::Value Taken() {
        const std::lock_guard<std::mutex> lock(keeper->mutex);
        return keeper->taken;
    }

    KeeperState* keeper = nullptr;
};

// Every member of wanted is in found; in one that is only partly there, those that are there are equal.
void ExpectMembers(const Json::Value& wanted, const Json::Value& found, bool partly, const char* name) {
    for (const std::string& member : wanted.getMemberNames()) {
        if (member == "LensCode" || (partly && found[member].isNull())) {
            continue;
        }
        EXPECT_EQ(gvx::WriteJson(found[member]), gvx::WriteJson(wanted[member])) << name << " " << member;
    }
}

}  // namespace

TEST_F(OperationTest, APluginThatHangsInASearchHoldsUpItsOwnRequestsAlone) {
    const std::string ranges = R"("Ranges":[{"Start":"127.0.0.1"}]})";
    const std::uint32_t stuck = SendJson(NSS_START_SEARCH_DEVICE_REQ,
                                         R"({"PluginName":"moody","ServerCode":"StartSearchDevice=hang",)" + ranges);
    const std::uint32_t stop = SendJson(NSS_STOP_SEARCH_DEVICE_REQ, R"({"PluginName":"moody"})");
    EXPECT_EQ(AskJson(NSS_START_SEARCH_DEVICE_REQ, R"({"PluginName":"keeper",)" + ranges).code, 0u);
    EXPECT_EQ(AskJson(NSS_STOP_SEARCH_DEVICE_REQ, R"({"PluginName":"none"})").code,
              static_cast<unsigned>(ZVS_GVX_PLUGIN_NOT_EXIST));
    EXPECT_TRUE(WaitUntil([] { return HasTrouble(gvx::PluginTrouble::Kind::DoesNotReturn, "-"); }));
    moody->release = true;
    EXPECT_EQ(WaitAnswer(NSS_START_SEARCH_DEVICE_REQ, stuck).code, 0u);
    EXPECT_EQ(WaitAnswer(NSS_STOP_SEARCH_DEVICE_REQ, stop).code, 0u) << "served in order";
}

TEST_F(OperationTest, EveryRequestReachesItsOperationAndItsAnswerComesBack) {
    for (const gvx::RequestRow& row : gvx::AllRequests()) {
        const bool partly = kPartly.count(row.reqID) != 0;
        Json::Value sent = SampleOf(row.request());
        if (row.reqID == NSS_DEVICE_FUNC_GVX_REQ) {
            sent["Function"] = "status";  // the one that answers
        }
        const Answer answer = Ask(row, sent);
        EXPECT_EQ(answer.code, 0u) << row.name << answer.text;
        if (row.request().fieldCount != 0) {
            ExpectMembers(sent, Taken(), partly, row.name);
        }
        ExpectMembers(SampleOf(row.answer()), answer.json, partly, row.name);
        EXPECT_EQ(answer.text.find("assword"), std::string::npos) << row.name << " answers a password";
    }
    EXPECT_FALSE(log->Contains("NewPassword"));
}

TEST_F(OperationTest, APluginIsToldWhichSettingsWereNamed) {
    const auto maskOf = [this](std::uint16_t reqID, const std::string& members) {
        EXPECT_EQ(AskJson(reqID, R"({"DevCode":"K",)" + members + "}").code, 0u);
        const std::lock_guard<std::mutex> lock(keeper->mutex);
        std::set<int> named;
        for (std::size_t i = 0; i < keeper->mask.size(); ++i) {
            if (keeper->mask[i] == 1) {
                named.insert(static_cast<int>(i));
            }
        }
        return named;
    };
    EXPECT_EQ(maskOf(NSS_SET_IMAGING_PARA_REQ, R"("Contrast":7)"), std::set<int>{VIDEO_ATTRIBUT_CONTRAST_INDEX});
    EXPECT_EQ(maskOf(NSS_CONF_SERIAL_CHAN_REQ, R"("BaudRate":4800,"Parity":"even")"),
              (std::set<int>{SERIAL_PORT_BAUT_RATE_INDEX, SERIAL_PORT_PARITY_INDEX}));
    PU_STREAM_ATTRIBUTE stream;
    std::string fault;
    Json::Value sub;
    sub["StreamType"] = "sub1";
    sub["BitRate"] = 512;
    ASSERT_TRUE(gvx::ReadRecord(gvx::FormOf<PU_STREAM_ATTRIBUTE>(), sub, &stream, fault)) << fault;
    EXPECT_EQ(stream.stMask.Mask[VIDEO_SUB_STREAM_BIT_RATE_INDEX], 1);
    EXPECT_EQ(stream.stMask.Mask[VIDEO_COMPRESSION_BIT_RATE_INDEX], 0);
}

TEST_F(OperationTest, WhatIsNotAllowedIsRefusedByName) {
    for (const gvx::RequestRow& row : gvx::AllRequests()) {
        for (const gvx::FieldForm& field : row.request()) {
            if (field.name == nullptr || field.answerOnly || field.kind == gvx::FieldKind::Json) {
                continue;
            }
            Json::Value body = SampleOf(row.request());
            body[field.name] = Json::Value(field.list == nullptr ? Json::arrayValue : Json::objectValue);
            const Answer answer = Ask(row, body);
            if (std::string(field.name) != "LensCode") {  // Ask gives it anew
                EXPECT_EQ(answer.code, static_cast<unsigned>(ZVS_PARA_INVALID)) << row.name << " " << field.name;
                EXPECT_EQ(answer.json["Reason"].asString().find(field.name), 0u) << answer.text;
            }
            break;
        }
    }
    const struct {
        std::uint16_t reqID;
        const char* json;
        int code;
        const char* reason;
    } rows[] = {
        {NSS_PTZ_CONTROL_REQ, R"({"DevCode":"K"})", ZVS_PARA_INVALID, "Command is missing."},
        {NSS_PTZ_CONTROL_REQ, R"({"DevCode":"K","Command":"up","Speed":11})", ZVS_PARA_INVALID,
         "Speed is not one of 1 to 10."},
        {NSS_SET_CRUISE_TRACK_REQ, R"({"DevCode":"K","Points":[{"PresetIndex":1},{"PresetIndex":0}]})",
         ZVS_PARA_INVALID, "Points[1].PresetIndex is not one of 1 to 65535."},
        {NSS_SET_DEV_NET_CFG_REQ, R"({"DevCode":"K","IP":"10.0.0.256"})", ZVS_PARA_INVALID,
         "IP is not an IPv4 address."},
        {NSS_GET_DEV_LOG_REQ, R"({"DevCode":"K","MaxCount":10000})", ZVS_FAIL, "The answer is longer than 1 MiB"},
        {NSS_GET_OSD_PARA_REQ, R"({"DevCode":"K"})", ZVS_GVX_DEV_UN_SUPPORT, ""},
        {NSS_ADD_USER_REQ, R"({"DevCode":"K"})", ZVS_GVX_DEV_UN_SUPPORT, ""},
        {NSS_GET_MULTY_OSD_PARA_REQ, R"({"DevCode":"GHOST"})", ZVS_GVX_DEV_NOT_EXIST, "There is no such device."},
        {NSS_GET_MULTY_OSD_PARA_REQ, R"({"DevCode":"K","LensCode":"K9"})", ZVS_GVX_LENS_NOT_EXIST,
         "The device has no such lens."},
        {NSS_VALIDATE_DEVICE_REQ, R"({"PluginName":"nobody","IP":"a"})", ZVS_GVX_PLUGIN_NOT_EXIST,
         "No such plug-in is loaded."},
        {NSS_GET_MULTY_OSD_PARA_REQ, R"({"DevCode":"M"})", ZVS_GVX_DEV_UN_SUPPORT,
         "The device or its plug-in does not support the operation."},
        {NSS_PTZ_CONTROL_REQ, R"({"DevCode":"K","Command":"absolute-move"})", ZVS_GVX_DEV_UN_SUPPORT, "The device"},
    };
    ASSERT_EQ(AddDevice("M").code, 0u);
    for (const auto& row : rows) {
        const Answer answer = AskJson(row.reqID, row.json);
        EXPECT_EQ(answer.code, static_cast<unsigned>(row.code)) << row.json << answer.text;
        EXPECT_EQ(answer.json["Reason"].asString().find(row.reason), 0u) << row.json << answer.text;
    }
}

TEST_F(OperationTest, APictureWhoseAddressIsNoneIsToldAsLost) {
    std::string told;
    onOtherFrame = [&told](const FakePeer::Frame& frame) {
        told += frame.head.usiMsgType == NSS_IMAGE_UPLOAD_COMPLETE_REQ ? frame.body : "";
    };
    const char* answer = R"({"DevCode":"K","LensCode":"K0","ContentID":"picture 1","SessionID":7})";
    ASSERT_TRUE(
        peer->SendFrame(NSS_GET_UPLOAD_IMAGE_URL_RSP, 1, "none", 0, FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, answer)));
    EXPECT_TRUE(log->WaitFor("The answer has no URL, picture 'picture 1' is lost."));
    EXPECT_NE(AskJson(NSS_STOP_STREAM_REQ, R"({"DevCode":"K"})").code, 0u);  // what was sent ahead comes first
    EXPECT_NE(told.find(R"("ContentID":"picture 1")"), std::string::npos) << told;
    EXPECT_NE(told.find(R"("Result":1)"), std::string::npos) << told;
}
