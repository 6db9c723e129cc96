// The media path beside its floors and peers: whole coded frames in memory to packets, to UDP and to interleaved TCP,
// and 500 paced streams. Each figure is the median of paired runs; CPU time is that of the whole process, the device
// thread and the transmission threads together.
//
//   bench_media_path FIRST.h264 [MORE.h264|MORE.h265]...     the goals are for the first

#include "bench_support.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/media/media_send_stream.h"
#include "gvx_common/media/media_service.h"
#include "gvx_common/media_memory/media_block_buffer.h"
#include "media_path_clip.h"
#include "media_path_floors.h"
#include "media_path_paced.h"
#include "media_path_sink.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <arpa/inet.h>

namespace {

using bench::Clip;
using bench::Goal;
using bench::Sink;

// Many short rounds: what else the machine does at a moment falls on path and floor alike.
constexpr int kRounds = 21;
constexpr std::size_t kPacketsARound = 40000;
constexpr int kPeerRounds = 5;
constexpr std::size_t kPeerPackets = 400000;
constexpr unsigned int kMostQueued = 2048;

std::uint64_t counted = 0;

int Count(MEDIA_DATA*, STREAM_TYPE_EX*) {
    ++counted;
    return 0;
}

double CpuSeconds(const std::function<void()>& work) {
    const std::int64_t begin = bench::ProcessCpuNs();
    work();
    return static_cast<double>(bench::ProcessCpuNs() - begin) / 1e9;
}

unsigned int Queued() {
    CMediaBlockBuffer* pool = CMediaBlockBuffer::instance();
    return pool->getMaxBlockNum() - pool->getRemainBlockNum();
}

void WaitForQueue(unsigned int most) {
    while (Queued() > most) {
        bench::SleepUntilNs(bench::NowNs() + 200000);
    }
}

// One open stream to a sink, fed with whole frames.
class Path {
public:
    Path(const Sink& sink, bool overTcp) : m_sender(&SendMediaOverSocket, &m_stream, overTcp) {
        MediaSendParams params;
        params.strServiceID = "bench";
        params.eProtocol = overTcp ? RTP_OVER_TCP : RTP_OVER_UDP;
        params.videoDstAddr = ACE_INET_Addr(&sink.Address(), sizeof(sockaddr_in));
        if (m_stream.Open(params) != 0) {
            std::fprintf(stderr, "the stream could not be opened\n");
            std::exit(2);
        }
    }
    // Packets that left a CPU second.
    double Run(Clip& clip, std::size_t times) {
        const MediaSendStatistics before = m_stream.GetStatistics();
        const double seconds = CpuSeconds([&] {
            for (std::size_t i = 0; i < times; ++i) {
                for (bench::Bytes& frame : clip.frames) {
                    m_sender.Send(frame, clip.codec);
                    if (Queued() > kMostQueued) {
                        WaitForQueue(kMostQueued / 4);
                    }
                }
            }
            WaitForQueue(0);
        });
        const MediaSendStatistics after = m_stream.GetStatistics();
        const std::uint64_t dropped = after.ullDroppedPackets - before.ullDroppedPackets;
        m_lost += dropped;
        return static_cast<double>(after.ullVideoPackets - before.ullVideoPackets - dropped) / seconds;
    }
    std::uint64_t Lost() const { return m_lost; }

private:
    CMediaSendStream m_stream;
    bench::ClipSender m_sender;
    std::uint64_t m_lost = 0;
};

// Runs path and floor in turns.
struct Pairs {
    std::vector<double> values;
    std::vector<double> floors;
    void Add(double value, double floor) {
        values.push_back(value / 1000);
        floors.push_back(floor / 1000);
    }
};

class Bench {
public:
    Bench(Clip& clip, bool hasGoals, bench::Table& table)
        : m_clip(clip),
          m_goal(hasGoals ? Goal::AtLeast : Goal::None),
          m_table(table),
          m_udpSizes(bench::PacketSizes(clip, false)),
          m_tcpSizes(bench::PacketSizes(clip, true)),
          m_times(kPacketsARound / m_udpSizes.size() + 1) {}

    void ToPackets();
    void ToUdp(const Sink& sink);
    void ToTcp(const Sink& sink);

private:
    void BesidePeer(bench::Peer peer, const char* name, Path& path, const Sink& sink);
    double PeerGoal() const { return m_goal == Goal::AtLeast ? 4.2 : m_clip.codec == bench::Codec::H265 ? 3.5 : 5.0; }
    double Rate(const std::function<void()>& pass) const {
        const double seconds = CpuSeconds([&] {
            for (std::size_t i = 0; i < m_times; ++i) {
                pass();
            }
        });
        return static_cast<double>(m_udpSizes.size() * m_times) / seconds;
    }
    double Rate(bench::TwoThreads& threads, const std::vector<std::size_t>& sizes) const {
        const double seconds = CpuSeconds([&] {
            for (std::size_t i = 0; i < m_times; ++i) {
                threads.Send(sizes.data(), sizes.size());
            }
            threads.WaitUntilSent();
        });
        return static_cast<double>(sizes.size() * m_times) / seconds;
    }
    std::string Name(const char* what) const { return m_clip.name + ": " + what; }

    Clip& m_clip;
    const Goal m_goal;
    bench::Table& m_table;
    const std::vector<std::size_t> m_udpSizes;
    const std::vector<std::size_t> m_tcpSizes;
    const std::size_t m_times;
};

void Bench::ToPackets() {
    bench::ClipSender sender(&Count, nullptr, false);
    const auto pass = [&] {
        for (bench::Bytes& frame : m_clip.frames) {
            sender.Send(frame, m_clip.codec);
        }
    };
    pass();
    counted = 0;
    const std::uint64_t allocations = bench::Allocations();
    pass();
    const double perPacket = static_cast<double>(bench::Allocations() - allocations) / static_cast<double>(counted);
    Pairs pairs;
    for (int round = 0; round < kRounds; ++round) {
        const double ours = Rate(pass);
        pairs.Add(ours, Rate([&] { bench::CopyFrames(m_clip); }));
    }
    m_table.Paired(Name("to packets, beside one memcpy"), pairs.values, pairs.floors, "k/CPU s", m_goal, 0.35);
    m_table.Plain(Name("to packets, heap allocations a packet"), perPacket, "");
}

void Bench::ToUdp(const Sink& sink) {
    Path path(sink, false);
    const bench::BareUdp bare(sink.Address());
    bench::TwoThreads yardstick([&bare](iovec* parts, std::size_t count) { bare.SendParts(parts, count); });
    path.Run(m_clip, 1);
    const std::uint64_t allocations = bench::Allocations();
    path.Run(m_clip, 1);
    const std::uint64_t allocated = bench::Allocations() - allocations;
    Pairs two;
    Pairs segmented;
    Pairs plain;
    bool offload = true;
    for (int round = 0; round < kRounds; ++round) {
        const double ours = path.Run(m_clip, m_times);
        two.Add(ours, Rate(yardstick, m_udpSizes));
        segmented.Add(ours,
                      Rate([&] { offload = bare.SendSegmented(m_udpSizes.data(), m_udpSizes.size()) && offload; }));
        plain.Add(ours, Rate([&] { bare.SendEach(m_udpSizes.data(), m_udpSizes.size()); }));
    }
    m_table.Paired(Name("to UDP, beside two bare threads"), two.values, two.floors, "k/CPU s", m_goal, 1 / 1.15);
    if (offload) {
        m_table.Paired(Name("to UDP, beside a bare UDP_SEGMENT loop"), segmented.values, segmented.floors, "k/CPU s");
    } else {
        m_table.Plain(Name("to UDP: the kernel refuses UDP_SEGMENT"), 0, "");
    }
    m_table.Paired(Name("to UDP, beside a bare sendto loop"), plain.values, plain.floors, "k/CPU s");
    BesidePeer(bench::Peer::GStreamer, "to UDP, beside GStreamer", path, sink);
    BesidePeer(bench::Peer::Ffmpeg, "to UDP, beside ffmpeg", path, sink);
    m_table.Plain(Name("to UDP, lost on our side"), static_cast<double>(path.Lost()), "");
    m_table.Plain(Name("to UDP, heap allocations a packet"),
                  static_cast<double>(allocated) / static_cast<double>(m_udpSizes.size()), "");
}

void Bench::BesidePeer(bench::Peer peer, const char* name, Path& path, const Sink& sink) {
    const std::size_t times = kPeerPackets / m_udpSizes.size() + 1;
    Pairs pairs;
    for (int round = 0; round < kPeerRounds; ++round) {
        const double seconds = bench::PeerCpuSeconds(peer, m_clip, times, ntohs(sink.Address().sin_port));
        if (seconds > 0) {
            pairs.Add(path.Run(m_clip, m_times), static_cast<double>(m_udpSizes.size() * times) / seconds);
        }
    }
    if (pairs.values.empty()) {
        m_table.Plain(Name(name) + ": it did not run", 0, "");
        return;
    }
    m_table.Paired(Name(name), pairs.values, pairs.floors, "k/CPU s", Goal::AtLeast, PeerGoal());
}

void Bench::ToTcp(const Sink& sink) {
    Pairs two;
    Pairs each;
    Pairs gathered;
    std::uint64_t lost = 0;
    for (int round = 0; round < kRounds; ++round) {
        double ours = 0;
        {
            Path path(sink, true);
            ours = path.Run(m_clip, m_times);
            lost += path.Lost();
        }
        const bench::BareTcp bare(sink.Address());
        bench::TwoThreads yardstick([&bare](iovec* parts, std::size_t count) { bare.SendParts(parts, count); });
        two.Add(ours, Rate(yardstick, m_tcpSizes));
        each.Add(ours, Rate([&] { bare.SendEach(m_tcpSizes.data(), m_tcpSizes.size()); }));
        gathered.Add(ours, Rate([&] { bare.SendUnits(m_tcpSizes.data(), m_tcpSizes.size()); }));
    }
    m_table.Paired(Name("to TCP, beside one gathered write a picture"), gathered.values, gathered.floors, "k/CPU s",
                   m_goal, 1 / 1.25);
    m_table.Paired(Name("to TCP, beside two bare threads"), two.values, two.floors, "k/CPU s");
    m_table.Paired(Name("to TCP, beside one send a packet"), each.values, each.floors, "k/CPU s");
    m_table.Plain(Name("to TCP, lost on our side"), static_cast<double>(lost), "");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FIRST.h264 [MORE.h264|MORE.h265]...\n", argv[0]);
        return 2;
    }
    const Sink udp(Sink::Kind::Udp);  // before any thread is started
    const Sink tcp(Sink::Kind::Tcp);
    Sink many(Sink::Kind::Udp, bench::kPacedStreams);
    // As many transmission threads as the shipped configuration asks for.
    setenv("GVX_CONFIG_DIR", GVX_SOURCE_TREE "/conf", 0);
    setenv("GVX_ROOT", "/nonexistent", 0);
    if (CGvxConfigMgr::Instance()->Init() != 0 || gvx::StartMediaService() != 0) {
        std::fprintf(stderr, "the media service did not start\n");
        return 2;
    }
    bench::Table table("Media path");
    for (int i = 1; i < argc; ++i) {
        Clip clip = bench::ReadClip(argv[i]);
        Bench bench(clip, i == 1, table);
        bench.ToPackets();
        bench.ToUdp(udp);
        bench.ToTcp(tcp);
    }
    bench::MeasurePacedStreams(many, table);
    gvx::StopMediaService();
    return table.Print() ? 0 : 1;
}
