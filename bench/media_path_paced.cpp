#include "media_path_paced.h"

#include "bench_support.h"
#include "gvx_common/media/media_send_stream.h"
#include "gvx_common/media_memory/media_block_buffer.h"
#include "media_path_clip.h"
#include "media_path_floors.h"
#include "media_path_sink.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

namespace {

constexpr int kRounds = 5;
constexpr int kFramesPerSecond = 25;
constexpr int kSecondsARound = 2;
constexpr std::size_t kFrameBytes = 20000;  // 4 Mbit/s
constexpr std::int64_t kTickNs = 1000000;   // frames that fall into one tick are handed over together
constexpr std::size_t kFrameHead = 5;       // start code and NAL header
constexpr std::size_t kPacketSize = 1404;

// A stream of our own and the frame that it sends again and again.
class PacedStream {
public:
    PacedStream(int number, const Sink& sink)
        : m_sender(&SendMediaOverSocket, &m_stream, false), m_frame(kFrameBytes, 0x55) {
        const unsigned char head[kFrameHead] = {0, 0, 0, 1, 0x65};
        std::memcpy(m_frame.data(), head, kFrameHead);
        MediaSendParams params;
        params.strServiceID = "bench" + std::to_string(number);
        params.videoDstAddr = ACE_INET_Addr(&sink.Address(static_cast<std::size_t>(number)), sizeof(sockaddr_in));
        if (m_stream.Open(params) != 0) {
            std::fprintf(stderr, "a stream could not be opened\n");
            std::exit(2);
        }
    }
    void SendFrame() {
        const std::int64_t now = RealNs();
        std::memcpy(m_frame.data() + kFrameHead, &now, sizeof(now));
        m_sender.Send(m_frame, Codec::H264);
    }
    std::uint64_t Dropped() const { return m_stream.GetStatistics().ullDroppedPackets; }

private:
    CMediaSendStream m_stream;
    ClipSender m_sender;
    Bytes m_frame;
};

// The same packets from a plain socket. A first packet has the form that the sink looks for.
class PlainStream {
public:
    PlainStream(int number, const Sink& sink) : m_socket(sink.Address(static_cast<std::size_t>(number))) {}
    void SendFrame() {
        const std::int64_t now = RealNs();
        static char packet[kPacketSize] = {static_cast<char>(0x80)};
        std::memcpy(packet + Sink::kStampAt, &now, sizeof(now));
        std::size_t left = kFrameBytes - kFrameHead + 1;
        for (bool first = true; left > 0; first = false) {
            packet[Sink::kStampAt - 1] = static_cast<char>(first ? 0x85 : 0x05);
            const std::size_t payload = left < kPacketSize - Sink::kStampAt ? left : kPacketSize - Sink::kStampAt;
            m_socket.SendBytes(packet, Sink::kStampAt + payload);
            left -= payload;
        }
    }

private:
    BareUdp m_socket;
};

// Each stream has its own moment of the frame interval, to the tick.
void RunSchedule(const std::function<void(int)>& sendFrame) {
    constexpr std::int64_t kFrameNs = 1000000000 / kFramesPerSecond;
    const std::int64_t begin = NowNs();
    std::int64_t last = 0;
    for (int frame = 0; frame < kSecondsARound * kFramesPerSecond; ++frame) {
        for (int stream = 0; stream < kPacedStreams; ++stream) {
            const std::int64_t due = (frame * kFrameNs + stream * (kFrameNs / kPacedStreams)) / kTickNs * kTickNs;
            if (due != last) {
                SleepUntilNs(begin + due);
                last = due;
            }
            sendFrame(stream);
        }
    }
}

// Percent of one processor.
double CpuShare(const std::function<void()>& work) {
    const std::int64_t wall = NowNs();
    const std::int64_t cpu = ProcessCpuNs();
    work();
    return 100 * static_cast<double>(ProcessCpuNs() - cpu) / static_cast<double>(NowNs() - wall);
}

}  // namespace

void MeasurePacedStreams(Sink& sink, Table& table) {
    std::vector<std::unique_ptr<PacedStream>> streams;
    std::vector<std::unique_ptr<PlainStream>> plain;
    for (int i = 0; i < kPacedStreams; ++i) {
        streams.push_back(std::make_unique<PacedStream>(i, sink));
        plain.push_back(std::make_unique<PlainStream>(i, sink));
    }
    std::vector<double> ours;
    std::vector<double> floors;
    Delays delays;
    Delays floorDelays;
    for (int round = 0; round < kRounds; ++round) {
        sink.TakeDelays();
        floors.push_back(
            CpuShare([&] { RunSchedule([&](int i) { plain[static_cast<std::size_t>(i)]->SendFrame(); }); }));
        floorDelays = sink.TakeDelays();
        ours.push_back(
            CpuShare([&] { RunSchedule([&](int i) { streams[static_cast<std::size_t>(i)]->SendFrame(); }); }));
        SleepUntilNs(NowNs() + 20000000);
        delays = sink.TakeDelays();
    }
    std::uint64_t dropped = 0;
    for (const auto& stream : streams) {
        dropped += stream->Dropped();
    }
    table.Paired("500 streams: CPU share, beside bare sendto", ours, floors, "%", Goal::AtMost, 0.55);
    table.Plain("500 streams: lost on our side", static_cast<double>(dropped), "");
    table.Row("500 streams: first packet under way, p50", delays.p50Us, floorDelays.p50Us, "us");
    table.Row("500 streams: first packet under way, p99", delays.p99Us, floorDelays.p99Us, "us");
}

}  // namespace bench
