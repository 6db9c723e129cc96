#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

// Sockets of the tool: IPv4, close-on-exec, non-blocking, every wait bounded. Any thread; one at a time for a
// descriptor.
namespace gvxctl {

// Owns a file descriptor.
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : m_fd(fd) {}
    Fd(Fd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Fd& operator=(Fd&& other) noexcept;
    ~Fd() { Reset(); }

    int Get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    void Reset();

private:
    int m_fd = -1;
};

struct Endpoint {
    std::string ip = "127.0.0.1";
    std::uint16_t port = 0;
};

// "ip:port" or "port". False for a text that is neither or an address that is not IPv4 in dotted form.
bool ParseEndpoint(const std::string& text, Endpoint& endpoint);
std::string EndpointText(const Endpoint& endpoint);

// An empty Fd for a failure; error then says what failed, with the system's reason.
Fd ConnectTcp(const Endpoint& peer, int timeoutMs, std::string& error);
// Port 0 takes any free one; LocalPort tells which.
Fd ListenTcp(const Endpoint& local, std::string& error);
Fd BindUdp(const Endpoint& local, std::string& error);
// An empty Fd without an error text: nobody called within the time.
Fd AcceptTcp(int listener, int timeoutMs, std::string& error);

std::uint16_t LocalPort(int fd);
// The remote end of a connected socket; empty when there is none.
std::string PeerIp(int fd);

// Asks for that much room for what has arrived; answers what the kernel granted.
std::size_t SetReceiveBuffer(int fd, std::size_t bytes);

// False when the time ran out.
bool WaitReadable(int fd, int timeoutMs);

// Sends all of it; false when the peer is gone or does not read within the time.
bool SendAll(int fd, const char* data, std::size_t length, int timeoutMs);

}  // namespace gvxctl
