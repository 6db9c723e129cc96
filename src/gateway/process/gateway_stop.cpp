#include "gateway/process/gateway.h"

#include "base/log.h"
#include "bp/dispatcher.h"
#include "bp/net_factory.h"
#include "gateway/alarms/device_reports.h"
#include "gateway/alarms/gateway_alarms.h"
#include "gateway/devices/history_sweep.h"
#include "gateway/plugins/left_behind.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/requests/gateway_work.h"
#include "gvx_common/config/cloud_config_mgr.h"
#include "bp/cmd.h"
#include "gvx_common/event/gvx_reactor.h"
#include "gvx_common/media/media_service.h"
#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/ports/gvx_port_mgr.h"

#include <algorithm>
#include <chrono>

namespace gvx {

namespace {

// What devices get of the two seconds that a stop may take; the rest is for links, media and the log.
constexpr std::chrono::milliseconds kTearDownLimit(1200);
constexpr std::chrono::milliseconds kPushPeriod(20);
// What a plug-in gets to come to the end of a block that a device has pushed, beside the above.
constexpr std::chrono::milliseconds kIntakeLimit(150);

}  // namespace

bool Gateway::Stop() {
    m_context->stopping = true;
    m_context->devices.Close();
    if (m_intake != nullptr) {
        m_intake->Close();
    }
    BP::CTransactionMgr::StopWaiting();
    const bool devicesIdle = TearDownDevices();
    const bool idle = StopIntake() && devicesIdle;
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

// The events that the links' end has brought are served to the last one, while devices and plug-ins still stand.
void Gateway::StopLinks() {
    BP::CNetFactory::Stop();
    m_context->linkEvents.Stop();
}

void Gateway::Release() {
    m_intake.reset();
    StopLinks();
    if (m_serves) {
        StopServing();
    }
    m_context->plugins.UnloadAll();
    StopErrorReports();
    StopLogFaultAlarms();
    StopAlarmStore();
    CCloudConfigMgr::Instance()->UnInit();
    PluginCallWatch::Instance().Stop();
    CGvxPortMgr::Instance()->UnInit();
    if (m_mediaRuns) {
        StopMediaService();
        g_mediaPool.UnInit();
        m_mediaRuns = false;
    }
}

}  // namespace gvx
