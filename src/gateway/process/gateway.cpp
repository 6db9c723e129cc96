#include "gateway/process/gateway.h"

#include "base/log.h"
#include "base/paths.h"
#include "base/shortage.h"
#include "base/zvs_error.h"
#include "bp/cmd.h"
#include "bp/dispatcher.h"
#include "bp/net_factory.h"
#include "bp/session.h"
#include "gateway/alarms/device_reports.h"
#include "gateway/alarms/gateway_alarms.h"
#include "gateway/alarms/plugin_troubles.h"
#include "gateway/devices/history_sweep.h"
#include "gateway/links/link_options.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/requests/frame_sink.h"
#include "gateway/requests/gateway_work.h"
#include "gvx_common/config/cloud_config_mgr.h"
#include "gvx_common/config/config_findings.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/config/settings_check.h"
#include "gvx_common/event/gvx_reactor.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/media/media_service.h"
#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/ports/gvx_port_mgr.h"
#include "gvx_common/security/gvx_security_mgr.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>

#include <unistd.h>

#ifndef GVX_LIBRARY_FOLDER
#define GVX_LIBRARY_FOLDER "lib"
#endif

namespace gvx {

namespace {

// What devices get of the two seconds that a stop may take; the rest is for links, media and the log.
constexpr std::chrono::milliseconds kTearDownLimit(1200);
constexpr std::chrono::milliseconds kPushPeriod(20);
// What a plug-in gets to come to the end of a block that a device has pushed, beside the above.
constexpr std::chrono::milliseconds kIntakeLimit(150);
// And what its probes get to return.
constexpr std::chrono::milliseconds kSearchLimit(300);

constexpr unsigned int kPoolSize = 8;
constexpr const char* kPluginSubfolder = "/gvx/plugins";

// Where an installed gvxd has its plug-ins: found from its own place, so that any prefix works.
std::string InstalledPluginDir() {
    std::error_code ignored;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", ignored);
    return (program.parent_path() / "..").string() + "/" + GVX_LIBRARY_FOLDER + kPluginSubfolder;
}

void OpenLink(const std::string& name, int type, const std::string& link, const std::string& ip, unsigned int port) {
    CGvxConnectionMgr::Instance()->OnLinkOpened(name, type, link, ip, port);
}

void CloseLink(const std::string& name, int type, const std::string& link, const std::string& ip, unsigned int port) {
    CGvxConnectionMgr::Instance()->OnLinkClosed(name, type, link, ip, port);
}

}  // namespace

bool TakeConfigFolder(const GatewayOptions& options, std::string& configDir) {
    if (!options.configDir.empty()) {
        setenv("GVX_CONFIG_DIR", options.configDir.c_str(), 1);
    }
    return get_config_directory(configDir) == 0;
}

StartResult LoadPlugins(PluginHost& plugins, const GatewayOptions& options, const std::string& configDir) {
    std::string dir = options.pluginDir.empty() ? SettingText(Setting::GVX_PLUGIN_DIR) : options.pluginDir;
    if (dir.empty()) {
        dir = InstalledPluginDir();
    }
    return plugins.LoadAll(dir, SplitNames(SettingText(Setting::GVX_PLUGIN_LIST)), configDir);
}

GatewayService& GatewayService::Instance() {
    static GatewayService service;
    return service;
}

StartResult Gateway::Start(const GatewayOptions& options) {
    m_leftBehindBefore = LeftBehindCount();
    // No reason to end a start: all but the devices with a password works, and a file that is mended counts at once.
    if (CSecurityMgr::Instance()->Init() != ZVS_SUCCEED) {
        GVX_LOG_WARN("gvxd", "Devices with a password cannot be reached until their key file is mended.");
    }
    StartResult result;
    const std::function<StartResult()> steps[] = {
        [this] { return StartCore(); }, [this, &options] { return StartPlugins(options); },
        [this] { return StartServing(); }, [this, &options] { return StartLinks(options); },
        [this] { return StartIntake(); }};
    for (const std::function<StartResult()>& step : steps) {
        ForgetShortage();
        result = step();
        if (result.Failed()) {
            break;
        }
    }
    if (result.Failed()) {
        Release();
        return result;
    }
    StartAlarms();
    m_admin.Start(*m_context);
    GVX_LOG_INFO("gvxd", "gvxd ready, listening on %s:%u, plug-ins: %s", m_listenIp.c_str(), m_port,
                 m_context->plugins.NameList().c_str());
    return result;
}

StartResult Gateway::TakeFolders(const GatewayOptions& options) {
    if (!TakeConfigFolder(options, m_configDir)) {
        return StartFailure(ExitCode::ConfigFolder,
                            "configuration folder " + m_configDir + " does not exist or cannot be read");
    }
    std::string dataDir;
    std::string reason;
    if (PeekSetting(m_configDir, Setting::GVX_DATA_DIR, dataDir) && !m_dataFolder.Take(dataDir, reason)) {
        return StartFailure(ExitCode::StartFailed, reason);
    }
    return {};  // without its settings the configuration is refused in a moment
}

StartResult Gateway::LoadConfiguration() {
    // Ahead of the settings, whose alarms ask for its flag. Without its file the gateway is one that the cloud has not
    // taken over, and runs all the same.
    CCloudConfigMgr::Instance()->Init();
    ForgetShortage();
    StartResult result = LoadSettings();
    if (result.Failed()) {
        CCloudConfigMgr::Instance()->UnInit();
        m_dataFolder.Release();
    }
    return result;
}

StartResult Gateway::LoadSettings() {
    const FindingsKeeper findings;
    if (CGvxConfigMgr::Instance()->Init() != 0) {
        return StartFailure(ExitCode::ConfigRefused, "configuration refused: " + findings.WhyNoStart());
    }
    // The core can live without its identifier; a gateway that peers are to link to cannot.
    if (CGvxConfigMgr::Instance()->GetGvxNetElementID().empty()) {
        return StartFailure(ExitCode::ConfigRefused, "configuration refused: " + findings.WhyNoStart());
    }
    return {};
}

StartResult Gateway::StartCore() {
    m_context->binder.SetMaxDevices(static_cast<std::size_t>(SettingNumber(Setting::MAX_DEVICE_NUM)));
    if (m_context->binder.InitPool(kPoolSize) != 0) {
        return StartFailure(ExitCode::OutOfResources, "the device reactors could not be started");
    }
    m_context->gatewayReactor = m_context->binder.Bind(kGatewayKey);
    if (m_context->gatewayReactor == nullptr) {
        return StartFailure(ExitCode::OutOfResources, "the gateway has no reactor of its own");
    }
    if (!g_mediaPool.Init() || StartMediaService() != 0) {
        g_mediaPool.UnInit();
        if (LastShortage().empty()) {
            NoteShortage(Resource::Memory, ENOMEM);  // whoever misses a thread or a descriptor has noted it
        }
        return StartFailure(ExitCode::OutOfResources, "the media service could not be started");
    }
    m_mediaRuns = true;
    if (!CGvxPortMgr::Instance()->Init()) {
        return StartFailure(ExitCode::OutOfResources, "the port manager could not be started");
    }
    CGvxConnectionMgr::Instance()->SetGvxService(&GatewayService::Instance());
    CGvxConnectionMgr::Instance()->SetException(&OnLinkReport);
    StartErrorReports();
    return {};
}

StartResult Gateway::StartPlugins(const GatewayOptions& options) {
    PluginTroubles::Instance().Clear();
    PluginCallWatch::Instance().Start(SettingNumber(Setting::GVX_PLUGIN_CALL_LIMIT) * 1000);
    return LoadPlugins(m_context->plugins, options, m_configDir);
}

StartResult Gateway::StartServing() {
    m_context->plugins.SetCaller([context = m_context.get()](const std::string& plugin, std::function<int()> call) {
        return context->pluginReactors.Call(plugin, std::move(call));
    });
    BP::CPluginMgr::SetImplementation(&m_context->plugins);
    BP::CDeviceMgr::SetImplementation(&m_context->devices);
    SetReportReactors(
        [devices = &m_context->devices](const std::string& device) { return devices->ReportReactorOf(device); });
    RegisterGatewayWork(m_context);
    BP::CTransactionMgr::Resume();
    BP::CDispatcher::SetSink([context = m_context](std::unique_ptr<BP::CCmd> cmd) {
        int result = 0;
        return context->linkEvents.Hold(cmd, result) ? result : FrameSink(*context).Take(*cmd);
    });
    m_context->plugins.OnRegistered([&links = m_context->linkEvents] { links.LetFramesIn(); });
    m_serves = true;
    const auto period = static_cast<int>(SettingNumber(Setting::HISTORY_SWEEP_PERIOD));
    if (!HistorySweep::Instance().Start(m_context->binder, period)) {
        return StartFailure(ExitCode::OutOfResources, "the history sweep has no timer");
    }
    return {};
}

StartResult Gateway::StartLinks(const GatewayOptions& options) {
    m_listenIp = LinkListenIp();
    const auto port = options.listenPort.value_or(static_cast<std::uint16_t>(SettingNumber(Setting::GVX_LISTEN_PORT)));
    BP::LinkOptions links;
    links.localID = CGvxConfigMgr::Instance()->GetGvxNetElementID();
    ReadLinkOptions(links);
    ReadLinkPeers(m_listenIp, links.peers);
    if (const StartResult tls = ReadLinkTls(m_listenIp, links.tls); tls.Failed()) {
        return tls;
    }
    GatewayContext& context = *m_context;
    if (!context.linkEvents.Start({&OpenLink, &CloseLink},
                                  [&context](BP::CCmd& cmd) { return FrameSink(context).Take(cmd); })) {
        return StartFailure(ExitCode::OutOfResources, "the thread of link events could not be started");
    }
    CGvxConnectionMgr::Instance()->SetPeerWaitRunner(
        [&context](std::function<void()> work) { context.linkEvents.Aside(std::move(work)); });
    const int started = BP::CNetFactory::Start(links, context.linkEvents.Callbacks());
    if (started == ZVS_PARA_INVALID) {
        return StartFailure(ExitCode::ConfigRefused, m_configDir + "/net.xml: its NetElementID [" + links.localID +
                                                         "] is no link identifier such as GVX#001");
    }
    if (started != 0) {
        return StartFailure(ExitCode::OutOfResources, "the link layer could not be started");
    }
    errno = 0;
    if (BP::CNetFactory::Listen(m_listenIp.c_str(), port, &m_port) != 0) {
        const int fault = errno;
        return StartFailure(ExitCode::CannotListen, "cannot listen on " + m_listenIp + ":" + std::to_string(port) +
                                                        ": " + (fault != 0 ? std::strerror(fault) : "no such address"));
    }
    return {};
}

StartResult Gateway::StartIntake() {
    const IntakeSettings settings = ReadIntakeSettings();
    if (settings.port == 0) {
        return {};
    }
    m_intake = std::make_unique<Intake>();
    return m_intake->Start(settings, m_context->plugins.TakersOfIntake());
}

bool Gateway::Stop() {
    m_context->stopping = true;
    StopWaiting();
    m_admin.Stop();
    m_context->devices.Close();
    if (m_intake != nullptr) {
        m_intake->Close();
    }
    BP::CTransactionMgr::StopWaiting();
    const bool devicesIdle = TearDownDevices();
    const bool searchesEnded = m_context->plugins.StopSearches(kSearchLimit);
    const bool idle = StopIntake() && devicesIdle && searchesEnded;
    StopLinks();
    const bool callsOpen = PluginCallWatch::Instance().NameOpen() != 0;
    if (idle && !callsOpen && LeftBehindCount() == m_leftBehindBefore) {
        Release();
        return true;
    }
    m_context->work.Name();
    for (const std::string& code : m_context->devices.Codes()) {
        GVX_LOG_ERR("Stop", "device %s is left behind: its reactor is held up.", code.c_str());
    }
    return false;
}

bool Gateway::StopIntake() {
    return m_intake == nullptr || m_intake->WaitIdle(kIntakeLimit);
}

// Every device is torn down by its own reactor, so that one that hangs holds up nobody else. A queue that is full takes
// the command as soon as there is room. True when no device is left and no work runs any more.
bool Gateway::TearDownDevices() {
    const auto deadline = std::chrono::steady_clock::now() + kTearDownLimit;
    std::vector<std::string> waiting = m_context->devices.Codes();
    const auto left = [&] {
        return std::max(std::chrono::milliseconds(0), std::chrono::duration_cast<std::chrono::milliseconds>(
                                                          deadline - std::chrono::steady_clock::now()));
    };
    while (!waiting.empty() && left().count() > 0) {
        waiting.erase(std::remove_if(waiting.begin(), waiting.end(),
                                     [this](const std::string& device) { return PushTearDown(device); }),
                      waiting.end());
        if (!waiting.empty()) {
            m_context->devices.WaitEmpty(std::min(left(), kPushPeriod));
        }
    }
    return m_context->devices.WaitEmpty(left()) && m_context->work.WaitIdle(left());
}

bool Gateway::PushTearDown(const std::string& device) {
    CGvxReactor* reactor = m_context->devices.ReactorOf(device);
    if (reactor == nullptr) {
        return true;  // deleted meanwhile
    }
    BP::CCmd cmd;
    cmd.SetReqID(GVX_INTERNAL_REQ_DELETE);
    CGvxNssCmd entry;
    entry.m_pCmd = &cmd;  // the queue takes a clone
    entry.m_devID = device;
    return reactor->PushMessage(entry) == 0;
}

void Gateway::StopServing() {
    HistorySweep::Instance().Stop();
    BP::CDispatcher::SetSink({});
    SetReportReactors(nullptr);
    UnregisterGatewayWork();
    BP::CPluginMgr::SetImplementation(nullptr);
    BP::CDeviceMgr::SetImplementation(nullptr);
    m_serves = false;
}

// The events that the links' end has brought are served to the last one, while devices and plug-ins still stand. Alarms
// are held back ahead of it: one that only one of its peers has had would be ended for both.
void Gateway::StopLinks() {
    HoldAlarms();
    BP::CNetFactory::Stop();
    m_context->linkEvents.Stop();
    CGvxConnectionMgr::Instance()->SetPeerWaitRunner({});
}

void Gateway::Release() {
    m_admin.Stop();
    m_intake.reset();
    StopLinks();
    if (m_serves) {
        StopServing();
    }
    m_context->pluginReactors.End();
    m_context->plugins.UnloadAll();
    StopErrorReports();
    StopAlarms();
    m_dataFolder.Release();
    CCloudConfigMgr::Instance()->UnInit();
    PluginCallWatch::Instance().Stop();
    CSecurityMgr::Instance()->UnInit();
    CGvxPortMgr::Instance()->UnInit();
    if (m_mediaRuns) {
        StopMediaService();
        g_mediaPool.UnInit();
        m_mediaRuns = false;
    }
}

}  // namespace gvx
