#include "bp/net_address.h"

#include <algorithm>
#include <bitset>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <ifaddrs.h>
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

namespace {

// The address as it stands on the wire.
std::string WireBytes(const NetAddress& address) {
    struct sockaddr_in v4;
    struct sockaddr_in6 v6;
    if (address.storage.ss_family == AF_INET) {
        std::memcpy(&v4, &address.storage, sizeof(v4));
        return std::string(reinterpret_cast<const char*>(&v4.sin_addr), sizeof(v4.sin_addr));
    }
    std::memcpy(&v6, &address.storage, sizeof(v6));
    return std::string(reinterpret_cast<const char*>(&v6.sin6_addr), sizeof(v6.sin6_addr));
}

}  // namespace

std::string NetAddress::Site() const {
    struct sockaddr_in v4;
    struct sockaddr_in6 v6;
    if (storage.ss_family == AF_INET) {
        std::memcpy(&v4, &storage, sizeof(v4));
        return std::string(reinterpret_cast<const char*>(&v4.sin_addr), sizeof(v4.sin_addr));
    }
    std::memcpy(&v6, &storage, sizeof(v6));
    return std::string(reinterpret_cast<const char*>(&v6.sin6_addr), sizeof(v6.sin6_addr) / 2);
}

bool NetNetwork::Parse(const std::string& text, NetNetwork& network) {
    const std::size_t slash = text.find('/');
    NetNetwork parsed;
    if (!NetAddress::Parse(text.substr(0, slash).c_str(), 0, parsed.first)) {
        return false;
    }
    // An IPv4 network may be written in IPv6 form, with the 96 bits of the form ahead of its own.
    const bool ipv4 = parsed.first.storage.ss_family == AF_INET;
    const unsigned int ahead = ipv4 && text.find(':') != std::string::npos ? 96 : 0;
    const unsigned int most = ahead + (ipv4 ? 32 : 128);
    parsed.bits = most;
    if (slash != std::string::npos) {
        const std::string digits = text.substr(slash + 1);
        if (digits.empty() || digits.size() > 3 || digits.find_first_not_of("0123456789") != std::string::npos) {
            return false;
        }
        parsed.bits = static_cast<unsigned int>(std::stoul(digits));
    }
    if (parsed.bits > most || parsed.bits < ahead) {
        return false;
    }
    parsed.bits -= ahead;
    network = parsed;
    return true;
}

bool NetNetwork::Contains(const NetAddress& address) const {
    const std::string mine = WireBytes(first);
    const std::string other = WireBytes(address);
    if (mine.size() != other.size()) {
        return false;
    }
    const std::size_t whole = bits / 8;
    const unsigned int rest = bits % 8;
    if (mine.compare(0, whole, other, 0, whole) != 0) {
        return false;
    }
    const unsigned int difference = rest == 0 ? 0u : static_cast<unsigned char>(mine[whole] ^ other[whole]);
    return difference >> (8 - rest) == 0;
}

std::vector<NetNetwork> OwnNetworks(const NetAddress& local) {
    std::vector<NetNetwork> networks;
    ifaddrs* raw = nullptr;
    if (::getifaddrs(&raw) != 0) {
        return networks;
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> all(raw, &::freeifaddrs);
    const std::string wanted = WireBytes(local);
    const bool any = wanted.find_first_not_of('\0') == std::string::npos;
    for (const ifaddrs* entry = all.get(); entry != nullptr; entry = entry->ifa_next) {
        const int family = entry->ifa_addr != nullptr ? entry->ifa_addr->sa_family : AF_UNSPEC;
        if ((family != AF_INET && family != AF_INET6) || entry->ifa_netmask == nullptr) {
            continue;
        }
        const auto length =
            static_cast<socklen_t>(family == AF_INET ? sizeof(struct sockaddr_in) : sizeof(struct sockaddr_in6));
        struct sockaddr_storage address = {};
        struct sockaddr_storage mask = {};
        std::memcpy(&address, entry->ifa_addr, length);
        std::memcpy(&mask, entry->ifa_netmask, length);
        mask.ss_family = address.ss_family;  // some systems leave it out
        NetNetwork network;
        NetAddress maskAddress;
        if (!NetAddress::FromSystem(address, length, network.first) ||
            !NetAddress::FromSystem(mask, length, maskAddress) || (!any && WireBytes(network.first) != wanted)) {
            continue;
        }
        for (const char byte : WireBytes(maskAddress)) {
            network.bits += static_cast<unsigned int>(std::bitset<8>(static_cast<unsigned char>(byte)).count());
        }
        networks.push_back(network);
    }
    return networks;
}

bool NetAddress::FromSystem(const struct sockaddr_storage& storage, socklen_t length, NetAddress& address) {
    char text[INET6_ADDRSTRLEN] = {0};
    struct sockaddr_in v4 = {};
    struct sockaddr_in6 v6;
    if (storage.ss_family == AF_INET6) {
        std::memcpy(&v6, &storage, sizeof(v6));
        if (IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr)) {
            struct sockaddr_storage mapped = {};
            v4.sin_family = AF_INET;
            v4.sin_port = v6.sin6_port;
            std::memcpy(&v4.sin_addr, &v6.sin6_addr.s6_addr[12], sizeof(v4.sin_addr));
            std::memcpy(&mapped, &v4, sizeof(v4));
            return FromSystem(mapped, sizeof(v4), address);
        }
    }
    if (storage.ss_family == AF_INET) {
        std::memcpy(&v4, &storage, sizeof(v4));
        ::inet_ntop(AF_INET, &v4.sin_addr, text, sizeof(text));
        address.port = ntohs(v4.sin_port);
    } else if (storage.ss_family == AF_INET6) {
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
