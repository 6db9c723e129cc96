#include "gvxctl/cli/command_line.h"
#include "gvxctl/cli/command_tree.h"
#include "gvxctl/peer_link.h"
#include "gvxctl/secret_command.h"
#include "gvxctl/terminal.h"

#include <cstdio>
#include <string>

namespace {

using gvxctl::AddCommand;
using gvxctl::AddEndpoint;
using gvxctl::AddLinkedCommand;
using gvxctl::AddNumber;
using gvxctl::CommandLine;
using gvxctl::kMostCounted;

void AddDeviceOptions(CLI::App& command, gvxctl::DeviceSpec& device) {
    command.add_option("--dev", device.devCode, "device code")->capture_default_str();
    command.add_option("--plugin", device.plugin, "name of the plug-in")->capture_default_str();
    AddNumber(command, "--form", device.formType, 1, 6,
              "1 IPC, 2 DVS, 3 DVR, 4 eNVR, 5 external system, 6 external device")
        ->capture_default_str();
    gvxctl::AddHost(command, "--ip", device.ip, "address of the device");
    AddNumber(command, "--port", device.port, 0, 65535, "port of the device")->capture_default_str();
    command.add_option("--user", device.user, "user name at the device");
    command.add_option("--password", device.password, "password at the device");
    command.add_option("--model", device.model, "model of the device");
    command.add_option("--extend", device.extend, "text for the plug-in, JSON for the file plug-in");
    command.add_option("--lens", device.lenses, "lens code, once for each channel from 0 on");
}

void AddStreamIdentity(CLI::App& command, gvxctl::StreamSpec& stream) {
    command.add_option("--dev", stream.devCode, "device code")->capture_default_str();
    command.add_option("--lens", stream.lensCode, "lens code (default: the device's first)");
    command.add_option("--service-id", stream.serviceId, "identifier of the stream")->capture_default_str();
}

void AddDeviceCommands(CLI::App& app, CommandLine& line) {
    CLI::App& add = AddLinkedCommand(app, line, "add-device", "add a device",
                                     [&line] { return RunAddDevice(line.common, line.device); });
    AddDeviceOptions(add, line.device);
    add.add_flag("--json", line.common.json, "print the response as JSON");
    CLI::App& del = AddLinkedCommand(app, line, "del-device", "delete a device",
                                     [&line] { return RunDeleteDevice(line.common, line.device.devCode); });
    del.add_option("--dev", line.device.devCode, "device code")->capture_default_str();
    del.add_flag("--json", line.common.json, "print the response as JSON");
}

int StartOrPlay(const CommandLine& line) {
    if (line.play) {
        return RunPlayStream(line.common, line.stream);
    }
    if (line.stream.video.port == 0 || line.stream.video.ip == "0.0.0.0") {
        std::fputs("gvxctl: --dst has to name the host and the port that the stream goes to\n", stderr);
        return gvxctl::kExitWrongUse;
    }
    return RunStartStream(line.common, line.stream);
}

void AddStreamCommands(CLI::App& app, CommandLine& line) {
    CLI::App& start =
        AddLinkedCommand(app, line, "start-stream", "start a stream", [&line] { return StartOrPlay(line); });
    AddEndpoint(start, "--dst", line.stream.video,
                "where to send video, or where to connect over TCP; needed unless --play finds one itself");
    CLI::Option* const play = start.add_flag("--play", line.play, "open ffplay on it, and stop it when ffplay ends");
    AddNumber(start, "--audio-port", line.stream.audioPort, 0, 65535, "port for audio over UDP (default: no audio)");
    AddNumber(start, "--stream-type", line.stream.streamType, 0, 2, "0 main, 1 and 2 sub streams")
        ->capture_default_str();
    CLI::Option* const tcp = start.add_flag("--tcp", line.stream.tcp, "interleaved over TCP instead of UDP");
    play->excludes(tcp);
    start.add_flag("!--no-audio", line.stream.audio, "video alone");
    start.add_flag("--metadata", line.stream.metadata, "send metadata too");
    AddNumber(start, "--metadata-port", line.stream.metadataPort, 0, 65535, "port for metadata over UDP");
    start.add_flag("--extension", line.stream.extension, "ask for the RTP header extension");
    start.add_option("--sdp", line.stream.sdpFile, "file for the session description of the answer, as it came");
    start
        .add_option("--player-sdp", line.stream.playerSdpFile,
                    "file by which a plain player receives at --dst over UDP")
        ->excludes(tcp);
    CLI::App& stop = AddLinkedCommand(app, line, "stop-stream", "stop a stream and print what was sent",
                                      [&line] { return RunStopStream(line.common, line.stream); });
    CLI::App& iframe = AddLinkedCommand(app, line, "iframe", "ask for a key frame",
                                        [&line] { return RunIFrame(line.common, line.stream); });
    for (CLI::App* command : {&start, &stop, &iframe}) {
        AddStreamIdentity(*command, line.stream);
        command->add_flag("--json", line.common.json, "print the response as JSON");
    }
}

void AddReceiveCommand(CLI::App& app, CommandLine& line) {
    CLI::App& command = AddCommand(app, line, "receive", "receive RTP, record it and print statistics",
                                   [&line] { return RunReceive(line.receive); });
    gvxctl::AddHost(command, "--ip", line.receive.ip, "local address");
    AddNumber(command, "--video-port", line.receive.videoPort, 0, 65535,
              "UDP port of video, or TCP port to listen on; 0: any");
    AddNumber(command, "--audio-port", line.receive.audioPort, 0, 65535, "UDP port of audio; 0: any");
    command.add_flag("--tcp", line.receive.tcp, "wait for one interleaved TCP connection");
    command.add_option("--video", line.receive.files.video, "file for the elementary stream");
    command.add_option("--audio", line.receive.files.audio, "file for the audio bytes");
    command.add_option_function<std::string>(
        "--metadata",
        [&line](const std::string& folder) {
            line.receive.metadata.wanted = true;
            line.receive.metadata.folder = folder;
        },
        "receive metadata too, print it and write its pictures into that folder");
    AddNumber(command, "--metadata-port", line.receive.metadata.port, 0, 65535, "UDP port of metadata; 0: any");
    AddNumber(command, "--frames", line.receive.frames, 0, kMostCounted, "end after that many frames of video");
    AddNumber(command, "--seconds", line.receive.seconds, 0, 1000000, "end after that time");
    command.add_flag("--json", line.receive.json, "print the statistics as one JSON object");
}

void AddWatchCommand(CLI::App& app, CommandLine& line) {
    CLI::App& command = AddLinkedCommand(app, line, "watch", "link as main service and print every frame",
                                         [&line] { return RunWatch(line.common, line.watch); });
    command.add_flag("--all", line.watch.all, "play SCU, OMU and MU as well");
    AddNumber(command, "--seconds", line.watch.seconds, 0, 1000000, "end after that time");
}

void AddDemoCommand(CLI::App& app, CommandLine& line) {
    CLI::App& command = AddLinkedCommand(
        app, line, "demo", "play all four peers: add a device, stream a clip over UDP and TCP, delete the device",
        [&line] {
            line.demo.device = line.device;
            return RunDemo(line.common, line.demo);
        });
    AddDeviceOptions(command, line.device);
    AddEndpoint(command, "--mu", line.demo.mu,
                "where to wait for the media unit's link (default: 127.0.0.1, any port)");
    command.add_option("--out", line.demo.outDir, "folder for what is received")->capture_default_str();
    command.add_option("--codec", line.demo.codec, "h264 or h265: ending of the recorded files' names")
        ->capture_default_str();
    command.add_option("--summary", line.demo.summary, "JSON file for the outcome");
    AddNumber(command, "--expect-frames", line.demo.expectFrames, 0, kMostCounted, "frames of the clip");
    AddNumber(command, "--timeout", line.demo.timeoutSeconds, 1, 86400, "seconds for each transport")
        ->capture_default_str();
    command.add_flag("--metadata", line.demo.metadata, "ask for metadata too and keep its pictures");
    command.add_flag("--keep", line.demo.keep, "stream over UDP until interrupted");
}

void AddConfigCommands(CLI::App& app, CommandLine& line) {
    CLI::App& config = *app.add_subcommand("config", "read and edit settings of the running gateway");
    config.require_subcommand(1);
    CLI::App& get = AddLinkedCommand(config, line, "get", "print the settings that may be read",
                                     [&line] { return RunConfigGet(line.common, line.config); });
    get.add_option("section", line.config.section, "one section (default: all)");
    CLI::App& set = AddLinkedCommand(config, line, "set", "edit one setting",
                                     [&line] { return RunConfigSet(line.common, line.config); });
    set.add_option("section", line.config.section, "section in which the key stands")->required();
    set.add_option("key", line.config.key, "the key")->required();
    set.add_option("value", line.config.value, "its new value")->required();
    set.add_flag("--changed", line.config.changed, "by the platform's message about a changed setting");
}

void AddSecretCommands(CLI::App& app, CommandLine& line) {
    CLI::App& secret = *app.add_subcommand("secret", "passwords as they are stored");
    secret.require_subcommand(1);
    AddCommand(secret, line, "encipher", "encipher the password that standard input holds",
               [] { return gvxctl::RunSecretEncipher(); });
}

// What could not be written was not shown, and a full disk must not look like success. Who has stopped reading knows.
int WhenAllIsShown(int code) {
    const bool shown = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    if (shown || gvxctl::NobodyReads()) {
        return code;
    }
    std::fputs("gvxctl: standard output could not be written, what it lacks is lost\n", stderr);
    return code == gvxctl::kExitOk ? gvxctl::kExitRefused : code;
}

}  // namespace

int main(int argc, char** argv) {
    CommandLine line;
    CLI::App app("The platform's side of the wire: links to gvxd, sends requests, receives streams.", "gvxctl");
    app.require_subcommand(1)->set_version_flag("--version", "gvxctl " GVX_VERSION, "print the version and end");
    app.footer(gvxctl::ExitCodeTable());  // each command takes it over
    AddDeviceCommands(app, line);
    AddStreamCommands(app, line);
    AddReceiveCommand(app, line);
    AddWatchCommand(app, line);
    AddDemoCommand(app, line);
    AddConfigCommands(app, line);
    AddSecretCommands(app, line);
    gvxctl::AddPeerCommands(app, line);
    gvxctl::AddAlarmCommands(app, line);
    gvxctl::AddStatusCommands(app, line);
    gvxctl::AddMediaCommands(app, line);
    gvxctl::AddDeviceRequestCommands(app, line);
    gvxctl::AddCompletionCommand(app, line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& shown) {  // --help, --version
        app.exit(shown);
        return gvxctl::kExitOk;
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "gvxctl: %s\n", gvxctl::WrongUse(app, error).c_str());
        return gvxctl::kExitWrongUse;
    }
    std::string fault;
    if (line.tls.Given() && !gvxctl::PeerLink::UseTls(line.tls, fault)) {
        std::fprintf(stderr, "gvxctl: %s\n", fault.c_str());
        return gvxctl::kExitWrongUse;
    }
    gvxctl::CatchInterrupts();
    return WhenAllIsShown(line.run());
}
