#include "gvx_common/config/gvx_config_mgr.h"

#include "base/log.h"
#include "gvx_common/config/gvx_config.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/Guard_T.h>

#include <algorithm>

using NatGuard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

int CGvxConfigMgr::ParsePrivateIpList(std::string& list) {
    const EditGuard editing(m_mutexEdit);
    {
        NatGuard guard(mutexToList);
        if (!guard.locked()) {
            return ZVS_FAIL;
        }
        m_ListPrivateNatIP.clear();
    }
    std::size_t begin = 0;
    while (begin < list.size()) {
        const std::size_t end = std::min(list.find(';', begin), list.size());
        const std::string entry = list.substr(begin, end - begin);
        GVX_LOG_INFO("ParsePrivateIpList", "IpString:%s", entry.c_str());
        if (!CheckIpAvailable(entry)) {
            GVX_LOG_ERR("ParsePrivateIpList", "Not an <ip>/<mask> entry[%s]", entry.c_str());
            list.erase(0, begin);
            return ZVS_FAIL;
        }
        NatGuard guard(mutexToList);
        if (!guard.locked()) {
            list.erase(0, begin);
            return ZVS_FAIL;
        }
        m_ListPrivateNatIP.push_back(entry);
        begin = end + 1;
    }
    list.clear();
    const std::list<std::string> all = GetPrivateIpList();
    for (const std::string& entry : all) {
        GVX_LOG_INFO("ParsePrivateIpList", "ip:%s", entry.c_str());
    }
    GVX_LOG_INFO("ParsePrivateIpList", "ipNum:%lu", static_cast<unsigned long>(all.size()));
    return ZVS_SUCCEED;
}

bool CGvxConfigMgr::CheckIpAvailable(std::string entry) {
    const std::size_t slash = entry.find('/');
    if (slash == std::string::npos || slash == 0 || slash + 1 == entry.size()) {
        return false;
    }
    return CGvxUtility::IsIPv4(entry.substr(0, slash).c_str()) &&
           CGvxUtility::IsNetMask(entry.substr(slash + 1).c_str());
}

std::list<std::string> CGvxConfigMgr::GetPrivateIpList() {
    NatGuard guard(mutexToList);
    return guard.locked() ? m_ListPrivateNatIP : std::list<std::string>();
}

std::string CGvxConfigMgr::SubnetNatText() const {
    const std::lock_guard<std::mutex> guard(m_mutexConf);
    return m_strSubnetNatIPList;
}

void CGvxConfigMgr::KeepSubnetNatText(const std::string& text) {
    const std::lock_guard<std::mutex> guard(m_mutexConf);
    m_strSubnetNatIPList = text;
}

// The parser consumes the stored text: what is left of it is nothing after a list without faults.
void CGvxConfigMgr::RestoreNatList() {
    std::string text = SubnetNatText();
    ParsePrivateIpList(text);
    KeepSubnetNatText(text);
}

int CGvxConfigMgr::SetNatList(const std::string& file, const std::string& section, const std::string& key,
                              const std::string& value) {
    const std::string oldValue = SubnetNatText();
    GVX_LOG_INFO("SetGVXConfigValue", "oldValue is [%s]", oldValue.c_str());
    if (oldValue == value) {
        return ZVS_SUCCEED;
    }
    std::string list = value;
    if (ParsePrivateIpList(list) != ZVS_SUCCEED) {
        RestoreNatList();
        GVX_LOG_ERR("Set gvx Subnet Nat IP List Failed", "section=%s, key=%s, value=%s", section.c_str(), key.c_str(),
                    value.c_str());
        return ZVS_FAIL;
    }
    GVX_Config store(file.c_str());
    if (store.set(section.c_str(), key.c_str(), value.c_str()) != ZVS_SUCCEED) {
        RestoreNatList();
        GVX_LOG_ERR("Set gvx config value Failed", "section=%s, key=%s, value=%s", section.c_str(), key.c_str(),
                    value.c_str());
        return ZVS_FAIL;
    }
    KeepSubnetNatText(value);
    return ZVS_SUCCEED;
}
