#include "gvx_common/media/media_send_stream.h"

#include "gvx_common/media/media_service.h"
#include "gvx_common/media_memory/media_block_buffer.h"
#include "media_test_support.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kRecords = 4;
constexpr unsigned int kBlocks = 512;

// A packet with an RTP head of that number and time, and over TCP with its interleave.
std::string RtpPacket(unsigned int number, unsigned int timeStamp, std::size_t payload, int interleaveChannel = -1) {
    std::string packet;
    const auto put = [&packet](unsigned int value, int bytes) {
        for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
            packet.push_back(static_cast<char>(value >> shift));
        }
    };
    if (interleaveChannel >= 0) {
        put('$', 1);
        put(static_cast<unsigned int>(interleaveChannel), 1);
        put(static_cast<unsigned int>(12 + payload), 2);
    }
    put(0x8063, 2);
    put(number, 2);
    put(timeStamp, 4);
    put(0, 4);
    packet.append(payload, static_cast<char>(number));
    return packet;
}

class MediaSendStream : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(gvx::StartMediaService(), 0);
        ASSERT_EQ(CSocketInfoMgr::Instance()->GetFreeNum(), kRecords);
    }
    void TearDown() override {
        EXPECT_TRUE(WaitUntil([] { return CSocketInfoMgr::Instance()->GetFreeNum() == kRecords; }));
        EXPECT_TRUE(WaitUntil([] { return CMediaBlockBuffer::instance()->getRemainBlockNum() == kBlocks; }));
        EXPECT_EQ(CStreamTransMgr::Instance()->GetStreamNums(), std::vector<unsigned int>(2, 0));
        gvx::StopMediaService();
    }
    static MediaSendParams Udp(const TestSocket& video) {
        MediaSendParams params;
        params.strServiceID = "service-1";
        params.videoDstAddr = video.Address();
        params.strLocalIp = "127.0.0.1";
        return params;
    }
    static MediaSendParams Tcp(const TestSocket& listener) {
        MediaSendParams params = Udp(listener);
        params.eProtocol = RTP_OVER_TCP;
        return params;
    }
    static int Send(CMediaSendStream& stream, const std::string& packet, bool video = true,
                    TRANS_PROTOCOL protocol = RTP_OVER_UDP) {
        MEDIA_DATA data{};
        data.pUserInfo = &stream;
        data.pDataBuf = const_cast<char*>(packet.data());
        data.eTransProtocol = protocol;
        data.nVideoSize = video ? static_cast<std::uint32_t>(packet.size()) : 0;
        data.nAudioSize = video ? std::uint16_t{0} : static_cast<std::uint16_t>(packet.size());
        STREAM_TYPE_EX type = STREAM_TYPE_REAL_MAIN;
        return SendMediaOverSocket(&data, &type);
    }

    const ScopedSettings m_settings{"MAX_SOCKET_SIZE=4\nTRANSMISSION_THREAD_NUM=2\nMEDIA_BLOCK_NUM=512\n"};
};

TEST_F(MediaSendStream, VideoAndAudioOverUdp) {
    const TestSocket video(SOCK_DGRAM);
    const TestSocket audio(SOCK_DGRAM);
    CMediaSendStream stream;
    MediaSendParams params = Udp(video);
    params.audioDstAddr = audio.Address();
    ASSERT_EQ(stream.Open(params), 0);
    EXPECT_TRUE(stream.IsOpen());
    EXPECT_NE(stream.GetVideoLocalAddr().get_port_number(), 0);
    EXPECT_NE(stream.GetVideoLocalAddr(), stream.GetAudioLocalAddr());
    std::uint64_t bytes = 0;
    for (unsigned int i = 0; i < 30; ++i) {
        const std::string picture = RtpPacket(i, i / 3, 1392);
        const std::string sound = RtpPacket(1000 + i, 5, 160);
        ASSERT_EQ(Send(stream, picture), 0);
        ASSERT_EQ(Send(stream, sound, false), 0);
        EXPECT_EQ(video.Receive(), picture);
        EXPECT_EQ(audio.Receive(), sound);
        bytes += picture.size() + sound.size();
    }
    const MediaSendStatistics statistics = stream.GetStatistics();
    EXPECT_EQ(statistics.ullVideoFrames, 10u);
    EXPECT_EQ(statistics.ullVideoPackets, 30u);
    EXPECT_EQ(statistics.ullAudioPackets, 30u);
    EXPECT_EQ(statistics.ullDroppedPackets, 0u);
    EXPECT_EQ(statistics.ullBytes, bytes);
    stream.Close();
    stream.Close();
    EXPECT_FALSE(stream.IsOpen());
    EXPECT_EQ(Send(stream, RtpPacket(1, 1, 1)), ZVS_GVX_OPEN_SOCKET_ERROR);
    EXPECT_EQ(stream.GetStatistics().ullVideoPackets, 30u);
    EXPECT_EQ(stream.Open(params), ZVS_PARA_INVALID);  // an object serves one stream
    CMediaSendStream mute;
    ASSERT_EQ(mute.Open(Udp(video)), 0);
    EXPECT_EQ(Send(mute, RtpPacket(1, 1, 160), false), 0);
    EXPECT_EQ(mute.GetStatistics().ullDroppedPackets, 0u) << "audio without a destination is no loss";
}

TEST_F(MediaSendStream, PacketsThatCannotTravelAreDroppedAndCounted) {
    const TestSocket video(SOCK_DGRAM);
    CMediaSendStream stream;
    ASSERT_EQ(stream.Open(Udp(video)), 0);
    const std::string most = RtpPacket(1, 1, GVX_MEDIA_BLOCK_SIZE - 12);
    EXPECT_EQ(Send(stream, most), 0);
    EXPECT_EQ(video.Receive(), most);
    EXPECT_EQ(Send(stream, most + "x"), 1);
    EXPECT_EQ(Send(stream, most, true, RTP_OVER_TCP), 1);
    EXPECT_EQ(Send(stream, ""), 1);
    EXPECT_EQ(stream.GetStatistics().ullDroppedPackets, 3u);
    EXPECT_EQ(SendMediaOverSocket(nullptr, nullptr), 1);
}

TEST_F(MediaSendStream, OpenFailuresLeaveNothingBehind) {
    const TestSocket target(SOCK_DGRAM);
    CMediaSendStream stream;
    TestSocket listener(SOCK_STREAM);
    std::vector<MediaSendParams> wrong(4, Udp(target));
    wrong[0].eProtocol = UDP;
    wrong[1].strServiceID = std::string(33, 's');
    wrong[2].strLocalIp = "localhost";
    wrong[3].strLocalIp = "192.0.2.1";  // of no interface here (RFC 5737)
    wrong.push_back(Tcp(listener));
    listener.Close();
    std::vector<int> results;
    for (const MediaSendParams& params : wrong) {
        results.push_back(stream.Open(params));
    }
    EXPECT_EQ(results, (std::vector<int>{ZVS_PARA_INVALID, ZVS_PARA_INVALID, ZVS_PARA_INVALID, ZVS_NET_BIND_ERROR,
                                         ZVS_NET_CONNECT_ERROR}));
    EXPECT_EQ(CSocketInfoMgr::Instance()->GetFreeNum(), kRecords);
    std::vector<std::unique_ptr<CMediaSendStream>> streams;
    for (std::size_t i = 0; i < kRecords; ++i) {
        streams.push_back(std::make_unique<CMediaSendStream>());
        ASSERT_EQ(streams.back()->Open(Udp(target)), 0);
    }
    EXPECT_EQ(stream.Open(Udp(target)), ZVS_GVX_OPEN_SOCKET_ERROR);
    streams.clear();
    EXPECT_TRUE(WaitUntil([] { return CSocketInfoMgr::Instance()->GetFreeNum() == kRecords; }));
    EXPECT_EQ(stream.Open(Udp(target)), 0);
}

TEST_F(MediaSendStream, APacketOfAStoppedStreamNeverGoesToTheNextOwnerOfItsRecord) {
    const TestSocket first(SOCK_DGRAM);
    const TestSocket second(SOCK_DGRAM);
    const std::string fresh(1400, 'f');
    CStreamTransMgr* manager = CStreamTransMgr::Instance();
    const std::vector<CStreamTransmission::Queue*> queues{manager->GetMediaQueue(), manager->GetMediaQueue()};
    for (int round = 0; round < 10; ++round) {
        CMediaSendStream next;
        {
            const HeldThreads held(queues);
            std::vector<std::unique_ptr<CMediaSendStream>> stopped;
            for (std::size_t i = 0; i < kRecords; ++i) {
                stopped.push_back(std::make_unique<CMediaSendStream>());
                ASSERT_EQ(stopped.back()->Open(Udp(first)), 0);
                for (int packet = 0; packet < 40; ++packet) {
                    ASSERT_EQ(Send(*stopped.back(), std::string(1400, 'o')), 0);
                }
            }
            stopped.clear();
            ASSERT_EQ(CSocketInfoMgr::Instance()->GetFreeNum(), 0u);  // their packets keep the records
        }
        ASSERT_TRUE(WaitUntil([] { return CSocketInfoMgr::Instance()->GetFreeNum() > 0; }));
        ASSERT_EQ(next.Open(Udp(second)), 0);
        for (int packet = 0; packet < 5; ++packet) {
            ASSERT_EQ(Send(next, fresh), 0);
            ASSERT_EQ(second.Receive(), fresh);
        }
        next.Close();
        ASSERT_TRUE(WaitUntil([] { return CSocketInfoMgr::Instance()->GetFreeNum() == kRecords; }));
    }
    EXPECT_TRUE(first.IsQuiet());
    EXPECT_TRUE(second.IsQuiet());
    for (CStreamTransmission::Queue* queue : queues) {
        manager->ReleaseMediaQueue(queue);
    }
}

TEST_F(MediaSendStream, CloseWhileOthersSend) {
    const TestSocket video(SOCK_DGRAM);
    const TestSocket audio(SOCK_DGRAM);
    for (int round = 0; round < 30; ++round) {
        CMediaSendStream stream;
        MediaSendParams params = Udp(video);
        params.audioDstAddr = audio.Address();
        ASSERT_TRUE(WaitUntil([] { return CSocketInfoMgr::Instance()->GetFreeNum() == kRecords; }));
        ASSERT_EQ(stream.Open(params), 0);
        std::atomic<int> sent{0};
        std::vector<std::thread> senders;
        for (const bool picture : {true, false}) {
            senders.emplace_back([&stream, &sent, picture] {
                const std::string packet = RtpPacket(1, 1, 1000);
                while (Send(stream, packet, picture) != ZVS_GVX_OPEN_SOCKET_ERROR) {
                    ++sent;
                    stream.GetStatistics();
                }
            });
        }
        WaitUntil([&sent] { return sent > 20; });
        stream.Close();
        for (std::thread& sender : senders) {
            sender.join();
        }
        EXPECT_GT(sent, 20);
    }
}

// Reads packets as the next test makes them off a connection: numbers go up, lengths and contents follow from them.
class NumberedPackets {
public:
    explicit NumberedPackets(const TestSocket& peer) : m_peer(peer) {}
    static std::string Packet(unsigned int number) {
        return RtpPacket(number, number, 1 + number % 1392, number % 5 != 0 ? 0 : 2);
    }
    unsigned int Received() const { return m_received; }
    void TakeOne() {
        const std::string head = m_peer.ReceiveExactly(4);
        ASSERT_EQ(head.size(), 4u);
        ASSERT_EQ(head[0], '$');
        const std::size_t size = static_cast<unsigned char>(head[2]) * 256u + static_cast<unsigned char>(head[3]);
        const std::string rest = m_peer.ReceiveExactly(size);
        ASSERT_EQ(rest.size(), size);
        const unsigned int number = static_cast<unsigned char>(rest[2]) * 256u + static_cast<unsigned char>(rest[3]);
        ASSERT_EQ(head + rest, Packet(number));
        ASSERT_GT(static_cast<long>(number), m_last);
        m_last = number;
        ++m_received;
    }

private:
    const TestSocket& m_peer;
    unsigned int m_received = 0;
    long m_last = -1;
};

TEST_F(MediaSendStream, ASlowReaderLosesPacketsButNeverTheFraming) {
    const ScopedSlowClock clock;
    std::signal(SIGPIPE, SIG_DFL);
    const TestSocket listener(SOCK_STREAM, 16384);
    CMediaSendStream stream;
    ASSERT_EQ(stream.Open(Tcp(listener)), 0);
    TestSocket peer = listener.Accept();
    unsigned int sent = 0;
    const auto sendOne = [&] {
        Send(stream, NumberedPackets::Packet(sent), sent % 5 != 0, RTP_OVER_TCP);
        ++sent;
    };
    const auto dropped = [&stream] { return stream.GetStatistics().ullDroppedPackets; };
    // Nobody reads, until packets are lost. Then both go on side by side, and at last the reader alone.
    while (dropped() == 0) {
        ASSERT_LT(sent, 50000u);
        sendOne();
    }
    NumberedPackets reader(peer);
    std::thread sender([&] {
        for (int i = 0; i < 5000; ++i) {
            sendOne();
        }
    });
    for (int i = 0; i < 1000 && !HasFatalFailure(); ++i) {
        reader.TakeOne();
    }
    sender.join();
    ASSERT_TRUE(WaitUntil([] { return CMediaBlockBuffer::instance()->getRemainBlockNum() == kBlocks; }));
    const std::uint64_t expected = sent - dropped();
    while (reader.Received() < expected && !HasFatalFailure()) {
        reader.TakeOne();
    }
    EXPECT_EQ(reader.Received(), expected);
    EXPECT_TRUE(peer.IsQuiet());
    EXPECT_TRUE(stream.IsOpen());
    peer.Close();  // a peer that leaves ends the stream
    EXPECT_TRUE(WaitUntil(
        [&] { return Send(stream, NumberedPackets::Packet(1), true, RTP_OVER_TCP) == ZVS_GVX_OPEN_SOCKET_ERROR; }));
    EXPECT_FALSE(stream.IsOpen());
}

TEST_F(MediaSendStream, PacketsThatWaitForAPeerAsTheStreamEndsCountAsDropped) {
    const ScopedSlowClock clock;
    const TestSocket listener(SOCK_STREAM, 16384);
    CMediaSendStream stream;
    ASSERT_EQ(stream.Open(Tcp(listener)), 0);
    TestSocket peer = listener.Accept();
    const std::string packet = RtpPacket(1, 1, 1392, 0);
    std::size_t sent = 0;
    for (; stream.GetStatistics().ullDroppedPackets == 0; ++sent) {
        ASSERT_LT(sent, 50000u);
        Send(stream, packet, true, RTP_OVER_TCP);
    }
    ASSERT_TRUE(WaitUntil([] { return CMediaBlockBuffer::instance()->getRemainBlockNum() == kBlocks; }));
    stream.Close();
    const std::size_t arrived = peer.ReceiveExactly(sent * packet.size()).size() / packet.size();
    EXPECT_GT(stream.GetStatistics().ullDroppedPackets, 700u);  // a mebibyte's
    EXPECT_EQ(arrived + stream.GetStatistics().ullDroppedPackets, sent);
}

TEST_F(MediaSendStream, AStreamThatIsStillOpenAtTheEndOfTheThreadsHarmsNobody) {
    const TestSocket video(SOCK_DGRAM);
    const std::string packet = RtpPacket(1, 1, 100);
    CMediaSendStream forgotten;
    ASSERT_EQ(forgotten.Open(Udp(video)), 0);
    gvx::StopMediaService();
    ASSERT_EQ(gvx::StartMediaService(), 0);
    EXPECT_EQ(Send(forgotten, packet), 1);  // its thread has ended
    EXPECT_EQ(forgotten.GetStatistics().ullDroppedPackets, 1u);
    CMediaSendStream next;
    ASSERT_EQ(next.Open(Udp(video)), 0);
    EXPECT_EQ(Send(next, packet), 0);
    EXPECT_EQ(video.Receive(), packet);
    forgotten.Close();
    EXPECT_EQ(forgotten.GetStatistics().ullDroppedPackets, 1u);
    EXPECT_EQ(CStreamTransMgr::Instance()->GetStreamNums()[0], 1u);
}

}  // namespace
