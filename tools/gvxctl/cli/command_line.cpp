#include "gvxctl/cli/command_line.h"

namespace gvxctl {
namespace {

void AddPortRange(CLI::App& command, const std::string& name, PortRange& range, const std::string& text) {
    const auto parse = [&range](const std::string& value) {
        if (!ParsePortRange(value, range)) {
            throw CLI::ValidationError(value + " is no range of ports such as 40000-40100");
        }
    };
    command.add_option_function<std::string>(name, parse, text)->type_name("MIN-MAX");
}

}  // namespace

CLI::Option* AddEndpoint(CLI::App& command, const std::string& name, Endpoint& endpoint, const std::string& text) {
    const auto parse = [&endpoint](const std::string& value) {
        if (!ParseEndpoint(value, endpoint)) {
            throw CLI::ValidationError(value + " is neither IP:PORT nor PORT");
        }
    };
    return command.add_option_function<std::string>(name, parse, text)->type_name("[IP:]PORT");
}

CLI::App& AddCommand(CLI::App& app, CommandLine& line, const char* name, const char* text, std::function<int()> run) {
    CLI::App& command = *app.add_subcommand(name, text);
    command.callback([&line, run = std::move(run)] { line.run = run; });
    return command;
}

CLI::App& AddLinkedCommand(CLI::App& app, CommandLine& line, const char* name, const char* text,
                           std::function<int()> run) {
    CLI::App& command = AddCommand(app, line, name, text, std::move(run));
    AddEndpoint(command, "--gateway", line.common.gateway, "where gvxd listens for links (default: 127.0.0.1:9600)");
    AddPortRange(command, "--udp-ports", line.common.ports.udp,
                 "UDP ports that the main service hands out, in steps of two (default: 30000-30999)");
    AddPortRange(command, "--tcp-ports", line.common.ports.tcp,
                 "TCP ports that the main service hands out (default: 31000-31999)");
    return command;
}

void AddPeerCommands(CLI::App& app, CommandLine& line) {
    CLI::App& peer = AddLinkedCommand(app, line, "peer", "play any platform peers and print what goes on",
                                      [&line] { return RunPeer(line.common, line.peer); });
    peer.add_option("--link", line.peer.links, "identifier under which to link, SCU#001; may be given several times");
    peer.add_option("--listen", line.peer.listens, "IDENTIFIER=[IP:]PORT where the gateway is waited for, MU#001=9700");
    peer.add_option("--refuse", line.peer.refuse, "TYPE[=CODE]: refuse requests of that type");
    peer.add_option("--delay", line.peer.delay, "TYPE=MILLISECONDS: answer them late");
    peer.add_option("--drop", line.peer.drop, "TYPE: leave them unanswered");
    peer.add_option("--garble", line.peer.garble, "TYPE[=body|head|transaction|type|twice]: spoil the answer");
    peer.add_option("--flap", line.peer.flaps, "close and open each link that often")->check(CLI::Range(0, 1000000));
    peer.add_option("--seconds", line.peer.seconds, "end after that time")->check(CLI::Range(0, 1000000));
    peer.add_flag("--full", line.peer.full, "print whole frames");

    CLI::App& scenario = AddLinkedCommand(app, line, "scenario", "carry out a scenario file and print its transcript",
                                          [&line] { return RunScenario(line.common, line.scenario); });
    scenario.add_option("file", line.scenario.file, "the scenario, JSON")->required();
    scenario.add_option("--set", line.scenario.vars, "NAME=VALUE for ${NAME} in the file");
    scenario.add_option("--log", line.scenario.log, "the gateway's log file, for steps that look into it");
    scenario.add_flag("--full", line.scenario.full, "print whole frames");
}

void AddAlarmCommands(CLI::App& app, CommandLine& line) {
    CLI::App& alarms = AddLinkedCommand(app, line, "alarms", "link as main service and OMU and print alarms",
                                        [&line] { return RunAlarms(line.common, line.alarms); });
    alarms.add_option("--seconds", line.alarms.seconds, "end after that time")->check(CLI::Range(0, 1000000));
    alarms.add_option("--count", line.alarms.count, "end after so many alarms")->check(CLI::Range(0, 1000000));
    alarms.add_flag("--full", line.alarms.full, "print every field");
    alarms.add_flag("--json", line.alarms.json, "print each alarm as one JSON object");

    CLI::App& alarm = *app.add_subcommand("alarm", "alarms of devices");
    alarm.require_subcommand(1);
    CLI::App& trigger = AddCommand(alarm, line, "trigger", "tell the gateway's intake of an event at a device",
                                   [&line] { return RunAlarmTrigger(line.trigger); });
    AddEndpoint(trigger, "--intake", line.trigger.intake, "where gvxd takes in what devices push")->required();
    trigger.add_option("--device", line.trigger.device, "device code")->capture_default_str();
    trigger.add_option("--channel", line.trigger.channel, "channel of the device (default: the device itself)")
        ->check(CLI::Range(0, 65535));
    trigger.add_option("--code", line.trigger.code, "the device's own code of the alarm")->required();
    trigger.add_option("--action", line.trigger.action, "the device's word for its start or end")->required();
    trigger.add_option("--description", line.trigger.description, "what has happened");
}

}  // namespace gvxctl
