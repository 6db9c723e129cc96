#include "bp/net_address.h"

#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace BP {

bool NetAddress::Parse(const char* ip, int port, NetAddress& address) {
    if (ip == nullptr || port < 0 || port > 65535) {
        return false;
    }
    struct sockaddr_storage storage = {};
    struct sockaddr_in v4 = {};
    struct sockaddr_in6 v6 = {};
    if (::inet_pton(AF_INET, ip, &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(static_cast<std::uint16_t>(port));
        std::memcpy(&storage, &v4, sizeof(v4));
        return FromSystem(storage, sizeof(v4), address);
    }
    if (::inet_pton(AF_INET6, ip, &v6.sin6_addr) == 1) {
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(static_cast<std::uint16_t>(port));
        std::memcpy(&storage, &v6, sizeof(v6));
        return FromSystem(storage, sizeof(v6), address);
    }
    return false;
}

bool NetAddress::FromSystem(const struct sockaddr_storage& storage, socklen_t length, NetAddress& address) {
    char text[INET6_ADDRSTRLEN] = {0};
    struct sockaddr_in v4;
    struct sockaddr_in6 v6;
    if (storage.ss_family == AF_INET) {
        std::memcpy(&v4, &storage, sizeof(v4));
        ::inet_ntop(AF_INET, &v4.sin_addr, text, sizeof(text));
        address.port = ntohs(v4.sin_port);
    } else if (storage.ss_family == AF_INET6) {
        std::memcpy(&v6, &storage, sizeof(v6));
        ::inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof(text));
        address.port = ntohs(v6.sin6_port);
    } else {
        return false;
    }
    address.storage = storage;
    address.length = length;
    address.ip = text;
    return true;
}

}  // namespace BP
