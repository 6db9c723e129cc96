#include "gateway/process/options.h"

#include "gvx_common/config/setting_table.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <map>

namespace gvx {

namespace {

const std::map<std::string, int> kLogLevels = {
    {"crit", OM_LOG_CRIT},     {"err", OM_LOG_ERR},   {"warning", OM_LOG_WARNING},
    {"notice", OM_LOG_NOTICE}, {"info", OM_LOG_INFO}, {"debug", OM_LOG_DEBUG},
};

// One line a code.
std::string ExitCodeTable() {
    std::string text = "Exit codes:\n";
    for (const ExitCodeRow& row : kExitCodeRows) {
        std::string number = std::to_string(static_cast<int>(row.code));
        number.insert(0, number.size() < 2 ? 1 : 0, ' ');
        text += "  " + number + "  " + row.meaning + "\n";
    }
    return text;
}

void Declare(CLI::App& app, GatewayOptions& options, std::string& levelName) {
    app.add_option("--config-dir", options.configDir, "configuration folder (default: GVX_CONFIG_DIR, else /etc/gvx)");
    app.add_option("--log-file", options.logFile,
                   "write the log to this rotating file instead of standard error\n(default: key GVX_LOG_FILE)");
    app.add_option("--log-level", levelName, "crit, err, warning, notice, info or debug (default: key GVX_LOG_LEVEL)");
    app.add_option("--plugin-dir", options.pluginDir, "folder of the plug-ins (default: key GVX_PLUGIN_DIR)");
    app.add_option("--listen-port", options.listenPort,
                   "TCP port for platform links, 0 for any free one (default: key GVX_LISTEN_PORT)")
        ->check(CLI::Range(0, 65535));
    app.add_flag("--foreground", "run in the foreground, the only mode there is");
    app.add_flag("--check-config", options.checkConfig,
                 "look through the configuration as a start would, print what is wrong and start nothing;\n"
                 "exit codes: 0 nothing, 1 a start would serve all the same, 2 it would not");
    app.add_flag_callback(
        "--list-settings",
        [] {
            std::fputs(SettingsPage().c_str(), stdout);
            throw CLI::Success();
        },
        "print the table of all settings");
    app.set_version_flag("--version", std::string("gvxd ") + GVX_VERSION);
    app.footer(ExitCodeTable());
}

ExitCode RefuseUsage(const std::string& reason) {
    std::fprintf(stderr, "gvxd: %s\n", reason.c_str());
    return ExitCode::Usage;
}

}  // namespace

std::optional<ExitCode> ParseOptions(int argc, const char* const* argv, GatewayOptions& options) {
    CLI::App app{"gvxd, the video-surveillance access gateway", "gvxd"};
    std::string levelName;
    Declare(app, options, levelName);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& shown) {  // --help, --version, --list-settings
        app.exit(shown);
        return ExitCode::Ok;
    } catch (const CLI::ParseError& error) {
        return RefuseUsage(error.what());
    }
    if (levelName.empty()) {
        return std::nullopt;
    }
    const auto level = kLogLevels.find(levelName);
    if (level == kLogLevels.end()) {
        return RefuseUsage("--log-level: " + levelName + " is none of crit, err, warning, notice, info, debug");
    }
    options.logLevel = level->second;
    return std::nullopt;
}

}  // namespace gvx
