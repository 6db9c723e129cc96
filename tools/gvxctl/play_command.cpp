#include "base/json_io.h"
#include "base/whole_file.h"
#include "gvxctl/commands.h"
#include "gvxctl/platform.h"
#include "gvxctl/player_sdp.h"
#include "gvxctl/terminal.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace gvxctl {
namespace {

constexpr const char* kPlayer = "ffplay";
constexpr int kListenMs = 10000;  // by then a player has taken its ports, or never will
constexpr int kStepMs = 50;

bool IsInPath(const std::string& program) {
    const char* const path = std::getenv("PATH");
    std::string rest = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
    for (std::size_t end = 0; end != std::string::npos; rest.erase(0, end + 1)) {
        end = rest.find(':');
        if (::access((rest.substr(0, end) + "/" + program).c_str(), X_OK) == 0) {
            return true;
        }
        if (end == std::string::npos) {
            break;
        }
    }
    return false;
}

// A file of its own folder that goes with it.
class DescriptionFile {
public:
    ~DescriptionFile() {
        if (!m_folder.empty()) {
            ::unlink(Path().c_str());
            ::rmdir(m_folder.c_str());
        }
    }
    bool Write(const std::string& text, std::string& error) {
        const char* const temporary = std::getenv("TMPDIR");
        std::string name = std::string(temporary != nullptr ? temporary : "/tmp") + "/gvxctl-XXXXXX";
        if (::mkdtemp(name.data()) == nullptr) {
            error = "cannot make the folder " + name + ": " + std::strerror(errno);
            return false;
        }
        m_folder = name;
        if (!gvx::ReplaceWholeFile(Path(), text)) {
            error = "cannot write " + Path();
            return false;
        }
        return true;
    }
    std::string Path() const { return m_folder + "/stream.sdp"; }

private:
    std::string m_folder;
};

// The player as a child; it is ended with the object.
class Player {
public:
    ~Player() {
        if (m_child > 0) {
            ::kill(m_child, SIGTERM);
            ::waitpid(m_child, nullptr, 0);
        }
    }
    bool Start(const std::string& description, std::string& error) {
        std::vector<std::string> words{kPlayer,        "-loglevel", "error",    "-protocol_whitelist",
                                       "file,udp,rtp", "-i",        description};
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        const int code = ::posix_spawnp(&m_child, kPlayer, nullptr, nullptr, arguments.data(), environ);
        if (code != 0) {
            m_child = -1;
            error = std::string(kPlayer) + " cannot be started: " + std::strerror(code);
        }
        return code == 0;
    }
    // The first time that it is seen to have ended, and ever after.
    bool Ended() {
        int status = 0;
        if (m_child > 0 && ::waitpid(m_child, &status, WNOHANG) == m_child) {
            m_child = -1;
            m_good = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        }
        return m_child < 0;
    }
    bool EndedWell() const { return m_good; }

private:
    pid_t m_child = -1;
    bool m_good = false;
};

// A player has to know the stream before it comes: one that ends at once tells its description.
bool AskForDescription(Platform& platform, StreamSpec spec, std::string& player, std::string& error) {
    spec.serviceId += "-ask";
    Response started;
    Response stopped;
    if (!StartStream(platform, spec, started, error)) {
        return false;
    }
    if (started.code != 0) {
        error = RefusalText(started);
        return false;
    }
    return StopStream(platform, spec, stopped, error) &&
           MakePlayerSdp(gvx::JsonText(JsonBody(started), "SDP"), spec.video, spec.audioPort, player, error);
}

}  // namespace

int RunPlayStream(const CommonOptions& common, StreamSpec spec) {
    if (!IsInPath(kPlayer)) {
        return Fail(kExitWrongUse,
                    std::string(kPlayer) + " is not installed; it plays the stream and comes with the package ffmpeg");
    }
    if (spec.video.port == 0) {
        constexpr int kPorts = 4;  // video and audio, each with the one behind it for reports
        spec.video.ip = LocalIpTowards(common.gateway);
        spec.video.port = spec.video.ip.empty() ? std::uint16_t{0} : FreeUdpPorts(spec.video.ip, kPorts);
        if (spec.video.port == 0) {
            return Fail(kExitWrongUse, "no free ports for the player can be found; name one with --dst");
        }
        spec.audioPort = static_cast<std::uint16_t>(spec.audio ? spec.video.port + 2 : 0);
    }
    Platform platform(common.gateway, nullptr, common.ports);
    std::string error;
    if (!platform.LinkMainService(error)) {
        return Fail(kExitNoLink, error);
    }
    platform.RelinkWhenClosed();  // another gvxctl may ask the gateway something while the stream plays
    std::string description;
    DescriptionFile file;
    Player player;
    if (!AskForDescription(platform, spec, description, error) || !file.Write(description, error) ||
        !player.Start(file.Path(), error)) {
        return Fail(kExitRefused, error);
    }
    for (int waited = 0; waited < kListenMs && !UdpPortIsTaken(spec.video.port) && !player.Ended(); waited += kStepMs) {
        SleepUnlessInterrupted(kStepMs);
    }
    Response response;
    if (player.Ended() || !StartStream(platform, spec, response, error)) {
        return Fail(kExitRefused, error.empty() ? std::string(kPlayer) + " has ended before the stream began" : error);
    }
    if (response.code != 0) {
        return Fail(kExitRefused, RefusalText(response));
    }
    while (!player.Ended() && SleepUnlessInterrupted(kStepMs)) {
    }
    if (!StopStream(platform, spec, response, error)) {
        return Fail(kExitRefused, error);
    }
    Print(DescribeResponse(response));
    return response.code == 0 && (player.EndedWell() || Interrupted())
               ? kExitOk
               : Fail(kExitRefused,
                      response.code != 0 ? RefusalText(response) : std::string(kPlayer) + " has ended with a fault");
}

}  // namespace gvxctl
