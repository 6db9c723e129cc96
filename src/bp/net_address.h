#pragma once

#include <string>
#include <vector>

#include <sys/socket.h>

namespace BP {

// An IP address and port, as the system and as text. An IPv4 address in IPv6 form (::ffff:0:0/96) becomes the IPv4
// address. A plain value.
struct NetAddress {
    struct sockaddr_storage storage = {};
    socklen_t length = 0;
    std::string ip;
    unsigned int port = 0;

    const struct sockaddr* Get() const { return reinterpret_cast<const struct sockaddr*>(&storage); }

    // The bytes that one host or household of hosts has in common: an IPv4 address, the first half of an IPv6 address.
    std::string Site() const;

    // From a numeric IPv4 or IPv6 address; names are not looked up. False when it is none, for null, or for a port
    // outside 0 to 65535. ip then has its canonical form.
    static bool Parse(const char* ip, int port, NetAddress& address);
    // From what the system tells, such as accept or getsockname. False for another family.
    static bool FromSystem(const struct sockaddr_storage& storage, socklen_t length, NetAddress& address);
};

// The addresses that share their first bits. A plain value.
struct NetNetwork {
    NetAddress first;
    unsigned int bits = 0;

    // From "10.0.0.0/8" or a single address, IPv4 or IPv6. False when it is none. Bits behind the prefix are not looked
    // at. "::ffff:10.0.0.0/104" is the same as the first; an IPv6 network holds no IPv4 address, "::/0" none either.
    static bool Parse(const std::string& text, NetNetwork& network);
    bool Contains(const NetAddress& address) const;
};

// The networks in which an address of this host stands, by the masks of its interfaces; for an address that means all
// of them (0.0.0.0, ::), the networks of all. Empty when the system does not tell.
std::vector<NetNetwork> OwnNetworks(const NetAddress& local);

}  // namespace BP
