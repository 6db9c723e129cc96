#include "gateway/gateway_fixture.h"

#include "base/zvs_error.h"
#include "nss/nss_msg_type.h"
#include "support/wait_until.h"

TEST_F(GatewayTest, DeviceIsAddedWithItsLensesAndDeletedAgain) {
    const Answer added = AddDevice("\xE5\xAE\xB6");
    EXPECT_EQ(added.code, 0u);
    EXPECT_NE(added.text.find("<DevCode>\xE5\xAE\xB6</DevCode>"), std::string::npos);
    for (const char* number : {"0", "1"}) {
        const std::string lens = std::string("<Lens><LensCode>\xE5\xAE\xB6_") + number + "</LensCode><Channel>" +
                                 number + "</Channel></Lens>";
        EXPECT_NE(added.text.find(lens), std::string::npos) << added.text;
    }
    EXPECT_EQ(moody->alive, 3);
    EXPECT_EQ(AddDevice("\xE5\xAE\xB6").code, static_cast<unsigned>(ZVS_GVX_DEV_EXIST));
    EXPECT_EQ(moody->alive, 3) << "a second addition leaves the device as it is";
    const Answer deleted = DeleteDevice("\xE5\xAE\xB6");
    EXPECT_TRUE(deleted.code == 0 && deleted.text.find("<DevCode>\xE5\xAE\xB6</DevCode>") != std::string::npos);
    EXPECT_EQ(moody->alive, 0);

    EXPECT_EQ(DeleteDevice("CAM1").code, static_cast<unsigned>(ZVS_GVX_DEV_NOT_EXIST));
    const std::string list = "<LensList><Lens><LensCode>GATE</LensCode><Channel>1</Channel></Lens></LensList>";
    const Answer named = AskXml(NSS_ADD_MAIN_DEV_REQ, "<DevCode>CAM1</DevCode><PluginName>moody</PluginName>" + list);
    EXPECT_EQ(named.code, 0u);
    EXPECT_NE(named.text.find(list), std::string::npos) << named.text;
    moody->Report("CAM1", 3);
    EXPECT_TRUE(log->WaitFor("plug-in moody reports an exception of type 3. [dev:CAM1]"));
    for (;;) {  // and as a message of its own, whose answer nobody waits for
        const auto frame = peer->ReadFrame();
        ASSERT_TRUE(frame.has_value());
        if (frame->head.usiMsgType == NSS_COMMON_INFO_REQ) {
            EXPECT_NE(frame->body.find("<DevCode>CAM1</DevCode>"), std::string::npos);
            EXPECT_NE(frame->body.find("plug-in moody reports an exception of type 3."), std::string::npos);
            break;
        }
    }
    EXPECT_EQ(DeleteDevice("CAM1").code, 0u);
    moody->Report("CAM1", 4);
    moody->Report("CAM1", 4);
    EXPECT_EQ(log->Count("a report for CAM1 is lost, there is no such device."), 1u) << "one line for an episode";
    EXPECT_TRUE(HasTrouble(gvx::PluginTrouble::Kind::CallsLate, "CAM1", 2));

    SendXml(NSS_ADD_MAIN_DEV_REQ, "<DevCode>CAM2</DevCode><PluginName>moody</PluginName><Extend>Init=hang</Extend>");
    ASSERT_TRUE(WaitUntil([&] { return moody->hanging == 1; }));
    moody->Report("CAM2", 5);
    moody->release = true;
    EXPECT_TRUE(log->WaitFor("plug-in moody reports an exception of type 5. [dev:CAM2]"))
        << "served behind its addition";
}

TEST_F(GatewayTest, RequestThatIsNotAllowedIsRefusedWithAReason) {
    const std::string moodyC = "<DevCode>C</DevCode><PluginName>moody</PluginName>";
    const struct {
        std::string content;
        int code;
        const char* reason;
    } rows[] = {
        {"<PluginName>moody</PluginName>", ZVS_PARA_INVALID, "DevCode"},
        {"<DevCode>a b</DevCode><PluginName>moody</PluginName>", ZVS_PARA_INVALID, ""},
        {"<DevCode>" + std::string(33, 'a') + "</DevCode><PluginName>moody</PluginName>", ZVS_PARA_INVALID, ""},
        {"<DevCode>C</DevCode>", ZVS_PARA_INVALID, "PluginName"},
        {"<DevCode>C</DevCode><PluginName>nobody</PluginName>", ZVS_GVX_PLUGIN_NOT_EXIST, "plug-in"},
        {moodyC + "<FormType>7</FormType>", ZVS_PARA_INVALID, "FormType"},
        {moodyC + "<LensList><Lens><LensCode>A</LensCode></Lens></LensList>", ZVS_PARA_INVALID, "Lens"},
        {moodyC + "<LensList><Lens><LensCode>A</LensCode><Channel>0</Channel></Lens>"
                  "<Lens><LensCode>A</LensCode><Channel>1</Channel></Lens></LensList>",
         ZVS_PARA_INVALID, "twice"},
    };
    for (const auto& row : rows) {
        const Answer answer = AskXml(NSS_ADD_MAIN_DEV_REQ, row.content);
        EXPECT_EQ(answer.code, static_cast<unsigned>(row.code)) << row.content;
        EXPECT_NE(answer.text.find(row.reason), std::string::npos) << row.content << " -> " << answer.text;
    }
    EXPECT_EQ(moody->alive, 0);
    const std::string unreadable[] = {
        FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, "{\"DevCode\": "),
        FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, "[1]"),
        FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, std::string(5000, '[')),
        FakePeer::MakeItem(NSS_TAG_XML_CONTENT, "<Content><DevCode>C"),
        FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, std::string(2 << 20, ' ') + "{}"),
    };
    for (const std::string& body : unreadable) {
        const Answer answer = WaitAnswer(NSS_START_STREAM_REQ, Send(NSS_START_STREAM_REQ, body));
        EXPECT_EQ(answer.code, static_cast<unsigned>(ZVS_PARA_INVALID)) << body.substr(0, 40);
    }
    // Neither an unknown device nor a failed addition keeps a reactor, and the link goes on.
    EXPECT_EQ(Start("GHOST", "s").code, static_cast<unsigned>(ZVS_GVX_DEV_NOT_EXIST));
    EXPECT_EQ(Stop("GHOST", "s").code, static_cast<unsigned>(ZVS_GVX_DEV_NOT_EXIST));
    EXPECT_EQ(gateway->Context().binder.Find("GHOST"), nullptr);
    EXPECT_NE(AddDevice("GHOST", "Init=error").code, 0u);
    EXPECT_EQ(gateway->Context().binder.Find("GHOST"), nullptr);
    EXPECT_EQ(AddDevice("GHOST").code, 0u);
    EXPECT_NE(gateway->Context().binder.Find("GHOST"), nullptr);
    EXPECT_EQ(DeleteDevice("GHOST").code, 0u);
    EXPECT_EQ(gateway->Context().binder.Find("GHOST"), nullptr);
}

TEST_F(GatewayTest, WhatFollowsAnAdditionWaitsForIt) {
    for (int round = 0; round < 10; ++round) {
        const std::uint32_t add =
            SendXml(NSS_ADD_MAIN_DEV_REQ, "<DevCode>CAM1</DevCode><PluginName>moody</PluginName>");
        const std::uint32_t start = SendJson(
            NSS_START_STREAM_REQ, R"({"DevCode":"CAM1","DstIP":"127.0.0.1","DstVideoPort":9,"ServiceID":"s"})");
        EXPECT_EQ(WaitAnswer(NSS_ADD_MAIN_DEV_REQ, add).code, 0u);
        ASSERT_EQ(WaitAnswer(NSS_START_STREAM_REQ, start).code, 0u);
        ASSERT_EQ(DeleteDevice("CAM1").code, 0u);
    }
}

TEST_F(GatewayTest, RefusalLeavesByTheMainServiceLink) {
    auto frame = peer->ReadFrame();  // the main service is known once it has answered
    while (frame && !AnswerIfPortReport(*frame)) {
        frame = peer->ReadFrame();
    }
    ASSERT_TRUE(frame.has_value()) << "the ports in use are not reported";
    EXPECT_EQ(AskXml(NSS_ALARM_CONTRON_REQ, "").code, 0u) << "a peer that asks gets its answer";
    for (const char* id : {"SCU#900", "OMU#900"}) {
        const auto other = Link(id);
        for (const std::uint16_t unserved :
             {NSS_SEND_DEVICE_REQ, NSS_ADD_USER_REQ}) {  // the second has no session either
            ASSERT_TRUE(other->SendFrame(unserved, 77, "trans-77"));
            EXPECT_EQ(WaitAnswer(unserved, 77).code, static_cast<unsigned>(ZVS_GVX_DEV_UN_SUPPORT)) << id;
        }
    }
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
