#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// A folder of its own for one test, removed at the end, with the least that a start needs.
class ConfigFolder {
public:
    ConfigFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "gvx_config_XXXXXX").string();
        m_path = mkdtemp(pattern.data());
        setenv("GVX_CONFIG_DIR", m_path.c_str(), 1);
        setenv("GVX_ROOT", Path("root").c_str(), 1);
        Write("net.xml", NetXml("GVX#007"));
        Write("zvs_gvx_nat.conf", "[SUBNET_NAT]\nSUBNET_NAT_IP_LIST=\n");
        std::filesystem::create_directory(m_path / "alarm");
        Write("alarm/gvx_nvt_alarm_description.xml",
              "<AlarmInfoList><AlarmInfo><AlarmType>ALARM_DISK_FULL</AlarmType></AlarmInfo></AlarmInfoList>");
    }
    ~ConfigFolder() {
        unsetenv("GVX_CONFIG_DIR");
        unsetenv("GVX_ROOT");
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    ConfigFolder(const ConfigFolder&) = delete;
    ConfigFolder& operator=(const ConfigFolder&) = delete;

    std::string Path(const std::string& name) const { return (m_path / name).string(); }

    void Write(const std::string& name, const std::string& content) const {
        std::ofstream(Path(name), std::ios::binary) << content;
    }

    // A file below the root prefix.
    void WriteRooted(const std::string& absolutePath, const std::string& content) const {
        const std::filesystem::path path = Path("root") + absolutePath;
        std::filesystem::create_directories(path.parent_path());
        Write("root" + absolutePath, content);
    }

    // The settings behind the comment that the loader's first byte needs.
    void WriteConf(const std::string& settings) const { Write("zvs_gvx.conf", "; settings\n" + settings); }

    std::string Read(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

    static std::string NetXml(const std::string& id) {
        return "<Net><NetElements><NetElement><Server><NetElementID>" + id +
               "</NetElementID></Server></NetElement></NetElements></Net>";
    }

private:
    std::filesystem::path m_path;
};
