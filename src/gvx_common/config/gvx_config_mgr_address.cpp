#include "gvx_common/config/gvx_config_mgr.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "base/net_interface.h"
#include "base/paths.h"
#include "gvx_common/config/gvx_config.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace {

constexpr const char* GVXCONFIG_OMU_LOCALIP_XPATH = "Content/IpConfig/IpConfigInfo/SignalIpAddress";
constexpr const char* GVXCONFIG_OMU_MEDIAIP_XPATH = "Content/IpConfig/IpConfigInfo/MediaIpAddress";
constexpr std::size_t kNetworkModeBytes = 64;
constexpr int kCompatibleMode = 3;
constexpr int kCloudEdgeRunMode = 2;

struct NetworkModeRow {
    const char* name;
    int mode;
};
// In the order of comparison.
constexpr NetworkModeRow kNetworkModes[] = {{"compatible", kCompatibleMode}, {"standard", 1}, {"simplify", 2}};

struct PortRow {
    const char* key;
    const char* section;
};
constexpr PortRow kPortKeys[] = {
    {"GVX_LISTEN_PORT", "GATEWAY"},
    {"GVX_SIP_SERVER_PORT", "SIF_CFG"},
    {"SCU_SIP_PORT", "SIF_CFG"},
    {"ONVIF_ALARM_LISTENER_PORT", "ONVIF_CFG"},
};

// The text at a path from the root; false when there is none.
bool ReadText(CBB::CXml& xml, const char* path, std::string& text) {
    xml.Rewind();
    const char* value = xml.FindElem(path) ? xml.GetElemValue() : nullptr;
    text = value == nullptr ? "" : value;
    return !text.empty();
}

bool RefuseAddress(const char* title, const std::string& ip) {
    if (CGvxUtility::IsIPv4(ip.c_str())) {
        return false;
    }
    GVX_LOG_ERR_CODE(title, ZVS_IP_INVALID, "Invalid ip address, ip=%s", ip.c_str());
    return true;
}

// The path of zvs_gvx.conf; false, with the message, without a configuration folder.
bool FindMainFile(const char* title, std::string& path) {
    std::string directory;
    if (get_config_directory(directory) != 0) {
        GVX_LOG_ERR(title, "CGvxConfigMgr get config directory failed");
        return false;
    }
    path = directory + "/zvs_gvx.conf";
    return true;
}

}  // namespace

int CGvxConfigMgr::SetGVXLocalIP(const std::string& ip) {
    const EditGuard editing(m_mutexEdit);
    if (RefuseAddress("SetGVXLocalIP", ip)) {
        return ZVS_IP_INVALID;
    }
    const int result = SetGVXConfigValue("MESSAGE", "GVX_MESSAGE_IP", ip);
    if (result == ZVS_SUCCEED) {
        m_strLocalIP.Set(ip);
    }
    return result;
}

int CGvxConfigMgr::SetGVXMediaIP(const std::string& ip) {
    if (RefuseAddress("SetGVXMediaIP", ip)) {
        return ZVS_IP_INVALID;
    }
    return SetGVXConfigValue("MEDIA", "GVX_MEDIA_IP", ip);
}

void CGvxConfigMgr::UpdateIPAddressFromOmuConfig(const std::string& path) {
    const EditGuard editing(m_mutexEdit);
    CBB::CXml xml;
    errno = 0;
    if (!xml.Load(path.c_str())) {
        GVX_LOG_ERR_CODE("UpdateIPAddressFromOmuConfig", ZVS_OPEN_FILE_ERROR, "filename=%s, errdesc=%d", path.c_str(),
                         errno);
        return;
    }
    std::string ip;
    if (!ReadText(xml, GVXCONFIG_OMU_LOCALIP_XPATH, ip)) {
        GVX_LOG_ERR("UpdateIPAddressFromOmuConfig", "The tag of local ip address is not found or empty");
    } else if (SetGVXLocalIP(ip) != ZVS_SUCCEED) {
        GVX_LOG_ERR("UpdateIPAddressFromOmuConfig", "ipaddr=%s", ip.c_str());
        return;
    }
    if (!ReadText(xml, GVXCONFIG_OMU_MEDIAIP_XPATH, ip)) {
        GVX_LOG_ERR("UpdateIPAddressFromOmuConfig", "The tag of media ip address is not found or empty");
    } else if (SetGVXMediaIP(ip) != ZVS_SUCCEED) {
        GVX_LOG_ERR("UpdateIPAddressFromOmuConfig", "ipaddr=%s", ip.c_str());
    }
}

int CGvxConfigMgr::EditZvsGvxConfIP(const char*& localIP, const char*& mediaIP) {
    const EditGuard editing(m_mutexEdit);
    if (localIP == nullptr || mediaIP == nullptr) {
        GVX_LOG_ERR("EditZvsGvxConfIP", "LocalIP is NULL or MediaIP is NULL.");
        return ZVS_FAIL;
    }
    std::string path;
    if (!FindMainFile("EditZvsGvxConfIP", path)) {
        return ZVS_FAIL;
    }
    GVX_Config file(path.c_str());
    if (file.set("MEDIA", "GVX_MEDIA_IP", mediaIP) != ZVS_SUCCEED) {
        GVX_LOG_ERR("EditZvsGvxConfIP", "Set media ip error medieip:%s", mediaIP);
        return ZVS_FAIL;
    }
    if (file.set("MESSAGE", "GVX_MESSAGE_IP", localIP) != ZVS_SUCCEED) {
        GVX_LOG_ERR("EditZvsGvxConfIP", "Set local ip error medieip:%s", localIP);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxConfigMgr::EditZvsGvxConfPort(const std::vector<std::pair<std::string, std::uint16_t>>& ports) {
    const EditGuard editing(m_mutexEdit);
    std::string path;
    if (!FindMainFile("EditZvsGvxConfPort", path)) {
        return ZVS_FAIL;
    }
    GVX_Config file(path.c_str());
    std::string done;
    for (const auto& [key, port] : ports) {
        const std::string& wanted = key;
        const auto* row = std::find_if(std::begin(kPortKeys), std::end(kPortKeys),
                                       [&wanted](const PortRow& candidate) { return wanted == candidate.key; });
        if (row == std::end(kPortKeys) ||
            file.set(row->section, row->key, CGvxUtility::toStr(port).c_str()) != ZVS_SUCCEED) {
            GVX_LOG_ERR("EditZvsGvxConfPort", "Set [%s] failed", key.c_str());
            return ZVS_FAIL;
        }
        done += (done.empty() ? "" : ",") + key;
    }
    GVX_LOG_INFO("EditZvsGvxConfPort", "set all [%s] success", done.c_str());
    return ZVS_SUCCEED;
}

void CGvxConfigMgr::LoadCloudConf() {
    GVX_LOG_INFO("LoadCloudConf", "[CloudConfig] ---Begin init CCloudConfig");
    const std::string path = gvx::RootedPath(GVX_CLOUD_CONFIG_PATH);
    CBB::CXml xml;
    if (!xml.Load(path.c_str())) {
        GVX_LOG_ERR("LoadCloudConf", "file(%s) is not exist", path.c_str());
        return;
    }
    std::string text;
    ReadText(xml, "CloudConfig/RunMode", text);
    m_iRunMode = CGvxUtility::toInt(text);
    GVX_LOG_INFO("LoadCloudConf", "run mode is %s", text.c_str());
}

int CGvxConfigMgr::GetNetWorkMode() const {
    char text[kNetworkModeBytes] = {};
    if (ZVS_GetNetworkMode(text, sizeof(text)) == 0) {
        // Over the length of what was read: a prefix of a word counts.
        for (const NetworkModeRow& row : kNetworkModes) {
            if (std::strncmp(text, row.name, std::strlen(text)) == 0) {
                return row.mode;
            }
        }
    }
    GVX_LOG_ERR("GetNetWorkMode", "unKnown Network mode");
    return 0;
}

std::string CGvxConfigMgr::GetIPToLisetenWhenNoFloatIP() const {
    if (m_iRunMode == kCloudEdgeRunMode && GetNetWorkMode() != kCompatibleMode) {
        return std::string();
    }
    return GetConfValue("GVX_MESSAGE_IP", "127.0.0.1");
}
