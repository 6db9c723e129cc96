#include "gvxctl/cli/command_line.h"

#include "gvx_common/records/stream_param.h"

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

// Puts its address in the place of a host's name. A sentence when it has none.
std::string Resolved(std::string& host) {
    std::string error;
    return host.empty() || ResolveHost(host, host, error) ? std::string() : error;
}

}  // namespace

CLI::Option* AddEndpoint(CLI::App& command, const std::string& name, Endpoint& endpoint, const std::string& text) {
    const auto parse = [name, &endpoint](const std::string& value) {
        std::string error;
        if (!ParseEndpoint(value, endpoint, error)) {
            throw CLI::ValidationError(name, error);
        }
    };
    return command.add_option_function<std::string>(name, parse, text)->type_name("[HOST:]PORT");
}

CLI::Option* AddHost(CLI::App& command, const std::string& name, std::string& ip, const std::string& text) {
    return command.add_option(name, ip, text)
        ->capture_default_str()
        ->type_name("HOST")
        ->transform(CLI::Validator(Resolved, ""));
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
    CLI::Option* const certificate =
        command.add_option("--tls-cert", line.tls.certificate, "link over TLS: certificate of the peers played, PEM");
    CLI::Option* const key = command.add_option("--tls-key", line.tls.key, "its key, PEM");
    CLI::Option* const authority =
        command.add_option("--tls-ca", line.tls.authority, "whose certificate the gateway must show, PEM");
    certificate->needs(key)->needs(authority);
    key->needs(certificate);
    authority->needs(certificate);
    return command;
}

void AddPeerCommands(CLI::App& app, CommandLine& line) {
    CLI::App& peer = AddLinkedCommand(app, line, "peer", "play any platform peers and print what goes on",
                                      [&line] { return RunPeer(line.common, line.peer); });
    peer.add_option("--link", line.peer.links, "identifier under which to link, SCU#001; may be given several times");
    peer.add_option("--listen", line.peer.listens,
                    "IDENTIFIER=[HOST:]PORT where the gateway is waited for, MU#001=9700");
    peer.add_option("--refuse", line.peer.refuse, "TYPE[=RESULT]: refuse requests of that type");
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

void AddMediaCommands(CLI::App& app, CommandLine& line) {
    constexpr int kMostSeconds = 86400;
    const auto addDevice = [](CLI::App& command, std::string& device, std::string& lens) {
        command.add_option("--dev", device, "device code")->capture_default_str();
        command.add_option("--lens", lens, "lens code (default: the device's first)");
    };
    CLI::App& search = AddLinkedCommand(app, line, "search", "search for devices and print what a plug-in finds",
                                        [&line] { return RunSearch(line.common, line.search); });
    search.add_option("--plugin", line.search.plugin, "name of the plug-in that searches")->capture_default_str();
    search.add_option(
        "--range", line.search.ranges,
        "FIRST-LAST[:PORT] or one address, within one /24; may be given several times (default: the gateway's own)");
    search.add_option("--added", line.search.added, "address of a device that is known; may be given several times")
        ->transform(CLI::Validator(Resolved, "HOST"));
    search.add_option("--protocol", line.search.protocol, "number of the device protocol");
    search.add_option("--seconds", line.search.seconds, "end the search after that time")
        ->capture_default_str()
        ->check(CLI::Range(1, kMostSeconds));

    CLI::App& snapshot = AddLinkedCommand(app, line, "snapshot", "have a lens take pictures and send them to a server",
                                          [&line] { return RunSnapshot(line.common, line.snapshot); });
    addDevice(snapshot, line.snapshot.devCode, line.snapshot.lensCode);
    snapshot.add_option("--count", line.snapshot.count, "pictures")->capture_default_str()->check(CLI::Range(1, 10));
    snapshot.add_option("--type", line.snapshot.type, "1 by hand, 2 by a plan, 3 for an alarm")
        ->capture_default_str()
        ->check(CLI::Range(0, 3));
    snapshot.add_option("--url", line.snapshot.url,
                        "https://HOST:PORT/PATH?FILESESSIONID=..., where they are sent (default: they are only taken)");
    snapshot.add_option("--seconds", line.snapshot.seconds, "wait that long for them")
        ->capture_default_str()
        ->check(CLI::Range(1, kMostSeconds));

    CLI::App& playback =
        AddLinkedCommand(app, line, "playback", "play a range of a recording, record it and wait for its end", [&line] {
            line.playback.stream.service = line.download ? SERVICE_TYPE_PU_DOWNLOAD : SERVICE_TYPE_PU_PLAYBACK;
            return RunPlayback(line.common, line.playback);
        });
    StreamSpec& played = line.playback.stream;
    played.serviceId = "playback-1";
    addDevice(playback, played.devCode, played.lensCode);
    playback.add_option("--service-id", played.serviceId, "identifier of the stream")->capture_default_str();
    playback.add_option("--content", played.content, "which recording (default: what lies in the range)");
    playback.add_option("--from", played.from, "begin of the range, UTC, YYYYMMDDhhmmss")->required();
    playback.add_option("--to", played.to, "its end")->required();
    playback.add_flag("--download", line.download, "as a download, faster than it was recorded");
    playback.add_flag("--tcp", played.tcp, "interleaved over TCP instead of UDP");
    AddHost(playback, "--ip", line.playback.ip, "local address");
    playback.add_option("--video", line.playback.files.video, "file for the elementary stream");
    playback.add_option("--audio", line.playback.files.audio, "file for the audio bytes");
    playback.add_option("--speed", line.playback.speed, "of the recorded speed")->check(CLI::Range(-16.0, 16.0));
    playback.add_option("--seek", line.playback.seek, "go there at once, seconds from the recording's start")
        ->check(CLI::Range(0, 366 * 86400));
    playback.add_option("--pause", line.playback.pauseMs, "stand still that many milliseconds, then go on")
        ->check(CLI::Range(0, 3600000));
    playback.add_option("--sdp", played.sdpFile, "file for the session description of the answer, as it came");
    playback.add_option("--seconds", line.playback.seconds, "wait that long for its end")
        ->capture_default_str()
        ->check(CLI::Range(1, kMostSeconds));

    for (const bool broadcast : {false, true}) {
        CLI::App& talk = AddLinkedCommand(app, line, broadcast ? "broadcast" : "talk",
                                          broadcast ? "speak to a lens" : "talk with a lens", [&line, broadcast] {
                                              line.talk.stream.service =
                                                  broadcast ? SERVICE_TYPE_AUDIO_BROADCAST : SERVICE_TYPE_AUDIO_CALL;
                                              return RunTalk(line.common, line.talk);
                                          });
        StreamSpec& spoken = line.talk.stream;
        spoken.serviceId = "talk-1";
        addDevice(talk, spoken.devCode, spoken.lensCode);
        talk.add_option("--service-id", spoken.serviceId, "identifier of the stream")->capture_default_str();
        AddHost(talk, "--ip", line.talk.ip, "local address");
        talk.add_flag("--tcp", spoken.tcp, "both ways on one TCP connection that the gateway makes");
        talk.add_option("--send", line.talk.send, "G.711 file that is said, 8000 Hz")->required(broadcast);
        if (!broadcast) {
            talk.add_option("--audio", line.talk.receive, "file for what the lens says");
        }
        talk.add_option("--sdp", spoken.sdpFile, "file for the session description of the answer, as it came");
        talk.add_option("--seconds", line.talk.seconds, "end after that time (default: when the file was said)")
            ->check(CLI::Range(0, kMostSeconds));
        talk.add_flag("--json", line.common.json, "print the outcome as JSON");
    }
    for (CLI::App* command : {&search, &snapshot, &playback}) {
        command->add_flag("--json", line.common.json, "print the outcome as JSON");
    }
}

void AddAlarmCommands(CLI::App& app, CommandLine& line) {
    CLI::App& alarm = *app.add_subcommand("alarm", "alarms on their way to the platform: watch, trigger");
    alarm.require_subcommand(1);
    CLI::App& alarms = AddLinkedCommand(alarm, line, "watch", "link as main service and OMU and print alarms",
                                        [&line] { return RunAlarms(line.common, line.alarms); });
    alarms.add_option("--seconds", line.alarms.seconds, "end after that time")->check(CLI::Range(0, 1000000));
    alarms.add_option("--count", line.alarms.count, "end after so many alarms")->check(CLI::Range(0, 1000000));
    alarms.add_flag("--full", line.alarms.full, "print every field");
    alarms.add_flag("--json", line.alarms.json, "print each alarm as one JSON object");
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
