#include "gvxctl/cli/command_line.h"

namespace gvxctl {
namespace {

constexpr const char* kGroup = "Status of the gateway";

CLI::App& AddStatusCommand(CLI::App& app, CommandLine& line, const char* name, const char* text,
                           std::function<int()> run) {
    CLI::App& command = AddCommand(app, line, name, text, std::move(run));
    command.add_option("--socket", line.status.socket,
                       "the gateway's control socket (default: GVX_CONTROL_SOCKET of the configuration, then of the "
                       "environment, else /run/gvx/control.sock under GVX_ROOT)");
    command.add_flag("--json", line.status.json, "print the answer as JSON");
    return command;
}

void AddTraceCommands(CLI::App& app, CommandLine& line) {
    CLI::App& trace = *app.add_subcommand("trace", "what is said with a device, for one that fails")->group(kGroup);
    trace.require_subcommand(1);
    const auto run = [&line](int (*command)(const TraceOptions&)) {
        return [&line, command] {
            line.trace.gateway = line.status;
            return command(line.trace);
        };
    };
    CLI::App& start =
        AddStatusCommand(trace, line, "start",
                         "record the dialogue of a device, the heads of its media packets and its frames, "
                         "without credentials, for Wireshark",
                         run(&RunTraceStart));
    start.add_option("--seconds", line.trace.seconds, "how long; it ends before with 16 MiB")
        ->capture_default_str()
        ->check(CLI::Range(1, 3600));
    CLI::App& stop = AddStatusCommand(trace, line, "stop", "end the trace of a device", run(&RunTraceStop));
    CLI::App& dialogue =
        AddStatusCommand(trace, line, "dialogue", "print what was said with a device while it failed last, and since",
                         run(&RunTraceDialogue));
    for (CLI::App* command : {&start, &stop, &dialogue}) {
        command->add_option("device", line.trace.device, "device code")->required();
    }
    start.add_option("--out", line.trace.out, "wait for its end and copy it to that file; an interrupt ends it");
    stop.add_option("--out", line.trace.out, "copy it to that file");
    AddStatusCommand(trace, line, "list", "list the traces since the gateway's start",
                     [&line] { return RunStatus(line.status, "trace list"); });
    CLI::App& fetch = AddStatusCommand(trace, line, "fetch", "copy the file of a trace", run(&RunTraceFetch));
    fetch.add_option("file", line.trace.file, "its name")->required();
    fetch.add_option("--out", line.trace.out, "where to (default: here, under its name)");
}

}  // namespace

void AddStatusCommands(CLI::App& app, CommandLine& line) {
    struct Row {
        const char* name;
        const char* text;
    };
    for (const Row& row :
         {Row{"status", "show how the gateway is"}, Row{"devices", "list the devices and their states"},
          Row{"streams", "list the streams that run"}, Row{"links", "list the links that are open"},
          Row{"alarms", "list the gateway's own alarms that are open"},
          Row{"queue", "list what waits, and how much was refused"},
          Row{"plugins", "list the plug-ins, their open calls and their troubles"}}) {
        AddStatusCommand(app, line, row.name, row.text, [&line, request = std::string(row.name)] {
            return RunStatus(line.status, request);
        }).group(kGroup);
    }
    CLI::App& top = AddStatusCommand(app, line, "top", "show the status, refreshed in place",
                                     [&line] { return RunTop(line.status); });
    top.group(kGroup);
    top.add_option("--count", line.status.count, "end after so many pictures")->check(CLI::Range(1, 1000000));
    top.add_option("--period", line.status.periodMs, "milliseconds between them")
        ->capture_default_str()
        ->check(CLI::Range(100, 3600000));
    CLI::App& log = *app.add_subcommand("log", "the gateway's log")->group(kGroup);
    log.require_subcommand(1);
    AddStatusCommand(log, line, "level", "show or set the level of the log",
                     [&line] { return RunLogLevel(line.status); })
        .add_option("level", line.status.level,
                    "0 to 7, or emerg, alert, crit, err, warning, notice, info, debug; lines above it are not written");
    AddTraceCommands(app, line);
}

}  // namespace gvxctl
