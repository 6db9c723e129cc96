#include "link_frames.h"

#include "bench_support.h"
#include "nss/nss_msg.h"
#include "nss/nss_msg_type.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace bench_link {

namespace {

constexpr std::size_t kStampDigits = 18;
constexpr std::size_t kStampAt = 122 + sizeof("{\"SentNs\":\"") - 1;
constexpr std::int64_t kPauseNs = 100000;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::perror(what);
        std::exit(2);
    }
}

std::string JsonFrame(std::uint16_t type, const std::string& text) {
    CNssMsgBody message(type, 1, "bench-transaction", 0, 0, NSS_TAG_JSON_CONTENT);
    message.SetValue(text.data(), static_cast<unsigned int>(text.size()));
    ACE_Message_Block block;
    Require(message.encode(&block) == 0, "encode");
    return std::string(block.rd_ptr(), block.length());
}

sockaddr_in Loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

}  // namespace

std::string DeviceID(int device) {
    char text[32];
    std::snprintf(text, sizeof(text), "340200000013200%05d", device);
    return text;
}

std::string RequestFrame(int device, std::int64_t stampNs) {
    std::string text = "{\"SentNs\":\"" + std::string(kStampDigits, '0') + "\",\"DevCode\":\"" + DeviceID(device) +
                       "\",\"Command\":1,\"Speed\":5,\"Text\":\"";
    text.append(kBodyBytes - text.size() - 2, 'x');
    std::string frame = JsonFrame(NSS_PTZ_CONTROL_REQ, text + "\"}");
    Stamp(&frame[0], stampNs);
    return frame;
}

void Stamp(char* frame, std::int64_t stampNs) {
    for (std::size_t digit = kStampDigits; digit-- > 0; stampNs /= 10) {
        frame[kStampAt + digit] = static_cast<char>('0' + stampNs % 10);
    }
}

std::int64_t StampOf(const char* frame) {
    std::int64_t stamp = 0;
    for (std::size_t digit = 0; digit < kStampDigits; ++digit) {
        stamp = stamp * 10 + (frame[kStampAt + digit] - '0');
    }
    return stamp;
}

SharedCount::SharedCount() {
    void* const memory = ::mmap(nullptr, sizeof(*m_count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    Require(memory != MAP_FAILED, "mmap");
    m_count = new (memory) std::atomic<std::uint64_t>(0);
}

SharedCount::~SharedCount() {
    ::munmap(m_count, sizeof(*m_count));
}

PeerProcess::PeerProcess(const std::function<void()>& work) : m_child(::fork()) {
    if (m_child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::prctl(PR_SET_NAME, "bench_peer");
        work();
        ::_exit(0);
    }
}

PeerProcess::~PeerProcess() {
    ::kill(m_child, SIGKILL);
    ::waitpid(m_child, nullptr, 0);
}

int ConnectedSocket(std::uint16_t port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(port);
    const int on = 1;
    Require(::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0, "connect");
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    return socket;
}

std::string RegistrationFrame(const char* linkID) {
    return JsonFrame(NSS_BP_REGISTER_REQ, "{\"LinkID\":\"" + std::string(linkID) + "\"}");
}

int LinkedSocket(std::uint16_t port, const char* linkID) {
    const int socket = ConnectedSocket(port);
    const std::string registration = RegistrationFrame(linkID);
    WriteAll(socket, registration.data(), registration.size());
    return socket;
}

void WriteAll(int socket, const char* data, std::size_t length) {
    while (length > 0) {
        const ssize_t sent = ::send(socket, data, length, MSG_NOSIGNAL);
        Require(sent > 0, "send");
        data += sent;
        length -= static_cast<std::size_t>(sent);
    }
}

void SleepUntil(std::int64_t ns) {
    const timespec at{static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) != 0) {
    }
}

void SendFeed(int socket, const Feed& feed, const SharedCount& done) {
    std::vector<std::string> frames;
    for (int device = 0; device < feed.devices; ++device) {
        frames.push_back(RequestFrame(device, 0));
    }
    std::string group;
    std::int64_t next = bench::NowNs();
    for (std::uint64_t sent = 0; sent < feed.frames; sent += static_cast<std::uint64_t>(feed.group)) {
        while (feed.window != 0 && sent + static_cast<std::uint64_t>(feed.group) > done.Get() + feed.window) {
            SleepUntil(bench::NowNs() + kPauseNs);
        }
        if (feed.paceNs != 0) {
            next = std::max(next + feed.paceNs, bench::NowNs());
            SleepUntil(next);
        }
        group.clear();
        const std::int64_t now = bench::NowNs();
        for (int i = 0; i < feed.group; ++i) {
            group += frames[(sent + static_cast<std::uint64_t>(i)) % frames.size()];
            Stamp(&group[group.size() - kFrameBytes], now);
        }
        WriteAll(socket, group.data(), group.size());
    }
    ::pause();
}

Listener::Listener() : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof(address);
    Require(::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
                ::listen(m_socket, 1) == 0 &&
                ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) == 0,
            "listen");
    m_port = ntohs(address.sin_port);
}

Listener::~Listener() {
    ::close(m_socket);
}

int Listener::AcceptRegistered() {
    const int socket = ::accept(m_socket, nullptr, nullptr);
    Require(socket >= 0, "accept");
    std::string head(kNssHeaderBytes, '\0');
    Require(::recv(socket, &head[0], head.size(), MSG_WAITALL) == static_cast<ssize_t>(head.size()), "recv");
    std::uint32_t length = 0;
    std::memcpy(&length, &head[kNssHeaderBytes - sizeof(length)], sizeof(length));
    std::string rest(ntohl(length) - kNssHeaderBytes, '\0');
    Require(::recv(socket, &rest[0], rest.size(), MSG_WAITALL) == static_cast<ssize_t>(rest.size()), "recv");
    return socket;
}

}  // namespace bench_link
