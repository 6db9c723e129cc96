#pragma once

#include <string>

namespace gvx {

// How gvxd ends. The numbers are part of what operators and service managers rely on.
enum class ExitCode : int {
    Ok = 0,
    Usage = 2,
    ConfigFolder = 10,
    ConfigRefused = 11,
    PluginMissing = 12,
    PluginRefused = 13,
    CannotListen = 14,
    StartFailed = 15,
    StartAbandoned = 16,
    OutOfResources = 17,
};

struct ExitCodeRow {
    ExitCode code;
    const char* meaning;
};

constexpr ExitCodeRow kExitCodeRows[] = {
    {ExitCode::Ok, "stopped as asked, or --help or --version"},
    {ExitCode::Usage, "wrong command line"},
    {ExitCode::ConfigFolder, "configuration folder missing or unreadable"},
    {ExitCode::ConfigRefused, "a configuration file is missing or refused"},
    {ExitCode::PluginMissing, "a plug-in is missing or cannot be loaded"},
    {ExitCode::PluginRefused, "a plug-in refused to start, a media file for example"},
    {ExitCode::CannotListen, "the listening address or port cannot be taken"},
    {ExitCode::StartFailed, "any other failure at start"},
    {ExitCode::StartAbandoned, "stopped by a signal while a start did not come to its end"},
    {ExitCode::OutOfResources, "no thread, descriptor or memory to be had at start"},
};

// Why a start ends: one line for the operator that names what is at fault. Code Ok means that nothing is.
struct StartResult {
    ExitCode code = ExitCode::Ok;
    std::string reason;

    bool Failed() const { return code != ExitCode::Ok; }
};

inline StartResult StartFailure(ExitCode code, std::string reason) {
    return {code, std::move(reason)};
}

}  // namespace gvx
