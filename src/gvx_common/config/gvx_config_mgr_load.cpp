#include "gvx_common/config/gvx_config_mgr.h"

#include "base/log.h"
#include "base/paths.h"
#include "base/whole_file.h"
#include "gvx_common/config/config_alarm.h"
#include "gvx_common/config/config_findings.h"
#include "gvx_common/config/config_rules.h"
#include "gvx_common/config/settings_check.h"
#include "gvx_common/utility/gvx_utility.h"

#include <cerrno>
#include <cstring>
#include <sstream>

namespace {

constexpr std::size_t kMaxConfigBytes = 4u * 1024u * 1024u;  // far above any real file; bounds a wrong path
std::vector<std::pair<std::string, std::string>> ReadSettings(std::istream& file) {
    std::vector<std::pair<std::string, std::string>> settings;
    std::string line;
    std::string key;
    std::string value;
    while (std::getline(file, line)) {
        if (gvx::SplitSetting(line.substr(0, line.find(';')), key, value)) {
            settings.emplace_back(key, value);
        }
    }
    return settings;
}

// Reads a file without which there is no start; a failure is told.
bool ReadNeeded(const std::string& path, std::string& content) {
    errno = 0;
    if (gvx::ReadWholeFile(path, kMaxConfigBytes, content)) {
        return true;
    }
    const char* const why = errno != 0 ? std::strerror(errno) : "it is no regular file, or too long";
    content.clear();
    gvx::TellFinding({gvx::ConfigFinding::Weight::StopsStart, path, 0, why});
    return false;
}

}  // namespace

int CGvxConfigMgr::LoadZVSGvxConfig(const std::string& confFile) {
    const EditGuard editing(m_mutexEdit);
    std::string content;
    std::istringstream file;
    const bool read = ReadNeeded(confFile, content);
    file.str(content);
    const int firstByte = file.get();
    if (firstByte == 0) {
        GVX_LOG_ERR("LoadZVSGvxConfig", "confFile is NULL pointer.");
        gvx::TellFinding({gvx::ConfigFinding::Weight::StopsStart, confFile, 1, "it begins with a zero byte"});
        return ZVS_FAIL;
    }
    if (file.fail()) {
        if (read) {
            gvx::TellFinding({gvx::ConfigFinding::Weight::StopsStart, confFile, 0, "it is empty"});
        }
        gvx::ConfigAlarms().OnFileFault("Location=" + confFile + ",ParaName=###", "");
        return ZVS_FAIL;
    }
    const auto settings = ReadSettings(file);
    gvx::CheckSettingsFile(confFile, content);
    InsertSettings(settings);
    for (const auto& [key, value] : settings) {
        CheckSetting(key, value, confFile);
    }
    return LoadNatConfig();
}

void CGvxConfigMgr::InsertSettings(const Settings& settings) {
    MapCfgKeyValue merged = *TakeSnapshot();
    for (const auto& [key, value] : settings) {
        merged.emplace(key, value);
    }
    Publish(std::make_shared<const MapCfgKeyValue>(std::move(merged)));
}

void CGvxConfigMgr::CheckSetting(const std::string& key, const std::string& value, const std::string& confFile) {
    std::string description = "CurrentValue=" + value;
    std::string checked = value;
    if (CheckConfValue(key, checked)) {
        return;
    }
    description += ",DefaultValue=" + checked;
    const std::string location = "Location=" + confFile + ",ParaName=" + key;
    gvx::ConfigAlarms().OnIllegalSetting(location, description);
    m_bCfgErr = true;
    const std::lock_guard<std::mutex> guard(m_mutexConf);
    m_strCfgName = key;
}

bool CGvxConfigMgr::CheckConfValue(const std::string& key, std::string& value) const {
    return gvx::CheckSetting(key, value);
}

int CGvxConfigMgr::LoadNatConfig() {
    std::string directory;
    if (get_config_directory(directory) != 0) {
        GVX_LOG_ERR("LoadZVSGvxConfig", "CGvxConfigMgr get config directory failed");
        return ZVS_FAIL;
    }
    const std::string natFile = directory + "/zvs_gvx_nat.conf";
    std::string content;
    if (!ReadNeeded(natFile, content)) {
        gvx::ConfigAlarms().OnFileFault("Location=" + natFile, "");
        GVX_LOG_INFO("LoadZVSGvxConfig", "open file error");
        return ZVS_FAIL;
    }
    LoadNatSettings(natFile, content);
    return ZVS_SUCCEED;
}

void CGvxConfigMgr::LoadNatSettings(const std::string& natFile, const std::string& content) {
    using Weight = gvx::ConfigFinding::Weight;
    GVX_LOG_INFO("LoadZVSGvxConfig", "start to parse private IP list");
    std::istringstream file(content);
    std::string line;
    std::string key;
    std::string value;
    for (int number = 1; std::getline(file, line); ++number) {
        GVX_LOG_INFO("LoadZVSGvxConfig", "linedDataMsg:%s", line.c_str());
        const std::string text = CGvxUtility::trim(line);
        if (!gvx::SplitSetting(line, key, value)) {
            if (!text.empty() && text[0] != ';' && text != "[SUBNET_NAT]") {
                gvx::TellFinding({Weight::Warning, natFile, number, "[" + text + "] is no line of this file"});
            }
            continue;
        }
        GVX_LOG_INFO("LoadZVSGvxConfig", "left_value:%s, right_value:%s", key.c_str(), value.c_str());
        if (key == "SUBNET_NAT_IP_LIST") {
            GVX_LOG_INFO("LoadZVSGvxConfig", "start to parse private net list");
            KeepSubnetNatText(value);
            std::string list = value;
            if (ParsePrivateIpList(list) != ZVS_SUCCEED) {
                gvx::TellFinding({Weight::Warning, natFile, number,
                                  "[" + list.substr(0, list.find(';')) +
                                      "] is no <ip>/<mask>; the entries before it hold, those behind it do not"});
            }
        } else if (text[0] != ';') {
            gvx::TellFinding({Weight::Warning, natFile, number, "nobody knows the key [" + key + "]"});
        }
    }
}
