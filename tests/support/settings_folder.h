#pragma once

#include "gvx_common/config/gvx_config_mgr.h"
#include "support/temp_folder.h"

#include <filesystem>
#include <fstream>
#include <string>

// A configuration folder of a test's own with the least that a start needs, and a root prefix below it. Both are in
// force for its scope. Nothing is loaded.
class SettingsFolder : public TempFolder {
public:
    // The settings stand behind the comment that the loader's first byte needs.
    explicit SettingsFolder(const std::string& settings = std::string()) {
        WriteConf(settings);
        Write("net.xml", NetXml("GVX#007"));
        Write("zvs_gvx_nat.conf", "[SUBNET_NAT]\nSUBNET_NAT_IP_LIST=\n");
        std::filesystem::create_directory(Path("alarm"));
        Write("alarm/gvx_nvt_alarm_description.xml",
              "<AlarmInfoList><AlarmInfo><AlarmType>ALARM_DISK_FULL</AlarmType></AlarmInfo></AlarmInfoList>");
    }

    void WriteConf(const std::string& settings) const { Write("zvs_gvx.conf", "; settings\n" + settings); }

    // A file below the root prefix.
    void WriteRooted(const std::string& absolutePath, const std::string& content) const {
        const std::filesystem::path path = Path("root") + absolutePath;
        std::filesystem::create_directories(path.parent_path());
        Write("root" + absolutePath, content);
    }

    static std::string NetXml(const std::string& id) {
        return "<Net><NetElements><NetElement><Server><NetElementID>" + id +
               "</NetElementID></Server></NetElement></NetElements></Net>";
    }

private:
    const ScopedEnvironment m_configDir{"GVX_CONFIG_DIR", Path()};
    const ScopedEnvironment m_root{"GVX_ROOT", Path("root")};
};

// Settings that are loaded for a scope ("KEY=value\n" each); none are left behind.
class ScopedSettings {
public:
    explicit ScopedSettings(const std::string& settings) : m_folder(settings) { CGvxConfigMgr::Instance()->Init(); }
    ~ScopedSettings() {
        m_folder.WriteConf("");
        CGvxConfigMgr::Instance()->Init();
    }
    ScopedSettings(const ScopedSettings&) = delete;
    ScopedSettings& operator=(const ScopedSettings&) = delete;

    const SettingsFolder& Folder() const { return m_folder; }

private:
    const SettingsFolder m_folder;
};
