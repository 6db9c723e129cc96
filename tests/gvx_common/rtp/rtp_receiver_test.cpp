#include "gvx_common/rtp/common_rtp_receiver.h"
#include "gvx_common/rtp/common_rtp_sender.h"
#include "gvx_common/rtp/rtp_poller.h"

#include "base/unique_fd.h"
#include "base/zvs_error.h"
#include "support/settings_folder.h"
#include "gvx_common/rtp/rtp_stream.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <map>
#include <thread>

#include <arpa/inet.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using rtp_stream::Bytes;
using rtp_stream::Frame;
using rtp_stream::Maker;

// A receiver fed by hand on a clock that the test moves; what it sends to the other end is kept.
class FedReceiver : public gvx::IRtcpVisitor {
public:
    explicit FedReceiver(RtpReceiverParams params = RtpReceiverParams()) {
        params.endpoint.interleavedSend = [this](enRtpFlow flow, const std::uint8_t* data, std::size_t size) {
            control.emplace_back(data, data + size);
            return flow == RTP_FLOW_CONTROL;
        };
        EXPECT_EQ(receiver.Open(params), 0);
    }
    void Push(const Bytes& packet) {
        const Bytes exact(packet);
        receiver.Push(exact.data(), exact.size());
    }
    void Push(const std::vector<Frame>& frames) {
        for (const Frame& frame : frames) {
            for (const Bytes& packet : frame.packets) {
                Push(packet);
            }
        }
    }
    void ReadControl() {
        for (const Bytes& packet : control) {
            EXPECT_TRUE(gvx::ParseRtcp(packet.data(), packet.size(), *this));
        }
        control.clear();
    }
    void OnReportBlock(std::uint32_t, const gvx::RtcpReportBlock& read) override {
        ++blocks;
        block = read;
    }
    void OnCname(std::uint32_t, const char* text, std::size_t size) override { cname.assign(text, size); }
    void OnPictureLoss(std::uint32_t, std::uint32_t media) override { pictureLoss.push_back(media); }
    void OnBye(std::uint32_t) override { ++byes; }

    ScopedTestClock clock;
    rtp_stream::Sink sink;
    std::vector<Bytes> control;
    CCommonRtpReceiver receiver{sink};
    gvx::RtcpReportBlock block;
    int blocks = 0;
    int byes = 0;
    std::string cname;
    std::vector<std::uint32_t> pictureLoss;
};

// Every frame all of whose packets arrive comes out whole and in order; every other one is named or, when nothing of it
// arrived, absent. The relay loses 2 %, sends 2 % twice, holds packets back for up to 80 ms and swaps near ones.
TEST(RtpReceiver, HandsOverInOrderWhatABadLinkLeavesWhole) {
    FedReceiver fed;
    const std::vector<Frame> frames = Maker().Many(3000);
    std::mt19937 random(7);
    std::multimap<std::int64_t, const Bytes*> arrivals;
    std::map<std::uint32_t, const Frame*> sent;
    std::map<std::uint32_t, std::size_t> missing;
    std::uint64_t twice = 0;
    std::int64_t at = 0;
    for (const Frame& frame : frames) {
        sent[frame.rtpTime] = &frame;
        at += 40000;
        std::int64_t inFrame = at;
        for (const Bytes& packet : frame.packets) {
            inFrame += 500;
            if (arrivals.size() > 20 && random() % 50 == 0) {
                ++missing[frame.rtpTime];
                continue;
            }
            // A source begins where its first two packets that follow each other are.
            const bool first = &frame == &frames.front();
            const std::int64_t arrival = inFrame + (first ? 0 : random() % 80000 + random() % 2500);
            arrivals.emplace(arrival, &packet);
            if (random() % 50 == 0) {
                ++twice;
                arrivals.emplace(arrival + random() % 20000, &packet);
            }
        }
    }
    std::int64_t now = 0;
    for (const auto& [arrival, packet] : arrivals) {
        fed.clock->Advance(std::chrono::microseconds(arrival - now));
        now = arrival;
        fed.receiver.OnTimer();
        fed.Push(*packet);
    }
    fed.receiver.Close();
    std::size_t whole = 0;
    std::uint32_t former = 0;
    for (const auto& taken : fed.sink.taken) {
        const Frame& frame = *sent.at(taken.unit.rtpTime);
        ASSERT_GT(taken.unit.rtpTime, former);
        former = taken.unit.rtpTime;
        ASSERT_EQ(taken.unit.IsDamaged(), missing.count(frame.rtpTime) != 0) << taken.unit.rtpTime;
        ASSERT_TRUE(taken.unit.IsDamaged() || taken.bytes == frame.whole);
        whole += !taken.unit.IsDamaged();
    }
    EXPECT_EQ(whole, frames.size() - missing.size());
    const RtpReceiverStatistics statistics = fed.receiver.GetStatistics();
    EXPECT_EQ(statistics.order.duplicates + statistics.order.late, twice);
    EXPECT_GT(statistics.order.reordered, 1000u);
}

// The first source's packets are kept until it is validated; late, other and foreign ones do not disturb it.
TEST(RtpReceiver, TakesUpSourcesAndNumbersThatBeginAnew) {
    RtpReceiverParams params;
    params.iPayloadType = 99;
    FedReceiver fed(params);
    std::vector<Frame> first = Maker(1).Many(10, 5);
    std::swap(first[0].packets[0], first[0].packets[1]);
    fed.Push(first[0].packets[0]);
    EXPECT_TRUE(fed.sink.sources.empty());
    fed.Push(std::vector<Frame>(first.begin(), first.begin() + 5));
    ASSERT_EQ(fed.sink.taken.size(), 5u);
    EXPECT_EQ(fed.sink.taken[0].bytes, first[0].whole);
    // A few packets of another source between do not take over; the same numbers from afar neither.
    std::vector<Frame> second = Maker(2).Many(5);
    for (std::size_t i = 5; i < 10; ++i) {
        fed.Push(second[0].packets[0]);
        fed.Push(second[0].packets[1]);
        Bytes other = first[i].packets[0];
        other[1] = 96;
        fed.Push(other);
        fed.Push(std::vector<Frame>{first[i]});
    }
    ASSERT_EQ(fed.sink.taken.size(), 10u);
    fed.Push(second);
    ASSERT_EQ(fed.sink.taken.size(), 15u);
    // The same source with numbers far away: two that follow each other are enough.
    std::vector<Frame> third = Maker(2).Many(5);
    for (Frame& frame : third) {
        for (Bytes& packet : frame.packets) {
            gvx::StoreBe16(&packet[2], gvx::LoadBe16(&packet[2]) + 30000u);
        }
    }
    fed.Push(third);
    EXPECT_EQ(fed.sink.taken.size(), 20u);
    EXPECT_EQ(fed.sink.sources, (std::vector<std::uint32_t>{1, 2, 2}));
    for (const auto& taken : fed.sink.taken) {
        EXPECT_FALSE(taken.unit.IsDamaged());
    }
    for (const Bytes& bad : {Bytes{}, Bytes(11, 0x80), Bytes(12, 0x40), Bytes(12, 0x8F), Bytes(12, 0xA0)}) {
        fed.Push(bad);
    }
    EXPECT_EQ(fed.receiver.GetStatistics().invalid, 5u);
}

TEST(RtpReceiver, ReportsAtTheIntervalWithLossJitterAndTheSendersTime) {
    FedReceiver fed;
    Maker maker;
    std::int64_t lastMs = 0;
    std::vector<std::int64_t> between;
    std::uint32_t number = 0;
    for (std::int64_t ms = 0; ms < 120000; ms += 40) {
        for (const Bytes& packet : maker.Next(ms == 0, 100).packets) {
            if (++number % 4 != 0) {
                fed.Push(packet);
            }
        }
        const std::size_t before = fed.control.size();
        EXPECT_LE(fed.receiver.OnTimer(), 1000);
        if (fed.control.size() != before) {
            between.push_back(ms - lastMs);
            lastMs = ms;
        }
        fed.clock->AdvanceMs(40);
    }
    ASSERT_GE(between.size(), 12u);
    // Half to one and a half of five seconds over 1.21828, the first of half that (RFC 3550, 6.3.1), and a step.
    EXPECT_LE(between.front(), 3079 + 40);
    for (std::size_t i = 1; i < between.size(); ++i) {
        EXPECT_GE(between[i], 2052 - 40);
        EXPECT_LE(between[i], 6157 + 40);
    }
    EXPECT_NE(*std::min_element(between.begin() + 1, between.end()),
              *std::max_element(between.begin() + 1, between.end()));
    fed.ReadControl();
    EXPECT_EQ(fed.blocks, static_cast<int>(between.size()));
    EXPECT_EQ(fed.block.ssrc, 0x11223344u);
    EXPECT_NEAR(fed.block.fractionLost, 64, 2);
    EXPECT_NEAR(fed.block.cumulativeLost, 730, 25);
    EXPECT_GT(fed.block.highestSeq, 0x10000u) << "the numbers have wrapped once";
    EXPECT_EQ(fed.block.lastSenderReport, 0u);
    EXPECT_FALSE(fed.cname.empty());

    // A sender report gives later units a time; blocks then tell how long ago it was.
    gvx::RtcpBuilder report;
    gvx::RtcpSenderInfo info;
    info.ssrc = 0x11223344;
    info.ntpTime = gvx::NtpOfWallUs(1767323045250000);
    info.rtpTime = fed.sink.taken.back().unit.rtpTime;
    ASSERT_TRUE(report.AddSenderReport(info, nullptr));
    fed.receiver.PushControl(report.Data(), report.Size());
    EXPECT_EQ(fed.sink.taken.back().unit.captureWallUs, 0);
    const Frame next = maker.Next(false, 100);
    fed.Push(std::vector<Frame>{next, maker.Next(false, 100)});
    fed.clock->AdvanceMs(200);
    fed.receiver.OnTimer();
    const std::int64_t ticks = static_cast<std::int32_t>(fed.sink.taken.back().unit.rtpTime - info.rtpTime);
    EXPECT_EQ(fed.sink.taken.back().unit.captureWallUs, 1767323045250000 + ticks * 100 / 9);
    fed.clock->AdvanceMs(1300);
    fed.Push(maker.Next(false, 100).packets[0]);  // a report is about what was heard since the one before
    fed.receiver.Close();
    fed.ReadControl();
    EXPECT_EQ(fed.byes, 1);
    EXPECT_EQ(fed.block.lastSenderReport, static_cast<std::uint32_t>(info.ntpTime >> 16));
    EXPECT_EQ(fed.block.delaySinceLast, 65536u * 3 / 2);
}

TEST(RtpReceiver, AsksForAPictureWhereOfferedAndEndsWithTheSource) {
    FedReceiver silent;
    silent.Push(Maker().Many(3));
    EXPECT_EQ(silent.receiver.RequestKeyframe(), 1);
    RtpReceiverParams params;
    params.bPictureLoss = true;
    FedReceiver fed(params);
    EXPECT_EQ(fed.receiver.RequestKeyframe(), 1) << "nobody to ask yet";
    fed.Push(Maker().Many(3));
    EXPECT_EQ(fed.receiver.RequestKeyframe(), 0);
    EXPECT_EQ(fed.receiver.RequestKeyframe(), 0);
    fed.clock->AdvanceMs(600);
    EXPECT_EQ(fed.receiver.RequestKeyframe(), 0);
    fed.ReadControl();
    EXPECT_EQ(fed.pictureLoss, (std::vector<std::uint32_t>{0x11223344, 0x11223344}));

    Frame cut = Maker().Next(false, 4000);
    for (Bytes& packet : cut.packets) {
        gvx::StoreBe16(&packet[2], gvx::LoadBe16(&packet[2]) + 100u);
    }
    gvx::RtcpBuilder bye;
    ASSERT_TRUE(bye.AddReceiverReport(0x11223344, nullptr) && bye.AddBye(0x11223344));
    fed.Push(cut.packets[0]);
    fed.Push(Bytes(bye.Data(), bye.Data() + bye.Size()));
    EXPECT_EQ(fed.sink.ends, 1);
    EXPECT_TRUE(fed.sink.taken.back().unit.IsDamaged());
}

TEST(RtpReceiver, OpensWhereAndAsTheConfigurationSays) {
    const auto bufferOf = [](int handle) {
        int bytes = 0;
        socklen_t size = sizeof(bytes);
        ::getsockopt(handle, SOL_SOCKET, SO_RCVBUF, &bytes, &size);
        return bytes;
    };
    const auto addressOf = [](int handle) {
        sockaddr_in address{};
        socklen_t size = sizeof(address);
        ::getsockname(handle, reinterpret_cast<sockaddr*>(&address), &size);
        return ::inet_ntoa(address.sin_addr) + (":" + std::to_string(ntohs(address.sin_port)));
    };
    struct Row {
        const char* settings;
        std::string ip;
        int kib;
    };
    for (const Row& row :
         {Row{"", "127.0.0.1", 384}, Row{"[MEDIA]\nGVX_MEDIA_IP=127.0.0.2\nSOCKET_BUFFER_SIZE=100\n", "127.0.0.2", 100},
          Row{"[MEDIA]\nGVX_MEDIA_IP=0.0.0.0\nSOCKET_BUFFER_SIZE=0\n", "0.0.0.0", 384}}) {
        const ScopedSettings settings(row.settings);
        rtp_stream::Sink sink;
        CCommonRtpReceiver receiver(sink);
        ASSERT_EQ(receiver.Open(RtpReceiverParams()), 0);
        EXPECT_EQ(receiver.GetPort() % 2, 0);
        EXPECT_EQ(addressOf(receiver.GetHandle()), row.ip + ":" + std::to_string(receiver.GetPort()));
        EXPECT_EQ(addressOf(receiver.GetControlHandle()), row.ip + ":" + std::to_string(receiver.GetPort() + 1));
        // As much as a socket of our own gets that asks for the same.
        const int handle = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int bytes = row.kib * 1024;
        if (::setsockopt(handle, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes)) != 0) {
            ::setsockopt(handle, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
        }
        EXPECT_EQ(bufferOf(receiver.GetHandle()), bufferOf(handle));
        ::close(handle);
        RtpReceiverParams taken;
        taken.endpoint.usLocalPort = receiver.GetPort();
        EXPECT_EQ(CCommonRtpReceiver(sink).Open(taken), ZVS_GVX_OPEN_SOCKET_ERROR);
    }
}

// Packets of one size that came together are one message of the kernel's, the last one perhaps shorter.
TEST(RtpReceiver, TakesApartWhatTheKernelHasJoined) {
    rtp_stream::Sink sink;
    CCommonRtpReceiver receiver(sink);
    RtpReceiverParams params;
    params.codec = RTP_CODEC_G711;
    params.endpoint.strLocalIp = "127.0.0.1";
    ASSERT_EQ(receiver.Open(params), 0);
    std::vector<Bytes> samples;
    Bytes joined;
    for (std::uint8_t i = 0; i < 20; ++i) {
        samples.emplace_back(i == 19 ? 100 : 160, i);
        joined.insert(joined.end(), {0x80, 8, 0, i, 0, 0, 0, i, 1, 2, 3, 4});
        joined.insert(joined.end(), samples.back().begin(), samples.back().end());
    }
    const gvx::UniqueFd handle(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const int segment = 12 + 160;
    ASSERT_EQ(::setsockopt(handle.Get(), SOL_UDP, UDP_SEGMENT, &segment, sizeof(segment)), 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(receiver.GetPort());
    ASSERT_EQ(::sendto(handle.Get(), joined.data(), joined.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to)),
              static_cast<ssize_t>(joined.size()));
    ASSERT_TRUE(WaitUntil([&] { return receiver.Receive() == 0 && sink.taken.size() == samples.size(); }))
        << sink.taken.size();
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_EQ(sink.taken[i].bytes, samples[i]);
    }
}

TEST(RtpPoller, ServesTwoHundredStreamsWithOneThread) {
    struct : IRtpReceiverSink {
        void OnAccessUnit(const gvx::RtpAccessUnit& unit) override {
            right += !unit.IsDamaged() && Bytes(unit.data, unit.data + unit.size) == expected.load()->whole;
        }
        std::atomic<const Frame*> expected{nullptr};
        std::atomic<std::size_t> right{0};
    } sink;
    gvx::RtpPoller poller;
    ASSERT_TRUE(poller.IsUsable());
    std::atomic<bool> running{true};
    std::thread thread([&] {
        while (running) {
            poller.Poll(1000);
        }
    });
    std::deque<CCommonRtpReceiver> receivers;
    RtpReceiverParams params;
    params.endpoint.strLocalIp = "127.0.0.1";
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(receivers.emplace_back(sink).Open(params), 0);
        ASSERT_EQ(poller.Add(receivers.back()), 0);
    }
    const int handle = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::size_t sent = 0;
    for (const Frame& frame : Maker().Many(20, 10)) {
        sink.expected = &frame;
        for (CCommonRtpReceiver& receiver : receivers) {
            to.sin_port = htons(receiver.GetPort());
            for (const Bytes& packet : frame.packets) {
                ASSERT_EQ(
                    ::sendto(handle, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to)),
                    static_cast<ssize_t>(packet.size()));
            }
        }
        sent += receivers.size();
        ASSERT_TRUE(WaitUntil([&] { return sink.right == sent; })) << sink.right << " of " << sent;
    }
    ::close(handle);
    for (CCommonRtpReceiver& receiver : receivers) {
        EXPECT_EQ(poller.Remove(receiver), 0);
    }
    running = false;
    poller.Wake();
    thread.join();
}

struct Talk : IRtpSenderSink {
    void OnPictureRequested() override { ++pictures; }
    void OnReceiverEnd() override { ++ends; }
    int pictures = 0;
    int ends = 0;
};

TEST(RtpSender, SpeaksWithAReceiverAndHearsItsReports) {
    ScopedTestClock clock;
    Talk talk;
    rtp_stream::Sink sink;
    CCommonRtpSender sender(&talk);
    CCommonRtpReceiver receiver(sink);
    RtpReceiverParams receiverParams;
    receiverParams.codec = RTP_CODEC_G711;
    receiverParams.bPictureLoss = true;
    receiverParams.endpoint.uiClockRate = 8000;
    receiverParams.endpoint.strLocalIp = "127.0.0.1";
    ASSERT_EQ(receiver.Open(receiverParams), 0);
    RtpSenderParams senderParams;
    senderParams.iPayloadType = 8;
    senderParams.endpoint.uiClockRate = 8000;
    senderParams.endpoint.strLocalIp = "127.0.0.1";
    ASSERT_EQ(sender.Open(senderParams), 0);
    const Bytes samples(160, 0xD5);
    EXPECT_EQ(sender.Send(samples.data(), samples.size(), false, 0), ZVS_GVX_OPEN_SOCKET_ERROR) << "to whom?";
    ASSERT_EQ(sender.SetRemote("127.0.0.1", receiver.GetPort()), 0);
    ASSERT_EQ(receiver.SetRemote("127.0.0.1", sender.GetPort()), 0);
    EXPECT_EQ(receiver.SetRemote("localhost", 1), 2);
    for (std::uint32_t i = 0; i < 1000; ++i) {
        ASSERT_EQ(sender.Send(samples.data(), samples.size(), i == 0, i * 160), 0);
        ASSERT_TRUE(WaitUntil([&] { return receiver.Receive() > 0; }));
        for (CCommonRtpBase* const end : std::initializer_list<CCommonRtpBase*>{&sender, &receiver}) {
            end->OnTimer();
            ASSERT_EQ(end->ReceiveControl(), 0);
        }
        clock->AdvanceMs(20);
    }
    EXPECT_EQ(receiver.RequestKeyframe(), 0);
    receiver.Close();
    ASSERT_TRUE(WaitUntil([&] {
        sender.ReceiveControl();
        return talk.ends == 1;
    }));
    EXPECT_EQ(talk.pictures, 1);
    ASSERT_EQ(sink.taken.size(), 1000u);
    EXPECT_EQ(sink.taken.back().bytes, samples);
    EXPECT_EQ(sink.taken.back().unit.rtpTime - sink.taken.front().unit.rtpTime, 999u * 160);
    EXPECT_NEAR(static_cast<double>(sink.taken.back().unit.captureWallUs),
                static_cast<double>(gvx::CurrentClock().WallMicroseconds() - 20000), 2000);
    const RtpSenderStatistics statistics = sender.GetStatistics();
    EXPECT_GE(statistics.reports, 2u);
    EXPECT_EQ(statistics.cumulativeLost, 0);
    EXPECT_EQ(statistics.failed, 1u);
    EXPECT_GE(statistics.roundTripUs, 0);
    EXPECT_LE(statistics.roundTripUs, 40000);
}

}  // namespace
