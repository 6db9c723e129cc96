#include "gvx_common/config/gvx_config_mgr.h"

#include "base/bounded_string.h"
#include "base/cbb_xml.h"
#include "base/log.h"
#include "base/log_sftp_conf.h"
#include "base/paths.h"
#include "gvx_common/config/gvx_config.h"
#include "gvx_common/config/unified_config_table.h"

#include <cstdio>
#include <vector>

namespace {

constexpr std::size_t kValueBytes = 32;
constexpr std::size_t kNumberBytes = 16;
constexpr const char* kLogSection = "LOG_CFG";

bool AddSetting(CBB::CXml& xml, const COMUUnifiedConfig& config) {
    return xml.AddElem("ConfigInfo") && xml.IntoElem() && xml.AddElem("ConfigName", config.GetConfigName().c_str()) &&
           xml.AddElem("ConfigType", config.GetConfigType().c_str()) &&
           xml.AddElem("ConfigValue", config.GetConfigValue().c_str()) && xml.OutOfElem();
}

// A scratch document tells, as an element that fails half way would stay in the real one.
bool CanBeWritten(const COMUUnifiedConfig& config) {
    CBB::CXml scratch;
    if (AddSetting(scratch, config)) {
        return true;
    }
    GVX_LOG_ERR("BuildUnifiedConfigXml", "A setting holds what XML can not carry, type=%s, name=%s",
                config.GetConfigType().c_str(), config.GetConfigName().c_str());
    return false;
}

std::string NumberText(unsigned int number) {
    char text[kNumberBytes] = {};
    sprintf_s(text, sizeof(text), "%u", number);
    return text;
}

}  // namespace

COMUUnifiedConfig::~COMUUnifiedConfig() {
    memset_s(m_configValue.data(), m_configValue.size() + 1, 0, m_configValue.size());
}

int CGvxConfigMgr::GetGvxConfig(CBB::CXml& xml, const char* configType) {
    const EditGuard editing(m_mutexEdit);
    if (configType == nullptr) {
        GVX_LOG_ERR("GetGvxConfig", "pConfigType is NULL");
        return ZVS_FAIL;
    }
    const std::string type = configType;
    COMUUnifiedConfigList configs;
    if (const int result = AppendCommonCfgUnifiedConfigs(type, configs); result != ZVS_SUCCEED) {
        return result;
    }
    if ((type.empty() || type == kLogSection) && AppendLogCfgUnifiedConfigs(configs) != ZVS_SUCCEED) {
        GVX_LOG_ERR("GetGvxConfig", "Failed to append log cfg to unified config");
    }
    return BuildUnifiedConfigXml(configs, xml);
}

int CGvxConfigMgr::AppendCommonCfgUnifiedConfigs(const std::string& type, COMUUnifiedConfigList& out) {
    const EditGuard editing(m_mutexEdit);
    std::string directory;
    if (get_config_directory(directory) != 0) {
        GVX_LOG_ERR("AppendCommonCfgUnifiedConfigs", "CGvxConfigMgr get config directory failed");
        return ZVS_FAIL;
    }
    GVX_Config file((directory + "/zvs_gvx.conf").c_str());
    if (!file.IsWhole()) {
        return ZVS_OPEN_FILE_ERROR;  // a document without its settings would say that there are none
    }
    for (const auto& row : gvx::g_omuUnifiedConfigRelationTable) {
        if (!type.empty() && type != row.section) {
            continue;
        }
        char value[kValueBytes] = {};
        if (file.get(row.section, row.key, value, sizeof(value) - 1) != ZVS_SUCCEED) {
            GVX_LOG_ERR("AppendCommonCfgUnifiedConfigs", "type=%s, name=%s", row.section, row.key);
            continue;
        }
        out.emplace_back(row.section, row.key, value);
    }
    return ZVS_SUCCEED;
}

int CGvxConfigMgr::AppendLogCfgUnifiedConfigs(COMUUnifiedConfigList& out) {
    const EditGuard editing(m_mutexEdit);
    LOG_SFTP_CONF conf{};
    if (read_log_sftp_conf(&conf) != 0) {
        GVX_LOG_ERR_CODE("AppendLogCfgUnifiedConfigs", ZVS_GVX_GET_LOG_SFTP_CONF_ERROR, "read_log_sftp_conf failed");
        return ZVS_FAIL;
    }
    out.reserve(out.size() + 5);  // growing would copy the password about
    out.emplace_back(kLogSection, "WorkSpace", conf.WorkSpace);
    out.emplace_back(kLogSection, "ServerAddr", conf.ServerAddr);
    out.emplace_back(kLogSection, "ServerPort", NumberText(conf.ServerPort));
    out.emplace_back(kLogSection, "Username", conf.Username);
    std::string password = conf.Password;
    out.emplace_back(kLogSection, "Password", password);
    memset_s(password.data(), password.size() + 1, 0, password.size());
    memset_s(&conf, sizeof(conf), 0, sizeof(conf));
    return ZVS_SUCCEED;
}

int CGvxConfigMgr::BuildUnifiedConfigXml(const COMUUnifiedConfigList& configs, CBB::CXml& xml) {
    // The SIP stacks' log switch is applied to the running stacks alone, so that it is always offered as off.
    const COMUUnifiedConfig last("SIF_CFG", "GVX_SIP_LOG_SWITCH", "0");
    std::vector<const COMUUnifiedConfig*> written;
    for (const COMUUnifiedConfig& config : configs) {
        if (CanBeWritten(config)) {
            written.push_back(&config);
        }
    }
    written.push_back(&last);
    const std::string count = NumberText(static_cast<unsigned int>(written.size()));
    bool built = xml.AddDeclaration("1.0", "UTF-8") && xml.AddElem("Content") && xml.IntoElem() &&
                 xml.AddElem("ConfigNumber", count.c_str()) && xml.AddElem("ModuleName", "GVX") &&
                 xml.AddElem("ConfigList") && xml.IntoElem();
    for (const COMUUnifiedConfig* config : written) {
        built = built && AddSetting(xml, *config);
    }
    if (!built) {
        GVX_LOG_ERR("BuildUnifiedConfigXml", "The document could not be built");
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}
