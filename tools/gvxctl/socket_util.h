#pragma once

#include "base/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <string>

// Sockets of the tool: IPv4, close-on-exec, non-blocking, every wait bounded. Any thread; one at a time for a
// descriptor.
namespace gvxctl {

struct Endpoint {
    std::string ip = "127.0.0.1";
    std::uint16_t port = 0;
};

// The IPv4 address of a host in dotted form; an address is its own. False with a sentence when the name has none. May
// take as long as the system's resolver does.
bool ResolveHost(const std::string& host, std::string& ip, std::string& error);
// "host:port" or "port"; the host is an IPv4 address or a name that has one. False with a sentence for anything else.
bool ParseEndpoint(const std::string& text, Endpoint& endpoint, std::string& error);
std::string EndpointText(const Endpoint& endpoint);

// No descriptor for a failure; error then says what failed, with the system's reason.
gvx::UniqueFd ConnectTcp(const Endpoint& peer, int timeoutMs, std::string& error);
// Port 0 takes any free one; LocalPort tells which.
gvx::UniqueFd ListenTcp(const Endpoint& local, std::string& error);
gvx::UniqueFd BindUdp(const Endpoint& local, std::string& error);
// No descriptor without an error text: nobody called within the time.
gvx::UniqueFd AcceptTcp(int listener, int timeoutMs, std::string& error);

std::uint16_t LocalPort(int fd);
// The address of this host from which that one is reached; empty when there is no way to it.
std::string LocalIpTowards(const Endpoint& peer);
// The first of `count` UDP ports of that address that are free one after the other and begin with an even one; 0 when
// there are none.
std::uint16_t FreeUdpPorts(const std::string& ip, int count);
// Whether a UDP socket of this host is bound to the port.
bool UdpPortIsTaken(std::uint16_t port);
// The remote end of a connected socket; empty when there is none.
std::string PeerIp(int fd);

// Asks for that much room for what has arrived; answers what the kernel granted.
std::size_t SetReceiveBuffer(int fd, std::size_t bytes);

// False when the time ran out.
bool WaitReadable(int fd, int timeoutMs);
bool WaitWritable(int fd, int timeoutMs);

// Sends all of it; false when the peer is gone or does not read within the time.
bool SendAll(int fd, const char* data, std::size_t length, int timeoutMs);

}  // namespace gvxctl
