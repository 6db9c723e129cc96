#include "gvx_common/config/gvx_config_mgr.h"

#include "base/log.h"
#include "base/paths.h"
#include "base/whole_file.h"
#include "gvx_common/config/config_alarm.h"
#include "gvx_common/config/config_rules.h"

#include <sstream>

namespace {

constexpr std::size_t kMaxConfigBytes = 4u * 1024u * 1024u;  // far above any real file; bounds a wrong path
constexpr const char* kLeadingBlanks = "\t ";
constexpr const char* kTrailingBlanks = "\t\r\n ";

std::string WithoutLeadingBlanks(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(kLeadingBlanks);
    return begin == std::string::npos ? std::string() : text.substr(begin);
}

std::string WithoutTrailingBlanks(const std::string& text) {
    // npos + 1 is 0: nothing is left of a text of blanks.
    return text.substr(0, text.find_last_not_of(kTrailingBlanks) + 1);
}

// False for a line that is no setting.
bool SplitSetting(const std::string& rawLine, std::string& key, std::string& value) {
    const std::string line = WithoutTrailingBlanks(WithoutLeadingBlanks(rawLine));
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) {
        return false;
    }
    key = WithoutTrailingBlanks(line.substr(0, equals));
    value = WithoutLeadingBlanks(line.substr(equals + 1));
    return true;
}

std::vector<std::pair<std::string, std::string>> ReadSettings(std::istream& file) {
    std::vector<std::pair<std::string, std::string>> settings;
    std::string line;
    std::string key;
    std::string value;
    while (std::getline(file, line)) {
        if (SplitSetting(line.substr(0, line.find(';')), key, value)) {
            settings.emplace_back(key, value);
        }
    }
    return settings;
}

}  // namespace

int CGvxConfigMgr::LoadZVSGvxConfig(const std::string& confFile) {
    const EditGuard editing(m_mutexEdit);
    std::string content;
    std::istringstream file;
    if (gvx::ReadWholeFile(confFile, kMaxConfigBytes, content)) {
        file.str(content);
    }
    const int firstByte = file.get();
    if (firstByte == 0) {
        GVX_LOG_ERR("LoadZVSGvxConfig", "confFile is NULL pointer.");
        return ZVS_FAIL;
    }
    if (file.fail()) {
        gvx::ConfigAlarms().OnFileFault("Location=" + confFile + ",ParaName=###", "");
        return ZVS_FAIL;
    }
    const auto settings = ReadSettings(file);
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
    if (!gvx::ReadWholeFile(natFile, kMaxConfigBytes, content)) {
        gvx::ConfigAlarms().OnFileFault("Location=" + natFile, "");
        GVX_LOG_INFO("LoadZVSGvxConfig", "open file error");
        return ZVS_FAIL;
    }
    std::istringstream file(content);
    LoadNatSettings(file);
    return ZVS_SUCCEED;
}

void CGvxConfigMgr::LoadNatSettings(std::istream& file) {
    GVX_LOG_INFO("LoadZVSGvxConfig", "start to parse private IP list");
    std::string line;
    std::string key;
    std::string value;
    while (std::getline(file, line)) {
        GVX_LOG_INFO("LoadZVSGvxConfig", "linedDataMsg:%s", line.c_str());
        if (!SplitSetting(line, key, value)) {
            continue;
        }
        GVX_LOG_INFO("LoadZVSGvxConfig", "left_value:%s, right_value:%s", key.c_str(), value.c_str());
        if (key == "SUBNET_NAT_IP_LIST") {
            GVX_LOG_INFO("LoadZVSGvxConfig", "start to parse private net list");
            KeepSubnetNatText(value);
            std::string list = value;
            ParsePrivateIpList(list);
        }
    }
}
