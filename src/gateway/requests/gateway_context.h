#pragma once

#include "gateway/devices/dev_reactor_binder.h"
#include "gateway/devices/device_table.h"
#include "gateway/links/link_events.h"
#include "gateway/plugins/plugin_host.h"
#include "gateway/requests/plugin_reactors.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class CGvxReactor;

namespace gvx {

// Knows the session work that runs at this moment, so that a stop can wait for it. Any thread.
class RunningWork {
public:
    class Scope {
    public:
        Scope(RunningWork& work, std::uint32_t reqID, const std::string& device);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        friend class RunningWork;

        RunningWork& m_work;
        const std::uint32_t m_reqID;
        const std::string m_device;
    };

    // Waits until no work runs, for limit at most; true when none does.
    bool WaitIdle(std::chrono::milliseconds limit);
    // Names what runs in the log, for a stop that leaves it behind.
    void Name();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<const Scope*> m_running;  // Guarded by m_mutex.
};

// Requests that concern neither a device nor a plug-in, and those for devices that nobody knows, are kept in order on a
// reactor of their own. The key is longer than any device identifier, so that no device can have it.
constexpr const char* kGatewayKey = "gateway requests that concern no device";

// What the gateway's parts share. Made at start, before the first link; destroyed when no reactor runs work any more.
struct GatewayContext : std::enable_shared_from_this<GatewayContext> {
    PluginHost plugins;
    DeviceTable devices;
    DevReactorBinder binder;
    CGvxReactor* gatewayReactor = nullptr;  // bound to kGatewayKey; not owned
    PluginReactors pluginReactors;
    RunningWork work;
    LinkEventThread linkEvents;
    std::atomic<bool> stopping{false};
};

}  // namespace gvx
