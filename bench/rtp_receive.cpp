// RTP in, from socket to access unit: packets a CPU second of our receiver beside GStreamer (udpsrc ! rtph264depay !
// fakesink) and ffmpeg (-c copy -f null), one stream and two hundred. A process of its own sends frames of a clip to
// all ports, packet by packet as cameras do; each receiver is a process too, and its CPU time is read while the stream
// runs. What the kernel dropped in front of a receiver does not count as received.
//
//   bench_rtp_receive CLIP.h264

#include "bench_support.h"

#include "base/base64.h"
#include "gvx_common/rtp/frame_packer.h"
#include "gvx_common/rtp/rtp_poller.h"
#include "gvx_common/rtp/rtp_view.h"
#include "gvx_common/rtp/start_code.h"

#include <ace/Message_Block.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Bytes = std::vector<std::uint8_t>;
using bench::Goal;

constexpr int kRounds = 3;
constexpr int kSecondsARun = 3;
constexpr std::uint16_t kFirstPort = 31000;

struct Stream {
    std::vector<std::vector<Bytes>> frames;
    std::string parameterSets;  // sprop-parameter-sets, RFC 6184, 8.1
};

std::vector<Bytes>* packed = nullptr;

int TakePacked(MEDIA_DATA* media, STREAM_TYPE_EX*) {
    const auto* bytes = static_cast<const std::uint8_t*>(media->pDataBuf);
    packed->emplace_back(bytes, bytes + media->nVideoSize);
    return 0;
}

std::string Base64(const unsigned char* bytes, std::size_t size) {
    std::string text(CBB::CBase64::GetEncodeBinarySize(size), '\0');
    CBB::CBase64::EncodeBinary(bytes, size, text.data(), text.size());
    return text.c_str();
}

// Each picture of the clip is one slice: a frame ends behind it.
Stream LoadStream(const char* file) {
    std::ifstream input(file, std::ios::binary);
    const Bytes clip((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
    Stream stream;
    CMediaChannel channel;
    channel.init();
    channel.m_pMediaBufWithRTP = new ACE_Message_Block(GVX_MEDIA_BUF_MIN_SIZE);
    channel.m_pSendStreamFunc = &TakePacked;
    const unsigned char* const end = clip.data() + clip.size();
    const unsigned char* at = gvx::FindStartCode(clip.data(), end);
    bool begins = true;
    while (at != end) {
        const unsigned char* const unit = at + gvx::kStartCodeLen;
        at = gvx::FindStartCode(unit, end);
        const unsigned int type = *unit & 0x1Fu;
        if ((type == 7 || type == 8) && stream.frames.size() <= 1) {
            stream.parameterSets += (stream.parameterSets.empty() ? "" : ",");
            stream.parameterSets += Base64(unit, static_cast<std::size_t>(at - unit));
        }
        if (begins) {
            stream.frames.emplace_back();
        }
        MEDIA_DATA media{};
        media.nVideoSize = 1;
        media.eVideoFormatType = VIDEO_DEC_H264;
        media.nTimeTick = 0;
        gvx::FramePacker packer(channel, media, 0, false);
        packer.BuildHead(false, 0, 0);
        packed = &stream.frames.back();
        packer.SendUnit(reinterpret_cast<const char*>(unit), static_cast<std::size_t>(at - unit));
        begins = type == 1 || type == 5;
        for (Bytes& packet : stream.frames.back()) {
            packet[1] &= 0x7F;
        }
        stream.frames.back().back()[1] |= begins ? 0x80 : 0;
    }
    return stream;
}

// Sends until it is killed, and counts for its parent.
class Sender {
public:
    Sender(const Stream& stream, std::size_t ports, int framesASecond) {
        void* const memory =
            ::mmap(nullptr, sizeof(*m_sent), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            std::perror("mmap");
            std::exit(2);
        }
        m_sent = new (memory) std::atomic<std::uint64_t>(0);
        m_child = ::fork();
        if (m_child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            Send(stream, ports, framesASecond);
        }
    }
    ~Sender() {
        ::kill(m_child, SIGKILL);
        ::waitpid(m_child, nullptr, 0);
        ::munmap(m_sent, sizeof(*m_sent));
    }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    std::uint64_t Sent() const { return m_sent->load(); }

private:
    [[noreturn]] void Send(Stream stream, std::size_t ports, int framesASecond) const {
        const int handle = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        std::uint16_t seq = 0;
        std::int64_t next = bench::NowNs();
        for (std::uint32_t number = 0;; ++number) {
            std::vector<Bytes>& frame = stream.frames[number % stream.frames.size()];
            std::vector<iovec> parts(frame.size());
            std::vector<mmsghdr> heads(frame.size());
            for (std::size_t i = 0; i < frame.size(); ++i) {
                gvx::StoreBe16(&frame[i][2], seq++);
                gvx::StoreBe32(&frame[i][4], number * 3600);
                gvx::StoreBe32(&frame[i][8], 0x12345678);
                parts[i] = {frame[i].data(), frame[i].size()};
                heads[i].msg_hdr.msg_iov = &parts[i];
                heads[i].msg_hdr.msg_iovlen = 1;
                heads[i].msg_hdr.msg_name = &to;
                heads[i].msg_hdr.msg_namelen = sizeof(to);
            }
            for (std::size_t port = 0; port < ports; ++port) {
                to.sin_port = htons(static_cast<std::uint16_t>(kFirstPort + 2 * port));
                for (std::size_t done = 0; done < heads.size();) {
                    const int count =
                        ::sendmmsg(handle, &heads[done], static_cast<unsigned int>(heads.size() - done), 0);
                    done += static_cast<std::size_t>(std::max(count, 1));
                }
                m_sent->fetch_add(heads.size());
            }
            next += 1000000000 / framesASecond;
            const timespec when{static_cast<time_t>(next / 1000000000), static_cast<long>(next % 1000000000)};
            ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &when, nullptr);
        }
    }

    std::atomic<std::uint64_t>* m_sent = nullptr;
    pid_t m_child = -1;
};

// CPU time of all threads of the process that live, in nanoseconds.
std::int64_t CpuNs(pid_t process) {
    std::int64_t sum = 0;
    std::error_code ignored;
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task", ignored)) {
        std::int64_t ns = 0;
        std::ifstream(task.path() / "schedstat") >> ns;
        sum += ns;
    }
    return sum;
}

// What the kernel has dropped at our ports, and how many of these are open.
std::uint64_t Drops(std::size_t ports, std::size_t& open) {
    std::uint64_t drops = 0;
    std::set<unsigned long> seen;
    for (const char* const file : {"/proc/net/udp", "/proc/net/udp6"}) {
        std::ifstream table(file);
        std::string line;
        std::getline(table, line);
        while (std::getline(table, line)) {
            std::istringstream words(line);
            std::vector<std::string> word((std::istream_iterator<std::string>(words)),
                                          std::istream_iterator<std::string>());
            const unsigned long port = std::strtoul(word[1].c_str() + word[1].rfind(':') + 1, nullptr, 16);
            if (port >= kFirstPort && port < kFirstPort + 2 * ports && port % 2 == 0) {
                seen.insert(port);
                drops += std::strtoull(word.back().c_str(), nullptr, 10);
            }
        }
    }
    open = seen.size();
    return drops;
}

class CountingSink : public IRtpReceiverSink {
public:
    void OnAccessUnit(const gvx::RtpAccessUnit&) override {}
};

[[noreturn]] void ReceiveOurselves(std::size_t ports) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    CountingSink sink;
    gvx::RtpPoller poller;
    std::deque<CCommonRtpReceiver> receivers;
    for (std::size_t i = 0; i < ports; ++i) {
        RtpReceiverParams params;
        params.endpoint.strLocalIp = "127.0.0.1";
        params.endpoint.usLocalPort = static_cast<std::uint16_t>(kFirstPort + 2 * i);
        receivers.emplace_back(sink);
        if (receivers.back().Open(params) != 0 || poller.Add(receivers.back()) != 0) {
            std::fprintf(stderr, "a receiver could not be opened\n");
            ::_exit(2);
        }
    }
    while (true) {
        poller.Poll(1000);
    }
}

// What cannot be left out: waits for the first packet, lets others gather for as long as our receiver does, reads.
[[noreturn]] void ReceiveBarely(std::size_t ports) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    constexpr std::size_t kMessages = 64;
    constexpr std::size_t kRoom = 2048;
    static std::uint8_t room[kMessages][kRoom];
    std::vector<iovec> parts(kMessages);
    std::vector<mmsghdr> heads(kMessages);
    for (std::size_t i = 0; i < kMessages; ++i) {
        parts[i] = {room[i], kRoom};
        heads[i].msg_hdr.msg_iov = &parts[i];
        heads[i].msg_hdr.msg_iovlen = 1;
    }
    std::vector<pollfd> sockets;
    for (std::size_t i = 0; i < ports; ++i) {
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        at.sin_port = htons(static_cast<std::uint16_t>(kFirstPort + 2 * i));
        const int handle = ::socket(AF_INET, SOCK_DGRAM, 0);
        const int bytes = 393216;
        ::setsockopt(handle, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
        if (::bind(handle, reinterpret_cast<const sockaddr*>(&at), sizeof(at)) != 0) {
            ::_exit(2);
        }
        sockets.push_back({handle, POLLIN, 0});
    }
    while (true) {
        ::poll(sockets.data(), sockets.size(), -1);
        ::usleep(gvx::RtpPoller::kRestUs);
        ::poll(sockets.data(), sockets.size(), 0);
        for (const pollfd& socket : sockets) {
            while (socket.revents != 0 && ::recvmmsg(socket.fd, heads.data(), kMessages, MSG_DONTWAIT, nullptr) ==
                                              static_cast<int>(kMessages)) {
            }
        }
    }
}

pid_t Spawn(const std::vector<std::string>& arguments) {
    const pid_t child = ::fork();
    if (child != 0) {
        return child;
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ::dup2(nowhere, 0);
    ::dup2(nowhere, 1);
    ::dup2(nowhere, 2);
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
}

std::vector<pid_t> SpawnGStreamer(std::size_t ports) {
    std::vector<std::string> arguments{"gst-launch-1.0", "-q"};
    for (std::size_t i = 0; i < ports; ++i) {
        for (const std::string& word :
             {std::string("udpsrc"), "port=" + std::to_string(kFirstPort + 2 * i), std::string("buffer-size=393216"),
              std::string("caps=application/x-rtp,media=video,clock-rate=90000,encoding-name=H264,payload=99"),
              std::string("!"), std::string("rtph264depay"), std::string("!"), std::string("fakesink"),
              std::string("sync=false")}) {
            arguments.push_back(word);
        }
    }
    return {Spawn(arguments)};
}

// ffmpeg opens its inputs one after the other: a few each for many processes.
std::vector<pid_t> SpawnFfmpeg(std::size_t ports, const std::string& parameterSets, const std::string& folder) {
    constexpr std::size_t kInputs = 10;
    std::vector<pid_t> children;
    for (std::size_t first = 0; first < ports; first += kInputs) {
        std::vector<std::string> arguments{"ffmpeg", "-nostdin", "-v", "error"};
        const std::size_t count = std::min(kInputs, ports - first);
        for (std::size_t i = 0; i < count; ++i) {
            const std::string port = std::to_string(kFirstPort + 2 * (first + i));
            const std::string file = folder + "/" + port + ".sdp";
            std::ofstream(file)
                << "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=-\nc=IN IP4 127.0.0.1\nt=0 0\nm=video " << port
                << " RTP/AVP 99\na=rtpmap:99 H264/90000\na=fmtp:99 packetization-mode=1;sprop-parameter-sets="
                << parameterSets << "\n";
            for (const char* const word : {"-protocol_whitelist", "file,udp,rtp", "-analyzeduration", "200000", "-i"}) {
                arguments.emplace_back(word);
            }
            arguments.push_back(file);
        }
        for (std::size_t i = 0; i < count; ++i) {
            arguments.emplace_back("-map");
            arguments.push_back(std::to_string(i) + ":v");
        }
        for (const char* const word : {"-c", "copy", "-f", "null", "-"}) {
            arguments.emplace_back(word);
        }
        children.push_back(Spawn(arguments));
    }
    return children;
}

// Packets a CPU second while the stream runs. Waits first until the receiver has opened its ports and read from them.
double Measure(const Sender& sender, const std::vector<pid_t>& receivers, std::size_t ports, int settleSeconds) {
    std::size_t open = 0;
    const std::int64_t limit = bench::NowNs() + 60000000000;
    while (Drops(ports, open), open < ports && bench::NowNs() < limit) {
        ::usleep(100000);
    }
    ::sleep(static_cast<unsigned int>(settleSeconds));
    const auto cpu = [&] {
        std::int64_t sum = 0;
        for (const pid_t process : receivers) {
            sum += CpuNs(process);
        }
        return sum;
    };
    const std::uint64_t dropsBefore = Drops(ports, open);
    const std::uint64_t sentBefore = sender.Sent();
    const std::int64_t cpuBefore = cpu();
    ::sleep(kSecondsARun);
    const std::int64_t cpuUsed = cpu() - cpuBefore;
    const std::uint64_t sent = sender.Sent() - sentBefore;
    const std::uint64_t dropped = Drops(ports, open) - dropsBefore;
    for (const pid_t process : receivers) {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }
    if (open < ports || cpuUsed <= 0) {
        std::fprintf(stderr, "a receiver did not run: %zu of %zu ports\n", open, ports);
        std::exit(2);
    }
    if (dropped > sent / 100) {
        std::fprintf(stderr, "  %.1f %% dropped before a receiver\n",
                     100.0 * static_cast<double>(dropped) / static_cast<double>(sent));
    }
    return static_cast<double>(sent - std::min(sent, dropped)) * 1e9 / static_cast<double>(cpuUsed);
}

// Of a receiver that has seen the clip once; every twentieth packet comes late.
double AllocationsAPacket(Stream stream) {
    CountingSink sink;
    CCommonRtpReceiver receiver(sink);
    RtpReceiverParams params;
    params.endpoint.interleavedSend = [](enRtpFlow, const std::uint8_t*, std::size_t) { return true; };
    if (receiver.Open(params) != 0) {
        std::exit(2);
    }
    std::vector<Bytes*> packets;
    for (std::vector<Bytes>& frame : stream.frames) {
        for (Bytes& packet : frame) {
            packets.push_back(&packet);
        }
    }
    std::uint16_t seq = 0;
    std::uint64_t before = 0;
    for (int turn = 0; turn < 2; ++turn) {
        before = bench::Allocations();
        for (std::size_t i = 0; i < packets.size(); ++i) {
            gvx::StoreBe16(&(*packets[i])[2], seq++);
        }
        for (std::size_t i = 0; i < packets.size(); ++i) {
            const std::size_t which = i % 20 == 0 && i + 1 < packets.size() ? i + 1 : i % 20 == 1 ? i - 1 : i;
            receiver.Push(packets[which]->data(), packets[which]->size());
        }
    }
    return static_cast<double>(bench::Allocations() - before) / static_cast<double>(packets.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CLIP.h264\n", argv[0]);
        return 2;
    }
    const Stream stream = LoadStream(argv[1]);
    if (stream.frames.size() < 10) {
        std::fprintf(stderr, "%s: no clip of H.264\n", argv[1]);
        return 2;
    }
    std::string folder = (std::filesystem::temp_directory_path() / "gvx_bench_XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) {
        std::perror("mkdtemp");
        return 2;
    }
    bench::Table table("RTP in, socket to access unit, beside the named peer; packets a CPU second");
    const auto compare = [&](std::size_t ports, int framesASecond, const std::string& name) {
        std::vector<double> ours, gstreamer, ffmpeg, bare;
        const Sender sender(stream, ports, framesASecond);
        for (int round = 0; round < kRounds; ++round) {
            const pid_t child = ::fork();
            if (child == 0) {
                ReceiveOurselves(ports);
            }
            ours.push_back(Measure(sender, {child}, ports, 1));
            const pid_t floor = ::fork();
            if (floor == 0) {
                ReceiveBarely(ports);
            }
            bare.push_back(Measure(sender, {floor}, ports, 1));
            gstreamer.push_back(Measure(sender, SpawnGStreamer(ports), ports, 2));
            ffmpeg.push_back(Measure(sender, SpawnFfmpeg(ports, stream.parameterSets, folder), ports, 4));
        }
        table.Paired(name + ", a bare loop of poll and recvmmsg", ours, bare, "packets/s");
        table.Paired(name + ", GStreamer", ours, gstreamer, "packets/s", Goal::AtLeast, 3.0);
        table.Paired(name + ", ffmpeg", ours, ffmpeg, "packets/s", Goal::AtLeast, 3.0);
    };
    compare(1, 2000, "one stream, 2000 frames/s");
    compare(1, 500, "one stream, 500 frames/s");
    compare(200, 10, "200 streams");
    table.Plain("heap allocations a packet", AllocationsAPacket(stream), "");
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return table.Print() ? 0 : 1;
}
