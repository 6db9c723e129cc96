#pragma once

#include "bp/service.h"
#include "gateway/admin/admin.h"
#include "gateway/alarms/gateway_alarms.h"
#include "gateway/intake/intake.h"
#include "gateway/process/options.h"
#include "gateway/requests/gateway_context.h"
#include "gateway/settings/exit_codes.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace gvx {

// What this process is to the platform.
class GatewayService : public BP::IService {
public:
    static constexpr std::uint32_t kServiceID = 1;
    // Lives until the process ends: whoever was given it keeps it.
    static GatewayService& Instance();
    std::uint32_t GetServiceID() const override { return kServiceID; }
};

// Puts the configuration folder of the command line, if there is one, in force; false when the folder in force cannot
// be read. configDir names it in both cases. Of main's thread.
bool TakeConfigFolder(const GatewayOptions& options, std::string& configDir);
// Loads and starts the plug-ins that command line and settings name.
StartResult LoadPlugins(PluginHost& plugins, const GatewayOptions& options, const std::string& configDir);

// The running gateway: starts every part in order and stops them. One object in a process, on one thread.
//
// Link events and what they lead to (a link's opening, the list of plug-ins, the report of used ports, the word to the
// devices that the main service is away) run on a thread of their own (link_events.h), where they may wait for a peer's
// answer. Frames are taken in on the link I/O thread, which serves all links: nothing there may wait for anybody.
class Gateway {
public:
    Gateway() = default;
    // Stop must have been called when Start has succeeded.
    ~Gateway() = default;
    Gateway(const Gateway&) = delete;
    Gateway& operator=(const Gateway&) = delete;

    // Finds the configuration folder and takes the data folder: the first step of a start, which touches nothing that
    // belongs to another gateway.
    StartResult TakeFolders(const GatewayOptions& options);
    // Reads the configuration; the second step, apart because the log may depend on it.
    StartResult LoadConfiguration();
    // Starts the rest. A failed start has undone its steps; the result names what is at fault.
    StartResult Start(const GatewayOptions& options);

    // The first step of a stop: what waits for a plug-in's call on another thread returns at once. Any thread.
    void StopWaiting() { m_context->pluginReactors.StopWaiting(); }
    // Stops everything within two seconds: links take nothing in any more, every device is torn down on its own
    // reactor, then the rest follows. True when all came to its end. False when a command or a plug-in's call does
    // not come to its end, or a plug-in may still use what it was given: it is named in the log, and the process must
    // end without destructors.
    bool Stop();
    // Gives back what was started, in reverse order; what was not is passed over. Stop does it when all came to its
    // end; after a Stop that left something behind it may follow once that has ended after all.
    void Release();

    std::uint16_t Port() const { return m_port; }
    GatewayContext& Context() { return *m_context; }

private:
    StartResult LoadSettings();
    StartResult StartCore();
    StartResult StartPlugins(const GatewayOptions& options);
    StartResult StartServing();
    StartResult StartLinks(const GatewayOptions& options);
    StartResult StartIntake();
    bool TearDownDevices();
    bool PushTearDown(const std::string& device);
    void StopLinks();
    bool StopIntake();
    void StopServing();

    // Shared with the work that reactors may look up until they end.
    const std::shared_ptr<GatewayContext> m_context = std::make_shared<GatewayContext>();
    std::unique_ptr<Intake> m_intake;  // null when devices have nowhere to push to
    Admin m_admin;
    DataFolder m_dataFolder;
    std::string m_configDir;
    std::string m_listenIp;
    std::uint16_t m_port = 0;
    std::size_t m_leftBehindBefore = 0;
    bool m_mediaRuns = false;
    bool m_serves = false;
};

}  // namespace gvx
