#include "gvxctl/commands.h"

#include "base/json_io.h"
#include "base/whole_file.h"
#include "gvxctl/frame_text.h"
#include "gvxctl/platform.h"
#include "gvxctl/player_sdp.h"
#include "gvxctl/progress.h"
#include "gvxctl/report.h"
#include "gvxctl/rtp_receiver.h"
#include "gvxctl/terminal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <optional>

#include <unistd.h>

namespace gvxctl {
namespace {

// Links as the main service, sends one request, prints its response.
int OneShot(const CommonOptions& common, const std::function<bool(Platform&, Response&, std::string&)>& send) {
    Platform platform(common.gateway, nullptr, common.ports);
    std::string error;
    if (!platform.LinkMainService(error)) {
        return Fail(kExitNoLink, error);
    }
    Response response;
    if (!send(platform, response, error)) {
        return Fail(kExitRefused, error);
    }
    if (common.json) {
        std::fputs(gvx::WriteJson(ResponseToJson(response)).c_str(), stdout);
    } else if (response.code == 0) {
        Print(DescribeResponse(response));
    }
    return response.code == 0 ? kExitOk : Fail(kExitRefused, RefusalText(response));
}

bool StartReceiver(RtpReceiver& receiver, const ReceiveOptions& options, std::string& error) {
    MetadataOptions metadata = options.metadata;
    if (!options.json) {
        metadata.print = Print;
    }
    receiver.ReceiveMetadata(metadata);
    receiver.EndAfter(options.frames);
    return options.tcp ? receiver.StartTcp(Endpoint{options.ip, options.videoPort}, options.files, error)
                       : receiver.StartUdp(options.ip, options.videoPort, options.audioPort, options.files, error);
}

void ReceiveUntilDone(RtpReceiver& receiver, const ReceiveOptions& options) {
    constexpr int kPauseMs = 1000;
    constexpr int kDayMs = 24 * 3600 * 1000;
    const int limitMs = options.seconds > 0 && options.seconds < kDayMs / 1000 ? options.seconds * 1000 : kDayMs;
    std::optional<Progress> progress;
    if (options.json || options.frames > 0) {  // otherwise the figures of each second are progress enough
        progress.emplace("receiving", [&receiver] { return StatsLine(receiver.Stats()); });
    }
    if (options.frames > 0) {
        receiver.WaitForFrames(options.frames, kPauseMs, limitMs, Interrupted());
        return;
    }
    for (int waited = 0; waited < limitMs && SleepUnlessInterrupted(kPauseMs); waited += kPauseMs) {
        if (!options.json) {
            Print(StatsLine(receiver.Stats()));
        }
    }
}

}  // namespace

bool SdpFilesCanBe(const StreamSpec& spec, std::string& error) {
    for (const std::string& file : {spec.sdpFile, spec.playerSdpFile}) {
        const std::string folder = file.find('/') == std::string::npos ? "." : file.substr(0, file.rfind('/') + 1);
        if (!file.empty() && ::access(folder.c_str(), W_OK) != 0) {
            error = "cannot write " + file + ": " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

bool WriteSdpFiles(const StreamSpec& spec, const Response& response, std::string& error) {
    if (spec.sdpFile.empty() && spec.playerSdpFile.empty()) {
        return true;
    }
    const std::string sdp = gvx::JsonText(JsonBody(response), "SDP");
    std::string player;
    if (sdp.empty()) {
        error = "the answer describes no session";
        return false;
    }
    if (!spec.sdpFile.empty() && !gvx::ReplaceWholeFile(spec.sdpFile, sdp)) {
        error = "cannot write " + spec.sdpFile;
        return false;
    }
    if (spec.playerSdpFile.empty()) {
        return true;
    }
    if (!MakePlayerSdp(sdp, spec.video, spec.audioPort, player, error)) {
        return false;
    }
    if (!gvx::ReplaceWholeFile(spec.playerSdpFile, player)) {
        error = "cannot write " + spec.playerSdpFile;
        return false;
    }
    return true;
}

int RunAddDevice(const CommonOptions& common, const DeviceSpec& spec) {
    return OneShot(common, [&](Platform& platform, Response& response, std::string& error) {
        return AddDevice(platform, spec, response, error);
    });
}

int RunDeleteDevice(const CommonOptions& common, const std::string& devCode) {
    return OneShot(common, [&](Platform& platform, Response& response, std::string& error) {
        return DeleteDevice(platform, devCode, response, error);
    });
}

int RunStartStream(const CommonOptions& common, const StreamSpec& spec) {
    std::string fault;
    if (!SdpFilesCanBe(spec, fault)) {
        return Fail(kExitWrongUse, fault);
    }
    return OneShot(common, [&](Platform& platform, Response& response, std::string& error) {
        return StartStream(platform, spec, response, error) &&
               (response.code != 0 || WriteSdpFiles(spec, response, error));
    });
}

int RunStopStream(const CommonOptions& common, const StreamSpec& spec) {
    return OneShot(common, [&](Platform& platform, Response& response, std::string& error) {
        return StopStream(platform, spec, response, error);
    });
}

int RunIFrame(const CommonOptions& common, const StreamSpec& spec) {
    return OneShot(common, [&](Platform& platform, Response& response, std::string& error) {
        return RequestIFrame(platform, spec, response, error);
    });
}

int RunReceive(const ReceiveOptions& options) {
    RtpReceiver receiver;
    std::string error;
    if (!StartReceiver(receiver, options, error)) {
        return Fail(kExitWrongUse, error);
    }
    if (!options.json) {
        Print("receiving on " + EndpointText(Endpoint{options.ip, receiver.VideoPort()}) +
              (options.tcp ? " (TCP, interleaved)" : ", audio on port " + std::to_string(receiver.AudioPort())) +
              (receiver.MetadataPort() == 0 ? "" : ", metadata on port " + std::to_string(receiver.MetadataPort())));
    }
    ReceiveUntilDone(receiver, options);
    receiver.Stop();
    const StreamStats stats = receiver.Stats();
    if (options.json) {
        std::fputs(gvx::WriteJson(StatsToJson(stats)).c_str(), stdout);
    } else {
        Print(StatsLine(stats));
    }
    const std::uint64_t packets = stats.video.packets + stats.audio.packets + stats.metadata.assembler.packets;
    std::string faults = packets == 0 ? "nothing was received" : Faults(stats);
    if (faults.empty() && stats.video.frames < options.frames) {
        faults = std::to_string(stats.video.frames) + " frames came instead of " + std::to_string(options.frames);
    }
    return faults.empty() ? kExitOk : Fail(kExitRefused, faults);
}

int RunWatch(const CommonOptions& common, const WatchOptions& options) {
    Platform platform(common.gateway, [](const std::string& linkId, const Frame& frame) {
        Print(linkId + " << " + DescribeFrame(frame));
    });
    std::string error;
    const bool linked = (!options.all || platform.OpenMu(Endpoint{"127.0.0.1", 0}, error)) &&
                        platform.LinkMainService(error) &&
                        (!options.all || (platform.LinkScu(error) && platform.LinkOmu(error)));
    if (!linked) {
        return Fail(kExitNoLink, error);
    }
    Print("linked with " + platform.GatewayId());
    for (int waited = 0; (options.seconds == 0 || waited < options.seconds * 1000) && platform.MainServiceOpen();
         waited += 100) {
        if (!SleepUnlessInterrupted(100)) {
            return kExitOk;
        }
    }
    return platform.MainServiceOpen() ? kExitOk
                                      : Fail(kExitNoLink, "link closed: " + platform.MainServiceCloseReason());
}

}  // namespace gvxctl
