#include "gvx_common/ports/gvx_port_mgr.h"

#include "base/zvs_error.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/records/media_types.h"
#include "gvx_common/records/stream_param.h"
#include "gvx_common/sdp/gvx_sip_sdp.h"
#include "nss/nss_msg_type.h"
#include "support/caught_frames.h"
#include "support/fake_peer.h"
#include "support/recording_logger.h"
#include "support/run_threads.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// A UDP socket on that port; -1 when somebody has it.
int BindUdp(unsigned int port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
        return fd;
    }
    close(fd);
    return -1;
}

// Ports that nobody has, below those of the system's choice.
std::vector<unsigned int> FreePorts(std::size_t count) {
    std::vector<unsigned int> ports;
    for (unsigned int port = 21000; ports.size() < count && port < 32000; port += 2) {
        if (const int fd = BindUdp(port); fd >= 0) {
            close(fd);
            ports.push_back(port);
        }
    }
    EXPECT_EQ(ports.size(), count);
    return ports;
}

std::string ReplyText(const std::vector<unsigned int>& ports, int type = 1) {
    std::string list;
    for (const unsigned int port : ports) {
        list += (list.empty() ? "" : ",") + std::to_string(port);
    }
    return R"({"ApplyPortReturnList":[)" + list + R"(],"ApplyPortReturnType":)" + std::to_string(type) + "}";
}

void Deliver(unsigned int type, const std::string& trans, const std::string& text,
             const std::string& link = "GVX#000") {
    BP::CDispatcher::FrameArrived(kElementGVX, link,
                                  BlockOf(FakePeer::MakeFrame(static_cast<std::uint16_t>(type), 1, trans, 0, text)));
}

void Answer(const CaughtFrame& request, const std::string& text) {
    Deliver(request.Type() + kNssResponseOffset, request.Transaction(), text, request.linkID);
}

// The main service's side of the exchange, where frames would enter its link.
class PortManagerTest : public testing::Test {
protected:
    void SetUp() override {
        // A late answer finds nobody who waits, and goes where the gateway takes frames in.
        BP::CDispatcher::SetSink([](std::unique_ptr<BP::CCmd> cmd) {
            CGvxPortMgr::Instance()->TakeLateReply(cmd->GetMsgBlock());
            return 0;
        });
        ASSERT_TRUE(Mgr().Init());
    }
    void TearDown() override {
        Mgr().UnInit();
        BP::CDispatcher::SetSink({});
    }

    static CGvxPortMgr& Mgr() { return *CGvxPortMgr::Instance(); }
    static unsigned int Make() {
        unsigned int port = 0;
        const int result = Mgr().MakePort(GVX_MEDIA_SEND_UDP, port, UDP_PROCOTOL);
        EXPECT_EQ(result == 1, port != 0);
        return port;
    }
    virtual void Serve(const CaughtFrame& request) { Answer(request, reply); }

    CaughtFrames frames{[this](const CaughtFrame& request) { Serve(request); }};
    ScopedRecordingLogger log;
    std::string reply;
};

TEST(PortElement, RangesBecomeLists) {
    using Ports = std::list<std::uint32_t>;
    const std::tuple<const char*, Ports, Ports> rows[] = {
        {"10000-10002", {10000}, {10000, 10001, 10002}},
        {"10000-10000", {}, {10000}},
        {" 10005 - 10002 ", {10002, 10004}, {10002, 10003, 10004, 10005}},
        {"a-b,100-102", {100}, {100, 101, 102}},
        {"0000100-000000102", {100}, {100, 101, 102}},
        {"-5,5-,1--9,1-2-9,0-9,5-65536,5-99999999999,", {}, {}},
        {"20-22,10-12", {20, 10}, {20, 21, 22, 10, 11, 12}},
    };
    for (const auto& [text, udpPorts, tcpPorts] : rows) {
        CUDPPortElement udp;
        CTCPPortElement tcp;
        Ports ports;
        EXPECT_EQ(udp.ParsePortRange(text), !udpPorts.empty()) << text;
        udp.StortPortInfo();
        udp.RecyclePort(ports);
        EXPECT_EQ(ports, udpPorts) << text;
        EXPECT_EQ(tcp.ParsePortRange(text), !tcpPorts.empty()) << text;
        tcp.StortPortInfo();
        tcp.RecyclePort(ports);
        EXPECT_EQ(ports, tcpPorts) << text;
    }
}

TEST_F(PortManagerTest, AnEmptyPoolAppliesForTenAndAPortInUseIsPassedOver) {
    const std::vector<unsigned int> ports = FreePorts(3);
    const int foreign = BindUdp(ports[0]);
    ASSERT_GE(foreign, 0);
    reply = ReplyText(ports);
    EXPECT_EQ(Make(), ports[1]);
    ASSERT_EQ(frames.Count(), 1u);
    EXPECT_EQ(frames.All()[0].Body(), "{\"ApplyPortNumber\":10,\"ApplyPortType\":1}\n");
    EXPECT_EQ(Make(), ports[2]);
    EXPECT_EQ(Make(), 0u) << "the one that is left is not free";
    close(foreign);
    EXPECT_EQ(Make(), ports[0]);

    reply = "{}";
    EXPECT_EQ(Mgr().SendUsedPortlist(), 0);
    EXPECT_EQ(frames.All().back().Body(), R"({"TCPUsedPortlist":[],"UDPUsedPortlist":[)" + std::to_string(ports[1]) +
                                              "," + std::to_string(ports[2]) + "," + std::to_string(ports[0]) + "]}\n");
    EXPECT_EQ(Mgr().SendUsedPortlist("GVX#first"), 0);
    EXPECT_EQ(frames.All().back().linkID, "GVX#first") << "the one that was opened, whoever has come since";
    // The same ports once more: whoever holds them keeps them.
    reply = ReplyText(ports);
    EXPECT_EQ(Make(), 0u);
    unsigned int none = 7;
    EXPECT_EQ(Mgr().MakePort("no such pool", none, UDP_PROCOTOL), 0);
    EXPECT_EQ(Mgr().FreePort("no such pool", none), 0);
}

TEST_F(PortManagerTest, AnswersThatCannotBeUsedGiveNoPort) {
    const std::string wrong[] = {"",
                                 "{",
                                 "null",
                                 "[]",
                                 R"({"ApplyPortReturnList":7})",
                                 R"({"ApplyPortReturnList":["x",-1,0,65536,1e9,null,{}],"ApplyPortReturnType":"9"})"};
    for (const std::string& text : wrong) {
        reply = text;
        EXPECT_EQ(Make(), 0u) << text;
    }
    frames.AnswerWith(ZVS_NET_SEND_ERROR);
    EXPECT_EQ(Make(), 0u);
    EXPECT_EQ(Mgr().SendUsedPortlist(), 1);
    frames.AnswerWith(0);
    // Ports that come late go to the pool of their type.
    const std::vector<unsigned int> ports = FreePorts(2);
    Deliver(NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ + kNssResponseOffset, "late", ReplyText({ports[0]}, 2));
    reply = ReplyText({ports[1]});
    EXPECT_EQ(Make(), ports[1]);
    unsigned int port = 0;
    EXPECT_EQ(Mgr().MakePort(GVX_MEDIA_SEND_TCP, port, TCP_PROCOTOL), 1);
    EXPECT_EQ(port, ports[0]);
}

TEST_F(PortManagerTest, PortsOfAStreamComeBackWithItsParametersAndNoOthersDo) {
    const std::vector<unsigned int> ports = FreePorts(2);
    reply = ReplyText(ports);
    {
        CStreamParam param;
        gvx::PoolPort port = Mgr().TakePort(GVX_MEDIA_SEND_UDP, UDP_PROCOTOL);
        EXPECT_EQ(port.Number(), ports[0]);
        param.KeepPort(std::move(port));
        param.KeepPort({});
        CStreamParam other;
        {
            const CStreamParam copy(param);
            other = param;
            other = CStreamParam();
        }
        EXPECT_TRUE(Mgr().IsPortUsed(GVX_MEDIA_SEND_UDP, ports[0])) << "a copy gives nothing back";
    }
    EXPECT_FALSE(Mgr().IsPortUsed(GVX_MEDIA_SEND_UDP, ports[0]));
    EXPECT_EQ(log->Count("Success to release port"), 1u);
    EXPECT_EQ(Make(), ports[1]);
    EXPECT_EQ(Make(), ports[0]);
}

TEST_F(PortManagerTest, APeersPortThatIsOneOfOursIsNotHandedOutTwice) {
    const std::vector<unsigned int> ports = FreePorts(3);
    reply = ReplyText(ports);
    CStreamParam first;
    first.KeepPort(Mgr().TakePort(GVX_MEDIA_SEND_UDP, UDP_PROCOTOL));
    {
        CStreamParam second;
        second.KeepPort(Mgr().TakePort(GVX_MEDIA_SEND_UDP, UDP_PROCOTOL));
        second.m_nSrcRtpVideoPort = ports[1];
        const std::string peers = "m=audio " + std::to_string(ports[0]) + " RTP/AVP 8\r\n";
        CServiceSDP codec;
        EXPECT_EQ(codec.DecodeSDP(peers + "m=application " + std::to_string(ports[0]) + " TCP x\r\n", &second), 0);
        EXPECT_EQ(second.m_nSrcRtpVideoPort, ports[0]);
        second.m_nSrcTransProtocol = RTP_OVER_UDP;
        CStreamParam talk;
        EXPECT_EQ(codec.DecodeT28181TalkSDP(peers, &talk), 0);
        EXPECT_EQ(talk.m_nSrcRtpAudioPort, ports[0]);
    }
    EXPECT_TRUE(Mgr().IsPortUsed(GVX_MEDIA_SEND_UDP, ports[0])) << "the first stream's";
    EXPECT_FALSE(Mgr().IsPortUsed(GVX_MEDIA_SEND_UDP, ports[1])) << "the second's own, over which the peer's was read";
    EXPECT_EQ(Make(), ports[2]);
    EXPECT_EQ(Make(), ports[1]);
    EXPECT_EQ(log->Count("Success to release port"), 1u);
}

// Held alarms stand for all that an opening does ahead of its report: commands of the new link are served meanwhile.
TEST(PortManager, AMainServiceHearsOfTheUsedPortsOnceAndAheadOfAnApplication) {
    static CGvxPortMgr& mgr = *CGvxPortMgr::Instance();
    const ScopedRecordingLogger log;
    ASSERT_TRUE(mgr.Init());
    std::atomic<int> opened{0};
    BP::LinkOptions options;
    options.localID = "GVX#001";
    const auto note = [&opened](const std::string&, int, const std::string&, const std::string&, unsigned) {
        ++opened;
    };
    ASSERT_EQ(BP::CNetFactory::Start(options, {note, {}}), 0);
    std::uint16_t port = 0;
    ASSERT_EQ(BP::CNetFactory::Listen("127.0.0.1", 0, &port), 0);
    CGvxConnectionMgr::SetMainServiceObserver(MainServiceStep::HeldAlarms, [](const std::string& /*linkId*/) {
        unsigned int none = 0;
        EXPECT_EQ(mgr.MakePort(GVX_MEDIA_SEND_UDP, none, UDP_PROCOTOL), 0);
    });
    std::unique_ptr<FakePeer> peers[2];
    std::vector<unsigned int> heard[2];
    std::thread services[2];
    for (int i = 0; i < 2; ++i) {  // by the same name, and the first one's close has not been served
        peers[i] = FakePeer::Connect(port);
        ASSERT_EQ(peers[i]->Register("GVX#000"), 0u);
        ASSERT_TRUE(WaitUntil([&] { return opened == i + 1; }));
        services[i] = std::thread([&peer = *peers[i], &types = heard[i]] {
            for (auto frame = peer.ReadFrame(); frame.has_value(); frame = peer.ReadFrame()) {
                const std::uint16_t type = frame->head.usiMsgType;
                types.push_back(type);
                peer.SendFrame(static_cast<std::uint16_t>(type + kNssResponseOffset), 1, frame->Transaction(), 0,
                               ReplyText({}));
            }
        });
        GvxConnectionMgr()->OnLinkOpened("", 0, "GVX#000", "127.0.0.1", port);
    }
    CGvxConnectionMgr::SetMainServiceObserver(MainServiceStep::HeldAlarms, nullptr);
    GvxConnectionMgr()->OnLinkClosed("", 0, "GVX#000", "127.0.0.1", port);
    BP::CNetFactory::Stop();
    mgr.UnInit();
    for (int i = 0; i < 2; ++i) {
        services[i].join();
        EXPECT_EQ(heard[i],
                  (std::vector<unsigned int>{NSS_PLUGIN_SEND_PORTLIST_DATA_REQ, NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ}))
            << i << log->Dump();
    }
}

// A main service that cannot be relied on: of its answers, some come when nobody waits any more, some are garbage, some
// name ports twice, or such that are held.
class UnreliableServiceTest : public PortManagerTest {
protected:
    // Runs in one thread at a time: the manager's lock is held.
    void Serve(const CaughtFrame& request) override {
        if (m_late != nullptr) {
            m_late();
            m_late = nullptr;
        }
        std::vector<unsigned int> list;
        for (int count = 10; count > 0 && m_next < ports.size(); --count) {
            list.push_back(ports[m_next++]);
        }
        switch (m_turn++ % 4) {
            case 0:
                m_late = [request, list] { Answer(request, ReplyText(list)); };
                return;
            case 1:
                m_next -= list.size();
                return Answer(request, "{\"ApplyPortReturnList\":[1,");
            case 2:
                list.insert(list.end(), list.begin(), list.end());
                break;
            default:
                list.insert(list.end(), ports.begin(), ports.begin() + static_cast<std::ptrdiff_t>(m_next));
        }
        Answer(request, ReplyText(list));
        Answer(request, ReplyText(list));  // and once more, as a late one
    }

    std::vector<unsigned int> ports = FreePorts(600);

private:
    std::size_t m_next = 0;
    unsigned int m_turn = 0;
    std::function<void()> m_late;
};

TEST_F(UnreliableServiceTest, TwoHundredThreadsNeverShareAPortAndNoneIsLost) {
    constexpr int kThreads = 200;
    constexpr int kPortsEach = 3;
    ScopedTestClock clock;
    std::atomic<bool> over{false};
    std::thread time([&] {
        while (!over) {
            clock->AdvanceSeconds(1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    std::mutex mutex;
    std::set<unsigned int> held;
    const auto hold = [&] {
        unsigned int port = 0;
        while ((port = Make()) == 0) {
        }
        const std::lock_guard<std::mutex> lock(mutex);
        EXPECT_TRUE(held.insert(port).second) << port << " was handed out twice";
    };
    RunThreads(kThreads, [&](int /*thread*/) {
        for (int i = 0; i < kPortsEach; ++i) {
            hold();
        }
    });
    over = true;
    time.join();
    // Just as many as there are: had one been lost, the last thread would still ask for it.
    EXPECT_EQ(held, std::set<unsigned int>(ports.begin(), ports.end()));
    for (unsigned int port : held) {
        EXPECT_EQ(Mgr().FreePort(GVX_MEDIA_SEND_UDP, port), 1);
        EXPECT_EQ(port, 0u);
    }
    for (const unsigned int port : held) {
        EXPECT_EQ(Make(), port);
    }
}

}  // namespace
