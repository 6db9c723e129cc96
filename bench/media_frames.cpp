// Frames to packets: H264ToRtp of whole H.264 files into a send function that only counts. The floor is one memcpy of
// the same bytes into the same packet sizes; GStreamer's payloader into a fakesink runs on the same file.
//
//   bench_media_frames FILE.h264...

#include "bench_support.h"

#include "gvx_common/adapter/gvx_adapter_defaults.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::int64_t kLeastRunNs = 1500000000;
constexpr int kRounds = 3;
constexpr std::size_t kPeerInputBytes = 256u << 20;

// Our largest packet: RTP head, two bytes of fragment head, 1390 bytes of the unit.
constexpr std::size_t kMtu = 12 + 2 + 1390;

class Device : public CAdapterDevDefaults {};

class Lens : public CAdapterLensDefaults {
public:
    explicit Lens(CAdapterDevBase& device) : CAdapterLensDefaults("BENCH", 0, device) {}
    void Prepare(SEND_STREAM_FUNC* func) {
        getMidiaChannel(0)->m_pSendStreamFunc = func;
        getMidiaChannel(0)->m_pMediaBufWithRTP = new ACE_Message_Block(GVX_MEDIA_BUF_MIN_SIZE);
    }
};

struct Unit {
    std::size_t begin;  // behind the start code
    std::size_t end;
};

std::vector<Unit> FindUnits(const Bytes& file) {
    std::vector<Unit> units;
    std::size_t zeros = 0;
    for (std::size_t i = 0; i < file.size(); ++i) {
        if (file[i] == 1 && zeros >= 2) {
            if (!units.empty()) {
                units.back().end = i - std::min<std::size_t>(zeros, 3);
            }
            units.push_back({i + 1, file.size()});
        }
        zeros = file[i] == 0 ? zeros + 1 : 0;
    }
    return units;
}

// Frames with four-byte start codes. A frame ends before the first unit that follows its slices and is no slice, or
// is the first slice of a picture (first_mb_in_slice is 0: the bit behind the head is set).
std::vector<Bytes> SplitFrames(const Bytes& file) {
    std::vector<Bytes> frames(1);
    bool slices = false;
    for (const Unit& unit : FindUnits(file)) {
        if (unit.end <= unit.begin + 1) {
            continue;
        }
        const int type = file[unit.begin] & 0x1F;
        const bool slice = type == 1 || type == 5;
        if (slices && (!slice || (file[unit.begin + 1] & 0x80) != 0)) {
            frames.emplace_back();
            slices = false;
        }
        slices = slices || slice;
        const unsigned char startCode[] = {0, 0, 0, 1};
        frames.back().insert(frames.back().end(), startCode, startCode + 4);
        frames.back().insert(frames.back().end(), file.begin() + static_cast<std::ptrdiff_t>(unit.begin),
                             file.begin() + static_cast<std::ptrdiff_t>(unit.end));
    }
    return frames;
}

std::uint64_t packets = 0;
std::uint64_t packetBytes = 0;

int Count(MEDIA_DATA* data, STREAM_TYPE_EX*) {
    ++packets;
    packetBytes += data->nVideoSize;
    return 0;
}

void SendAll(Lens& lens, std::vector<Bytes>& frames) {
    for (Bytes& frame : frames) {
        MEDIA_DATA media{};
        media.nVideoSize = static_cast<std::uint32_t>(frame.size());
        media.eVideoFormatType = VIDEO_DEC_H264;
        media.nTimeTick = 3600;
        lens.H264ToRtp(frame.data(), static_cast<int>(frame.size()), media, 0, false, false, 0, 0, false);
    }
}

// Packets per CPU second of one pass, repeated for a while; the best of several rounds.
template <typename Pass>
double PacketsPerCpuSecond(Pass pass, std::uint64_t packetsPerPass) {
    double best = 0;
    for (int round = 0; round < kRounds; ++round) {
        const std::int64_t begin = bench::ThreadCpuNs();
        std::uint64_t done = 0;
        std::int64_t used = 0;
        while (used < kLeastRunNs / kRounds) {
            pass();
            done += packetsPerPass;
            used = bench::ThreadCpuNs() - begin;
        }
        best = std::max(best, static_cast<double>(done) * 1e9 / static_cast<double>(used));
    }
    return best;
}

// The unavoidable: each byte once into a buffer, in the sizes of the packets.
void CopyAll(const std::vector<Bytes>& frames) {
    static unsigned char buffer[2048];
    for (const Bytes& frame : frames) {
        for (std::size_t at = 0; at < frame.size(); at += kMtu) {
            std::memcpy(buffer, frame.data() + at, std::min(kMtu, frame.size() - at));
            asm volatile("" : : "r"(buffer) : "memory");
        }
    }
}

// What the payloader makes of a file: a unit that fits leaves whole, another in fragments of the payload size.
std::uint64_t PayloaderPackets(const Bytes& file) {
    std::uint64_t count = 0;
    for (const Unit& unit : FindUnits(file)) {
        const std::size_t size = unit.end - unit.begin;
        const std::size_t room = kMtu - 12 - 2;
        count += size + 12 <= kMtu ? 1 : (size - 1 + room - 1) / room;
    }
    return count;
}

// CPU seconds of a GStreamer pipeline, the least of several runs; negative when it does not run.
double PipelineCpuSeconds(const std::string& pipeline) {
    double best = std::numeric_limits<double>::max();
    const std::string command = "exec gst-launch-1.0 -q " + pipeline + " >/dev/null 2>&1";
    for (int round = 0; round < kRounds; ++round) {
        const char* const arguments[] = {"/bin/sh", "-c", command.c_str(), nullptr};
        pid_t child = 0;
        rusage usage{};
        int status = 0;
        if (posix_spawn(&child, "/bin/sh", nullptr, nullptr, const_cast<char**>(arguments), environ) != 0 ||
            wait4(child, &status, 0, &usage) != child || status != 0) {
            return -1;
        }
        const auto seconds = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        best = std::min(best, seconds(usage.ru_utime) + seconds(usage.ru_stime));
    }
    return best;
}

// Packets per CPU second of the payloader alone: what it costs on top of reading and parsing.
double PayloaderPacketsPerCpuSecond(const Bytes& file) {
    std::string path = "/tmp/gvx_bench_XXXXXX";
    if (const char* folder = std::getenv("TMPDIR")) {
        path = std::string(folder) + "/gvx_bench_XXXXXX";
    }
    const int handle = mkstemp(path.data());
    if (handle == -1) {
        return -1;
    }
    const std::size_t times = kPeerInputBytes / file.size() + 1;
    {
        std::ofstream input(path, std::ios::binary);
        for (std::size_t i = 0; i < times; ++i) {
            input.write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
        }
    }
    const std::string parse = "filesrc blocksize=1048576 location=" + path + " ! h264parse ! ";
    const double parsing = PipelineCpuSeconds(parse + "fakesink sync=false");
    const double all = PipelineCpuSeconds(parse + "rtph264pay mtu=" + std::to_string(kMtu) + " ! fakesink sync=false");
    ::close(handle);
    std::remove(path.c_str());
    return parsing < 0 || all <= parsing ? -1
                                         : static_cast<double>(PayloaderPackets(file) * times) / (all - parsing);
}

bool Measure(const std::string& path, bench::Table& table) {
    std::ifstream input(path, std::ios::binary);
    const Bytes file((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
    std::vector<Bytes> frames = SplitFrames(file);
    if (frames.size() < 2) {
        std::fprintf(stderr, "%s: no H.264 stream\n", path.c_str());
        return false;
    }
    Device device;
    Lens lens(device);
    lens.Prepare(&Count);
    SendAll(lens, frames);
    packets = 0;
    packetBytes = 0;
    const std::uint64_t allocations = bench::Allocations();
    SendAll(lens, frames);
    const double perPacket = static_cast<double>(bench::Allocations() - allocations) / static_cast<double>(packets);
    const std::uint64_t perPass = packets;
    const double ours = PacketsPerCpuSecond([&] { SendAll(lens, frames); }, perPass);
    const double floor = PacketsPerCpuSecond([&] { CopyAll(frames); }, perPass);
    const double peer = PayloaderPacketsPerCpuSecond(file);

    const std::string name = path.substr(path.find_last_of('/') + 1);
    table.Row(name + ": packets, beside memcpy", ours / 1000, floor / 1000, "k/CPU s");
    if (peer > 0) {
        table.Row(name + ": packets, beside GStreamer's payloader", ours / 1000, peer / 1000, "k/CPU s",
                  bench::Goal::AtLeast, 3.0);
    } else {
        table.Plain(name + ": GStreamer's payloader did not run", 0, "");
    }
    table.Plain(name + ": frames", static_cast<double>(frames.size()), "");
    table.Plain(name + ": packets a frame", static_cast<double>(perPass) / static_cast<double>(frames.size()), "");
    table.Plain(name + ": heap allocations a packet", perPacket, "");
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE.h264...\n", argv[0]);
        return 2;
    }
    bench::Table table("Frames to packets");
    bool measured = true;
    for (int i = 1; i < argc; ++i) {
        measured = Measure(argv[i], table) && measured;
    }
    return table.Print() && measured ? 0 : 1;
}
