#include "gateway/gateway_fixture.h"

#include "base/zvs_error.h"
#include "gvx_common/media/media_test_support.h"
#include "nss/nss_msg_type.h"
#include "support/wait_until.h"

namespace {

// A UDP receiver on the loopback.
struct Receiver : TestSocket {
    Receiver() : TestSocket(SOCK_DGRAM) {}
    std::uint16_t Port() const { return Address().get_port_number(); }
    // The sequence number of the next packet, -1 when none comes.
    int NextSequence() const {
        const std::string packet = Receive();
        return packet.size() < 12 ? -1
                                  : static_cast<unsigned char>(packet[2]) << 8 | static_cast<unsigned char>(packet[3]);
    }
};

}  // namespace

TEST_F(GatewayTest, StreamFlowsFromItsFirstPacketAndIsCounted) {
    Receiver receiver;
    ASSERT_EQ(AddDevice("CAM1").code, 0u);
    const Answer started = Start("CAM1", "live", "", receiver.Port());
    ASSERT_EQ(started.code, 0u) << started.text;
    EXPECT_EQ(started.json["LensCode"].asString(), "CAM1_0");
    EXPECT_EQ(started.json["VideoFormat"].asInt(), 1);
    EXPECT_EQ(started.json["VideoPayload"].asInt(), 99);
    EXPECT_EQ(started.json["Width"].asInt(), 640);
    EXPECT_EQ(started.json["AudioFormat"].asInt(), 0) << "no audio port, no audio";
    EXPECT_GT(started.json["SrcVideoPort"].asInt(), 0);
    const std::string sdp = started.json["SDP"].asString();
    EXPECT_EQ(sdp.rfind("v=0\r\no=CAM1_0 ", 0), 0u) << sdp;
    EXPECT_NE(sdp.find("m=video " + started.json["SrcVideoPort"].asString() + " RTP/AVP 99"), std::string::npos) << sdp;
    EXPECT_EQ(receiver.NextSequence(), 1) << "packets made before the answer left wait, and none is lost";
    EXPECT_EQ(receiver.NextSequence(), 2);
    const Answer counted = Stop("CAM1", "live");
    EXPECT_EQ(counted.code, 0u);
    EXPECT_GE(counted.json["VideoPackets"].asInt(), 2);
    EXPECT_EQ(counted.json["Dropped"].asInt(), 0);
    EXPECT_EQ(Stop("CAM1", "live").code, static_cast<unsigned>(ZVS_GVX_STREAM_NOT_EXIST));

    Receiver other;
    ASSERT_EQ(AddDevice("CAM2", "thread=inline").code, 0u);
    ASSERT_EQ(Start("CAM2", "live", "", other.Port()).code, 0u);
    EXPECT_EQ(other.NextSequence(), 0) << "the packet that StartStream sends itself passes";
}

// A stop that succeeds, or tells of a camera that is away, frees the stream: what a thread of the plug-in sends later
// is refused, and no stream that comes after gets it.
TEST_F(GatewayTest, PacketsAfterTheStopHarmNobody) {
    const int before = moody->alive;
    for (const std::string mood : {"", " StopStream=error"}) {
        Receiver receiver;
        ASSERT_EQ(AddDevice("LATE", "thread=endless" + mood).code, 0u);
        ASSERT_EQ(Start("LATE", "late").code, 0u);
        EXPECT_EQ(Stop("LATE", "late").code, mood.empty() ? 0u : static_cast<unsigned>(ZVS_GVX_UNAUTHORIZED));
        ASSERT_EQ(DeleteDevice("LATE").code, 0u);
        const int refused = moody->refused;
        ASSERT_EQ(AddDevice("CAM1").code, 0u);
        ASSERT_EQ(Start("CAM1", "live", "", receiver.Port()).code, 0u);
        EXPECT_TRUE(WaitUntil([&] { return moody->refused > refused + 3; }));
        for (int number = 1; number <= 5; ++number) {
            EXPECT_EQ(receiver.NextSequence(), number);
        }
        ASSERT_EQ(DeleteDevice("CAM1").code, 0u);
    }
    EXPECT_FALSE(log->Contains("objects are kept"));
    moody->release = true;
    EXPECT_TRUE(WaitUntil([&] { return moody->alive == before; }));
}

TEST_F(GatewayTest, StreamIdentifierIsUniqueInTheGateway) {
    ASSERT_EQ(AddDevice("CAM1").code, 0u);
    ASSERT_EQ(AddDevice("CAM2").code, 0u);
    ASSERT_EQ(Start("CAM1", "live").code, 0u);
    const auto exists = static_cast<unsigned>(ZVS_GVX_STREAM_EXIST);
    EXPECT_EQ(Start("CAM1", "live").code, exists);
    EXPECT_EQ(Start("CAM2", "live").code, exists) << "the identifier is taken";
    EXPECT_EQ(Start("CAM1", "other", R"(,"LensCode":"CAM1_1")").code, 0u);
    EXPECT_EQ(Start("CAM1", "sub", R"(,"StreamType":1)").code, 0u);
    ASSERT_EQ(Stop("CAM1", "live").code, 0u);
    EXPECT_EQ(Start("CAM2", "live").code, 0u);
    ASSERT_EQ(DeleteDevice("CAM1").code, 0u);
    EXPECT_EQ(Start("CAM2", "sub", R"(,"StreamType":1)").code, 0u) << "a deletion frees the identifiers";
    EXPECT_EQ(Stop("CAM2", "other").code, static_cast<unsigned>(ZVS_GVX_STREAM_NOT_EXIST));
}

TEST_F(GatewayTest, StartThatIsNotAllowedIsRefusedWithAReason) {
    ASSERT_EQ(AddDevice("CAM1").code, 0u);
    const struct {
        const char* members;
        int code;
        const char* reason;
    } rows[] = {
        {R"("ServiceID":"","DstIP":"127.0.0.1","DstVideoPort":9)", ZVS_PARA_INVALID, "ServiceID"},
        {R"("ServiceID":"s","DstIP":"localhost","DstVideoPort":9)", ZVS_PARA_INVALID, "DstIP"},
        {R"("ServiceID":"s","DstIP":"127.0.0.1","DstVideoPort":65536)", ZVS_PARA_INVALID, "DstVideoPort"},
        {R"("ServiceID":"s","DstIP":"127.0.0.1","DstVideoPort":9,"Protocol":3)", ZVS_PARA_INVALID, "Protocol"},
        {R"("ServiceID":"s","DstIP":"127.0.0.1","DstVideoPort":9,"Metadata":true)", ZVS_PARA_INVALID,
         "DstMetadataPort is not one of 1"},
        {R"("ServiceID":"s","DstIP":"127.0.0.1","DstVideoPort":9,"LensCode":"X")", ZVS_GVX_LENS_NOT_EXIST, "lens"},
        {R"("ServiceID":"s","DstIP":"127.0.0.1","DstVideoPort":9,"ServiceType":4)", ZVS_PARA_INVALID, "ServiceType"},
        {R"("ServiceID":"s","DstIP":"127.0.0.1","DstVideoPort":9,"ServiceType":8,"StreamType":2)", ZVS_PARA_INVALID,
         "StreamType of a recording"},
        {R"("ServiceID":"s","DstIP":"127.0.0.1","DstVideoPort":9,"ServiceType":7,"StartTime":"20260101000001",
            "EndTime":"20260101000001")",
         ZVS_PARA_INVALID, "range"},
        {R"("ServiceID":"s","DstIP":"127.0.0.1","DstAudioPort":1,"ServiceType":5,"Protocol":2)", ZVS_NET_CONNECT_ERROR,
         "sockets"},
        {R"("ServiceID":"s","DstIP":"127.0.0.1","ServiceType":6)", ZVS_PARA_INVALID, "DstAudioPort is not one of 1"},
        {R"("ServiceID":"s","DstIP":"127.0.0.1","DstVideoPort":1,"Protocol":2)", ZVS_NET_CONNECT_ERROR, "sockets"},
    };
    for (const auto& row : rows) {
        const Answer answer = AskJson(NSS_START_STREAM_REQ, R"({"DevCode":"CAM1",)" + std::string(row.members) + "}");
        EXPECT_EQ(answer.code, static_cast<unsigned>(row.code)) << row.members;
        EXPECT_NE(answer.json["Reason"].asString().find(row.reason), std::string::npos) << answer.text;
    }
    EXPECT_EQ(Start("CAM1", "s").code, 0u) << "a refused stream leaves nothing behind";
    const Answer paused = AskJson(NSS_STREAM_CTRL_REQ, R"({"DevCode":"CAM1","ServiceID":"s","Command":1})");
    EXPECT_EQ(paused.code, static_cast<unsigned>(ZVS_GVX_DEV_UN_SUPPORT));
    EXPECT_EQ(paused.json["Reason"].asString(), "The stream plays no recording.");
}
