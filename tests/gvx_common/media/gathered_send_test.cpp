#include "gvx_common/media/media_send_stream.h"
#include "gvx_common/media/media_service.h"
#include "gvx_common/media/packet_batch.h"
#include "gvx_common/media/socket_write.h"
#include "gvx_common/rtp/packet_run.h"
#include "media_test_support.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

// Sizes as frames make them, and such that no two neighbours could share a segmented buffer.
const std::vector<std::size_t> kSizes{1403, 1404, 1404, 1404, 300, 1404, 1404, 1405, 20,   20,   20,
                                      1,    1,    1200, 12,   13,  14,   2000, 2000, 2000, 1999, 2000};

std::vector<std::string> Packets(char mark, std::size_t count) {
    std::vector<std::string> packets;
    for (std::size_t i = 0; i < count; ++i) {
        packets.emplace_back(kSizes[i % kSizes.size()], static_cast<char>(mark + i % 20));
    }
    return packets;
}

std::vector<iovec> Parts(std::vector<std::string>& packets) {
    std::vector<iovec> parts;
    for (std::string& packet : packets) {
        parts.push_back({packet.data(), packet.size()});
    }
    return parts;
}

TEST(WriteDatagrams, EveryPacketArrivesAsOneDatagramWhetherSegmentedOrNot) {
    for (const bool refuse : {false, true}) {
        const TestSocket peer(SOCK_DGRAM);
        UdpRecord record(peer, peer);
        if (refuse) {  // without checksums the kernel does not segment
            const int on = 1;
            ASSERT_EQ(::setsockopt(record.sockets[0].Get(), SOL_SOCKET, SO_NO_CHECK, &on, sizeof(on)), 0);
        }
        std::vector<std::string> packets = Packets('a', gvx::PacketBatch::kRoom);
        const std::vector<iovec> parts = Parts(packets);
        for (int round = 0; round < 2; ++round) {
            const gvx::SocketWrite write = gvx::WriteDatagrams(record.info, parts.data(), parts.size());
            EXPECT_EQ(write.done, parts.size());
            EXPECT_EQ(write.lost, 0u);
            for (const std::string& packet : packets) {
                ASSERT_EQ(peer.Receive(), packet);
            }
        }
        EXPECT_TRUE(record.info.bNoSegments || !refuse);
        // A packet that cannot be sent costs no other.
        packets[2].assign(70000, 'x');
        EXPECT_EQ(gvx::WriteDatagrams(record.info, Parts(packets).data(), 5).lost, 1u);
        for (const std::size_t i : {0, 1, 3, 4}) {
            EXPECT_EQ(peer.Receive(), packets[i]);
        }
        EXPECT_TRUE(record.info.bNoSegments || !refuse);
    }
}

// Each thread sends packets of NAL units to peers that read, stall, leave or reset the connection; the stream ends
// early or late. Together they come to some 5,000 packets a second.
TEST(GatheredSend, StreamsThatStallEndAndAreResetGiveEverythingBack) {
    constexpr int kStreams = 8;
    constexpr int kUnits = 20;
    constexpr int kPacketsAUnit = 17;
    const ScopedSettings settings(
        "MAX_SOCKET_SIZE=8\nTRANSMISSION_THREAD_NUM=2\nMEDIA_BLOCK_NUM=512\nMEDIA_PARK_BYTES=131072\n");
    ASSERT_EQ(gvx::StartMediaService(), 0);
    enum Peer : unsigned int { Reads, Stalls, Leaves, Resets };
    std::vector<std::thread> senders;
    for (unsigned int seed = 0; seed < 3; ++seed) {
        senders.emplace_back([seed] {
            std::mt19937 random(seed);
            for (unsigned int i = 0; i < kStreams; ++i) {
                const TestSocket listener(SOCK_STREAM, 8192);
                const unsigned int peerKind = i % 4;
                MediaSendParams params;
                params.eProtocol = RTP_OVER_TCP;
                params.videoDstAddr = listener.Address();
                std::optional<CMediaSendStream::SendTurn> turn;  // which the stream may end within
                if (seed != 0) {
                    turn.emplace();
                }
                CMediaSendStream stream;
                ASSERT_EQ(stream.Open(params), 0);
                TestSocket peer = listener.Accept();
                const auto closeAt = static_cast<int>(random() % (2 * kUnits));
                for (int unit = 0; unit < kUnits; ++unit) {
                    {
                        const gvx::PacketRun run(kPacketsAUnit);
                        for (int left = kPacketsAUnit; left > 0; --left) {
                            std::string packet(1 + random() % 1404, 'p');
                            MEDIA_DATA data{};
                            data.pDataBuf = packet.data();
                            data.nVideoSize = static_cast<std::uint32_t>(packet.size());
                            data.eTransProtocol = RTP_OVER_TCP;
                            stream.Send(data);
                        }
                    }
                    if (peerKind == Reads) {
                        std::string bytes(65536, '\0');
                        ::recv(peer.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
                    } else if (peerKind != Stalls && unit == kUnits / 2) {
                        const linger reset{1, 0};
                        if (peerKind == Resets) {
                            ::setsockopt(peer.Get(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
                        }
                        peer.Close();
                    }
                    if (unit == closeAt) {
                        stream.Close();
                    }
                    std::this_thread::sleep_for(std::chrono::milliseconds(10));
                }
                const MediaSendStatistics statistics = stream.GetStatistics();
                EXPECT_GE(statistics.ullVideoPackets, 1u);
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    EXPECT_TRUE(WaitUntil([] { return CSocketInfoMgr::Instance()->GetFreeNum() == 8; }));
    EXPECT_TRUE(WaitUntil([] { return CMediaBlockBuffer::instance()->getRemainBlockNum() == 512; }));
    EXPECT_EQ(gvx::ParkedPackets::BytesOfAll(), 0u);
    gvx::StopMediaService();
}

}  // namespace
