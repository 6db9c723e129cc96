#include "gvxctl/platform.h"

#include "gvxctl/requests.h"
#include "nss/nss_msg_type.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

namespace gvxctl {
namespace {

// A gateway of one link: every request that comes in goes to `serve`.
class FakeGateway {
public:
    explicit FakeGateway(PeerLink::Handler serve) : m_listener("GVX#001", std::move(serve)) {
        std::string error;
        EXPECT_TRUE(m_listener.Start(Endpoint{}, error)) << error;
    }
    Endpoint Where() const { return Endpoint{"127.0.0.1", m_listener.Port()}; }
    LinkListener& Listener() { return m_listener; }

private:
    LinkListener m_listener;
};

TEST(Frame, RegistrationHasItsWireForm) {
    FrameSpec spec;
    spec.type = NSS_BP_REGISTER_REQ;
    spec.seq = 0x01020304;
    spec.transaction = "t1";
    spec.tag = NSS_TAG_JSON_CONTENT;
    spec.body = "{}";
    const std::string bytes = EncodeFrame(spec);
    ASSERT_EQ(bytes.size(), 124u);
    EXPECT_EQ(bytes.substr(0, 16), std::string("\x01\x00\x00\x00\x01\x02\x03\x04\x00\x00\x00\x00t1\x00\x00", 16));
    EXPECT_EQ(bytes.substr(112), std::string("\x00\x00\x00\x7C\x00\x07\x00\x00\x00\x02{}", 12));
}

TEST(Frame, CutterGivesFramesWhereverTheStreamIsSplit) {
    FrameSpec spec;
    spec.type = NSS_START_STREAM_RSP;
    spec.seq = 7;
    spec.code = 189115021;
    spec.transaction = "gvxctl-1-7";
    spec.tag = NSS_TAG_JSON_CONTENT;
    spec.body = "{\"Reason\":\"no\"}";
    const std::string one = EncodeFrame(spec);
    const std::string stream = one + one;
    for (std::size_t split = 1; split < stream.size(); ++split) {
        FrameCutter cutter;
        Frame frame;
        std::string error;
        int frames = 0;
        for (const std::string& part : {stream.substr(0, split), stream.substr(split)}) {
            cutter.Feed(part.data(), part.size());
            while (cutter.Next(frame, error) == FrameCutter::Result::Ready) {
                ++frames;
                std::string body;
                EXPECT_TRUE(frame.Item(NSS_TAG_JSON_CONTENT, body));
                EXPECT_EQ(body, spec.body);
                EXPECT_EQ(frame.head.uiRspCode, 189115021u);
                EXPECT_EQ(frame.Transaction(), "gvxctl-1-7");
            }
        }
        EXPECT_EQ(frames, 2) << "split at " << split;
    }
}

TEST(Frame, CutterRefusesImpossibleLengths) {
    FrameSpec spec;
    const std::string good = EncodeFrame(spec);
    for (const std::uint32_t length : {0u, 115u, 4u * 1024 * 1024 + 1, 0xFFFFFFFFu}) {
        std::string bytes = good;
        for (std::size_t i = 0; i < 4; ++i) {
            bytes[112 + i] = static_cast<char>(length >> (24 - 8 * i));
        }
        FrameCutter cutter;
        cutter.Feed(bytes.data(), bytes.size());
        Frame frame;
        std::string error;
        EXPECT_EQ(cutter.Next(frame, error), FrameCutter::Result::Broken) << length;
        EXPECT_NE(error.find(std::to_string(length)), std::string::npos) << error;
    }
}

TEST(Platform, RequestGetsTheResponseOfItsTransaction) {
    FakeGateway gateway([](PeerLink& link, const Frame& frame) {
        FrameSpec stranger = ResponseTo(frame, 1);
        stranger.transaction += "-other";
        link.Send(stranger);  // an answer that nobody waits for
        FrameSpec answer = ResponseTo(frame, 0);
        answer.seq = 0;  // as the gateway answers in JSON
        answer.tag = NSS_TAG_JSON_CONTENT;
        answer.body = "{\"VideoFrames\":125,\"VideoPackets\":\"900\"}";
        link.Send(answer);
    });
    Platform platform(gateway.Where());
    std::string error;
    ASSERT_TRUE(platform.LinkMainService(error)) << error;
    EXPECT_EQ(platform.GatewayId(), "GVX#001");
    ASSERT_TRUE(gateway.Listener().WaitForLink(10000));
    EXPECT_EQ(gateway.Listener().RemoteId(), "GVX#000");
    Response response;
    ASSERT_TRUE(StopStream(platform, StreamSpec{}, response, error)) << error;
    EXPECT_EQ(response.code, 0u);
    EXPECT_EQ(response.frame.Type(), NSS_STOP_STREAM_RSP);
    const SentCounts sent = SentCountsOf(response);
    EXPECT_EQ(sent.videoFrames, 125);
    EXPECT_EQ(sent.videoPackets, 900);
    EXPECT_EQ(sent.dropped, -1);
}

TEST(Platform, ScuTellsTheGatewayThePortOfTheMu) {
    std::mutex mutex;
    std::string answer;
    std::atomic<bool> answered{false};
    FakeGateway gateway([&](PeerLink& link, const Frame& frame) {
        if (frame.Type() == NSS_NOTIFY_LINK_PORT_TO_GVX_RSP) {
            const std::lock_guard<std::mutex> guard(mutex);
            frame.Item(NSS_TAG_XML_CONTENT, answer);
            answered = true;
            return;
        }
        FrameSpec question;
        question.type = NSS_NOTIFY_LINK_PORT_TO_GVX_REQ;
        link.Send(question);
        link.Send(ResponseTo(frame, 0));
    });
    Platform platform(gateway.Where());
    std::string error;
    ASSERT_TRUE(platform.OpenMu(Endpoint{}, error)) << error;
    ASSERT_TRUE(platform.LinkMainService(error)) << error;
    Response response;
    ASSERT_TRUE(DeleteDevice(platform, "CAM001", response, error)) << error;
    ASSERT_TRUE(DeleteDevice(platform, "CAM001", response, error)) << error;  // the answer went out before this one
    ASSERT_TRUE(answered);
    const std::lock_guard<std::mutex> guard(mutex);
    EXPECT_NE(answer.find("<LinkID>SCU#001</LinkID><MUPort>" + std::to_string(platform.MuPort()) + "</MUPort>"),
              std::string::npos)
        << answer;
    std::unique_ptr<PeerLink> mu = PeerLink::Connect(
        Endpoint{"127.0.0.1", platform.MuPort()}, "GVX#001", [](PeerLink&, const Frame&) {}, 10000, error);
    ASSERT_TRUE(mu) << error;
    EXPECT_EQ(mu->RemoteId(), "MU#001");
    EXPECT_TRUE(platform.WaitForMu(error)) << error;
}

TEST(Platform, ClosedLinkEndsTheWait) {
    Endpoint where;
    std::string error;
    Fd listener = ListenTcp(where, error);
    ASSERT_TRUE(listener) << error;
    where.port = LocalPort(listener.Get());
    std::thread gateway([&] {
        std::string reason;
        Fd connection = AcceptTcp(listener.Get(), 10000, reason);
        auto link = PeerLink::Accept(
            std::move(connection), "GVX#001", [](PeerLink&, const Frame&) {}, 10000, reason);
        EXPECT_TRUE(link) << reason;
    });
    Platform platform(where);
    ASSERT_TRUE(platform.LinkMainService(error)) << error;
    gateway.join();
    Response response;
    EXPECT_FALSE(DeleteDevice(platform, "CAM001", response, error));
    EXPECT_NE(error.find("NSS_DEL_MAIN_DEV_REQ"), std::string::npos) << error;
    EXPECT_FALSE(platform.MainServiceOpen());
}

TEST(Platform, KeepAliveIsAnswered) {
    std::atomic<bool> answered{false};
    Fd listener;
    std::string error;
    listener = ListenTcp(Endpoint{}, error);
    ASSERT_TRUE(listener) << error;
    Platform platform(Endpoint{"127.0.0.1", LocalPort(listener.Get())});
    std::thread gateway([&] {
        std::string reason;
        Fd peer = AcceptTcp(listener.Get(), 10000, reason);
        FrameCutter cutter;
        Frame frame;
        char buffer[4096];
        for (int seen = 0; seen < 2 && WaitReadable(peer.Get(), 10000);) {
            const ssize_t count = ::recv(peer.Get(), buffer, sizeof buffer, 0);
            ASSERT_GT(count, 0);
            cutter.Feed(buffer, static_cast<std::size_t>(count));
            while (cutter.Next(frame, reason) == FrameCutter::Result::Ready && ++seen == 1) {
                FrameSpec question;
                question.type = NSS_KEEPALIVE_REQ;
                question.seq = 77;
                const std::string bytes = EncodeFrame(ResponseTo(frame, 0)) + EncodeFrame(question);
                ASSERT_TRUE(SendAll(peer.Get(), bytes.data(), bytes.size(), 5000));
            }
        }
        answered = frame.Type() == NSS_KEEPALIVE_RSP && frame.head.uiSeqID == 77;
    });
    EXPECT_TRUE(platform.LinkMainService(error)) << error;
    gateway.join();
    EXPECT_TRUE(answered);
}

}  // namespace
}  // namespace gvxctl
