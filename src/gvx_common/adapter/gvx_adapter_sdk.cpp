#include "gvx_common/adapter/gvx_adapter_sdk.h"

#include "base/log.h"

#include <arpa/inet.h>

void CAdapterSdkBase::SetDiscoveryDeviceCallback(ADAPTER_DISCOVERY_DEVICE_CALLBACK* callback) {
    m_pDiscCallback = callback;
}

void CAdapterSdkBase::LoadIpWhitelist(std::list<std::pair<unsigned int, unsigned int>>& whitelist) {
    m_listIpWhitelistPair = whitelist;
}

bool CAdapterSdkBase::CheckIpInWhitelist(const std::string& address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
        GVX_LOG_ERR_CODE("CheckIpInWhitelist", ZVS_IP_INVALID, "Address[%s] is invalid.", address.c_str());
        return false;
    }
    const unsigned int hostOrder = ntohl(parsed.s_addr);
    for (const auto& range : m_listIpWhitelistPair) {
        if (hostOrder >= range.first && hostOrder <= range.second) {
            return true;
        }
    }
    return false;
}
