#include "media_path_sink.h"

#include "bench_support.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <vector>

#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr std::int64_t kPauseNs = 200000;
constexpr std::int64_t kManyPauseNs = 5000000;  // a look at each of many ports takes its time
constexpr std::size_t kBatch = 64;
constexpr std::size_t kPacketRoom = 2048;
constexpr unsigned char kFuStart = 0x80;
constexpr std::size_t kFuHeadAt = 13;  // behind the RTP head and the FU indicator

}  // namespace

// Counts by tenths of a microsecond up to 100 ms. The child counts, the parent reads.
struct Sink::Shared {
    static constexpr std::size_t kSteps = 1000000;
    std::array<std::atomic<std::uint32_t>, kSteps> counts;

    // Counts the packet's delay when it is the first of a frame and says when it was sent.
    void Note(msghdr& message, const char* packet, std::size_t size);
};

void Sink::Shared::Note(msghdr& message, const char* packet, std::size_t size) {
    const cmsghdr* head = CMSG_FIRSTHDR(&message);
    if (head == nullptr || size < kStampAt + sizeof(std::int64_t) ||
        (static_cast<unsigned char>(packet[kFuHeadAt]) & kFuStart) == 0) {
        return;
    }
    timespec arrival{};
    std::int64_t sent = 0;
    std::memcpy(&arrival, CMSG_DATA(head), sizeof(arrival));
    std::memcpy(&sent, packet + kStampAt, sizeof(sent));
    const std::int64_t delay = static_cast<std::int64_t>(arrival.tv_sec) * 1000000000 + arrival.tv_nsec - sent;
    if (delay >= 0 && static_cast<std::size_t>(delay) / 100 < kSteps) {
        counts[static_cast<std::size_t>(delay) / 100].fetch_add(1, std::memory_order_relaxed);
    }
}

Sink::Sink(Kind kind, std::size_t ports) {
    void* memory = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::perror("mmap");
        std::exit(2);
    }
    m_shared = new (memory) Shared;
    for (std::size_t i = 0; i < ports; ++i) {
        Open(kind);
    }
    m_child = ::fork();
    if (m_child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::prctl(PR_SET_NAME, "bench_sink");
        kind == Kind::Udp ? DrainUdp() : DrainTcp();
    }
}

void Sink::Open(Kind kind) {
    const int handle = ::socket(AF_INET, kind == Kind::Udp ? SOCK_DGRAM : SOCK_STREAM, 0);
    const int room = 8 << 20;
    const int on = 1;
    ::setsockopt(handle, SOL_SOCKET, SO_RCVBUF, &room, sizeof(room));
    if (kind == Kind::Udp) {
        ::setsockopt(handle, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof(on));
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (::bind(handle, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        (kind == Kind::Tcp && ::listen(handle, 16) != 0) ||
        ::getsockname(handle, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        std::perror("sink");
        std::exit(2);
    }
    m_handles.push_back(handle);
    m_addresses.push_back(address);
}

Sink::~Sink() {
    ::kill(m_child, SIGKILL);
    ::waitpid(m_child, nullptr, 0);
    for (const int handle : m_handles) {
        ::close(handle);
    }
    ::munmap(m_shared, sizeof(Shared));
}

void Sink::DrainUdp() const {
    static char room[kBatch][kPacketRoom];
    static iovec parts[kBatch];
    static mmsghdr messages[kBatch];
    static char controls[kBatch][64];
    for (std::size_t i = 0; i < kBatch; ++i) {
        parts[i] = {room[i], sizeof(room[i])};
        messages[i].msg_hdr.msg_iov = &parts[i];
        messages[i].msg_hdr.msg_iovlen = 1;
        messages[i].msg_hdr.msg_control = controls[i];
    }
    const auto drain = [&](int handle) {
        while (true) {
            for (mmsghdr& message : messages) {
                message.msg_hdr.msg_controllen = sizeof(controls[0]);
            }
            const int taken = ::recvmmsg(handle, messages, kBatch, MSG_DONTWAIT, nullptr);
            if (taken <= 0) {
                return;
            }
            for (std::size_t i = 0; i < static_cast<std::size_t>(taken); ++i) {
                m_shared->Note(messages[i].msg_hdr, room[i], messages[i].msg_len);
            }
        }
    };
    while (true) {
        for (const int handle : m_handles) {
            drain(handle);
        }
        SleepUntilNs(NowNs() + (m_handles.size() == 1 ? kPauseNs : kManyPauseNs));
    }
}

// One connection after the other, each until its peer closes it. The reader waits in the socket here: a sender that
// finds no room would otherwise wait for the next look.
void Sink::DrainTcp() const {
    static char room[1 << 20];
    while (true) {
        const int peer = ::accept(m_handles.front(), nullptr, nullptr);
        if (peer == -1) {
            std::perror("accept");
            ::_exit(2);
        }
        while (::recv(peer, room, sizeof(room), 0) > 0) {
        }
        ::close(peer);
    }
}

Delays Sink::TakeDelays() {
    Delays delays;
    std::vector<std::uint32_t> counts(Shared::kSteps);
    for (std::size_t i = 0; i < Shared::kSteps; ++i) {
        counts[i] = m_shared->counts[i].exchange(0, std::memory_order_relaxed);
        delays.packets += counts[i];
    }
    std::uint64_t below = 0;
    for (std::size_t i = 0; i < Shared::kSteps; ++i) {
        below += counts[i];
        const double us = static_cast<double>(i) / 10;
        delays.p50Us = below * 2 <= delays.packets ? us : delays.p50Us;
        delays.p99Us = below * 100 <= delays.packets * 99 ? us : delays.p99Us;
    }
    return delays;
}

std::int64_t RealNs() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

void SleepUntilNs(std::int64_t when) {
    const timespec time{static_cast<time_t>(when / 1000000000), static_cast<long>(when % 1000000000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) != 0) {
    }
}

}  // namespace bench
