#pragma once

#include "bp/net_factory.h"
#include "gateway/streams/stream_ledger.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace gvx {

struct GatewayContext;
class Heartbeats;

// What the gateway is at one moment, as plain structures: the control socket, the status port and the log show it, each
// in its own form. Times that end with "Ms" are ages by the monotonic clock in milliseconds unless they say otherwise;
// kNever stands for what has not been. Counts begin with the process and only rise.
constexpr std::int64_t kNever = -1;

struct DeviceStatus {
    std::string code;
    std::string plugin;
    std::string address;  // may be empty
    std::string link;     // that has added the device; may be empty
    std::string state;    // in words
    bool well = true;     // nothing is known to be wrong
    std::string reason;   // of the state, one sentence; may be empty
    std::int64_t stateMs = 0;
    std::string lastError;  // stays when the device is well again; empty for none
    std::int64_t lastErrorMs = kNever;
    std::uint64_t errors = 0;
    std::uint64_t loginTries = 0;
    std::int64_t addedMs = 0;
    std::size_t lenses = 0;
    std::size_t streams = 0;
    StreamTotals totals;  // of all its streams
};

struct StreamStatus {
    std::string id;
    std::string device;
    std::string lens;
    std::string plugin;
    std::string service;  // live, playback, download, talk, broadcast
    std::string video;    // the codec; empty for none
    std::string audio;    // the codec; empty for none
    std::string transport;
    std::string destination;  // address and port
    std::string link;         // that has asked for it
    std::uint64_t frames = 0;
    std::uint64_t packets = 0;  // of video and sound
    std::uint64_t bytes = 0;
    std::uint64_t lost = 0;  // packets
    std::int64_t startedMs = 0;
    std::int64_t lastFrameMs = kNever;
    bool paused = false;      // a recording that the platform has paused
    bool delivering = false;  // a frame has left a moment ago, or none is to be expected yet
};

struct LinkStatus {
    BP::LinkInfo info;
    const char* kind = "";     // SCU, OMU, MU, IMGU, GVX; other: a peer may call itself anything
    bool mainService = false;  // what leaves the gateway leaves by it
    std::int64_t openedMs = 0;
};

struct AlarmStatus {
    std::string id;
    std::string name;              // in words
    std::string info;              // what it is about
    std::int64_t openMs = kNever;  // kNever: an earlier process has raised it
};

struct QueueStatus {
    std::string name;
    std::string of;  // what waits: commands, packets, alarms, link events
    std::size_t waiting = 0;
    std::size_t most = 0;  // 0 where no number bounds them
    std::uint64_t served = 0;
    std::uint64_t refused = 0;
};

struct PluginCallStatus {
    std::string operation;
    std::string device;
    std::int64_t openMs = 0;
    bool overdue = false;  // open for longer than GVX_PLUGIN_CALL_LIMIT
};

struct PluginTroubleStatus {
    std::string operation;
    std::string device;
    std::string kind;  // in words, such as "does not return"
    std::uint64_t count = 0;
    std::int64_t sinceMs = 0;
    std::string text;
};

struct PluginStatus {
    std::string name;
    std::string version;
    std::string maker;
    std::size_t devices = 0;
    std::vector<PluginCallStatus> calls;
    std::vector<PluginTroubleStatus> troubles;
};

// An event thread, by how long it has not answered.
struct ThreadStatus {
    std::string name;
    bool shared = false;  // all devices need it
    bool alive = true;
    std::int64_t silentMs = 0;  // 0 while nothing is asked of it
};

struct MemoryStatus {
    std::size_t sendBlocks = 0;  // of packets on their way to sockets
    std::size_t sendBlocksFree = 0;
    std::uint64_t sendBlockFailures = 0;
    std::size_t poolBlocks = 0;  // of the media pool, 2048 bytes each
    std::size_t poolBlocksUsed = 0;
    unsigned int poolLevel = 0;
};

struct ProcessStatus {
    std::string version;
    std::string element;  // the gateway's own link identifier
    int pid = 0;
    std::int64_t startedWall = 0;  // seconds since 1970
    std::int64_t uptimeMs = 0;
    std::size_t residentBytes = 0;
    std::size_t descriptors = 0;
    std::size_t threads = 0;
    double cpuSeconds = 0;
};

// Whether the gateway can serve: what /readyz tells.
struct ReadyStatus {
    bool mainServiceLinked = false;
    bool storeOpen = false;
    bool keysGood = false;
    std::string keyFault;  // the key file and what is wrong with it
    bool Ready() const { return mainServiceLinked && storeOpen && keysGood; }
};

struct GatewayStatus {
    std::int64_t takenMs = 0;  // when, by the monotonic clock
    ProcessStatus process;
    ReadyStatus ready;
    std::vector<DeviceStatus> devices;
    std::vector<StreamStatus> streams;
    StreamTotals streamTotals;  // those that have ended included
    std::vector<LinkStatus> links;
    BP::LinkTotals linkTotals;
    std::vector<AlarmStatus> alarms;
    std::uint64_t alarmsWaiting = 0;  // for a link
    std::uint64_t alarmsLost = 0;
    std::vector<QueueStatus> queues;
    std::vector<PluginStatus> plugins;
    std::vector<ThreadStatus> threads;
    MemoryStatus memory;
};

// Collects all of it. Takes each lock of the rooms below for a moment, one at a time; calls no plug-in. heartbeats may
// be null. Any thread, while the gateway that the context is of runs.
GatewayStatus CollectStatus(GatewayContext& context, const Heartbeats* heartbeats);

// The part of it that /readyz tells.
ReadyStatus CollectReady();
// A sentence for each thing that is wrong; none where all is well. Of ready: what serving needs and is not there. Of
// the threads: those that do not answer, and, whatever thread they are on, the plug-ins' calls that are overdue.
std::vector<std::string> ReadyFaults(const ReadyStatus& ready);
std::vector<std::string> LivenessFaults(const std::vector<ThreadStatus>& threads);

// The process began; the first call says when. At start.
void NoteProcessStart();

}  // namespace gvx
