#include "gateway/admin/status.h"

#include "base/alarm_store.h"
#include "base/clock.h"
#include "bp/registration.h"
#include "gateway/admin/heartbeat.h"
#include "gateway/alarms/plugin_troubles.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/requests/gateway_context.h"
#include "gvx_common/adapter/gvx_device_state.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/event/gvx_reactor.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/media_memory/media_block_buffer.h"
#include "gvx_common/security/gvx_security_mgr.h"

#include <algorithm>
#include <fstream>
#include <unordered_map>

#include <arpa/inet.h>
#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace gvx {

namespace {

// A stream that has sent nothing for so long does not deliver.
constexpr std::int64_t kDeliveryLimitMs = 5000;

struct Named {
    int value;
    const char* name;
};

constexpr Named kServices[] = {{SERVICE_TYPE_AUDIO_CALL, "talk"},
                               {SERVICE_TYPE_AUDIO_BROADCAST, "broadcast"},
                               {SERVICE_TYPE_PU_DOWNLOAD, "download"},
                               {SERVICE_TYPE_PU_PLAYBACK, "playback"},
                               {SERVICE_TYPE_PU_UPLOAD, "upload"}};
constexpr Named kVideoCodecs[] = {{VIDEO_DEC_H264, "H.264"},   {VIDEO_DEC_MJPEG, "MJPEG"}, {VIDEO_DEC_MPEG4, "MPEG-4"},
                                  {VIDEO_DEC_MPEG2, "MPEG-2"}, {VIDEO_DEC_AVS, "AVS"},     {VIDEO_DEC_H265, "H.265"},
                                  {VIDEO_DEC_SVAC, "SVAC"}};
constexpr Named kAudioCodecs[] = {{GVX_AUDIO_FORMAT_G711A, "G.711A"},
                                  {GVX_AUDIO_FORMAT_G711U, "G.711U"},
                                  {AUDIO_FORMAT_G726, "G.726"},
                                  {GVX_AUDIO_FORMAT_AAC, "AAC"}};

template <std::size_t N>
const char* NameOf(const Named (&names)[N], int value, const char* otherwise) {
    const Named* const found =
        std::find_if(std::begin(names), std::end(names), [value](const Named& named) { return named.value == value; });
    return found != std::end(names) ? found->name : otherwise;
}

struct AlarmName {
    const char* id;
    const char* name;
};
constexpr AlarmName kAlarms[] = {{ALARM_GVX_LOG_BACK_FAIL, "log files cannot be rotated"},
                                 {ALARM_GVX_LOG_RECORD_FAIL, "log lines cannot be written"},
                                 {ALARM_GVX_ALARM_RECORD_FAIL, "the alarm store fails"},
                                 {ALARM_GVX_CONFIG_READ_FAIL, "configuration cannot be used"},
                                 {ALARM_GVX_FLOW_CONTROL, "a queue sheds load"},
                                 {ALARM_GVX_SYS_PORT_CONFLICT, "a port is in use"},
                                 {ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL, "a server cannot be reached"}};

// The link's kind by the letters of its identifier: no other word of a peer.
const char* LinkKind(const std::string& linkID) {
    const std::string letters = linkID.substr(0, linkID.find('#'));
    const char* const name = BP::ElementNameOf(letters);
    return name != nullptr && letters == name ? name : "other";
}

struct ProcessStart {
    std::int64_t monotonicMs = MonotonicMilliseconds();
    std::int64_t wall = WallSeconds();
};

const ProcessStart& Started() {
    static const ProcessStart start;
    return start;
}

// Linux since 6.2 gives the number as the size of the folder; it is counted elsewhere.
std::size_t CountDescriptors() {
    struct stat status {};
    if (stat("/proc/self/fd", &status) == 0 && status.st_size > 0) {
        return static_cast<std::size_t>(status.st_size);
    }
    DIR* const folder = opendir("/proc/self/fd");
    std::size_t count = 0;
    while (folder != nullptr && readdir(folder) != nullptr) {
        ++count;
    }
    if (folder != nullptr) {
        closedir(folder);
    }
    return count < 3 ? 0 : count - 3;  // without ".", ".." and the folder's own
}

ProcessStatus CollectProcess(std::int64_t nowMs) {
    ProcessStatus process;
    process.version = GVX_VERSION;
    process.element = CGvxConfigMgr::Instance()->GetGvxNetElementID();
    process.pid = getpid();
    process.startedWall = Started().wall;
    process.uptimeMs = nowMs - Started().monotonicMs;
    std::size_t pages = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    process.residentBytes = resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    process.descriptors = CountDescriptors();
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "Threads:") {
            status >> process.threads;
            break;
        }
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    process.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    return process;
}

std::string AddressText(std::uint32_t ip, std::uint16_t port) {
    char text[INET_ADDRSTRLEN] = {};
    in_addr address{};
    address.s_addr = htonl(ip);
    inet_ntop(AF_INET, &address, text, sizeof(text));
    return std::string(text) + ":" + std::to_string(port);
}

// A stream's counts and what it adds to its device's.
StreamStatus DescribeStream(const StreamEntry& entry, const MediaSendStatistics& counts, std::int64_t nowMs) {
    StreamStatus stream;
    stream.id = entry.serviceID;
    stream.device = entry.device;
    stream.lens = entry.lens;
    stream.plugin = entry.plugin;
    stream.service = NameOf(kServices, entry.service, "live");
    stream.video = NameOf(kVideoCodecs, static_cast<int>(entry.videoFormat), "");
    stream.audio = NameOf(kAudioCodecs, static_cast<int>(entry.audioFormat), "");
    stream.transport = entry.overTcp ? "TCP" : "UDP";
    stream.destination = AddressText(entry.dstIp, entry.dstPort);
    stream.link = entry.askedBy;
    stream.frames = counts.ullVideoFrames;
    stream.packets = counts.ullVideoPackets + counts.ullAudioPackets;
    stream.bytes = counts.ullBytes;
    stream.lost = counts.ullDroppedPackets;
    stream.startedMs = nowMs - entry.startedMs;
    stream.lastFrameMs = counts.llLastFrameMs == 0 ? kNever : std::max<std::int64_t>(0, nowMs - counts.llLastFrameMs);
    const std::int64_t flowsSinceMs = entry.flowsSinceMs;
    stream.paused = flowsSinceMs == StreamEntry::kPaused;
    // A broadcast brings sound to the device; nothing of it leaves here.
    stream.delivering = entry.service == SERVICE_TYPE_AUDIO_BROADCAST || stream.paused ||
                        nowMs - std::max(entry.startedMs, flowsSinceMs) < kDeliveryLimitMs ||
                        (stream.lastFrameMs != kNever && stream.lastFrameMs < kDeliveryLimitMs);
    return stream;
}

// Devices stand in the order of their codes. Null for none.
DeviceStatus* FindDevice(GatewayStatus& status, const std::string& code) {
    const auto at =
        std::lower_bound(status.devices.begin(), status.devices.end(), code,
                         [](const DeviceStatus& device, const std::string& wanted) { return device.code < wanted; });
    return at != status.devices.end() && at->code == code ? &*at : nullptr;
}

void CollectDevices(const DeviceTable& table, std::int64_t nowMs, GatewayStatus& status) {
    std::vector<DeviceTable::Facts> all = table.AllFacts();
    status.devices.reserve(all.size());
    for (DeviceTable::Facts& facts : all) {
        DeviceStatus& device = status.devices.emplace_back();
        device.code = std::move(facts.code);
        device.plugin = std::move(facts.plugin);
        device.address = std::move(facts.address);
        device.link = std::move(facts.scuLinkID);
        device.state = GvxDeviceStateName(GVX_DEVICE_UNKNOWN);
        device.addedMs = nowMs - facts.addedMs;
        device.stateMs = device.addedMs;
        device.lenses = facts.lenses;
    }
}

// What the plug-ins have reported. A device of which nothing is known yet is not counted as bad.
void CollectDeviceStates(std::int64_t nowMs, GatewayStatus& status) {
    for (GvxDeviceStatus& known : ListDeviceStatus()) {
        DeviceStatus* const found = FindDevice(status, known.strDevice);
        if (found == nullptr) {
            continue;
        }
        DeviceStatus& device = *found;
        device.state = GvxDeviceStateName(known.eState);
        device.well = known.eState == GVX_DEVICE_UNKNOWN || known.eState == GVX_DEVICE_ONLINE;
        device.reason = std::move(known.strReason);
        device.stateMs = nowMs - known.nSinceMs;
        device.lastError = std::move(known.strLastError);
        device.lastErrorMs = known.nErrors == 0 ? kNever : nowMs - known.nLastErrorMs;
        device.errors = known.nErrors;
        device.loginTries = known.nLoginTries;
    }
}

void CollectStreams(std::int64_t nowMs, GatewayStatus& status) {
    const StreamLedger::Page page = StreamLedger::Instance().Read();
    status.streamTotals = page.ended;
    for (const auto& [code, totals] : page.endedOfDevices) {
        if (DeviceStatus* const device = FindDevice(status, code)) {
            device->totals = totals;
        }
    }
    status.streams.reserve(page.running.size());
    for (const auto& entry : page.running) {
        const MediaSendStatistics counts = entry->Statistics();
        status.streams.push_back(DescribeStream(*entry, counts, nowMs));
        status.streamTotals.Add(counts);
        if (DeviceStatus* const device = FindDevice(status, entry->device)) {
            device->totals.Add(counts);
            ++device->streams;
        }
    }
}

// A plug-in that is held up, or throws, tells nothing better of its device.
void CollectPlugins(const PluginHost& host, std::int64_t nowMs, GatewayStatus& status) {
    std::unordered_map<std::string, PluginStatus*> index;
    const std::vector<const LoadedPlugin*> loaded = host.All();
    status.plugins.reserve(loaded.size());
    for (const LoadedPlugin* const plugin : loaded) {
        PluginStatus row;
        row.name = plugin->Name();
        row.version = plugin->Info().m_strVersion;
        row.maker = plugin->Info().m_strMaker;
        status.plugins.push_back(std::move(row));
        index.emplace(plugin->Name(), &status.plugins.back());
    }
    for (const DeviceStatus& device : status.devices) {
        if (const auto plugin = index.find(device.plugin); plugin != index.end()) {
            ++plugin->second->devices;
        }
    }
    const std::int64_t limitMs = PluginCallWatch::Instance().LimitMs();
    for (const PluginCallWatch::Call& call : PluginCallWatch::Instance().OpenCalls()) {
        if (const auto plugin = index.find(call.plugin); plugin != index.end()) {
            const std::int64_t openMs = nowMs - call.sinceMs;
            plugin->second->calls.push_back({call.operation, call.device, openMs, openMs >= limitMs});
        }
    }
    for (const PluginTrouble& trouble : PluginTroubles::Instance().List()) {
        const char* const kind = PluginTroubles::Text(trouble.kind);
        if (const auto plugin = index.find(trouble.plugin); plugin != index.end()) {
            plugin->second->troubles.push_back(
                {trouble.operation, trouble.device, kind, trouble.count, nowMs - trouble.sinceMs, trouble.text});
        }
        // One that answers with an error may have been asked for what cannot be: that is the device's last error alone.
        const bool heldUp = trouble.kind == PluginTrouble::Kind::DoesNotReturn;
        DeviceStatus* const device = FindDevice(status, trouble.device);
        if (device != nullptr && (heldUp || trouble.kind == PluginTrouble::Kind::Throws)) {
            device->well = false;
            device->state = heldUp ? "held up" : "failing";
            device->reason = trouble.operation + " " + kind + (trouble.text.empty() ? "." : ": " + trouble.text);
            device->stateMs = nowMs - trouble.sinceMs;
        }
    }
}

void CollectLinks(std::int64_t nowMs, GatewayStatus& status) {
    const std::string mainService = CGvxConnectionMgr::Instance()->MainServiceLinkId();
    for (BP::LinkInfo& info : BP::CNetFactory::Links(status.linkTotals)) {
        LinkStatus link;
        link.kind = LinkKind(info.linkID);
        link.mainService = info.linkID == mainService;
        link.openedMs = nowMs - info.openedMs;
        link.info = std::move(info);
        status.links.push_back(std::move(link));
    }
}

void CollectAlarms(std::int64_t nowMs, GatewayStatus& status) {
    const CEmergencyProtection& alarms = *CEmergencyProtection::Instance();
    for (CEmergencyProtection::Remembered& open : alarms.OpenAlarms()) {
        const AlarmName* const name = std::find_if(std::begin(kAlarms), std::end(kAlarms),
                                                   [&](const AlarmName& row) { return open.id == row.id; });
        AlarmStatus alarm;
        alarm.id = std::move(open.id);
        alarm.name = name != std::end(kAlarms) ? name->name : "an alarm of the gateway";
        alarm.info = std::move(open.info);
        alarm.openMs = open.sinceMs == CEmergencyProtection::kBeforeStart ? kNever : nowMs - open.sinceMs;
        status.alarms.push_back(std::move(alarm));
    }
    status.alarmsWaiting = alarms.CountHeldAlarms();
    status.alarmsLost = alarms.CountLostAlarms();
}

void CollectQueues(GatewayContext& context, GatewayStatus& status) {
    for (CGvxReactor* const reactor : context.binder.Reactors()) {
        const CGvxReactor::Load load = reactor->GetLoad();
        status.queues.push_back({load.threadName, "commands", load.queued, load.most, load.served, load.refused});
    }
    std::size_t number = 0;
    for (CStreamTransmission::Queue* const queue : CStreamTransMgr::Instance()->GetQueues()) {
        status.queues.push_back({"StreamTrans" + std::to_string(number++), "packets", queue->message_count()});
    }
    const LinkEventThread::Progress events = context.linkEvents.GetProgress();
    status.queues.push_back({"LinkEvents", "link events", events.waiting});
    status.queues.push_back({"alarms", "alarms", status.alarmsWaiting, AlarmOutbox::kMostHeld, 0, status.alarmsLost});
}

MemoryStatus CollectMemory() {
    MemoryStatus memory;
    CMediaBlockBuffer& blocks = *CMediaBlockBuffer::instance();
    memory.sendBlocks = blocks.getMaxBlockNum();
    memory.sendBlocksFree = blocks.getRemainBlockNum();
    memory.sendBlockFailures = blocks.getFailureTimes();
    memory.poolLevel = g_mediaPool.GetLevel();
    for (unsigned int level = 0; level <= memory.poolLevel; ++level) {
        memory.poolBlocks += MediaMemPool::GetPacketSize(level);
    }
    memory.poolBlocksUsed = g_mediaPool.GetUsedCount();
    return memory;
}

}  // namespace

ReadyStatus CollectReady() {
    ReadyStatus ready;
    ready.mainServiceLinked = !CGvxConnectionMgr::Instance()->MainServiceLinkId().empty();
    ready.storeOpen = AlarmStoreIsOpen();
    std::string file;
    std::string why;
    ready.keysGood = CSecurityMgr::LookAtKeyFiles(file, why);
    if (!ready.keysGood) {
        ready.keyFault = file + ": " + why;
    }
    return ready;
}

std::vector<std::string> ReadyFaults(const ReadyStatus& ready) {
    std::vector<std::string> faults;
    if (!ready.mainServiceLinked) {
        faults.emplace_back("No main service is linked.");
    }
    if (!ready.storeOpen) {
        faults.emplace_back("The alarm store is not open.");
    }
    if (!ready.keysGood) {
        faults.push_back(ready.keyFault);
    }
    return faults;
}

std::vector<std::string> LivenessFaults(const std::vector<ThreadStatus>& threads) {
    std::vector<std::string> faults;
    const std::int64_t nowMs = MonotonicMilliseconds();
    const std::int64_t limitMs = PluginCallWatch::Instance().LimitMs();
    for (const PluginCallWatch::Call& call : PluginCallWatch::Instance().OpenCalls()) {
        if (nowMs - call.sinceMs >= limitMs) {
            faults.push_back("Plug-in " + call.plugin + ": " + call.operation + " of device " + call.device +
                             " has not returned for " + std::to_string((nowMs - call.sinceMs) / 1000) + " s.");
        }
    }
    for (const ThreadStatus& thread : threads) {
        if (!thread.alive) {
            faults.push_back("The event thread " + thread.name + " has not answered for " +
                             std::to_string(thread.silentMs / 1000) + " s.");
        }
    }
    return faults;
}

void NoteProcessStart() {
    Started();
}

GatewayStatus CollectStatus(GatewayContext& context, const Heartbeats* heartbeats) {
    const std::int64_t nowMs = MonotonicMilliseconds();
    GatewayStatus status;
    status.takenMs = nowMs;
    status.process = CollectProcess(nowMs);
    CollectDevices(context.devices, nowMs, status);
    CollectDeviceStates(nowMs, status);
    CollectStreams(nowMs, status);
    CollectPlugins(context.plugins, nowMs, status);
    CollectLinks(nowMs, status);
    CollectAlarms(nowMs, status);
    CollectQueues(context, status);
    status.memory = CollectMemory();
    if (heartbeats != nullptr) {
        status.threads = heartbeats->Threads();
    }
    status.ready = CollectReady();
    return status;
}

}  // namespace gvx
