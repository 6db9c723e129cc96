#include "gateway/admin/status_log.h"

#include "base/log.h"
#include "gateway/admin/status_json.h"

#include <algorithm>

namespace gvx {

namespace {

constexpr const char* kTitle = "Status";

using Count = unsigned long long;

// Calls write with the rows that are wanted, and tells how many more there are.
template <typename Row, typename Wanted, typename Write>
void LogRows(const char* what, const std::vector<Row>& rows, const Wanted& wanted, const Write& write) {
    std::size_t count = 0;
    for (const Row& row : rows) {
        if (wanted(row) && ++count <= kMostRows) {
            write(row);
        }
    }
    if (count > kMostRows) {
        GVX_LOG_INFO(kTitle, "%zu more %s", count - kMostRows, what);
    }
}

template <typename Row, typename Write>
void LogRows(const char* what, const std::vector<Row>& rows, const Write& write) {
    LogRows(
        what, rows, [](const Row&) { return true; }, write);
}

std::string AgeText(std::int64_t ms) {
    return ms == kNever ? "never" : std::to_string(ms / 1000) + " s ago";
}

void LogSummary(const GatewayStatus& status) {
    const ProcessStatus& process = status.process;
    GVX_LOG_INFO(kTitle, "gvxd %s %s, pid %d, up %lld s, %zu MiB, %zu descriptors, %zu threads, %s",
                 process.version.c_str(), process.element.c_str(), process.pid,
                 static_cast<long long>(process.uptimeMs / 1000), process.residentBytes >> 20, process.descriptors,
                 process.threads, status.ready.Ready() ? "ready" : "not ready");
    std::string states;
    for (const auto& [state, count] : CountDeviceStates(status)) {
        states += ", " + std::to_string(count) + " " + state;
    }
    GVX_LOG_INFO(kTitle, "%zu devices%s; %zu streams, %zu links, %zu open alarms, %llu alarms wait",
                 status.devices.size(), states.c_str(), status.streams.size(), status.links.size(),
                 status.alarms.size(), static_cast<Count>(status.alarmsWaiting));
    const StreamTotals& sent = status.streamTotals;
    GVX_LOG_INFO(kTitle, "in all %llu streams, %llu frames, %llu packets, %llu bytes, %llu packets lost",
                 static_cast<Count>(sent.started), static_cast<Count>(sent.frames), static_cast<Count>(sent.packets),
                 static_cast<Count>(sent.bytes), static_cast<Count>(sent.lost));
}

}  // namespace

void LogStatus(const GatewayStatus& status) {
    LogSummary(status);
    LogRows(
        "devices", status.devices, [](const DeviceStatus& device) { return !device.well; },
        [](const DeviceStatus& device) {
            GVX_LOG_INFO(kTitle, "device %s of plug-in %s: %s for %lld s, %s", device.code.c_str(),
                         device.plugin.c_str(), device.state.c_str(), static_cast<long long>(device.stateMs / 1000),
                         device.reason.c_str());
        });
    LogRows("streams", status.streams, [](const StreamStatus& stream) {
        GVX_LOG_INFO(kTitle, "stream %s of device %s: %s, %s to %s, %llu frames, %llu packets lost, last frame %s%s",
                     stream.id.c_str(), stream.device.c_str(), stream.service.c_str(), stream.transport.c_str(),
                     stream.destination.c_str(), static_cast<Count>(stream.frames), static_cast<Count>(stream.lost),
                     AgeText(stream.lastFrameMs).c_str(),
                     stream.paused       ? ", paused"
                     : stream.delivering ? ""
                                         : ", NOT DELIVERING");
    });
    LogRows("links", status.links, [](const LinkStatus& link) {
        GVX_LOG_INFO(kTitle, "link %s with %s:%u%s: %llu frames in, %llu out, %zu bytes wait", link.info.linkID.c_str(),
                     link.info.ip.c_str(), link.info.port, link.mainService ? ", main service" : "",
                     static_cast<Count>(link.info.framesIn), static_cast<Count>(link.info.framesOut),
                     link.info.queuedBytes);
    });
    LogRows("alarms", status.alarms, [](const AlarmStatus& alarm) {
        GVX_LOG_INFO(kTitle, "alarm %s, %s: %s", alarm.id.c_str(), alarm.name.c_str(), alarm.info.c_str());
    });
    LogRows(
        "queues", status.queues, [](const QueueStatus& queue) { return queue.waiting != 0 || queue.refused != 0; },
        [](const QueueStatus& queue) {
            GVX_LOG_INFO(kTitle, "queue %s: %zu %s wait, %llu refused", queue.name.c_str(), queue.waiting,
                         queue.of.c_str(), static_cast<Count>(queue.refused));
        });
    LogRows(
        "threads", status.threads, [](const ThreadStatus& thread) { return !thread.alive; },
        [](const ThreadStatus& thread) {
            GVX_LOG_INFO(kTitle, "event thread %s has not answered for %lld s", thread.name.c_str(),
                         static_cast<long long>(thread.silentMs / 1000));
        });
    for (const PluginStatus& plugin : status.plugins) {
        GVX_LOG_INFO(kTitle, "plug-in %s %s: %zu devices, %zu calls open, %zu troubles", plugin.name.c_str(),
                     plugin.version.c_str(), plugin.devices, plugin.calls.size(), plugin.troubles.size());
        LogRows(
            "calls", plugin.calls, [](const PluginCallStatus& call) { return call.overdue; },
            [&plugin](const PluginCallStatus& call) {
                GVX_LOG_INFO(kTitle, "plug-in %s: %s of device %s has not returned for %lld s", plugin.name.c_str(),
                             call.operation.c_str(), call.device.c_str(), static_cast<long long>(call.openMs / 1000));
            });
    }
}

}  // namespace gvx
