#pragma once

#include "bp/link_tls.h"
#include "gvxctl/alarm_commands.h"
#include "gvxctl/commands.h"
#include "gvxctl/config_commands.h"
#include "gvxctl/demo.h"
#include "gvxctl/device_commands.h"
#include "gvxctl/media_commands.h"
#include "gvxctl/peer_commands.h"
#include "gvxctl/status_commands.h"
#include "gvxctl/trace_commands.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace gvxctl {

// What the command line fills and which command it chose. Lives until the command has run.
struct CommandLine {
    CommonOptions common;
    BP::LinkTlsFiles tls;
    DeviceSpec device;
    StreamSpec stream;
    ReceiveOptions receive;
    WatchOptions watch;
    DemoOptions demo;
    ConfigOptions config;
    PeerOptions peer;
    ScenarioOptions scenario;
    AlarmsOptions alarms;
    TriggerOptions trigger;
    DeviceRequestOptions request;
    bool requestsPage = false;
    bool play = false;  // of start-stream: have a player show it
    SearchOptions search;
    SnapshotOptions snapshot;
    PlaybackOptions playback;
    TalkOptions talk;
    bool download = false;
    StatusOptions status;
    TraceOptions trace;
    std::function<int()> run;
};

CLI::Option* AddEndpoint(CLI::App& command, const std::string& name, Endpoint& endpoint, const std::string& text);
// Whole numbers of a range, where a type alone would take others than are meant.
constexpr long long kMostCounted = 1000000000;
template <typename Number>
CLI::Option* AddNumber(CLI::App& command, const std::string& name, Number& number, long long least, long long most,
                       const std::string& text) {
    return command.add_option(name, number, text)->check(CLI::Range(least, most));
}
// A host by its address or its name, which becomes its address. An empty text stays.
CLI::Option* AddHost(CLI::App& command, const std::string& name, std::string& ip, const std::string& text);
CLI::App& AddCommand(CLI::App& app, CommandLine& line, const char* name, const char* text, std::function<int()> run);
// One that links to the gateway: with its address, the ports that the main service hands out, and the files of TLS.
CLI::App& AddLinkedCommand(CLI::App& app, CommandLine& line, const char* name, const char* text,
                           std::function<int()> run);

void AddPeerCommands(CLI::App& app, CommandLine& line);    // peer, scenario
void AddMediaCommands(CLI::App& app, CommandLine& line);   // search, snapshot, playback, talk, broadcast
void AddAlarmCommands(CLI::App& app, CommandLine& line);   // alarm watch, alarm trigger
void AddStatusCommands(CLI::App& app, CommandLine& line);  // status and its like, top, log level, trace
// One for each request to a device, by the table of requests; and requests, which lists them.
void AddDeviceRequestCommands(CLI::App& app, CommandLine& line);

}  // namespace gvxctl
