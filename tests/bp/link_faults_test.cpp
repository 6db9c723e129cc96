#include "bp/link_fixture.h"

#include "nss/nss_msg_type.h"

#include <cstring>
#include <new>
#include <thread>

#include <arpa/inet.h>

namespace {

std::string WithLength(std::string frame, std::uint32_t length) {
    const std::uint32_t wire = htonl(length);
    std::memcpy(&frame[offsetof(NssMsgHeader, uiPacketLength)], &wire, sizeof(wire));
    return frame;
}

std::string Registration(const std::string& json) {
    return FakePeer::MakeFrame(NSS_BP_REGISTER_REQ, 1, "", 0, FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, json));
}

struct FaultRow {
    const char* name;
    bool registered;    // before the bytes are sent
    std::string bytes;  // what the peer then sends, and nothing after it
    const char* logged;
};

std::vector<FaultRow> FaultRows() {
    const std::string frame = FakePeer::MakeFrame(0x0501, 1, "fault");
    return {
        {"garbage", true, std::string(300, 'G'), "bad frame: protocol version 0x4747"},
        {"garbage before registration", false, "GET / HTTP/1.1\r\n" + std::string(200, 'x'), "protocol version 0x4745"},
        {"version 0x0200", true, std::string("\2\0", 2) + frame.substr(2), "bad frame: protocol version 0x0200"},
        {"length 0", true, WithLength(frame, 0), "bad frame: length 0 is outside 116 to 65536"},
        {"length 115", true, WithLength(frame, 115), "bad frame: length 115 is outside"},
        {"length one beyond the maximum", true, WithLength(frame, 65537), "bad frame: length 65537 is outside"},
        {"length 4 GiB less 1", true, WithLength(frame, 0xFFFFFFFFu), "bad frame: length 4294967295 is outside"},
        {"half a head", true, frame.substr(0, 50), "half a frame, and its rest did not come in time"},
        {"half a body", true, FakePeer::MakeFrame(0x0501, 1, "", 0, std::string(900, 'b')).substr(0, 500),
         "half a frame, and its rest did not come in time"},
        {"never registers", false, "", "never registered: silence"},
        {"half a registration", false, frame.substr(0, 60), "never registered: half a frame"},
        {"long frame before registration", false, WithLength(frame, 5000), "length 5000 is outside 116 to 4096"},
        {"another frame first", false, frame, "the first frame is no registration but 0x0501"},
        {"answer instead of a request", false, FakePeer::MakeFrame(0x9000), "no registration but 0x9000"},
        {"registration without a body", false, FakePeer::MakeFrame(0), "no JSON item in the registration"},
        {"registration without JSON", false, Registration("<LinkID/>"), "the registration is no JSON text"},
        {"registration of no object", false, Registration("[1]"), "names no identifier"},
        {"identifier without #", false, Registration("{\"LinkID\":\"SCU\"}"), "names no identifier"},
        {"identifier of 41 characters", false, Registration("{\"LinkID\":\"#" + std::string(40, 'x') + "\"}"),
         "names no identifier"},
        {"identifier with a line feed", false, Registration("{\"LinkID\":\"SCU#\\n\"}"), "names no identifier"},
        {"item that leads outside", false,
         FakePeer::MakeFrame(0, 1, "", 0, FakePeer::MakeItem(7, "{}").substr(0, 5) + "\x7f"), "no JSON item"},
        {"second registration", true, Registration("{\"LinkID\":\"SCU#9\"}"), "a registration on a link that is open"},
    };
}

using LinkFaults = LinkFixture;

TEST_F(LinkFaults, EachClosesOnlyItsOwnLinkWithOneLine) {
    BP::LinkOptions options;
    options.maxFrameBytes = 65536;
    options.registerTimeoutMs = 1500;
    options.frameTimeoutMs = 1000;
    StartListening(options);
    auto healthy = RegisteredPeer("OMU#001");
    for (const FaultRow& row : FaultRows()) {
        SCOPED_TRACE(row.name);
        m_log->Clear();
        auto bad = row.registered ? RegisteredPeer("SCU#BAD") : FakePeer::Connect(m_port);
        ASSERT_NE(nullptr, bad);
        const std::string address = "127.0.0.1:" + std::to_string(bad->LocalPort());
        ASSERT_TRUE(bad->SendRaw(row.bytes));
        EXPECT_TRUE(Exchanges(*healthy, "OMU#001"));
        EXPECT_TRUE(bad->ReadUntilClosed());
        ASSERT_TRUE(WaitUntil([&] { return m_log->Contains(address, "Link closed"); }));
        const auto lines = m_log->Find(address, "Link closed");
        ASSERT_EQ(1u, lines.size()) << m_log->Dump();
        EXPECT_EQ(OM_LOG_WARNING, lines[0].level);
        EXPECT_NE(std::string::npos, lines[0].text.find(row.logged)) << lines[0].text;
        EXPECT_EQ(row.registered, lines[0].text.find("link:SCU#BAD") != std::string::npos) << lines[0].text;
        EXPECT_TRUE(WaitUntil([] { return OpenLinks() == 1; }));
    }
    auto peer = FakePeer::Connect(m_port);
    EXPECT_NE(0u, peer->Register("SCU 1#").value_or(0)) << "a bad identifier is answered before the close";
    EXPECT_TRUE(peer->ReadUntilClosed());
    EXPECT_TRUE(Exchanges(*healthy, "OMU#001"));
}

TEST_F(LinkFaults, FrameOfTheGreatestLengthInSmallPiecesArrives) {
    BP::LinkOptions options;
    options.maxFrameBytes = 65536;
    StartListening(options);
    auto peer = RegisteredPeer("SCU#001");
    const std::string frame = FakePeer::MakeFrame(kType, 1, "whole", 0, std::string(65536 - kNssHeaderBytes, 'x'));
    for (std::size_t at = 0; at < frame.size(); at += 777) {
        ASSERT_TRUE(peer->SendRaw(frame.substr(at, 777)));
    }
    EXPECT_TRUE(WaitUntil([&] {
        return Has([](const BP::CCmd& arrived) {
            return arrived.GetTransID() == "whole" && arrived.GetMsgBlock()->length() == 65536;
        });
    }));
}

TEST_F(LinkFaults, PeerBeyondTheLimitIsClosedAndAPlaceThatIsFreedServesAgain) {
    BP::LinkOptions options;
    options.maxLinks = 2;
    StartListening(options);
    auto first = RegisteredPeer("SCU#001");
    auto second = RegisteredPeer("OMU#001");
    auto third = FakePeer::Connect(m_port);
    ASSERT_NE(nullptr, third);
    EXPECT_TRUE(third->ReadUntilClosed());
    EXPECT_EQ(1u, m_log->Count("too many links, the limit is 2", "Link closed"));
    EXPECT_TRUE(Exchanges(*first, "SCU#001"));
    second->Close();
    ASSERT_TRUE(WaitUntil([] { return OpenLinks() == 1; }));
    auto fourth = RegisteredPeer("MU#001");
    EXPECT_TRUE(Exchanges(*fourth, "MU#001"));
}

TEST_F(LinkFaults, PeersThatNeverRegisterGiveWayToThoseThatDo) {
    BP::LinkOptions options;
    options.maxLinks = 3;
    StartListening(options);
    auto registered = RegisteredPeer("SCU#001");
    auto oldest = FakePeer::Connect(m_port);
    auto younger = FakePeer::Connect(m_port);
    auto other = RegisteredPeer("OMU#001");
    EXPECT_TRUE(oldest->ReadUntilClosed());
    EXPECT_EQ(0u, younger->Register("MU#001"));
    EXPECT_TRUE(Exchanges(*registered, "SCU#001"));
    EXPECT_TRUE(Exchanges(*other, "OMU#001"));
    EXPECT_EQ(1u, m_log->Count("no registration yet, and its place is needed", "Link closed"));
}

TEST_F(LinkFaults, WhatFindsNoMemoryClosesItsLinkAlone) {
    BP::LinkOptions options;
    options.localID = "GVX#001";
    BP::LinkEvents events;
    events.opened = [](const std::string&, int, const std::string& link, const std::string&, unsigned) {
        if (link == "SCU#001") {
            throw std::bad_alloc();
        }
    };
    ASSERT_EQ(0, BP::CNetFactory::Start(options, events));
    ASSERT_EQ(0, BP::CNetFactory::Listen("127.0.0.1", 0, &m_port));
    auto unlucky = FakePeer::Connect(m_port);
    unlucky->Register("SCU#001");  // answered or not
    EXPECT_TRUE(unlucky->ReadUntilClosed());
    auto other = RegisteredPeer("OMU#001");
    EXPECT_TRUE(Exchanges(*other, "OMU#001"));
    // So does a frame that nobody can take: its sender learns that no answer comes.
    BP::CDispatcher::SetSink([](std::unique_ptr<BP::CCmd>) -> int { throw std::bad_alloc(); });
    EXPECT_TRUE(other->SendFrame(kType, 1, "lost"));
    EXPECT_TRUE(other->ReadUntilClosed());
}

TEST_F(LinkFaults, BusyPeerKeepsNobodyWaitingAndLosesNothing) {
    StartListening();
    auto busy = RegisteredPeer("SCU#001");
    auto other = RegisteredPeer("OMU#001");
    constexpr int kFrames = 20000;
    std::thread sending([&busy] {
        for (int count = 0; count < kFrames; ++count) {
            EXPECT_TRUE(busy->SendFrame(kType, 1, "busy"));
        }
    });
    for (int count = 0; count < 10; ++count) {
        EXPECT_TRUE(Exchanges(*other, "OMU#001"));
    }
    sending.join();
    EXPECT_TRUE(WaitUntil([] { return BP::CNetFactory::Links().at(1).framesIn == kFrames; }));
}

TEST_F(LinkFaults, SilentPeerIsAskedAndThenClosedWhileOneThatAnswersStays) {
    BP::LinkOptions options;
    options.keepAliveMs = 50;
    options.silenceTimeoutMs = 2000;
    StartListening(options);
    auto silent = RegisteredPeer("SCU#001");
    auto alive = RegisteredPeer("OMU#001");
    const auto asked = silent->ReadFrame(true);
    ASSERT_TRUE(asked.has_value());
    EXPECT_EQ(NSS_KEEPALIVE_REQ, asked->head.usiMsgType);
    EXPECT_EQ(kNssHeaderBytes, asked->head.uiPacketLength);
    // Both are sent frames without pause; one answers keep-alives until the other has been closed.
    while (!m_log->Contains("link:SCU#001] silence of the peer", "Link closed")) {
        Send("SCU#001", Frame(kType, "t", 1));
        ASSERT_EQ(0, Send("OMU#001", Frame(kType, "t", 1))) << m_log->Dump();
        std::optional<FakePeer::Frame> frame = alive->ReadFrame(true);
        for (; frame && frame->head.usiMsgType == NSS_KEEPALIVE_REQ; frame = alive->ReadFrame(true)) {
            ASSERT_TRUE(alive->SendFrame(NSS_KEEPALIVE_RSP, frame->head.uiSeqID));
        }
        ASSERT_TRUE(frame.has_value()) << m_log->Dump();
    }
    EXPECT_TRUE(silent->ReadUntilClosed());
    EXPECT_TRUE(Exchanges(*alive, "OMU#001"));
    ASSERT_TRUE(alive->SendFrame(NSS_KEEPALIVE_REQ, 4711));
    std::optional<FakePeer::Frame> answer = alive->ReadFrame(true);
    while (answer && answer->head.usiMsgType == NSS_KEEPALIVE_REQ) {
        answer = alive->ReadFrame(true);
    }
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(4711u, answer->head.uiSeqID);
    // Neither requests nor answers of this kind are for the one who takes frames.
    EXPECT_FALSE(Has([](const BP::CCmd& frame) { return frame.GetReqID() != kType; }));
}

TEST_F(LinkFaults, TypesThatNeverTravelAreDroppedWithOneLine) {
    StartListening();
    auto peer = RegisteredPeer("SCU#001");
    for (const int type : {0xDC11, 0xFFFA, 0xFFFB, 0xFFFC, 0xFFFD, 0xFFFE, 0xFFFF}) {
        ASSERT_TRUE(peer->SendFrame(static_cast<std::uint16_t>(type), 1, "forged"));
    }
    EXPECT_TRUE(Exchanges(*peer, "SCU#001"));
    EXPECT_FALSE(Has([](const BP::CCmd& frame) { return frame.GetTransID() == "forged"; }));
    EXPECT_EQ(7u, BP::CNetFactory::Links().at(0).framesDropped);
    EXPECT_EQ(1u, m_log->Count("a frame of type 0xdc11, which never travels", "Link frames dropped"));
}

TEST_F(LinkFaults, WhoHoldsMostIsClosedFirstAndSmallFramesAlwaysPass) {
    BP::LinkOptions options;
    options.maxMemoryBytes = 8u << 20;
    StartListening(options);
    auto healthy = RegisteredPeer("OMU#001");
    const std::string most = FakePeer::MakeFrame(kType, 1, "", 0, std::string(3900000, 'm')).substr(0, 100000);
    const std::string less = FakePeer::MakeFrame(kType, 1, "", 0, std::string(2500000, 'l')).substr(0, 100000);
    auto modest = RegisteredPeer("SCU#1");
    auto first = RegisteredPeer("SCU#2");
    ASSERT_TRUE(modest->SendRaw(less) && first->SendRaw(most));
    ASSERT_TRUE(WaitUntil([] {
        std::size_t held = 0;
        for (const BP::LinkInfo& link : BP::CNetFactory::Links()) {
            held += link.memoryBytes;
        }
        return held > 6400000;
    }));
    auto second = RegisteredPeer("SCU#3");
    ASSERT_TRUE(second->SendRaw(most));
    ASSERT_TRUE(m_log->WaitFor("and this one most of all: "));
    EXPECT_TRUE(Exchanges(*healthy, "OMU#001"));
    EXPECT_TRUE(modest->Connected());
    EXPECT_EQ(3u, OpenLinks());
    EXPECT_EQ(1u, m_log->Count("the links hold more than 8388608 bytes", "Link closed"));
}

TEST_F(LinkFaults, StrangersAreTurnedAwayWithOneLine) {
    BP::LinkOptions options;
    options.peers.resize(2);
    ASSERT_TRUE(BP::NetNetwork::Parse("127.0.0.8/29", options.peers[0]));
    ASSERT_TRUE(BP::NetNetwork::Parse("10.1.2.3", options.peers[1]));
    StartListening(options);
    for (int count = 0; count < 3; ++count) {
        auto stranger = FakePeer::Connect(m_port);
        ASSERT_NE(nullptr, stranger);
        EXPECT_TRUE(stranger->ReadUntilClosed());
    }
    EXPECT_EQ(1u, m_log->Count("not one of the networks that may connect", "Link closed"));
    const std::tuple<const char*, const char*, bool> rows[] = {
        {"127.0.0.8/29", "127.0.0.15", true}, {"127.0.0.8/29", "127.0.0.16", false},
        {"10.1.2.3", "10.1.2.3", true},       {"10.1.2.3", "10.1.2.2", false},
        {"0.0.0.0/0", "9.9.9.9", true},       {"10.0.0.0/8", "::ffff:10.9.9.9", true},
        {"fd00:1::/32", "fd00:1:2::3", true}, {"fd00:1::/33", "fd00:1:8000::", false},
        {"10.0.0.0/8", "fd00::1", false},     {"::ffff:10.0.0.0/104", "10.9.9.9", true},
        {"::/0", "10.9.9.9", false},
    };
    for (const auto& [network, address, inside] : rows) {
        BP::NetNetwork parsed;
        BP::NetAddress peer;
        ASSERT_TRUE(BP::NetNetwork::Parse(network, parsed) && BP::NetAddress::Parse(address, 1, peer)) << network;
        EXPECT_EQ(inside, parsed.Contains(peer)) << network << " " << address;
    }
    for (const char* wrong :
         {"", "/8", "10.0.0.0/33", "10.0.0.0/", "10.0.0.0/8x", "host", "::/129", "::ffff:10.0.0.0/95"}) {
        BP::NetNetwork parsed;
        EXPECT_FALSE(BP::NetNetwork::Parse(wrong, parsed)) << wrong;
    }
}

}  // namespace
