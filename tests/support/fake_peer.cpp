#include "support/fake_peer.h"

#include "base/fixed_text.h"
#include "base/json_io.h"
#include "nss/nss_msg.h"

#include <json/value.h>

#include <algorithm>
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::uint16_t kRegisterReq = 0x0000;
constexpr std::uint16_t kKeepAliveReq = 0x0002;
constexpr std::uint32_t kLongestFrame = 64u << 20;

using Time = std::chrono::steady_clock;

int LeftMs(Time::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Time::now()).count();
    return static_cast<int>(std::max<long long>(0, left));
}

sockaddr_in LoopbackAddress(const char* ip, std::uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    ::inet_pton(AF_INET, ip, &address.sin_addr);
    return address;
}

std::uint16_t BoundPort(int fd) {
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

std::string RegistrationBody(const std::string& id) {
    Json::Value body;
    body["LinkID"] = id;
    return FakePeer::MakeItem(NSS_TAG_JSON_CONTENT, gvx::WriteJson(body));
}

std::string IdentifierIn(const FakePeer::Frame& frame) {
    NssBodyView item;
    Json::Value value;
    std::string error;
    if (!NssFindItem(frame.body.data(), frame.body.size(), NSS_TAG_JSON_CONTENT, item) ||
        !gvx::ParseJson(item.data, item.length, value, &error)) {
        return std::string();
    }
    return gvx::JsonText(value, "LinkID");
}

}  // namespace

std::string FakePeer::Frame::Transaction() const {
    return gvx::TextOf(head.szTransactionNo);
}

std::string FakePeer::MakeFrame(std::uint16_t type, std::uint32_t seq, const std::string& transID,
                                std::uint32_t rspCode, const std::string& body) {
    NssMsgHeader head = {};
    head.usiProtocolVersion = kNssProtocolVersion;
    head.usiMsgType = type;
    head.uiSeqID = seq;
    head.uiRspCode = rspCode;
    transID.copy(head.szTransactionNo, sizeof(head.szTransactionNo) - 1);
    head.uiPacketLength = static_cast<std::uint32_t>(kNssHeaderBytes + body.size());
    NssSwapHeader(head);
    return std::string(reinterpret_cast<const char*>(&head), kNssHeaderBytes) + body;
}

std::string FakePeer::MakeItem(std::uint16_t tag, const std::string& value) {
    const std::uint16_t wireTag = htons(tag);
    const std::uint32_t wireLength = htonl(static_cast<std::uint32_t>(value.size()));
    std::string item(reinterpret_cast<const char*>(&wireTag), sizeof(wireTag));
    item.append(reinterpret_cast<const char*>(&wireLength), sizeof(wireLength));
    return item + value;
}

FakePeer::FakePeer(int fd) : m_fd(fd) {
    const timeval limit = {kLimit.count() / 1000, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

std::unique_ptr<FakePeer> FakePeer::Connect(std::uint16_t port, const char* ip, int receiveBufferBytes) {
    auto peer = std::make_unique<FakePeer>(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (receiveBufferBytes > 0) {
        ::setsockopt(peer->m_fd, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof(receiveBufferBytes));
    }
    const int on = 1;
    ::setsockopt(peer->m_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    const sockaddr_in address = LoopbackAddress(ip, port);
    if (::connect(peer->m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return nullptr;
    }
    return peer;
}

std::optional<std::uint32_t> FakePeer::Register(const std::string& id, std::string* answered) {
    if (!SendFrame(kRegisterReq, 1, "register", 0, RegistrationBody(id))) {
        return std::nullopt;
    }
    const std::optional<Frame> answer = ReadFrame();
    if (!answer || answer->head.usiMsgType != kRegisterReq + kNssResponseOffset) {
        return std::nullopt;
    }
    if (answered != nullptr) {
        *answered = IdentifierIn(*answer);
    }
    return answer->head.uiRspCode;
}

std::string FakePeer::AnswerRegistration(const std::string& id, std::uint32_t rspCode) {
    const std::optional<Frame> request = ReadFrame();
    if (!request || request->head.usiMsgType != kRegisterReq ||
        !SendFrame(kRegisterReq + kNssResponseOffset, request->head.uiSeqID, request->Transaction(), rspCode,
                   RegistrationBody(id))) {
        return std::string();
    }
    return IdentifierIn(*request);
}

bool FakePeer::SendRaw(const std::string& bytes) {
    return ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool FakePeer::SendFrame(std::uint16_t type, std::uint32_t seq, const std::string& transID, std::uint32_t rspCode,
                         const std::string& body) {
    return SendRaw(MakeFrame(type, seq, transID, rspCode, body));
}

std::size_t FakePeer::Read(char* target, std::size_t length, Time::time_point deadline, bool& closed) {
    pollfd watched = {m_fd, POLLIN, 0};
    if (::poll(&watched, 1, LeftMs(deadline)) <= 0) {
        return 0;
    }
    const ssize_t got = ::recv(m_fd, target, length, MSG_DONTWAIT);
    closed = got <= 0;
    return closed ? 0 : static_cast<std::size_t>(got);
}

bool FakePeer::ReadAll(char* target, std::size_t length, Time::time_point deadline) {
    bool closed = false;
    std::size_t done = 0;
    for (std::size_t got = 1; done < length && got > 0; done += got) {
        got = Read(target + done, length - done, deadline, closed);
    }
    return done == length;
}

std::optional<FakePeer::Frame> FakePeer::ReadFrame(bool withKeepAlive, std::chrono::milliseconds limit) {
    const Time::time_point deadline = Time::now() + limit;
    while (true) {
        Frame frame;
        char wire[kNssHeaderBytes];
        if (!ReadAll(wire, sizeof(wire), deadline)) {
            return std::nullopt;
        }
        std::memcpy(&frame.head, wire, sizeof(wire));
        NssSwapHeader(frame.head);
        if (frame.head.uiPacketLength < kNssHeaderBytes || frame.head.uiPacketLength > kLongestFrame) {
            return std::nullopt;
        }
        frame.body.resize(frame.head.uiPacketLength - kNssHeaderBytes);
        if (!ReadAll(frame.body.data(), frame.body.size(), deadline)) {
            return std::nullopt;
        }
        const std::uint16_t type = frame.head.usiMsgType;
        if (withKeepAlive || (type != kKeepAliveReq && type != kKeepAliveReq + kNssResponseOffset)) {
            return frame;
        }
        if (type == kKeepAliveReq && !SendFrame(kKeepAliveReq + kNssResponseOffset, frame.head.uiSeqID)) {
            return std::nullopt;
        }
    }
}

bool FakePeer::ReadUntilClosed(std::chrono::milliseconds limit) {
    const Time::time_point deadline = Time::now() + limit;
    char dropped[4096];
    bool closed = false;
    while (Read(dropped, sizeof(dropped), deadline, closed) > 0) {
    }
    return closed;
}

bool FakePeer::Connected() {
    char byte;
    const ssize_t got = ::recv(m_fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return got > 0 || (got < 0 && errno == EAGAIN);
}

std::uint16_t FakePeer::LocalPort() const {
    return BoundPort(m_fd);
}

void FakePeer::Close() {
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

FakeListener::FakeListener(std::uint16_t port, const char* ip) {
    m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    const sockaddr_in address = LoopbackAddress(ip, port);
    if (::bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 || ::listen(m_fd, 16) != 0) {
        ::close(m_fd);
        m_fd = -1;
        return;
    }
    m_port = BoundPort(m_fd);
}

FakeListener::~FakeListener() {
    ::close(m_fd);
}

std::unique_ptr<FakePeer> FakeListener::Accept(std::chrono::milliseconds limit) {
    pollfd watched = {m_fd, POLLIN, 0};
    if (::poll(&watched, 1, LeftMs(Time::now() + limit)) <= 0) {
        return nullptr;
    }
    const int fd = ::accept4(m_fd, nullptr, nullptr, SOCK_CLOEXEC);
    return fd >= 0 ? std::make_unique<FakePeer>(fd) : nullptr;
}
