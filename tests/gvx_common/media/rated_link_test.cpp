#include "base/clock.h"
#include "gvx_common/media/gvx_stream_transmission.h"
#include "gvx_common/media_memory/media_block_buffer.h"
#include "media_test_support.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

#include <netinet/tcp.h>
#include <sched.h>

namespace {

constexpr std::size_t kPacketSize = 1304;
constexpr int kPacketsAFrame = 300;
constexpr int kFrames = 3;
constexpr int kSlowNeighbours = 10;
constexpr unsigned int kBlocks = 6000;
constexpr std::size_t kRecords = 16;
constexpr std::int64_t kLateUs = 5000;

// Gives the calling thread, and those that it starts, a network of its own whose loopback has that rate. On one
// processor, since two of them bring packets of a shaped loopback out of order. False where that is not allowed.
bool EnterLinkWithRate(const char* rate) {
    cpu_set_t first;
    CPU_ZERO(&first);
    CPU_SET(0, &first);
    const std::string make =
        std::string("ip link set lo up mtu 1500 && tc qdisc add dev lo root tbf rate ") + rate + " burst 32k limit 2mb";
    return ::unshare(CLONE_NEWNET) == 0 && ::sched_setaffinity(0, sizeof(first), &first) == 0 &&
           std::system(("(" + make + ") >/dev/null 2>&1").c_str()) == 0;
}

// An interleaved packet with its number; over UDP what stands behind the interleave is as good as any.
std::string NumberedPacket(std::uint32_t number) {
    std::string packet(kPacketSize, static_cast<char>(number));
    const std::uint16_t rest = htons(kPacketSize - 4);
    packet[0] = '$';
    packet[1] = 0;
    std::memcpy(&packet[2], &rest, sizeof(rest));
    std::memcpy(&packet[4], &number, sizeof(number));
    return packet;
}

void Queue(CStreamTransmission& transmission, SOCKET_INFO& info, const std::string& packet) {
    SOCKET_INFO* const record = &info;
    ACE_Message_Block* const block = CMediaBlockBuffer::instance()->allocMediaBlock();
    ASSERT_NE(block, nullptr);
    block->rd_ptr(block->rd_ptr() - sizeof(record));
    std::memcpy(block->rd_ptr(), &record, sizeof(record));
    block->copy(packet.data(), packet.size());
    info.Hold();
    ASSERT_EQ(transmission.GetQueue()->Append(block), 0);
}

// A stream over the link with a send buffer of that size (0: the system's choice).
class LinkStream {
public:
    LinkStream(bool overTcp, int sendBuffer) : m_receiver(overTcp ? SOCK_STREAM : SOCK_DGRAM) {
        EXPECT_EQ(CSocketInfoMgr::Instance()->PopSocketQueue(m_record), 0);
        const int handle = ::socket(AF_INET, (overTcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0);
        if (sendBuffer != 0) {
            ::setsockopt(handle, SOL_SOCKET, SO_SNDBUFFORCE, &sendBuffer, sizeof(sendBuffer));
        }
        m_record->protocol = overTcp ? RTP_OVER_TCP : RTP_OVER_UDP;
        m_record->bVideoStream = true;
        m_record->videoDstAddr = m_receiver.Address();
        if (overTcp) {
            const ACE_INET_Addr to = m_receiver.Address();
            const int on = 1;
            EXPECT_EQ(::connect(handle, static_cast<const sockaddr*>(to.get_addr()), sizeof(sockaddr_in)), 0);
            ::setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
            m_accepted.push_back(m_receiver.Accept());
            m_record->videoSockStream.set_handle(handle);
        } else {
            const int room = 8 << 20;
            ::setsockopt(m_receiver.Get(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof(room));
            m_record->videoSockDgram.set_handle(handle);
            m_record->audioSockDgram.set_handle(::dup(handle));
        }
        m_record->BeginHolding(nullptr);
    }
    ~LinkStream() {
        m_record->bStopped = true;
        m_record->Drop();
    }
    LinkStream(const LinkStream&) = delete;
    LinkStream& operator=(const LinkStream&) = delete;

    SOCKET_INFO& Record() { return *m_record; }
    const TestSocket& Peer() const { return m_accepted.empty() ? m_receiver : m_accepted[0]; }
    // True when the next packet that arrives is whole and of that number.
    bool Takes(std::uint32_t number) const {
        return (m_accepted.empty() ? m_receiver.Receive() : m_accepted[0].ReceiveExactly(kPacketSize)) ==
               NumberedPacket(number);
    }

private:
    const TestSocket m_receiver;
    std::vector<TestSocket> m_accepted;
    SOCKET_INFO* m_record = nullptr;  // from the pool, and one holder more for each packet
};

// How late packets of a stream beside the link are, one a millisecond: microseconds that one in twenty passes.
std::int64_t LatenessOfNeighbour(CStreamTransmission& transmission, UdpRecord& record, const TestSocket& peer,
                                 const std::atomic<bool>& stop) {
    std::vector<std::int64_t> late;
    while (!stop) {
        const std::int64_t begin = gvx::CurrentClock().MonotonicMicroseconds();
        Queue(transmission, record.info, "x");
        EXPECT_EQ(peer.Receive(), "x");
        late.push_back(gvx::CurrentClock().MonotonicMicroseconds() - begin);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::sort(late.begin(), late.end());
    return late[late.size() * 19 / 20];
}

class RatedLink : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(CMediaBlockBuffer::instance()->init(GVX_MEDIA_BLOCK_SIZE, kBlocks, sizeof(SOCKET_INFO*)), 0);
        ASSERT_EQ(CSocketInfoMgr::Instance()->Init(), 0);
    }
    void TearDown() override {
        EXPECT_EQ(CSocketInfoMgr::Instance()->GetFreeNum(), kRecords);
        CSocketInfoMgr::Instance()->UnInit();
        EXPECT_EQ(CMediaBlockBuffer::instance()->getRemainBlockNum(), kBlocks);
        CMediaBlockBuffer::instance()->close();
    }
    const ScopedSettings m_settings{"MAX_SOCKET_SIZE=16\n"};

    // Runs the test on a thread of its own behind such a link. False where there can be none.
    static bool Behind(const char* rate, const std::function<void()>& test) {
        bool entered = false;
        std::thread([&] {
            entered = EnterLinkWithRate(rate);
            if (entered) {
                test();
            }
        }).join();
        return entered;
    }
};

TEST_F(RatedLink, LongFramesArriveWholeAndInOrderWhateverTheSendBuffer) {
    for (const char* rate : {"20mbit", "100mbit"}) {
        for (const bool overTcp : {true, false}) {
            for (const int sendBuffer : {16384, 212992, 0}) {
                const bool entered = Behind(rate, [&] {
                    SCOPED_TRACE(std::string(rate) + (overTcp ? " TCP " : " UDP ") + std::to_string(sendBuffer));
                    LinkStream stream(overTcp, sendBuffer);
                    CStreamTransmission transmission;
                    std::uint32_t sent = 0;
                    for (int frame = 0; frame < kFrames; ++frame) {
                        for (int i = 0; i < kPacketsAFrame; ++i) {
                            Queue(transmission, stream.Record(), NumberedPacket(sent++));
                        }
                        for (std::uint32_t next = sent - kPacketsAFrame; next < sent; ++next) {
                            ASSERT_TRUE(stream.Takes(next)) << next;
                        }
                    }
                });
                if (!entered) {
                    GTEST_SKIP() << "a private network namespace cannot be made";
                }
            }
        }
    }
}

// Ten receivers that read slowly behind the link; a stream that does not use it shares their thread. On a machine that
// is busy it is late anyway: it is held against a stream with a thread of its own at the same time.
TEST_F(RatedLink, SlowReceiversDoNotDelayTheirNeighbour) {
    const TestSocket peer(SOCK_DGRAM);
    const TestSocket lonePeer(SOCK_DGRAM);
    UdpRecord beside(peer, peer);
    UdpRecord alone(lonePeer, lonePeer);
    std::int64_t late = kLateUs;
    std::int64_t lateAnyway = 0;
    for (int attempt = 0; attempt < 3 && late >= lateAnyway + kLateUs; ++attempt) {
        const bool entered = Behind("20mbit", [&] {
            std::vector<std::unique_ptr<LinkStream>> slow;
            std::vector<std::thread> readers;
            std::atomic<bool> stop{false};
            for (int i = 0; i < kSlowNeighbours; ++i) {
                slow.push_back(std::make_unique<LinkStream>(true, 16384));
                readers.emplace_back([&stop, &peer = slow.back()->Peer()] {
                    std::string bytes(30000, '\0');
                    while (!stop) {
                        ::recv(peer.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
                        std::this_thread::sleep_for(std::chrono::milliseconds(100));
                    }
                });
            }
            CStreamTransmission transmission;
            CStreamTransmission ownThread;
            readers.emplace_back([&] { late = LatenessOfNeighbour(transmission, beside, peer, stop); });
            readers.emplace_back([&] { lateAnyway = LatenessOfNeighbour(ownThread, alone, lonePeer, stop); });
            for (std::uint32_t number = 0; number < 50 * 15; ++number) {
                for (const auto& stream : slow) {
                    Queue(transmission, stream->Record(), NumberedPacket(number));
                }
                if (number % 15 == 14) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(40));
                }
            }
            stop = true;
            for (std::thread& reader : readers) {
                reader.join();
            }
        });
        if (!entered) {
            GTEST_SKIP() << "a private network namespace cannot be made";
        }
    }
    EXPECT_LT(late, lateAnyway + kLateUs);
}

}  // namespace
