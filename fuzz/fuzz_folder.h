#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

// A folder in memory for the files of one fuzzer, which is also the configuration folder and the root prefix. Removed
// at the end of the process.
class FuzzFolder {
public:
    FuzzFolder() {
        std::string pattern = "/dev/shm/gvx_fuzz_XXXXXX";
        m_path = mkdtemp(pattern.data());
        setenv("GVX_CONFIG_DIR", m_path.c_str(), 1);
        setenv("GVX_ROOT", m_path.c_str(), 1);
        Write("net.xml",
              "<Net><NetElements><NetElement><Server><NetElementID>GVX#001</NetElementID></Server></NetElement>"
              "</NetElements></Net>");
        Write("zvs_gvx.conf", "; settings\n");
        Write("zvs_gvx_nat.conf", "[SUBNET_NAT]\nSUBNET_NAT_IP_LIST=\n");
        Write("alarm/gvx_nvt_alarm_description.xml",
              "<AlarmInfoList><AlarmInfo><AlarmType>A</AlarmType></AlarmInfo></AlarmInfoList>");
    }
    ~FuzzFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    FuzzFolder(const FuzzFolder&) = delete;
    FuzzFolder& operator=(const FuzzFolder&) = delete;

    std::string Path(const std::string& name) const { return (m_path / name).string(); }

    void Write(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories((m_path / name).parent_path());
        std::ofstream(Path(name), std::ios::binary | std::ios::trunc) << content;
    }
    std::string Read(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

private:
    std::filesystem::path m_path;
};
