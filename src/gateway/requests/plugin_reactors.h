#pragma once

#include "bp/cmd.h"

#include <functional>
#include <list>
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
struct PluginCall;

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
    // result; ZVS_FAIL, with a log line, when it could not be made or has not returned, or nobody waits any more.
    int Call(const std::string& plugin, std::function<int()> call);
    // For the stop: whoever waits in Call gets ZVS_FAIL at once, and so does whoever comes later, whose call is not
    // made. Those that were made go on.
    void StopWaiting();
    // Ends all of them, and waits for the work that runs; what is queued is not served any more. Not on their threads.
    void End();

private:
    bool NoteWaiting(const std::shared_ptr<PluginCall>& call);

    std::mutex m_mutex;                                              // Guards what follows.
    std::map<std::string, std::unique_ptr<CGvxReactor>> m_reactors;  // by the plug-in's name
    std::list<std::weak_ptr<PluginCall>> m_waiting;                  // calls, some of which have ended
    bool m_stopWaiting = false;
};

// GVX_INTERNAL_REQ_PLUGIN_CALL, which Call pushes.
int MakePluginCall(GatewayContext& context, BP::CGvxSessionBase& session, const BP::CCmd& cmd);

}  // namespace gvx
