#pragma once

#include "bp/cmd.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

class CGvxReactor;
namespace BP {
class CGvxSessionBase;
}

namespace gvx {

struct GatewayContext;

// A reactor for each plug-in that was asked for work which concerns it as a whole (searches, switches): such requests
// are served in order, and a plug-in that does not return from one holds up those for itself alone. Any thread.
class PluginReactors {
public:
    PluginReactors();
    // Waits for work that still runs.
    ~PluginReactors();
    PluginReactors(const PluginReactors&) = delete;
    PluginReactors& operator=(const PluginReactors&) = delete;

    // The reactor of a plug-in that is loaded, made by the first call for it; it stays until End. Null, with a log
    // line, when no thread, memory or descriptor is to be had for it.
    CGvxReactor* Of(const std::string& plugin);
    // Makes a call of that plug-in on its reactor's thread, and waits for its end: at most 5 s, since the plug-in may
    // not return; the call, with all that it refers to, outlives this then. On that thread itself: at once. The call's
    // result; ZVS_FAIL, with a log line, when it could not be made or has not returned.
    int Call(const std::string& plugin, std::function<int()> call);
    // Ends all of them, and waits for the work that runs; what is queued is not served any more. Not on their threads.
    void End();

private:
    std::mutex m_mutex;
    std::map<std::string, std::unique_ptr<CGvxReactor>> m_reactors;  // Guarded by m_mutex; by the plug-in's name.
};

// GVX_INTERNAL_REQ_PLUGIN_CALL, which Call pushes.
int MakePluginCall(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);

}  // namespace gvx
