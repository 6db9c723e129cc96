// Packets to sockets: media streams through the transmission threads to a UDP socket on loopback. The floor is a plain
// sendto loop with the same sizes at the same rate. CPU time is that of the whole process: the sender that fills the
// queue and the threads that empty it. A child process receives, so that its work is not counted.

#include "bench_support.h"

#include "gvx_common/media/media_send_stream.h"
#include "gvx_common/media/media_service.h"
#include "gvx_common/media_memory/media_block_buffer.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::size_t kPacketSize = 1404;
constexpr int kRounds = 5;
constexpr std::uint64_t kFlatOutPackets = 250000;
constexpr unsigned int kMostQueued = 2048;
constexpr int kStreams = 200;
constexpr double kBitsPerSecond = 4e6;
constexpr int kFramesPerSecond = 25;
constexpr int kSeconds = 4;
constexpr std::int64_t kSinkPauseNs = 200000;

char packet[kPacketSize] = {static_cast<char>(0x80), 99};

void SleepUntil(std::int64_t when) {
    const timespec time{static_cast<time_t>(when / 1000000000), static_cast<long>(when % 1000000000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) != 0) {
    }
}

// A child process that takes everything that comes, until this process ends it.
class Sink {
public:
    Sink() : m_handle(::socket(AF_INET, SOCK_DGRAM, 0)) {
        const int room = 8 << 20;
        ::setsockopt(m_handle, SOL_SOCKET, SO_RCVBUF, &room, sizeof(room));
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_handle, reinterpret_cast<sockaddr*>(&m_address), sizeof(m_address));
        socklen_t size = sizeof(m_address);
        ::getsockname(m_handle, reinterpret_cast<sockaddr*>(&m_address), &size);
        m_child = ::fork();
        if (m_child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::prctl(PR_SET_NAME, "bench_sink");
            Drain();
        }
    }
    ~Sink() {
        ::kill(m_child, SIGKILL);
        ::waitpid(m_child, nullptr, 0);
        ::close(m_handle);
    }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    const sockaddr_in& Address() const { return m_address; }

private:
    [[noreturn]] void Drain() const {
        constexpr std::size_t kBatch = 64;
        static char room[kBatch][2048];
        static iovec parts[kBatch];
        static mmsghdr messages[kBatch];
        for (std::size_t i = 0; i < kBatch; ++i) {
            parts[i] = {room[i], sizeof(room[i])};
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        // It looks by itself every now and then and never sleeps in the socket: waking it would be charged to whoever
        // sends, and the slower a path sends, the more often.
        while (true) {
            while (::recvmmsg(m_handle, messages, kBatch, MSG_DONTWAIT, nullptr) > 0) {
            }
            SleepUntil(bench::NowNs() + kSinkPauseNs);
        }
    }

    int m_handle;
    pid_t m_child = -1;
    sockaddr_in m_address{};
};

struct Cost {
    double cpuSeconds;
    double wallSeconds;
};

Cost Measure(const std::function<void()>& work) {
    const std::int64_t wall = bench::NowNs();
    const std::int64_t cpu = bench::ProcessCpuNs();
    work();
    return {static_cast<double>(bench::ProcessCpuNs() - cpu) / 1e9, static_cast<double>(bench::NowNs() - wall) / 1e9};
}

// Streams of our own, over UDP to the sink.
class Streams {
public:
    Streams(int count, const Sink& sink) {
        for (int i = 0; i < count; ++i) {
            MediaSendParams params;
            params.strServiceID = "bench" + std::to_string(i);
            params.videoDstAddr = ACE_INET_Addr(&sink.Address(), sizeof(sockaddr_in));
            m_streams.push_back(std::make_unique<CMediaSendStream>());
            if (m_streams.back()->Open(params) != 0) {
                std::fprintf(stderr, "a stream could not be opened\n");
                std::exit(2);
            }
        }
    }
    void Send(int stream) {
        MEDIA_DATA data{};
        data.pUserInfo = m_streams[static_cast<std::size_t>(stream)].get();
        data.pDataBuf = packet;
        data.nVideoSize = kPacketSize;
        data.eTransProtocol = RTP_OVER_UDP;
        STREAM_TYPE_EX type = STREAM_TYPE_REAL_MAIN;
        SendMediaOverSocket(&data, &type);
    }
    std::uint64_t Dropped() const {
        std::uint64_t dropped = 0;
        for (const auto& stream : m_streams) {
            dropped += stream->GetStatistics().ullDroppedPackets;
        }
        return dropped;
    }
    static unsigned int Queued() {
        CMediaBlockBuffer* pool = CMediaBlockBuffer::instance();
        return pool->getMaxBlockNum() - pool->getRemainBlockNum();
    }
    static void WaitForQueue(unsigned int most) {
        while (Queued() > most) {
            SleepUntil(bench::NowNs() + 500000);
        }
    }

private:
    std::vector<std::unique_ptr<CMediaSendStream>> m_streams;
};

class PlainSocket {
public:
    PlainSocket() : m_handle(::socket(AF_INET, SOCK_DGRAM, 0)) {
        const int room = 1 << 20;
        ::setsockopt(m_handle, SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
    }
    ~PlainSocket() { ::close(m_handle); }
    PlainSocket(const PlainSocket&) = delete;
    PlainSocket& operator=(const PlainSocket&) = delete;
    void Send(const sockaddr_in& to) const {
        ::sendto(m_handle, packet, kPacketSize, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
    }

private:
    int m_handle;
};

void FlatOut(const Sink& sink, bench::Table& table) {
    Streams streams(1, sink);
    const PlainSocket socket;
    double ours = 0;
    double floor = 0;
    double perPacket = 0;
    for (int round = 0; round < kRounds; ++round) {
        const std::uint64_t allocations = bench::Allocations();
        const Cost through = Measure([&] {
            for (std::uint64_t i = 0; i < kFlatOutPackets; ++i) {
                if (i % 128 == 0 && Streams::Queued() > kMostQueued) {
                    Streams::WaitForQueue(kMostQueued / 4);
                }
                streams.Send(0);
            }
            Streams::WaitForQueue(0);
        });
        perPacket = static_cast<double>(bench::Allocations() - allocations) / static_cast<double>(kFlatOutPackets);
        const Cost plain = Measure([&] {
            for (std::uint64_t i = 0; i < kFlatOutPackets; ++i) {
                socket.Send(sink.Address());
            }
        });
        ours = std::max(ours, static_cast<double>(kFlatOutPackets) / through.cpuSeconds);
        floor = std::max(floor, static_cast<double>(kFlatOutPackets) / plain.cpuSeconds);
        if (round == 0) {
            table.Plain("one stream flat out: packets a second of wall time",
                        static_cast<double>(kFlatOutPackets) / through.wallSeconds / 1000, "k/s");
        }
    }
    table.Row("one stream flat out: packets", ours / 1000, floor / 1000, "k/CPU s", bench::Goal::AtLeast, 0.7);
    table.Plain("one stream flat out: lost on our side", static_cast<double>(streams.Dropped()), "");
    table.Plain("one stream flat out: heap allocations a packet", perPacket, "");
}

// Each stream sends a frame at its own moment of the frame interval, its packets at once.
std::uint64_t RunSchedule(const std::function<void(int)>& send) {
    constexpr double kPacketsPerFrame = kBitsPerSecond / 8 / kFramesPerSecond / kPacketSize;
    constexpr std::int64_t kFrameNs = 1000000000 / kFramesPerSecond;
    const std::int64_t begin = bench::NowNs();
    std::uint64_t sent = 0;
    double due = 0;
    for (int frame = 0; frame < kSeconds * kFramesPerSecond; ++frame) {
        due += kPacketsPerFrame;
        const int burst = static_cast<int>(due);
        due -= burst;
        for (int stream = 0; stream < kStreams; ++stream) {
            SleepUntil(begin + frame * kFrameNs + stream * (kFrameNs / kStreams));
            for (int i = 0; i < burst; ++i) {
                send(stream);
            }
            sent += static_cast<std::uint64_t>(burst);
        }
    }
    return sent;
}

void ManyStreams(const Sink& sink, bench::Table& table) {
    Streams streams(kStreams, sink);
    std::vector<std::unique_ptr<PlainSocket>> sockets;
    for (int i = 0; i < kStreams; ++i) {
        sockets.push_back(std::make_unique<PlainSocket>());
    }
    std::uint64_t sent = 0;
    const Cost plain = Measure([&] {
        RunSchedule([&](int stream) { sockets[static_cast<std::size_t>(stream)]->Send(sink.Address()); });
    });
    const std::uint64_t allocations = bench::Allocations();
    const Cost through = Measure([&] {
        sent = RunSchedule([&](int stream) { streams.Send(stream); });
        Streams::WaitForQueue(0);
    });
    const double packets = static_cast<double>(sent);
    const double perPacket = static_cast<double>(bench::Allocations() - allocations) / packets;
    table.Row("200 streams at 4 Mbit/s: packets", packets / through.cpuSeconds / 1000,
              packets / plain.cpuSeconds / 1000, "k/CPU s", bench::Goal::AtLeast, 0.7);
    table.Row("200 streams at 4 Mbit/s: CPU share", 100 * through.cpuSeconds / through.wallSeconds,
              100 * plain.cpuSeconds / plain.wallSeconds, "%");
    table.Plain("200 streams at 4 Mbit/s: packets a second of wall time", packets / through.wallSeconds / 1000, "k/s");
    table.Plain("200 streams at 4 Mbit/s: lost on our side", static_cast<double>(streams.Dropped()), "");
    table.Plain("200 streams at 4 Mbit/s: heap allocations a packet", perPacket, "");
}

}  // namespace

int main() {
    const Sink sink;  // before any thread is started
    if (gvx::StartMediaService() != 0) {
        std::fprintf(stderr, "the media service did not start\n");
        return 2;
    }
    bench::Table table("Packets to sockets");
    FlatOut(sink, table);
    ManyStreams(sink, table);
    gvx::StopMediaService();
    return table.Print() ? 0 : 1;
}
