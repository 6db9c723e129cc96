#include "gateway/admin/metrics.h"

#include "gateway/admin/status_json.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <algorithm>
#include <initializer_list>
#include <sstream>
#include <string_view>
#include <utility>

namespace gvx {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::initializer_list<std::pair<const char*, std::string_view>>;

constexpr double kMsPerSecond = 1000;

class Families {
public:
    // Opens a family; the values that follow are its.
    Families& Gauge(const char* name, const char* help) { return Open(name, help, MetricType::Gauge); }
    Families& Counter(const char* name, const char* help) { return Open(name, help, MetricType::Counter); }
    template <typename Number>
    Families& Put(Number value, Labels labels = {}) {
        ClientMetric& metric = m_families.back().metric.emplace_back();
        metric.label.reserve(labels.size());
        for (const auto& [name, text] : labels) {
            metric.label.push_back({name, std::string(text)});
        }
        if (m_families.back().type == MetricType::Counter) {
            metric.counter.value = static_cast<double>(value);
        } else {
            metric.gauge.value = static_cast<double>(value);
        }
        return *this;
    }
    // So many values will follow at most.
    void Expect(std::size_t count) { m_families.back().metric.reserve(count); }

    std::string Text() const {
        std::ostringstream text;
        text.exceptions(std::ios::badbit);  // without memory it would else be cut short in silence
        prometheus::TextSerializer().Serialize(text, m_families);
        return text.str();
    }

private:
    Families& Open(const char* name, const char* help, MetricType type) {
        m_families.push_back({name, help, type, {}});
        return *this;
    }

    std::vector<MetricFamily> m_families;
};

void PutProcess(Families& all, const GatewayStatus& status) {
    const ProcessStatus& process = status.process;
    all.Gauge("gvx_build_info", "Always 1; the version is a label.").Put(1, {{"version", process.version}});
    all.Gauge("process_start_time_seconds", "When the process began, since 1970.").Put(process.startedWall);
    all.Counter("process_cpu_seconds_total", "Processor time of the process, user and system.").Put(process.cpuSeconds);
    all.Gauge("process_resident_memory_bytes", "Resident memory of the process.").Put(process.residentBytes);
    all.Gauge("process_open_fds", "Open descriptors of the process.").Put(process.descriptors);
    all.Gauge("process_threads", "Threads of the process.").Put(process.threads);
    all.Gauge("gvx_ready", "1 where what serving needs is there.")
        .Put(status.ready.mainServiceLinked, {{"check", "main_service"}})
        .Put(status.ready.storeOpen, {{"check", "alarm_store"}})
        .Put(status.ready.keysGood, {{"check", "key_files"}});
    const auto silent = std::count_if(status.threads.begin(), status.threads.end(),
                                      [](const ThreadStatus& thread) { return !thread.alive; });
    std::int64_t longestMs = 0;
    for (const ThreadStatus& thread : status.threads) {
        longestMs = std::max(longestMs, thread.silentMs);
    }
    all.Gauge("gvx_event_threads", "Event threads by whether they answer within their limit.")
        .Put(status.threads.size() - static_cast<std::size_t>(silent), {{"state", "alive"}})
        .Put(silent, {{"state", "silent"}});
    all.Gauge("gvx_event_thread_silence_seconds", "For how long the slowest event thread has not answered.")
        .Put(static_cast<double>(longestMs) / kMsPerSecond);
}

void PutStreams(Families& all, const GatewayStatus& status) {
    std::size_t delivering = 0;
    std::size_t paused = 0;
    for (const StreamStatus& stream : status.streams) {
        delivering += stream.delivering && !stream.paused ? 1 : 0;
        paused += stream.paused ? 1 : 0;
    }
    all.Gauge("gvx_streams", "Streams that run, by whether a frame has left within the last five seconds.")
        .Put(delivering, {{"state", "delivering"}})
        .Put(paused, {{"state", "paused"}})
        .Put(status.streams.size() - delivering - paused, {{"state", "silent"}});
    const StreamTotals& totals = status.streamTotals;
    all.Counter("gvx_streams_started_total", "Streams started.").Put(totals.started);
    all.Counter("gvx_stream_frames_total", "Frames of video sent.").Put(totals.frames);
    all.Counter("gvx_stream_packets_total", "Packets of video and sound handed over to be sent, lost ones included.")
        .Put(totals.packets);
    all.Counter("gvx_stream_bytes_total", "Bytes of all media handed over to be sent, lost ones included.")
        .Put(totals.bytes);
    all.Counter("gvx_stream_packets_lost_total", "Packets that could not be sent.").Put(totals.lost);
    all.Gauge("gvx_send_blocks", "Blocks for packets on their way to a socket.")
        .Put(status.memory.sendBlocksFree, {{"state", "free"}})
        .Put(status.memory.sendBlocks - std::min(status.memory.sendBlocks, status.memory.sendBlocksFree),
             {{"state", "used"}});
    all.Counter("gvx_send_block_failures_total", "Packets for which no block was free.")
        .Put(status.memory.sendBlockFailures);
    all.Gauge("gvx_media_pool_blocks", "Blocks of the media pool's open levels, 2048 bytes each.")
        .Put(status.memory.poolBlocks);
    all.Gauge("gvx_media_pool_used_blocks", "Those of them that are in use.").Put(status.memory.poolBlocksUsed);
}

void PutLinks(Families& all, const GatewayStatus& status) {
    std::map<std::string, std::size_t> kinds;
    std::size_t waiting = 0;
    for (const LinkStatus& link : status.links) {
        ++kinds[link.kind];
        waiting += link.info.queuedBytes;
    }
    all.Gauge("gvx_links", "Open links by the kind of their peer.");
    for (const auto& [kind, count] : kinds) {
        all.Put(count, {{"kind", kind}});
    }
    const BP::LinkTotals& totals = status.linkTotals;
    all.Counter("gvx_links_opened_total", "Links opened.").Put(totals.opened);
    all.Counter("gvx_links_closed_total", "Links closed.").Put(totals.closed);
    all.Counter("gvx_link_frames_received_total", "Frames that links have brought.").Put(totals.framesIn);
    all.Counter("gvx_link_frames_sent_total", "Frames that have left by links.").Put(totals.framesOut);
    all.Counter("gvx_link_frames_refused_total", "Frames that a full queue of a link refused.")
        .Put(totals.framesRefused);
    all.Counter("gvx_link_frames_dropped_total", "Frames of types that never travel, dropped.")
        .Put(totals.framesDropped);
    all.Gauge("gvx_link_queue_bytes", "Bytes that wait to leave by links.").Put(waiting);
}

void PutQueues(Families& all, const GatewayStatus& status) {
    std::size_t waiting = 0;
    std::size_t longest = 0;
    std::uint64_t served = 0;
    std::uint64_t refused = 0;
    all.Gauge("gvx_transmission_queue_packets", "Packets that wait for a transmission thread.");
    for (const QueueStatus& queue : status.queues) {
        if (queue.of == "packets") {
            all.Put(queue.waiting, {{"thread", queue.name}});
        } else if (queue.of == "commands") {
            waiting += queue.waiting;
            longest = std::max(longest, queue.waiting);
            served += queue.served;
            refused += queue.refused;
        }
    }
    all.Gauge("gvx_commands_waiting", "Commands that wait for the threads of devices.").Put(waiting);
    all.Gauge("gvx_command_queue_longest", "The longest queue among them.").Put(longest);
    all.Counter("gvx_commands_served_total", "Commands that threads of devices have taken up.").Put(served);
    all.Counter("gvx_commands_refused_total", "Commands that a full queue refused.").Put(refused);
    all.Gauge("gvx_alarms_waiting", "Alarms of the gateway that wait for a link.").Put(status.alarmsWaiting);
    all.Counter("gvx_alarms_lost_total", "Alarms of the gateway that were lost because too many waited.")
        .Put(status.alarmsLost);
}

void PutAlarms(Families& all, const GatewayStatus& status) {
    std::map<std::string, std::size_t> open;
    for (const AlarmStatus& alarm : status.alarms) {
        ++open[alarm.id];
    }
    all.Gauge("gvx_alarms_open", "Open alarms of the gateway itself, by their number.");
    for (const auto& [id, count] : open) {
        all.Put(count, {{"alarm", id}});
    }
}

void PutPlugins(Families& all, const GatewayStatus& status) {
    all.Gauge("gvx_plugin_info", "Always 1; name and version are labels.");
    for (const PluginStatus& plugin : status.plugins) {
        all.Put(1, {{"plugin", plugin.name}, {"version", plugin.version}});
    }
    all.Gauge("gvx_plugin_devices", "Devices of a plug-in.");
    for (const PluginStatus& plugin : status.plugins) {
        all.Put(plugin.devices, {{"plugin", plugin.name}});
    }
    all.Gauge("gvx_plugin_calls_overdue", "Calls into a plug-in that take longer than GVX_PLUGIN_CALL_LIMIT.");
    for (const PluginStatus& plugin : status.plugins) {
        all.Put(std::count_if(plugin.calls.begin(), plugin.calls.end(), [](const auto& call) { return call.overdue; }),
                {{"plugin", plugin.name}});
    }
    all.Gauge("gvx_plugin_troubles", "Operations of a plug-in that fail at the moment.");
    for (const PluginStatus& plugin : status.plugins) {
        all.Put(plugin.troubles.size(), {{"plugin", plugin.name}});
    }
}

// Streams are few beside devices: a device without one has no row but the first.
void PutDevices(Families& all, const GatewayStatus& status) {
    all.Gauge("gvx_device_up", "1 while nothing is known to be wrong with the device.").Expect(status.devices.size());
    for (const DeviceStatus& device : status.devices) {
        all.Put(device.well, {{"device", device.code}});
    }
    all.Counter("gvx_device_frames_total", "Frames of video that the device's streams have sent.");
    for (const DeviceStatus& device : status.devices) {
        if (device.totals.started != 0) {
            all.Put(device.totals.frames, {{"device", device.code}});
        }
    }
    all.Counter("gvx_device_packets_lost_total", "Packets that the device's streams could not send.");
    for (const DeviceStatus& device : status.devices) {
        if (device.totals.started != 0) {
            all.Put(device.totals.lost, {{"device", device.code}});
        }
    }
}

}  // namespace

std::string MetricsText(const GatewayStatus& status, bool perDevice) {
    Families all;
    PutProcess(all, status);
    all.Gauge("gvx_devices", "Devices by state.");
    for (const auto& [state, count] : CountDeviceStates(status)) {
        all.Put(count, {{"state", state}});
    }
    PutStreams(all, status);
    PutLinks(all, status);
    PutQueues(all, status);
    PutAlarms(all, status);
    PutPlugins(all, status);
    if (perDevice) {
        PutDevices(all, status);
    }
    return all.Text();
}

}  // namespace gvx
