#include "gateway/process/config_check.h"

#include "base/cbb_xml.h"
#include "base/fixed_text.h"
#include "base/log_sftp_conf.h"
#include "bp/registration.h"
#include "gateway/links/link_options.h"
#include "gateway/process/gateway.h"
#include "gvx_common/config/config_findings.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/security/gvx_security_mgr.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <unistd.h>

namespace gvx {

namespace {

using Weight = ConfigFinding::Weight;

constexpr int kNothingFound = 0;
constexpr int kWarnings = 1;
constexpr int kNoStart = 2;

void CheckIdentity(const std::string& netXml) {
    const std::string& id = CGvxConfigMgr::Instance()->GetGvxNetElementID();
    if (!id.empty() && !BP::IsLinkIdentifier(id)) {
        CBB::CXml xml;
        const bool found = xml.Load(netXml.c_str()) && xml.FindElem("Net/NetElements/NetElement/Server/NetElementID");
        TellFinding({Weight::StopsStart, netXml, found ? xml.GetElemLine() : 0,
                     "NetElementID [" + id + "] is no link identifier such as GVX#001"});
    }
}

void CheckKeyFiles(const std::string& configDir) {
    std::string file;
    std::string why;
    if (!CSecurityMgr::LookAtKeyFiles(file, why)) {
        TellFinding({Weight::Warning, file, 0, why});
    }
    LOG_SFTP_CONF upload{};
    if (read_log_sftp_conf(&upload) != 0) {
        TellFinding({Weight::Warning, configDir + "/log_sftp.conf", 0, "it or its key log_sftp.key is damaged"});
    }
    memset_s(&upload, sizeof(upload), 0, sizeof(upload));
}

// A file that the gateway makes: it, or the nearest folder there is on its way, must be writable.
void CheckWritable(const char* key, const std::string& path) {
    std::error_code ignored;
    std::filesystem::path at = path;
    while (!std::filesystem::exists(at, ignored) && at.has_relative_path()) {
        at = at.has_parent_path() ? at.parent_path() : ".";
    }
    const bool isThere = at == std::filesystem::path(path);
    errno = std::filesystem::is_directory(at, ignored) == isThere ? (isThere ? EISDIR : ENOTDIR) : 0;
    if (!path.empty() && (errno != 0 || access(at.c_str(), W_OK) != 0)) {
        TellFinding({Weight::Warning, path, 0,
                     std::string(key) + " names a file that cannot be written: " + std::strerror(errno)});
    }
}

// Files that settings name, and what a start needs of them.
void CheckNamedFiles(const GatewayOptions& options, const std::string& configDir) {
    CheckWritable("GVX_LOG_FILE", options.logFile.empty() ? SettingText(Setting::GVX_LOG_FILE) : options.logFile);
    CheckWritable("GVX_OPERATION_LOG_FILE", SettingText(Setting::GVX_OPERATION_LOG_FILE));
    BP::LinkTlsFiles tls;
    if (const StartResult links = ReadLinkTls(LinkListenIp(), tls); links.Failed()) {
        TellFinding({Weight::StopsStart, configDir + "/zvs_gvx.conf", 0, links.reason});
    }
}

void LookThrough(const GatewayOptions& options) {
    std::string configDir;
    if (!TakeConfigFolder(options, configDir)) {
        TellFinding({Weight::StopsStart, configDir, 0, "the configuration folder does not exist or cannot be read"});
        return;
    }
    CGvxConfigMgr::Instance()->Look();
    CheckIdentity(configDir + "/net.xml");
    std::string runMode;
    CGvxConfigMgr::PlatformFilesAreUsable(runMode);
    CheckKeyFiles(configDir);
    CheckNamedFiles(options, configDir);
    PluginHost plugins;
    const StartResult started = LoadPlugins(plugins, options, configDir);
    if (started.Failed()) {
        TellFinding({Weight::StopsStart, "", 0, started.reason});
    }
    plugins.UnloadAll();
}

}  // namespace

int CheckConfiguration(const GatewayOptions& options) {
    const FindingsKeeper findings;
    LookThrough(options);
    int code = kNothingFound;
    for (const ConfigFinding& finding : findings.All()) {
        std::printf("%s\n", finding.Line().c_str());
        code = std::max(code, finding.weight == Weight::StopsStart ? kNoStart : kWarnings);
    }
    return code;
}

}  // namespace gvx
