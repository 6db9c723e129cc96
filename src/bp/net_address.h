#pragma once

#include <string>

#include <sys/socket.h>

namespace BP {

// An IP address and port, as the system and as text. A plain value.
struct NetAddress {
    struct sockaddr_storage storage = {};
    socklen_t length = 0;
    std::string ip;
    unsigned int port = 0;

    const struct sockaddr* Get() const { return reinterpret_cast<const struct sockaddr*>(&storage); }

    // From a numeric IPv4 or IPv6 address; names are not looked up. False when it is none, for null, or for a port
    // outside 0 to 65535. ip then has its canonical form.
    static bool Parse(const char* ip, int port, NetAddress& address);
    // From what the system tells, such as accept or getsockname. False for another family.
    static bool FromSystem(const struct sockaddr_storage& storage, socklen_t length, NetAddress& address);
};

}  // namespace BP
