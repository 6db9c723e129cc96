#pragma once

#include "gvxctl/requests.h"
#include "gvxctl/stream_recorder.h"

#include <string>

// One function for each command of the tool. Each prints to standard output, faults to standard error, and returns one
// of the exit codes below. Commands run on main's thread; the same holds for those of alarm_commands.h,
// config_commands.h, peer_commands.h and demo.h.
namespace gvxctl {

constexpr int kExitOk = 0;
constexpr int kExitRefused = 1;
constexpr int kExitWrongUse = 2;
constexpr int kExitNoLink = 3;

struct ExitCodeRow {
    int code;
    const char* meaning;
};
constexpr ExitCodeRow kExitCodeRows[] = {
    {kExitOk, "done; of receive, demo and their like: all that was sent has come"},
    {kExitRefused, "the gateway refused or did not answer, or something was wrong with what came"},
    {kExitWrongUse, "wrong use, or something that the command needs is not there; nothing was sent"},
    {kExitNoLink, "there is no link to the gateway, or it was closed"},
};

struct CommonOptions {
    Endpoint gateway{"127.0.0.1", 9600};
    PortRanges ports;  // what the main service hands out
    bool json = false;
};

// Whether those files can be written; asked ahead of the request, since a stream that has begun goes on without them.
bool SdpFilesCanBe(const StreamSpec& spec, std::string& error);
// Writes the files that the options ask for (--sdp, --player-sdp). False with a reason.
bool WriteSdpFiles(const StreamSpec& spec, const Response& response, std::string& error);

int RunAddDevice(const CommonOptions& common, const DeviceSpec& spec);
int RunDeleteDevice(const CommonOptions& common, const std::string& devCode);
int RunStartStream(const CommonOptions& common, const StreamSpec& spec);
// Has ffplay play the stream, which ends with the player. Without a port in spec.video it comes to this host, at ports
// that are free.
int RunPlayStream(const CommonOptions& common, StreamSpec spec);
int RunStopStream(const CommonOptions& common, const StreamSpec& spec);
int RunIFrame(const CommonOptions& common, const StreamSpec& spec);

struct ReceiveOptions {
    std::string ip = "127.0.0.1";
    std::uint16_t videoPort = 0;  // over TCP the port to listen on
    std::uint16_t audioPort = 0;
    bool tcp = false;
    bool json = false;
    RecordFiles files;
    MetadataOptions metadata;
    std::uint64_t frames = 0;  // end after that many; 0: go on
    int seconds = 0;           // end after that time; 0: go on
};
int RunReceive(const ReceiveOptions& options);

struct WatchOptions {
    bool all = false;  // play SCU, OMU and MU as well
    int seconds = 0;   // 0: until interrupted
};
int RunWatch(const CommonOptions& common, const WatchOptions& options);

}  // namespace gvxctl
