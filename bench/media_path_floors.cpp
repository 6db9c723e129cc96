#include "media_path_floors.h"

#include "media_path_clip.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include <netinet/tcp.h>
#include <netinet/udp.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace bench {

namespace {

constexpr std::size_t kMostSegments = 64;
constexpr std::size_t kMostBytes = 65000;
constexpr std::size_t kRtpHead = 12;
constexpr std::size_t kPeerMtu = kRtpHead + 2 + 1390;  // our largest packet
char zeros[1 << 17];

double CpuSecondsOf(const std::string& command) {
    const std::string line = "exec " + command + " >/dev/null 2>&1";
    const char* const arguments[] = {"/bin/sh", "-c", line.c_str(), nullptr};
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
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// A file with the clip as often as that; removed with the object.
class LongFile {
public:
    LongFile(const Clip& clip, std::size_t times) {
        const char* folder = std::getenv("TMPDIR");
        m_path = std::string(folder != nullptr ? folder : "/tmp") + "/gvx_bench_XXXXXX";
        const int handle = mkstemp(m_path.data());
        ::close(handle);
        std::ifstream input(clip.path, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
        std::ofstream output(m_path, std::ios::binary);
        for (std::size_t i = 0; i < times; ++i) {
            output.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        }
    }
    ~LongFile() { std::remove(m_path.c_str()); }
    LongFile(const LongFile&) = delete;
    LongFile& operator=(const LongFile&) = delete;
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

}  // namespace

BareUdp::BareUdp(const sockaddr_in& to) : m_handle(::socket(AF_INET, SOCK_DGRAM, 0)), m_to(to) {
    const int room = 1 << 20;
    ::setsockopt(m_handle, SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
}

BareUdp::~BareUdp() {
    ::close(m_handle);
}

void BareUdp::SendBytes(const char* bytes, std::size_t size) const {
    ::sendto(m_handle, bytes, size, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&m_to), sizeof(m_to));
}

void BareUdp::SendEach(const std::size_t* sizes, std::size_t count) const {
    for (std::size_t i = 0; i < count; ++i) {
        SendBytes(zeros, sizes[i]);
    }
}

bool BareUdp::SendSegmented(const std::size_t* sizes, std::size_t count) const {
    static char room[1 << 17];
    for (std::size_t at = 0; at < count;) {
        const std::size_t segment = sizes[at];
        std::size_t total = 0;
        std::size_t packets = 0;
        while (at + packets < count && packets < kMostSegments && sizes[at + packets] <= segment &&
               total + sizes[at + packets] <= kMostBytes) {
            std::memcpy(room + total, zeros, sizes[at + packets]);
            total += sizes[at + packets];
            if (sizes[at + packets++] < segment) {
                break;
            }
        }
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(std::uint16_t))] = {};
        iovec part{room, total};
        msghdr message{};
        message.msg_name = const_cast<sockaddr_in*>(&m_to);
        message.msg_namelen = sizeof(m_to);
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        if (packets > 1) {
            message.msg_control = control;
            message.msg_controllen = sizeof(control);
            cmsghdr* const head = CMSG_FIRSTHDR(&message);
            head->cmsg_level = SOL_UDP;
            head->cmsg_type = UDP_SEGMENT;
            head->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
            const auto size = static_cast<std::uint16_t>(segment);
            std::memcpy(CMSG_DATA(head), &size, sizeof(size));
        }
        if (::sendmsg(m_handle, &message, MSG_NOSIGNAL) < 0) {
            return false;
        }
        at += packets;
    }
    return true;
}

void BareUdp::SendParts(iovec* parts, std::size_t count) const {
    constexpr std::size_t kMostMessages = 128;
    struct alignas(cmsghdr) Control {
        char bytes[CMSG_SPACE(sizeof(std::uint16_t))];
    };
    std::array<mmsghdr, kMostMessages> messages;
    std::array<Control, kMostMessages> controls;
    unsigned int made = 0;
    for (std::size_t at = 0; at < count; ++made) {
        const std::size_t segment = parts[at].iov_len;
        std::size_t packets = 1;
        std::size_t total = segment;
        while (at + packets < count && packets < kMostSegments && parts[at + packets - 1].iov_len == segment &&
               parts[at + packets].iov_len <= segment && total + parts[at + packets].iov_len <= kMostBytes) {
            total += parts[at + packets++].iov_len;
        }
        messages[made] = mmsghdr{};
        msghdr& head = messages[made].msg_hdr;
        head.msg_name = const_cast<sockaddr_in*>(&m_to);
        head.msg_namelen = sizeof(m_to);
        head.msg_iov = parts + at;
        head.msg_iovlen = packets;
        if (packets > 1) {
            head.msg_control = controls[made].bytes;
            head.msg_controllen = sizeof(controls[made].bytes);
            cmsghdr* const part = CMSG_FIRSTHDR(&head);
            part->cmsg_level = SOL_UDP;
            part->cmsg_type = UDP_SEGMENT;
            part->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
            const auto size = static_cast<std::uint16_t>(segment);
            std::memcpy(CMSG_DATA(part), &size, sizeof(size));
        }
        at += packets;
    }
    for (unsigned int sent = 0; sent < made;) {
        const int now = ::sendmmsg(m_handle, messages.data() + sent, made - sent, MSG_NOSIGNAL);
        sent += now > 0 ? static_cast<unsigned int>(now) : 1;
    }
}

TwoThreads::TwoThreads(SendParts send) : m_send(std::move(send)) {
    sem_init(&m_wake, 0, 0);
    m_thread = std::thread(&TwoThreads::Run, this);
}

TwoThreads::~TwoThreads() {
    m_stop = true;
    sem_post(&m_wake);
    m_thread.join();
    sem_destroy(&m_wake);
}

void TwoThreads::Publish(std::size_t made) {
    m_made.store(made);
    if (m_asleep.load() && m_asleep.exchange(false)) {
        sem_post(&m_wake);
    }
}

void TwoThreads::Send(const std::size_t* sizes, std::size_t count) {
    std::size_t made = m_made.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < count; ++i) {
        if (made - m_sent.load(std::memory_order_acquire) == kSlots) {
            Publish(made);
            while (made - m_sent.load(std::memory_order_acquire) > kSlots / 4) {
                ::usleep(200);
            }
        }
        Slot& slot = m_slots[made % kSlots];
        slot.size = sizes[i];
        std::memcpy(slot.bytes, zeros, sizes[i]);
        ++made;
        if (i + 1 == count || (i > 0 && sizes[i] < sizes[i - 1])) {
            Publish(made);
        }
    }
}

void TwoThreads::WaitUntilSent() const {
    while (m_sent.load() != m_made.load()) {
        ::usleep(200);
    }
}

void TwoThreads::Run() {
    constexpr std::size_t kMost = 128;
    std::array<iovec, kMost> parts;
    while (!m_stop) {
        const std::size_t sent = m_sent.load(std::memory_order_relaxed);
        const std::size_t count = std::min(m_made.load() - sent, kMost);
        if (count == 0) {
            m_asleep.store(true);
            if (m_made.load() != sent && m_asleep.exchange(false)) {
                continue;
            }
            sem_wait(&m_wake);
            continue;
        }
        for (std::size_t i = 0; i < count; ++i) {
            Slot& slot = m_slots[(sent + i) % kSlots];
            parts[i] = {slot.bytes, slot.size};
        }
        m_send(parts.data(), count);
        m_sent.store(sent + count, std::memory_order_release);
    }
}

BareTcp::BareTcp(const sockaddr_in& to) : m_handle(::socket(AF_INET, SOCK_STREAM, 0)) {
    const int on = 1;
    if (::connect(m_handle, reinterpret_cast<const sockaddr*>(&to), sizeof(to)) != 0) {
        std::perror("connect");
        std::exit(2);
    }
    ::setsockopt(m_handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

BareTcp::~BareTcp() {
    ::close(m_handle);
}

void BareTcp::SendEach(const std::size_t* sizes, std::size_t count) const {
    for (std::size_t i = 0; i < count; ++i) {
        ::send(m_handle, zeros, sizes[i], MSG_NOSIGNAL);
    }
}

void BareTcp::SendUnits(const std::size_t* sizes, std::size_t count) const {
    constexpr std::size_t kMost = 1024;  // of a gathered write
    static std::vector<char> room(std::size_t{kMost} * 2048);
    std::vector<iovec> parts;
    parts.reserve(kMost);
    std::size_t used = 0;
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(room.data() + used, zeros, sizes[i]);
        parts.push_back({room.data() + used, sizes[i]});
        used += sizes[i];
        if (i + 1 < count && parts.size() < kMost && (i == 0 || sizes[i] >= sizes[i - 1])) {
            continue;
        }
        SendParts(parts.data(), parts.size());
        parts.clear();
        used = 0;
    }
}

void BareTcp::SendParts(iovec* parts, std::size_t count) const {
    for (std::size_t at = 0; at < count;) {
        msghdr head{};
        head.msg_iov = parts + at;
        head.msg_iovlen = count - at;
        const ssize_t sent = ::sendmsg(m_handle, &head, MSG_NOSIGNAL);
        if (sent < 0) {
            return;
        }
        auto left = static_cast<std::size_t>(sent);
        for (; at < count && left >= parts[at].iov_len; ++at) {
            left -= parts[at].iov_len;
        }
        if (left != 0) {
            parts[at] = {static_cast<char*>(parts[at].iov_base) + left, parts[at].iov_len - left};
        }
    }
}

void CopyFrames(const Clip& clip) {
    static unsigned char buffer[2048];
    for (const Bytes& frame : clip.frames) {
        for (std::size_t at = 0; at < frame.size(); at += kPeerMtu) {
            std::memcpy(buffer, frame.data() + at, std::min(kPeerMtu, frame.size() - at));
            asm volatile("" : : "r"(buffer) : "memory");
        }
    }
}

double PeerCpuSeconds(Peer peer, const Clip& clip, std::size_t times, std::uint16_t port) {
    const LongFile file(clip, times);
    const std::string mtu = std::to_string(kPeerMtu);
    const std::string number = std::to_string(port);
    const std::string codec = clip.codec == Codec::H264 ? "h264" : "h265";
    std::string reading;
    std::string sending;
    if (peer == Peer::GStreamer) {
        const std::string begin =
            "gst-launch-1.0 -q filesrc blocksize=1048576 location=" + file.Path() + " ! " + codec + "parse ! ";
        reading = begin + "fakesink sync=false";
        sending = begin + "rtp" + codec + "pay mtu=" + mtu +
                  " ! udpsink sync=false async=false host=127.0.0.1 port=" + number;
    } else {
        const std::string begin = "ffmpeg -nostdin -v error -f " + std::string(codec == "h264" ? "h264" : "hevc") +
                                  " -i " + file.Path() + " -c copy ";
        reading = begin + "-f null -";
        sending = begin + "-f rtp 'rtp://127.0.0.1:" + number + "?pkt_size=" + mtu + "'";
    }
    const double all = CpuSecondsOf(sending);
    const double part = CpuSecondsOf(reading);
    return all < 0 || part < 0 || all <= part ? -1 : all - part;
}

}  // namespace bench
