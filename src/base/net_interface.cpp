#include "base/net_interface.h"

#include "base/fixed_text.h"
#include "base/paths.h"

#include <fstream>
#include <memory>
#include <string>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

namespace {

constexpr const char* kNetworkFile = "/network.conf";
constexpr const char* kModeKey = "NETWORK_MODE";
constexpr std::size_t kAddressBytes = 16;

std::string Trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t\r");
    return begin == std::string::npos ? std::string() : text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

// The value behind "key=" in the network file; empty when there is none.
std::string NetworkSetting(const std::string& key) {
    std::string directory;
    if (get_config_directory(directory) != 0) {
        return std::string();
    }
    std::ifstream file(directory + kNetworkFile);
    for (std::string line; std::getline(file, line);) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos && Trimmed(line.substr(0, equals)) == key) {
            return Trimmed(line.substr(equals + 1));
        }
    }
    return std::string();
}

bool FindAddress(const std::string& interfaceName, char* ip) {
    ifaddrs* raw = nullptr;
    if (getifaddrs(&raw) != 0) {
        return false;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> all(raw, freeifaddrs);
    for (const ifaddrs* entry = all.get(); entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET || interfaceName != entry->ifa_name) {
            continue;
        }
        sockaddr_in address{};
        memcpy_s(&address, sizeof(address), entry->ifa_addr, sizeof(address));
        return inet_ntop(AF_INET, &address.sin_addr, ip, kAddressBytes) != nullptr;
    }
    return false;
}

}  // namespace

int ZVS_GetIpByNetworkface(const char* name, char* ip) {
    if (ip == nullptr) {
        return 1;
    }
    ip[0] = '\0';
    if (name == nullptr) {
        return 1;
    }
    const std::string played = NetworkSetting(name);
    return FindAddress(played.empty() ? name : played, ip) ? 0 : 1;
}

int ZVS_GetNetworkMode(char* buffer, std::size_t size) {
    if (buffer == nullptr || size == 0) {
        return 1;
    }
    buffer[0] = '\0';
    const std::string mode = NetworkSetting(kModeKey);
    return !mode.empty() && gvx::PutText(buffer, size, mode) ? 0 : 1;
}
