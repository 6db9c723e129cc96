#pragma once

#include "base/om_adapter.h"
#include "gateway/settings/exit_codes.h"

#include <cstdint>
#include <optional>
#include <string>

namespace gvx {

// What the command line says. Empty or absent means that the configuration, or its default, decides.
struct GatewayOptions {
    std::string configDir;
    std::string logFile;
    std::optional<int> logLevel;
    std::string pluginDir;
    std::optional<std::uint16_t> listenPort;  // 0 takes any free port
    bool checkConfig = false;                 // look through the configuration and start nothing
};

// Reads the command line. No value: go on with options. Otherwise the process ends with that code; --help and
// --version have written their text to standard output, a wrong use its one line to standard error. Of main's thread.
std::optional<ExitCode> ParseOptions(int argc, const char* const* argv, GatewayOptions& options);

}  // namespace gvx
