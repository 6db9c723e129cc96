#include "gateway/gateway_fixture.h"

#include "base/cbb_xml.h"
#include "base/zvs_error.h"
#include "gateway/messages/request_body.h"
#include "nss/nss_msg_type.h"
#include "support/wait_until.h"

#include <ace/Message_Block.h>

TEST_F(GatewayTest, DeviceIsAddedWithItsLensesAndDeletedAgain) {
    const Answer added = AddDevice("CAM1");
    EXPECT_EQ(added.code, 0u);
    EXPECT_NE(added.text.find("<DevCode>CAM1</DevCode>"), std::string::npos);
    EXPECT_NE(added.text.find("<Lens><LensCode>CAM1_0</LensCode><Channel>0</Channel></Lens>"), std::string::npos);
    EXPECT_NE(added.text.find("<Lens><LensCode>CAM1_1</LensCode><Channel>1</Channel></Lens>"), std::string::npos);
    EXPECT_EQ(moody.Alive(), 3);

    EXPECT_EQ(AddDevice("CAM1").code, static_cast<unsigned>(ZVS_GVX_DEV_EXIST));
    EXPECT_EQ(moody.Alive(), 3) << "a second addition leaves the device as it is";

    const Answer deleted = DeleteDevice("CAM1");
    EXPECT_EQ(deleted.code, 0u);
    EXPECT_NE(deleted.text.find("<DevCode>CAM1</DevCode>"), std::string::npos);
    EXPECT_EQ(moody.Alive(), 0);
    EXPECT_EQ(DeleteDevice("CAM1").code, static_cast<unsigned>(ZVS_GVX_DEV_NOT_EXIST));
    const Answer named = AskXml(NSS_ADD_MAIN_DEV_REQ,
                                "<DevCode>CAM1</DevCode><PluginName>moody</PluginName>"
                                "<LensList><Lens><LensCode>GATE</LensCode><Channel>1</Channel></Lens></LensList>");
    EXPECT_EQ(named.code, 0u) << "it may come back";
    EXPECT_NE(named.text.find("<LensList><Lens><LensCode>GATE</LensCode><Channel>1</Channel></Lens></LensList>"),
              std::string::npos)
        << named.text;
}

TEST_F(GatewayTest, AdditionThatIsNotAllowedIsRefusedWithAReason) {
    struct Row {
        const char* content;
        int code;
        const char* reason;
    };
    const Row rows[] = {
        {"<PluginName>moody</PluginName>", ZVS_PARA_INVALID, "DevCode"},
        {"<DevCode>C</DevCode>", ZVS_PARA_INVALID, "PluginName"},
        {"<DevCode>C</DevCode><PluginName>nobody</PluginName>", ZVS_GVX_PLUGIN_NOT_EXIST, "plug-in"},
        {"<DevCode>C</DevCode><PluginName>moody</PluginName><FormType>7</FormType>", ZVS_PARA_INVALID, "FormType"},
        {"<DevCode>C</DevCode><PluginName>moody</PluginName><LensList><Lens><LensCode>A</LensCode></Lens></LensList>",
         ZVS_PARA_INVALID, "Lens"},
        {"<DevCode>C</DevCode><PluginName>moody</PluginName><LensList>"
         "<Lens><LensCode>A</LensCode><Channel>0</Channel></Lens>"
         "<Lens><LensCode>A</LensCode><Channel>1</Channel></Lens></LensList>",
         ZVS_PARA_INVALID, "twice"},
    };
    for (const Row& row : rows) {
        const Answer answer = AskXml(NSS_ADD_MAIN_DEV_REQ, row.content);
        EXPECT_EQ(answer.code, static_cast<unsigned>(row.code)) << row.content;
        EXPECT_NE(answer.text.find(row.reason), std::string::npos) << row.content << " -> " << answer.text;
    }
    EXPECT_EQ(moody.Alive(), 0);
}

TEST_F(GatewayTest, BodiesThatCannotBeReadAreAnswered) {
    const std::uint16_t type = NSS_START_STREAM_REQ;
    const std::string bodies[] = {
        FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, "{\"DevCode\": "),
        FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, "[1]"),
        FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, std::string(5000, '[')),
        FakePeer::MakeItem(NSS_TAG_XML_CONTENT, "<Content><DevCode>C"),
        FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, std::string(2 << 20, ' ') + "{}"),
    };
    std::uint32_t seq = 1000;
    for (const std::string& body : bodies) {
        ++seq;
        ASSERT_TRUE(peer->SendFrame(type, seq, "trans-" + std::to_string(seq), 0, body));
        EXPECT_EQ(WaitAnswer(type, seq).code, static_cast<unsigned>(ZVS_PARA_INVALID)) << body.substr(0, 40);
    }
    EXPECT_EQ(AddDevice("CAM1").code, 0u) << "the link goes on";
}

TEST_F(GatewayTest, RequestsForUnknownDevicesBindNoReactor) {
    EXPECT_EQ(Start("GHOST", "s").code, static_cast<unsigned>(ZVS_GVX_DEV_NOT_EXIST));
    EXPECT_EQ(Stop("GHOST", "s").code, static_cast<unsigned>(ZVS_GVX_DEV_NOT_EXIST));
    EXPECT_EQ(gateway->Context().binder.Find("GHOST"), nullptr);
    EXPECT_NE(AddDevice("GHOST", "Init=error").code, 0u);
    EXPECT_EQ(gateway->Context().binder.Find("GHOST"), nullptr) << "a failed addition gives the reactor back";
    EXPECT_EQ(AddDevice("GHOST").code, 0u);
    EXPECT_NE(gateway->Context().binder.Find("GHOST"), nullptr);
    EXPECT_EQ(DeleteDevice("GHOST").code, 0u);
    EXPECT_EQ(gateway->Context().binder.Find("GHOST"), nullptr);
}

TEST_F(GatewayTest, WhatFollowsAnAdditionWaitsForIt) {
    for (int round = 0; round < 10; ++round) {
        const std::string stream = "s" + std::to_string(round);
        const std::uint32_t add =
            SendXml(NSS_ADD_MAIN_DEV_REQ, "<DevCode>CAM1</DevCode><PluginName>moody</PluginName>");
        const std::uint32_t start =
            SendJson(NSS_START_STREAM_REQ,
                     R"({"DevCode":"CAM1","DstIP":"127.0.0.1","DstVideoPort":9,"ServiceID":")" + stream + "\"}");
        EXPECT_EQ(WaitAnswer(NSS_ADD_MAIN_DEV_REQ, add).code, 0u);
        ASSERT_EQ(WaitAnswer(NSS_START_STREAM_REQ, start).code, 0u);
        ASSERT_EQ(DeleteDevice("CAM1").code, 0u);
    }
}

TEST_F(GatewayTest, RefusalLeavesByTheMainServiceLink) {
    AnswerPortReport();  // the main service is known from then on
    for (const char* link : {"SCU#900", "OMU#900"}) {
        auto other = FakePeer::Connect(gateway->Port());
        ASSERT_NE(other, nullptr);
        ASSERT_EQ(other->Register(link), 0u);
        ASSERT_TRUE(other->SendFrame(NSS_DEVICE_REBOOT_REQ, 77, "trans-77"));
        EXPECT_EQ(WaitAnswer(NSS_DEVICE_REBOOT_REQ, 77).code, static_cast<unsigned>(ZVS_GVX_DEV_UN_SUPPORT)) << link;
    }
}

TEST_F(GatewayTest, OpeningOfTheMainServiceLinkWarnsOfNothing) {
    AnswerPortReport();
    EXPECT_TRUE(log->WaitFor("cmd[0xdc11], "));
    EXPECT_TRUE(log->WaitFor("cmd[0x0da9], "));
    EXPECT_TRUE(log->Contains(" alarms wait for their delivery."));
    EXPECT_FALSE(log->Contains("No work for cmd"));
    EXPECT_EQ(AskXml(NSS_ALARM_CONTRON_REQ, "").code, 0u) << "a peer that asks gets its answer";
}

TEST_F(GatewayTest, DevicesAndWhatTheyLeaveAreBounded) {
    constexpr auto kFail = static_cast<unsigned>(ZVS_FAIL);
    gateway->Context().binder.SetMaxDevices(1);
    for (int i = 0; i < 5; ++i) {
        const std::string code = "<DevCode>X" + std::to_string(i) + "</DevCode>";
        EXPECT_NE(AskXml(NSS_ADD_MAIN_DEV_REQ, code + "<PluginName>nobody</PluginName>").code, 0u);
    }
    ASSERT_EQ(AddDevice("CAM1").code, 0u) << "what cannot succeed takes no place";
    const Answer tooMany = AddDevice("CAM2");
    EXPECT_EQ(tooMany.code, kFail);
    EXPECT_NE(tooMany.text.find("MAX_DEVICE_NUM"), std::string::npos) << tooMany.text;
    EXPECT_EQ(AddDevice("CAM1").code, static_cast<unsigned>(ZVS_GVX_DEV_EXIST));
    ASSERT_EQ(DeleteDevice("CAM1").code, 0u);
    const Answer tooSoon = AddDevice("CAM2");
    EXPECT_EQ(tooSoon.code, kFail);
    EXPECT_NE(tooSoon.text.find("has to wait"), std::string::npos) << tooSoon.text;
    EXPECT_EQ(AddDevice("CAM1").code, 0u) << "who comes back has its place";
}

TEST_F(GatewayTest, ReportOfAPluginIsHandledInItsDevicesQueue) {
    ASSERT_EQ(AddDevice("CAM1").code, 0u);
    moody.Report("CAM1", 3);
    EXPECT_TRUE(log->WaitFor("plug-in moody reports an exception of type 3. [dev:CAM1]"));
    moody.Report("NOBODY", 4);
    EXPECT_TRUE(log->Contains("[dev:NOBODY] report of type 4 is lost."));
}

TEST(RequestBody, WhatWasParsedForTheTargetGoesWithTheCommandOnce) {
    const std::string json = FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, R"({"DevCode":"C","ServiceID":"s"})");
    const std::string xml = FakePeer::MakeItem(NSS_TAG_XML_CONTENT, "<Content><DevCode>C</DevCode><A>x</A></Content>");
    for (const std::string& body : {json, xml}) {
        const std::string bytes = FakePeer::MakeFrame(NSS_STOP_STREAM_REQ, 1, "t", 0, body);
        ACE_Message_Block frame(bytes.size());
        frame.copy(bytes.data(), bytes.size());
        const gvx::RequestTarget target = gvx::ReadRequestTarget(frame);
        EXPECT_EQ(target.device, "C");
        BP::CCmd taken;  // without its frame, so that nothing is parsed anew
        taken.SetAttachment(target.body);
        const std::unique_ptr<BP::CCmd> queued(taken.NewClone());
        Json::Value object;
        ASSERT_EQ(gvx::ReadJsonObject(*queued, object), body == json);
        EXPECT_FALSE(gvx::ReadJsonObject(*queued, object));
        const std::unique_ptr<CBB::CXml> content = gvx::ReadXmlContent(*queued);
        ASSERT_EQ(content != nullptr, body == xml);
        EXPECT_EQ(body == xml ? gvx::XmlText(*content, "A") : object["ServiceID"].asString(), body == xml ? "x" : "s");
    }
}

TEST(RequestTarget, IdentifiersAreShortAndPrintable) {
    EXPECT_TRUE(gvx::IsCode(std::string(32, 'a')));
    EXPECT_TRUE(gvx::IsCode("\xE5\xAE\xB6"));
    for (const std::string& bad : {std::string(), std::string(33, 'a'), std::string("a b"), std::string("a\n")}) {
        EXPECT_FALSE(gvx::IsCode(bad)) << bad;
    }
}
