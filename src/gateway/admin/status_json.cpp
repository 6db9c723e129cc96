#include "gateway/admin/status_json.h"

#include "base/json_io.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace gvx {

namespace {

struct AgeMs {
    std::int64_t ms;
};

Json::Value Age(std::int64_t ms) {
    return ms == kNever ? Json::Value() : Json::Value(Json::Int64(ms));
}

Json::Value Count(std::uint64_t count) {
    return Json::UInt64(count);
}

Json::Value Form(AgeMs age) {
    return Age(age.ms);
}

Json::Value Form(std::uint64_t count) {
    return Count(count);
}

Json::Value Form(bool value) {
    return value;
}

Json::Value Form(const std::string& text) {
    return text;
}

// Devices and streams may be many: their rows are written without a tree, or become one.

template <typename Put>
void Fill(const DeviceStatus& device, const Put& put) {
    put("code", device.code);
    put("plugin", device.plugin);
    put("address", device.address);
    put("link", device.link);
    put("state", device.state);
    put("well", device.well);
    put("reason", device.reason);
    put("state_age_ms", AgeMs{device.stateMs});
    put("last_error", device.lastError);
    put("last_error_age_ms", AgeMs{device.lastErrorMs});
    put("errors", std::uint64_t{device.errors});
    put("login_tries", std::uint64_t{device.loginTries});
    put("age_ms", AgeMs{device.addedMs});
    put("lenses", std::uint64_t{device.lenses});
    put("streams", std::uint64_t{device.streams});
    put("frames", std::uint64_t{device.totals.frames});
    put("bytes", std::uint64_t{device.totals.bytes});
    put("lost", std::uint64_t{device.totals.lost});
}

template <typename Put>
void Fill(const StreamStatus& stream, const Put& put) {
    put("id", stream.id);
    put("device", stream.device);
    put("lens", stream.lens);
    put("plugin", stream.plugin);
    put("service", stream.service);
    put("video", stream.video);
    put("audio", stream.audio);
    put("transport", stream.transport);
    put("destination", stream.destination);
    put("link", stream.link);
    put("frames", std::uint64_t{stream.frames});
    put("packets", std::uint64_t{stream.packets});
    put("bytes", std::uint64_t{stream.bytes});
    put("lost", std::uint64_t{stream.lost});
    put("age_ms", AgeMs{stream.startedMs});
    put("last_frame_age_ms", AgeMs{stream.lastFrameMs});
    put("delivering", stream.delivering);
    put("state", std::string(stream.paused ? "paused" : stream.delivering ? "delivering" : "silent"));
}

// Writes the members of a row as text.
class TextMember {
public:
    explicit TextMember(std::string& text) : m_text(text) {}

    void operator()(const char* name, const std::string& value) const { AppendJsonText(value, Begin(name)); }
    void operator()(const char* name, const char* value) const = delete;  // would be a bool
    void operator()(const char* name, bool value) const { Begin(name) += value ? "true" : "false"; }
    void operator()(const char* name, std::uint64_t value) const { AppendNumber(value, Begin(name)); }
    void operator()(const char* name, AgeMs age) const {
        std::string& text = Begin(name);
        if (age.ms == kNever) {
            text += "null";
        } else {
            AppendNumber(age.ms, text);
        }
    }

private:
    std::string& Begin(const char* name) const {
        m_text += m_text.back() == '{' ? "\"" : ",\"";
        m_text += name;
        return m_text += "\":";
    }
    template <typename Number>
    static void AppendNumber(Number number, std::string& text) {
        char digits[24];
        text.append(digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr);
    }

    std::string& m_text;
};

template <typename Row>
void AppendRows(const char* name, const std::vector<Row>& rows, std::string& text) {
    text.append(",\"").append(name).append("\":[");
    for (const Row& row : rows) {
        text += text.back() == '[' ? "{" : ",{";
        Fill(row, TextMember(text));
        text += '}';
    }
    text += ']';
}

template <typename Row>
Json::Value FilledRow(const Row& row) {
    Json::Value json(Json::objectValue);
    Fill(row, [&json](const char* name, const auto& value) { json[name] = Form(value); });
    return json;
}

Json::Value Form(const DeviceStatus& device) {
    return FilledRow(device);
}

Json::Value Form(const StreamStatus& stream) {
    return FilledRow(stream);
}

Json::Value Form(const LinkStatus& link) {
    Json::Value row(Json::objectValue);
    row["id"] = link.info.linkID;
    row["kind"] = link.kind;
    row["main_service"] = link.mainService;
    row["peer"] = link.info.ip + ":" + std::to_string(link.info.port);
    row["outgoing"] = link.info.outgoing;
    row["age_ms"] = Age(link.openedMs);
    row["frames_in"] = Count(link.info.framesIn);
    row["frames_out"] = Count(link.info.framesOut);
    row["frames_refused"] = Count(link.info.framesRefused);
    row["frames_dropped"] = Count(link.info.framesDropped);
    row["queued_bytes"] = Count(link.info.queuedBytes);
    row["memory_bytes"] = Count(link.info.memoryBytes);
    return row;
}

Json::Value Form(const AlarmStatus& alarm) {
    Json::Value row(Json::objectValue);
    row["id"] = alarm.id;
    row["name"] = alarm.name;
    row["info"] = alarm.info;
    row["age_ms"] = Age(alarm.openMs);
    return row;
}

Json::Value Form(const QueueStatus& queue) {
    Json::Value row(Json::objectValue);
    row["name"] = queue.name;
    row["of"] = queue.of;
    row["waiting"] = Count(queue.waiting);
    row["most"] = queue.most == 0 ? Json::Value() : Count(queue.most);
    row["served"] = Count(queue.served);
    row["refused"] = Count(queue.refused);
    return row;
}

Json::Value Form(const PluginCallStatus& call) {
    Json::Value row(Json::objectValue);
    row["operation"] = call.operation;
    row["device"] = call.device;
    row["age_ms"] = Age(call.openMs);
    row["overdue"] = call.overdue;
    return row;
}

Json::Value Form(const PluginTroubleStatus& trouble) {
    Json::Value row(Json::objectValue);
    row["operation"] = trouble.operation;
    row["device"] = trouble.device;
    row["kind"] = trouble.kind;
    row["count"] = Count(trouble.count);
    row["age_ms"] = Age(trouble.sinceMs);
    row["text"] = trouble.text;
    return row;
}

template <typename Row>
Json::Value List(const std::vector<Row>& rows);

Json::Value Form(const PluginStatus& plugin) {
    Json::Value row(Json::objectValue);
    row["name"] = plugin.name;
    row["version"] = plugin.version;
    row["maker"] = plugin.maker;
    row["devices"] = Count(plugin.devices);
    row["calls"] = List(plugin.calls);
    row["troubles"] = List(plugin.troubles);
    return row;
}

Json::Value Form(const ThreadStatus& thread) {
    Json::Value row(Json::objectValue);
    row["name"] = thread.name;
    row["shared"] = thread.shared;
    row["alive"] = thread.alive;
    row["silent_ms"] = Age(thread.silentMs);
    return row;
}

template <typename Row>
Json::Value List(const std::vector<Row>& rows) {
    Json::Value list(Json::arrayValue);
    for (const Row& row : rows) {
        list.append(Form(row));
    }
    return list;
}

Json::Value Form(const ProcessStatus& process) {
    Json::Value row(Json::objectValue);
    row["version"] = process.version;
    row["element"] = process.element;
    row["pid"] = process.pid;
    row["started"] = Json::Int64(process.startedWall);
    row["uptime_ms"] = Age(process.uptimeMs);
    row["resident_bytes"] = Count(process.residentBytes);
    row["descriptors"] = Count(process.descriptors);
    row["threads"] = Count(process.threads);
    return row;
}

Json::Value Form(const ReadyStatus& ready) {
    Json::Value row(Json::objectValue);
    row["ready"] = ready.Ready();
    row["main_service"] = ready.mainServiceLinked;
    row["alarm_store"] = ready.storeOpen;
    row["key_files"] = ready.keysGood;
    row["key_fault"] = ready.keyFault;
    return row;
}

Json::Value Form(const MemoryStatus& memory) {
    Json::Value row(Json::objectValue);
    row["send_blocks"] = Count(memory.sendBlocks);
    row["send_blocks_free"] = Count(memory.sendBlocksFree);
    row["send_block_failures"] = Count(memory.sendBlockFailures);
    row["pool_blocks"] = Count(memory.poolBlocks);
    row["pool_blocks_used"] = Count(memory.poolBlocksUsed);
    row["pool_level"] = memory.poolLevel;
    return row;
}

}  // namespace

std::map<std::string, std::size_t> CountDeviceStates(const GatewayStatus& status) {
    std::map<std::string, std::size_t> states;
    for (const DeviceStatus& device : status.devices) {
        ++states[device.state];
    }
    return states;
}

Json::Value StatusList(const GatewayStatus& status, const std::string& name) {
    if (name == "devices") {
        return List(status.devices);
    }
    if (name == "streams") {
        return List(status.streams);
    }
    if (name == "links") {
        return List(status.links);
    }
    if (name == "alarms") {
        return List(status.alarms);
    }
    if (name == "queues") {
        return List(status.queues);
    }
    if (name == "plugins") {
        return List(status.plugins);
    }
    return name == "threads" ? List(status.threads) : Json::Value();
}

Json::Value StatusSummary(const GatewayStatus& status) {
    Json::Value all(Json::objectValue);
    all["gateway"] = Form(status.process);
    all["ready"] = Form(status.ready);
    all["memory"] = Form(status.memory);
    Json::Value& devices = all["device_states"] = Json::Value(Json::objectValue);
    for (const auto& [state, count] : CountDeviceStates(status)) {
        devices[state] = Count(count);
    }
    Json::Value& counts = all["counts"] = Json::Value(Json::objectValue);
    counts["devices"] = Count(status.devices.size());
    counts["streams"] = Count(status.streams.size());
    counts["streams_delivering"] = Count(static_cast<std::size_t>(std::count_if(
        status.streams.begin(), status.streams.end(), [](const StreamStatus& stream) { return stream.delivering; })));
    counts["links"] = Count(status.links.size());
    counts["alarms"] = Count(status.alarms.size());
    counts["alarms_waiting"] = Count(status.alarmsWaiting);
    counts["threads_silent"] = Count(static_cast<std::size_t>(std::count_if(
        status.threads.begin(), status.threads.end(), [](const ThreadStatus& thread) { return !thread.alive; })));
    Json::Value& totals = all["totals"] = Json::Value(Json::objectValue);
    totals["streams_started"] = Count(status.streamTotals.started);
    totals["frames"] = Count(status.streamTotals.frames);
    totals["packets"] = Count(status.streamTotals.packets);
    totals["bytes"] = Count(status.streamTotals.bytes);
    totals["lost"] = Count(status.streamTotals.lost);
    totals["links_opened"] = Count(status.linkTotals.opened);
    totals["alarms_lost"] = Count(status.alarmsLost);
    return all;
}

Json::Value WholeStatus(const GatewayStatus& status) {
    Json::Value all = StatusSummary(status);
    for (const char* name : {"devices", "streams", "links", "alarms", "queues", "plugins", "threads"}) {
        all[name] = StatusList(status, name);
    }
    return all;
}

std::string WholeStatusText(const GatewayStatus& status) {
    constexpr std::size_t kRowBytes = 320;  // about as much as one of them takes
    Json::Value few = StatusSummary(status);
    for (const char* name : {"links", "alarms", "queues", "plugins", "threads"}) {
        few[name] = StatusList(status, name);
    }
    std::string text = WriteJson(few);
    text.resize(text.size() - 2);  // the bracket and the line feed
    text.reserve(text.size() + kRowBytes * (status.devices.size() + status.streams.size() + 1));
    AppendRows("devices", status.devices, text);
    AppendRows("streams", status.streams, text);
    return text += "}\n";
}

}  // namespace gvx
