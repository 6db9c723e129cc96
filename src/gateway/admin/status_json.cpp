#include "gateway/admin/status_json.h"

#include <algorithm>

namespace gvx {

namespace {

Json::Value Age(std::int64_t ms) {
    return ms == kNever ? Json::Value() : Json::Value(Json::Int64(ms));
}

Json::Value Count(std::uint64_t count) {
    return Json::UInt64(count);
}

Json::Value Form(const DeviceStatus& device) {
    Json::Value row(Json::objectValue);
    row["code"] = device.code;
    row["plugin"] = device.plugin;
    row["address"] = device.address;
    row["link"] = device.link;
    row["state"] = device.state;
    row["well"] = device.well;
    row["reason"] = device.reason;
    row["state_age_ms"] = Age(device.stateMs);
    row["last_error"] = device.lastError;
    row["last_error_age_ms"] = Age(device.lastErrorMs);
    row["errors"] = Count(device.errors);
    row["login_tries"] = Count(device.loginTries);
    row["age_ms"] = Age(device.addedMs);
    row["lenses"] = Count(device.lenses);
    row["streams"] = Count(device.streams);
    row["frames"] = Count(device.totals.frames);
    row["bytes"] = Count(device.totals.bytes);
    row["lost"] = Count(device.totals.lost);
    return row;
}

Json::Value Form(const StreamStatus& stream) {
    Json::Value row(Json::objectValue);
    row["id"] = stream.id;
    row["device"] = stream.device;
    row["lens"] = stream.lens;
    row["plugin"] = stream.plugin;
    row["service"] = stream.service;
    row["video"] = stream.video;
    row["audio"] = stream.audio;
    row["transport"] = stream.transport;
    row["destination"] = stream.destination;
    row["link"] = stream.link;
    row["frames"] = Count(stream.frames);
    row["packets"] = Count(stream.packets);
    row["bytes"] = Count(stream.bytes);
    row["lost"] = Count(stream.lost);
    row["age_ms"] = Age(stream.startedMs);
    row["last_frame_age_ms"] = Age(stream.lastFrameMs);
    row["delivering"] = stream.delivering;
    row["state"] = stream.paused ? "paused" : stream.delivering ? "delivering" : "silent";
    return row;
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

}  // namespace gvx
