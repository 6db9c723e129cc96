#include "gvx_common/config/gvx_config_mgr.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "base/log_sftp_conf.h"
#include "bp/service.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

struct SwitchRow {
    const char* name;
    BP::enDevProtocolType protocol;
};
constexpr SwitchRow kSdkLogSwitches[] = {
    {"GVX_HIKSDK_LOG_SWITCH", BP::DEV_PROTOCOL_TYPE_HIKSDK},
    {"GVX_DHSDK_LOG_SWITCH", BP::DEV_PROTOCOL_TYPE_DHSDK},
    {"GVX_PLUGIN_DEBUG_LOG_SWITCH", BP::DEV_PROTOCOL_TYPE_ONVIF},
};

bool InstallPlugin(const char* title, BP::enDevProtocolType protocol, BP::CPluginInfo& info) {
    if (BP::CPluginMgr::InstallPlugin(protocol, info)) {
        return true;
    }
    GVX_LOG_ERR(title, "InstallPlugin failed! DevProtocol[%d]", static_cast<int>(protocol));
    return false;
}

// Holds the record with its password for a scope.
struct ScopedSFTPConf {
    LOG_SFTP_CONF conf{};
    ~ScopedSFTPConf() { memset_s(&conf, sizeof(conf), 0, sizeof(conf)); }
};

struct TextField {
    const char* name;
    char* text;
    std::size_t size;
};

// Puts one setting into the record; a name that is none leaves it as it is.
int TakeField(LOG_SFTP_CONF& conf, const char* name, const char* value) {
    const TextField fields[] = {
        {"WorkSpace", conf.WorkSpace, sizeof(conf.WorkSpace)},
        {"ServerAddr", conf.ServerAddr, sizeof(conf.ServerAddr)},
        {"Username", conf.Username, sizeof(conf.Username)},
        {"Password", conf.Password, sizeof(conf.Password)},
    };
    if (std::strcmp(name, "ServerPort") == 0) {
        conf.ServerPort = static_cast<std::uint16_t>(CGvxUtility::toInt(value));
        return ZVS_SUCCEED;
    }
    const auto* field = std::find_if(std::begin(fields), std::end(fields), [name](const TextField& candidate) {
        return std::strcmp(candidate.name, name) == 0;
    });
    if (field == std::end(fields)) {
        GVX_LOG_WARN("SetLogSFTPConf", "name is [%s]", name);
        return ZVS_SUCCEED;
    }
    if (strncpy_s(field->text, field->size, value, std::strlen(value)) != 0) {
        GVX_LOG_ERR("SetLogSFTPConf", "strncpy_s %s failed!", name);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

}  // namespace

int CGvxConfigMgr::setSipStackLogSwitch(unsigned int value) {
    const EditGuard editing(m_mutexEdit);
    constexpr const char* kTitle = "setSipStackLogSwitch";
    GVX_LOG_INFO(kTitle, "Set T28181 sipstack logswitch to [%u].", value);
    BP::CPluginInfo plugin;
    if (!InstallPlugin(kTitle, BP::DEV_PROTOCOL_TYPE_T28181, plugin)) {
        return ZVS_FAIL;
    }
    if (plugin.SetSipStackLogSwitch(value) != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "Set T28181 sipstack logswitch to [%d] failed.", static_cast<int>(value));
        return ZVS_FAIL;
    }
    if (!InstallPlugin(kTitle, BP::DEV_PROTOCOL_TYPE_TEYES, plugin)) {
        return ZVS_FAIL;
    }
    if (plugin.SetSipStackLogSwitch(value) != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "Set Teyes sipstack logswitch to [%d] failed.", static_cast<int>(value));
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxConfigMgr::SetHikAndDahuaSDKSwitch(const std::string& name, unsigned int value) {
    const EditGuard editing(m_mutexEdit);
    constexpr const char* kTitle = "SetHikAndDahuaSDKSwitch";
    const auto* row = std::find_if(std::begin(kSdkLogSwitches), std::end(kSdkLogSwitches),
                                   [&name](const SwitchRow& candidate) { return name == candidate.name; });
    if (row == std::end(kSdkLogSwitches)) {
        GVX_LOG_ERR(kTitle, "Unsupporetd switch name! switchName[%s]", name.c_str());
        return ZVS_FAIL;
    }
    BP::CPluginInfo plugin;
    if (!InstallPlugin(kTitle, row->protocol, plugin)) {
        return ZVS_FAIL;
    }
    if (plugin.SetSDKLogSwitch(value) != ZVS_SUCCEED) {
        GVX_LOG_ERR(kTitle, "Set SDK Log failed!");
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxConfigMgr::SetLogSFTPConf(const char* name, const char* value) {
    const EditGuard editing(m_mutexEdit);
    if (name == nullptr || value == nullptr) {
        GVX_LOG_ERR_CODE("SetLogSFTPConf", ZVS_PARA_INVALID, "The name or the value is NULL");
        return ZVS_PARA_INVALID;
    }
    ScopedSFTPConf record;
    if (read_log_sftp_conf(&record.conf) != 0) {
        GVX_LOG_ERR_CODE("SetLogSFTPConf", ZVS_GVX_GET_LOG_SFTP_CONF_ERROR, "read_log_sftp_conf failed");
        return ZVS_GVX_GET_LOG_SFTP_CONF_ERROR;
    }
    if (TakeField(record.conf, name, value) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    if (write_log_sftp_conf(&record.conf) != 0) {
        GVX_LOG_ERR_CODE("SetLogSFTPConf", ZVS_GVX_SET_LOG_SFTP_CONF_ERROR, "write_log_sftp_conf failed");
        return ZVS_GVX_SET_LOG_SFTP_CONF_ERROR;
    }
    return ZVS_SUCCEED;
}
