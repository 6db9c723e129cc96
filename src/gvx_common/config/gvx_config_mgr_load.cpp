#include "gvx_common/config/gvx_config_mgr.h"

#include "base/log.h"
#include "base/paths.h"
#include "base/whole_file.h"
#include "bp/service.h"
#include "gvx_common/config/config_findings.h"
#include "gvx_common/config/config_rules.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/config/settings_check.h"
#include "gvx_common/config/side_files_check.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <sstream>

#include <unistd.h>

namespace {

using Weight = gvx::ConfigFinding::Weight;

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
bool ReadNeeded(const std::string& path, gvx::ConfigFinding::Weight weight, std::string& content) {
    errno = 0;
    if (gvx::ReadWholeFile(path, gvx::kMaxConfigBytes, content)) {
        return true;
    }
    const char* const why = errno != 0 ? std::strerror(errno) : "it is no regular file, or too long";
    content.clear();
    gvx::TellFinding({weight, path, 0, why});
    return false;
}

// The settings behind the first byte of zvs_gvx.conf, which is consumed; a failure is told.
bool ReadMainFile(const std::string& path, gvx::ConfigFinding::Weight weight, std::string& content,
                  std::vector<std::pair<std::string, std::string>>& settings) {
    if (!ReadNeeded(path, weight, content)) {
        return false;
    }
    std::istringstream file(content);
    const int firstByte = file.get();
    if (firstByte == 0 || file.fail()) {
        gvx::TellFinding(
            {weight, path, firstByte == 0 ? 1 : 0, firstByte == 0 ? "it begins with a zero byte" : "it is empty"});
        return false;
    }
    settings = ReadSettings(file);
    return true;
}

}  // namespace

int CGvxConfigMgr::LoadZVSGvxConfig(const std::string& confFile) {
    const EditGuard editing(m_mutexEdit);
    std::string content;
    Settings settings;
    if (!ReadMainFile(confFile, Weight::StopsStart, content, settings)) {
        if (!content.empty()) {
            GVX_LOG_ERR("LoadZVSGvxConfig", "confFile is NULL pointer.");
        } else {
            gvx::ConfigAlarms().OnFileFault("Location=" + confFile + ",ParaName=###", "");
        }
        return ZVS_FAIL;
    }
    gvx::CheckSettingsFile(confFile, content, gvx::FaultyFile::Counts);
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
    if (!ReadNeeded(natFile, Weight::StopsStart, content)) {
        gvx::ConfigAlarms().OnFileFault("Location=" + natFile, "");
        GVX_LOG_INFO("LoadZVSGvxConfig", "open file error");
        return ZVS_FAIL;
    }
    std::vector<std::string> lists;
    ReadNatSettings(natFile, content, false, lists);
    TakeNatLists(lists);
    return ZVS_SUCCEED;
}

// The lists of private subnets in a file's text, in their order. False when one has an entry that cannot be used.
bool CGvxConfigMgr::ReadNatSettings(const std::string& natFile, const std::string& content, bool refuses,
                                    std::vector<std::string>& lists) {
    GVX_LOG(OM_LOG_DEBUG, "LoadZVSGvxConfig", "start to parse private IP list");
    std::istringstream file(content);
    std::string line;
    std::string key;
    std::string value;
    bool usable = true;
    for (int number = 1; std::getline(file, line); ++number) {
        GVX_LOG(OM_LOG_DEBUG, "LoadZVSGvxConfig", "linedDataMsg:%s", line.c_str());
        const std::string text = CGvxUtility::trim(line);
        if (!gvx::SplitSetting(line, key, value)) {
            if (!text.empty() && text[0] != ';' && text != "[SUBNET_NAT]") {
                gvx::TellFinding({Weight::Warning, natFile, number, "[" + text + "] is no line of this file"});
            }
            continue;
        }
        GVX_LOG(OM_LOG_DEBUG, "LoadZVSGvxConfig", "left_value:%s, right_value:%s", key.c_str(), value.c_str());
        if (key == "SUBNET_NAT_IP_LIST") {
            lists.push_back(value);
            std::vector<std::string> entries = CGvxUtility::split(value, ";");
            if (!entries.empty() && entries.back().empty()) {
                entries.pop_back();  // a semicolon may end the list
            }
            const auto bad = std::find_if(entries.begin(), entries.end(),
                                          [this](const std::string& entry) { return !CheckIpAvailable(entry); });
            if (bad != entries.end()) {
                usable = false;
                gvx::TellFinding({refuses ? Weight::Error : Weight::Warning, natFile, number,
                                  "[" + *bad + "] is no <ip>/<mask>" +
                                      (refuses ? "" : "; the entries before it hold, those behind it do not")});
            }
        } else if (text[0] != ';') {
            gvx::TellFinding({Weight::Warning, natFile, number, "nobody knows the key [" + key + "]"});
        }
    }
    return usable;
}

void CGvxConfigMgr::TakeNatLists(const std::vector<std::string>& lists) {
    if (lists.empty()) {  // taken out of the file since it was read
        std::string none;
        KeepSubnetNatText(none);
        ParsePrivateIpList(none);
    }
    for (const std::string& list : lists) {
        GVX_LOG(OM_LOG_DEBUG, "LoadZVSGvxConfig", "start to parse private net list");
        KeepSubnetNatText(list);
        std::string rest = list;
        ParsePrivateIpList(rest);
    }
}

// ---- reading again at run time ----

int CGvxConfigMgr::Reload() {
    Settings changed;
    const int result = ReadAgain(changed);
    SwitchPlugins(changed);
    return result;
}

// Gives what has changed.
int CGvxConfigMgr::ReadAgain(Settings& changed) {
    constexpr const char* kTitle = "Configuration";
    const EditGuard editing(m_mutexEdit);
    std::string directory;
    Settings read;
    std::vector<std::string> natLists;
    std::string elementID;
    std::string runMode;
    const bool usable =
        get_config_directory(directory) == 0 && ReadForReload(directory, read, natLists, elementID, runMode);
    if (!usable) {
        const std::uint64_t refused = ++m_refusedReloads;
        GVX_LOG_ERR(kTitle, "%s is not read again and nothing changes: mend what the lines above name (%llu times)",
                    directory.c_str(), static_cast<unsigned long long>(refused));
        return ZVS_FAIL;
    }
    const Snapshot former = TakeSnapshot();
    MapCfgKeyValue fresh;
    fresh.insert(read.begin(), read.end());  // of two equal keys the first
    std::map<std::string, std::string> waiting;
    if (elementID != GetGvxNetElementID()) {
        waiting.emplace("NetElementID of net.xml", elementID);
    }
    if (!runMode.empty() && CGvxUtility::toInt(runMode) != m_iRunMode) {
        waiting.emplace("RunMode of cloudconfig.xml", runMode);
    }
    for (const gvx::SettingRow& row : gvx::AllSettings()) {
        if (row.acts != gvx::SettingActs::Start) {
            continue;
        }
        const auto wanted = fresh.find(row.key);
        const auto held = former->find(row.key);
        const std::string wantedValue = wanted != fresh.end() ? wanted->second : row.fallback;
        if (wantedValue != (held != former->end() ? held->second : row.fallback)) {
            waiting.emplace(row.key, wantedValue);
        }
        if (wanted != fresh.end()) {
            fresh.erase(wanted);
        }
        if (held != former->end()) {
            fresh.insert(*held);
        }
    }
    for (const auto& [key, value] : fresh) {
        const auto held = former->find(key);
        if (held == former->end() || held->second != value) {
            changed.emplace_back(key, value);
        }
    }
    for (const auto& [key, value] : *former) {
        const gvx::SettingRow* const row = fresh.count(key) == 0 ? gvx::FindSetting(key) : nullptr;
        if (row != nullptr && value != row->fallback) {
            changed.emplace_back(key, row->fallback);  // taken out of the file
        }
    }
    Publish(std::make_shared<const MapCfgKeyValue>(std::move(fresh)));
    if (natLists != std::vector<std::string>{SubnetNatText()}) {
        TakeNatLists(natLists);
    }
    ActOn(changed);
    WaitForRestart(waiting);
    ++m_reloads;
    GVX_LOG_INFO(kTitle, "%s is read again, %zu settings have changed", directory.c_str(), changed.size());
    return ZVS_SUCCEED;
}

// Under m_mutexEdit. False, with findings, when one of the files cannot be taken.
bool CGvxConfigMgr::ReadForReload(const std::string& directory, Settings& settings, std::vector<std::string>& natLists,
                                  std::string& elementID, std::string& runMode) {
    const std::string confFile = directory + "/zvs_gvx.conf";
    std::string content;
    bool usable = ReadMainFile(confFile, Weight::Error, content, settings) &&
                  gvx::CheckSettingsFile(confFile, content, gvx::FaultyFile::IsRefused);
    const std::string natFile = directory + "/zvs_gvx_nat.conf";
    usable = ReadNeeded(natFile, Weight::Error, content) && ReadNatSettings(natFile, content, true, natLists) && usable;
    usable = ReadElementID(directory + "/net.xml", elementID) && usable;
    gvx::CheckSideFiles(directory);
    return PlatformFilesAreUsable(runMode) && usable;
}

// Under m_mutexEdit: what an edit of each of these settings would switch.
void CGvxConfigMgr::ActOn(const Settings& changed) {
    bool tells35114 = false;
    for (const auto& [key, value] : changed) {
        GVX_LOG_INFO("Configuration", "%s is [%s] now", key.c_str(), gvx::LoggableValue(key, value.c_str()));
        tells35114 = tells35114 || Is35114Key(key);
        if (key == "GVX_MESSAGE_IP") {
            m_strLocalIP.Set(value);
        } else if (key == "GVX_SDK_SYNC_TIME_SWITCH") {
            m_uiSyncTimeSwitch = static_cast<unsigned int>(CGvxUtility::toInt(value));
        } else if (key == "TV_INIT_FORBID_RSA_SWITCH") {
            BP::CPluginMgr::SendRebootPluginMsg();
        }
    }
    ReadSyncTime();
    if (tells35114) {
        Tell35114();
    }
    const std::string unitFile = gvx::RootedPath(GVXCONFIG_OMU_COMMON_CONFIG_PATH);
    if (access(unitFile.c_str(), F_OK) == 0) {
        UpdateIPAddressFromOmuConfig(unitFile);
    }
}

// A plug-in that does not return holds up this reload and no edit.
void CGvxConfigMgr::SwitchPlugins(const Settings& changed) {
    for (const auto& [key, value] : changed) {
        const auto on = static_cast<unsigned int>(CGvxUtility::toInt(value));
        if (key == "GVX_SIP_LOG_SWITCH") {
            setSipStackLogSwitch(on);
        } else if (SwitchedProtocol(key) != 0) {
            SetHikAndDahuaSDKSwitch(key, on);
        }
    }
}

// Under m_mutexEdit.
void CGvxConfigMgr::WaitForRestart(const std::map<std::string, std::string>& wanted) {
    std::string names;
    for (const auto& [key, value] : wanted) {
        const auto told = m_waitForRestart.find(key);
        if (told == m_waitForRestart.end() || told->second != value) {
            names += (names.empty() ? "" : ", ") + key;
        }
    }
    m_waitForRestart = wanted;
    if (!names.empty()) {
        GVX_LOG_WARN("Configuration", "These settings act with the next start: %s", names.c_str());
    }
}
