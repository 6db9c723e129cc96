#include "gvxctl/socket_util.h"

#include "base/clock.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace gvxctl {
namespace {

sockaddr_in ToAddress(const Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.port);
    ::inet_pton(AF_INET, endpoint.ip.c_str(), &address.sin_addr);
    return address;
}

std::string Failure(const char* what, const Endpoint& endpoint, int code) {
    return std::string(what) + " " + EndpointText(endpoint) + ": " + std::strerror(code);
}

// The sockets calls want sockaddr; both types begin with the family, as their definition demands.
const sockaddr* Generic(const sockaddr_in& address) {
    return static_cast<const sockaddr*>(static_cast<const void*>(&address));
}

gvx::UniqueFd BindSocket(int type, const Endpoint& local, std::string& error) {
    gvx::UniqueFd fd(::socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    const sockaddr_in address = ToAddress(local);
    if (!fd.Valid() || (type == SOCK_STREAM && ::setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) ||
        ::bind(fd.Get(), Generic(address), sizeof address) != 0) {
        error = Failure("cannot bind", local, errno);
        return gvx::UniqueFd();
    }
    return fd;
}

int WaitFor(int fd, short events, int timeoutMs) {
    const std::int64_t end = gvx::MonotonicMilliseconds() + timeoutMs;
    for (;;) {
        const std::int64_t left = std::max<std::int64_t>(0, end - gvx::MonotonicMilliseconds());
        pollfd entry{fd, events, 0};
        const int count = ::poll(&entry, 1, static_cast<int>(left));
        if (count >= 0 || errno != EINTR) {
            return count;
        }
    }
}

}  // namespace

bool ResolveHost(const std::string& host, std::string& ip, std::string& error) {
    in_addr address{};
    if (::inet_pton(AF_INET, host.c_str(), &address) == 1) {
        ip = host;
        return true;
    }
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int code = ::getaddrinfo(host.c_str(), nullptr, &wanted, &found);
    if (code != 0) {
        error = "no address of the host \"" + host + "\" can be found: " + ::gai_strerror(code);
        return false;
    }
    char text[INET_ADDRSTRLEN] = "";
    ::getnameinfo(found->ai_addr, found->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
    ::freeaddrinfo(found);
    ip = text;
    return true;
}

bool ParseEndpoint(const std::string& text, Endpoint& endpoint, std::string& error) {
    const std::size_t colon = text.rfind(':');
    const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
    if (port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos ||
        std::stoul(port) > 65535) {
        error = text + " is neither HOST:PORT nor PORT";
        return false;
    }
    Endpoint parsed;
    if (colon != std::string::npos && !ResolveHost(text.substr(0, colon), parsed.ip, error)) {
        return false;
    }
    parsed.port = static_cast<std::uint16_t>(std::stoul(port));
    endpoint = parsed;
    return true;
}

std::string EndpointText(const Endpoint& endpoint) {
    return endpoint.ip + ":" + std::to_string(endpoint.port);
}

gvx::UniqueFd ConnectTcp(const Endpoint& peer, int timeoutMs, std::string& error) {
    gvx::UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_in address = ToAddress(peer);
    if (!fd.Valid() || (::connect(fd.Get(), Generic(address), sizeof address) != 0 && errno != EINPROGRESS)) {
        error = Failure("cannot connect to", peer, errno);
        return gvx::UniqueFd();
    }
    if (WaitFor(fd.Get(), POLLOUT, timeoutMs) <= 0) {
        error = Failure("cannot connect to", peer, ETIMEDOUT);
        return gvx::UniqueFd();
    }
    int code = 0;
    socklen_t length = sizeof code;
    if (::getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &code, &length) != 0 || code != 0) {
        error = Failure("cannot connect to", peer, code != 0 ? code : errno);
        return gvx::UniqueFd();
    }
    const int on = 1;
    ::setsockopt(fd.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

gvx::UniqueFd ListenTcp(const Endpoint& local, std::string& error) {
    gvx::UniqueFd fd = BindSocket(SOCK_STREAM, local, error);
    if (fd.Valid() && ::listen(fd.Get(), 16) != 0) {
        error = Failure("cannot listen on", local, errno);
        return gvx::UniqueFd();
    }
    return fd;
}

gvx::UniqueFd BindUdp(const Endpoint& local, std::string& error) {
    return BindSocket(SOCK_DGRAM, local, error);
}

gvx::UniqueFd AcceptTcp(int listener, int timeoutMs, std::string& error) {
    if (!WaitReadable(listener, timeoutMs)) {
        return gvx::UniqueFd();
    }
    gvx::UniqueFd fd(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd.Valid() && errno != EAGAIN && errno != ECONNABORTED && errno != EINTR) {
        error = std::string("cannot accept: ") + std::strerror(errno);
    }
    return fd;
}

std::uint16_t LocalPort(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (::getsockname(fd, static_cast<sockaddr*>(static_cast<void*>(&address)), &length) != 0) {
        return 0;
    }
    return ntohs(address.sin_port);
}

std::string LocalIpTowards(const Endpoint& peer) {
    const gvx::UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = ToAddress(peer);
    sockaddr_in local{};
    socklen_t length = sizeof local;
    char text[INET_ADDRSTRLEN] = "";
    if (!fd.Valid() || ::connect(fd.Get(), Generic(address), sizeof address) != 0 ||
        ::getsockname(fd.Get(), static_cast<sockaddr*>(static_cast<void*>(&local)), &length) != 0 ||
        ::inet_ntop(AF_INET, &local.sin_addr, text, sizeof text) == nullptr) {
        return std::string();
    }
    return text;
}

std::uint16_t FreeUdpPorts(const std::string& ip, int count) {
    constexpr int kTries = 64;
    std::string error;
    for (int i = 0; i < kTries; ++i) {
        const gvx::UniqueFd any = BindUdp(Endpoint{ip, 0}, error);
        const int first = any.Valid() ? (LocalPort(any.Get()) + 1) / 2 * 2 : 65535;
        int free = 0;
        while (free < count && first + free <= 65535 &&
               (first + free == LocalPort(any.Get()) ||
                BindUdp(Endpoint{ip, static_cast<std::uint16_t>(first + free)}, error).Valid())) {
            ++free;
        }
        if (free == count) {
            return static_cast<std::uint16_t>(first);
        }
    }
    return 0;
}

bool UdpPortIsTaken(std::uint16_t port) {
    std::string error;
    return !BindUdp(Endpoint{"0.0.0.0", port}, error).Valid();
}

std::string PeerIp(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    char text[INET_ADDRSTRLEN] = "";
    if (::getpeername(fd, static_cast<sockaddr*>(static_cast<void*>(&address)), &length) != 0 ||
        ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text) == nullptr) {
        return std::string();
    }
    return text;
}

std::size_t SetReceiveBuffer(int fd, std::size_t bytes) {
    const int wanted = static_cast<int>(bytes);
    // The forced form goes beyond net.core.rmem_max where the process may.
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &wanted, sizeof wanted) != 0) {
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &wanted, sizeof wanted);
    }
    int granted = 0;
    socklen_t length = sizeof granted;
    ::getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &granted, &length);
    return granted > 0 ? static_cast<std::size_t>(granted) : 0;
}

bool WaitReadable(int fd, int timeoutMs) {
    return WaitFor(fd, POLLIN, timeoutMs) > 0;
}

bool WaitWritable(int fd, int timeoutMs) {
    return WaitFor(fd, POLLOUT, timeoutMs) > 0;
}

bool SendAll(int fd, const char* data, std::size_t length, int timeoutMs) {
    const std::int64_t end = gvx::MonotonicMilliseconds() + timeoutMs;
    while (length > 0) {
        const ssize_t sent = ::send(fd, data, length, MSG_NOSIGNAL);
        if (sent > 0) {
            data += sent;
            length -= static_cast<std::size_t>(sent);
            continue;
        }
        if (sent < 0 && errno != EAGAIN && errno != EINTR) {
            return false;
        }
        const std::int64_t left = end - gvx::MonotonicMilliseconds();
        if (left <= 0 || WaitFor(fd, POLLOUT, static_cast<int>(left)) <= 0) {
            return false;
        }
    }
    return true;
}

}  // namespace gvxctl
