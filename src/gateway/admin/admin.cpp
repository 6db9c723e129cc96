#include "gateway/admin/admin.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/paths.h"
#include "gateway/admin/control_commands.h"
#include "gateway/admin/control_socket.h"
#include "gateway/admin/event_feed.h"
#include "gateway/admin/heartbeat.h"
#include "gateway/admin/status.h"
#include "gateway/admin/status_log.h"
#include "gateway/admin/status_port.h"
#include "gateway/admin/trace_desk.h"
#include "gateway/alarms/gateway_alarms.h"
#include "gvx_common/config/setting_table.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <string>

namespace gvx {

namespace {

constexpr const char* kTraceFolder = "/traces";

}  // namespace

struct Admin::Parts {
    explicit Parts(GatewayContext& gateway)
        : context(gateway),
          heartbeats(gateway, std::chrono::seconds(SettingNumber(Setting::GVX_PLUGIN_CALL_LIMIT))),
          traces(DataFolderPath() + kTraceFolder, "gvxd " GVX_VERSION) {}

    GatewayStatus Collect() { return CollectStatus(context, &heartbeats); }
    std::shared_ptr<const GatewayStatus> RecentLook();

    void StartSocket();
    void StartPort();

    GatewayContext& context;
    Heartbeats heartbeats;
    TraceDesk traces;  // outlives the socket's requests
    ControlSocket socket;
    EventFeed feed;  // outlives the port's readers
    StatusPort port;
};

namespace {

// The gateway that runs, for the functions without an object. Whoever uses it holds the mutex, so that Stop waits.
// Outermost.
struct Running {
    std::mutex mutex;
    GatewayContext* context = nullptr;
    Heartbeats* heartbeats = nullptr;
};

Running& TheRunning() {
    static Running* const running = new Running;
    return *running;
}

void SetRunning(GatewayContext* context, Heartbeats* heartbeats) {
    Running& running = TheRunning();
    const std::lock_guard<std::mutex> lock(running.mutex);
    running.context = context;
    running.heartbeats = heartbeats;
}

std::string SocketPath() {
    const std::string path = SettingText(Setting::GVX_CONTROL_SOCKET);
    return path.empty() ? DefaultControlSocket() : path;
}

}  // namespace

Admin::Admin() = default;

Admin::~Admin() {
    Stop();
}

void Admin::Start(GatewayContext& context) {
    NoteProcessStart();
    try {
        m_parts = std::make_unique<Parts>(context);
        SetRunning(&context, &m_parts->heartbeats);
        m_parts->StartSocket();
        m_parts->StartPort();
    } catch (const std::bad_alloc&) {
        Stop();
        GVX_LOG_WARN("Status", "There is no memory for it; the gateway serves without control socket and status port.");
    }
}

// The feed looks once a second anyway. It may be late, for want of memory.
std::shared_ptr<const GatewayStatus> Admin::Parts::RecentLook() {
    constexpr std::int64_t kLateMs = 2 * EventFeed::kPeriod.count();
    std::shared_ptr<const GatewayStatus> last = feed.LastLook();
    return last != nullptr && MonotonicMilliseconds() - last->takenMs < kLateMs
               ? last
               : std::make_shared<const GatewayStatus>(Collect());
}

void Admin::Parts::StartSocket() {
    const std::string path = SocketPath();
    const auto answer = [this](const std::string& request) {
        return AnswerControl(request,
                             {[this] { return Collect(); }, [this] { return context.devices.Codes(); }, traces});
    };
    std::string reason;
    if (!socket.Start(path, answer, reason)) {
        GVX_LOG_WARN("Control socket", "%s cannot be had, gvxctl finds no status: %s.", path.c_str(), reason.c_str());
    }
}

void Admin::Parts::StartPort() {
    const auto number = static_cast<std::uint16_t>(SettingNumber(Setting::GVX_STATUS_PORT));
    if (number == 0) {
        return;
    }
    const std::string address = SettingText(Setting::GVX_STATUS_ADDRESS);
    std::string reason;
    if (port.Start(address, number, {[this] { return RecentLook(); }, [this] { return heartbeats.Threads(); }, &feed},
                   reason) &&
        feed.Start([this] { return Collect(); }, [this] { port.Sweep(); }, reason)) {
        GVX_LOG_INFO("Status port", "http://%s:%u/", address.c_str(), number);
        return;
    }
    feed.Stop();  // a reader that has come already sleeps in the port
    port.Stop();
    GVX_LOG_WARN("Status port", "%s:%u cannot be had, there is no status page and no /metrics: %s.", address.c_str(),
                 number, reason.c_str());
}

void Admin::Stop() {
    if (m_parts != nullptr) {
        SetRunning(nullptr, nullptr);
        m_parts->socket.Stop();
        m_parts->feed.Stop();
        m_parts->port.Stop();
        m_parts.reset();
    }
}

bool EventThreadsAlive() {
    Running& running = TheRunning();
    const std::lock_guard<std::mutex> lock(running.mutex);
    return running.heartbeats == nullptr || running.heartbeats->SharedThreadsAlive();
}

void WriteStatusToLog() {
    Running& running = TheRunning();
    const std::lock_guard<std::mutex> lock(running.mutex);
    if (running.context == nullptr) {
        GVX_LOG_INFO("Status", "no gateway runs");
        return;
    }
    LogStatus(CollectStatus(*running.context, running.heartbeats));
}

}  // namespace gvx
