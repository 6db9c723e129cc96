#include "gvxctl/media_commands.h"

#include "base/clock.h"
#include "base/json_io.h"
#include "base/zvs_error.h"
#include "gvx_common/records/stream_param.h"
#include "gvxctl/platform.h"
#include "gvxctl/progress.h"
#include "gvxctl/report.h"
#include "gvxctl/rtp_receiver.h"
#include "gvxctl/terminal.h"
#include "nss/nss_msg_type.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <thread>

namespace gvxctl {
namespace {

constexpr int kStepMs = 100;

// What the gateway tells by itself, in the order of its coming. Any thread.
class Notices {
public:
    void Add(const Frame& frame) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_frames.push_back(frame);
        m_came.notify_all();
    }
    // The next one; false when none comes before the end, in monotonic milliseconds, or the command is interrupted.
    bool Next(Frame& frame, std::int64_t endMs) {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (m_frames.empty() && gvx::MonotonicMilliseconds() < endMs && !Interrupted()) {
            m_came.wait_for(lock, std::chrono::milliseconds(kStepMs));
        }
        if (m_frames.empty()) {
            return false;
        }
        frame = std::move(m_frames.front());
        m_frames.pop_front();
        return true;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_came;
    std::deque<Frame> m_frames;  // Guarded by m_mutex.
};

Json::Value JsonOf(const Frame& frame) {
    std::string text;
    Json::Value body;
    return frame.Item(NSS_TAG_JSON_CONTENT, text) && gvx::ParseJson(text.data(), text.size(), body, nullptr) &&
                   body.isObject()
               ? body
               : Json::Value(Json::objectValue);
}

std::int64_t EndAfter(int seconds) {
    return gvx::MonotonicMilliseconds() + std::int64_t{seconds} * 1000;
}

int Refused(const Response& response) {
    const std::string reason = gvx::JsonText(JsonBody(response), "Reason");
    return Fail(kExitRefused, std::string(NssMsgTypeName(response.requestType)) +
                                  " was refused: " + ZvsErrorName(static_cast<int>(response.code)) +
                                  (reason.empty() ? "" : ". " + reason));
}

void PrintOutcome(bool json, const Json::Value& outcome, const std::string& text) {
    if (json) {
        std::fputs(gvx::WriteJson(outcome).c_str(), stdout);
    } else {
        Print(text);
    }
}

Json::Value SearchBody(const SearchOptions& options) {
    Json::Value body(Json::objectValue);
    body["PluginName"] = options.plugin;
    body["Protocol"] = options.protocol;
    body["Ranges"] = Json::Value(Json::arrayValue);
    for (const std::string& text : options.ranges) {
        const std::string addresses = text.substr(0, text.find(':'));
        const std::size_t dash = addresses.find('-');
        Json::Value range(Json::objectValue);
        range["Start"] = addresses.substr(0, dash);
        range["End"] = dash == std::string::npos ? addresses : addresses.substr(dash + 1);
        if (addresses.size() < text.size()) {
            range["Port"] = text.substr(addresses.size() + 1);
        }
        body["Ranges"].append(range);
    }
    body["Added"] = Json::Value(Json::arrayValue);
    for (const std::string& address : options.added) {
        body["Added"].append(address);
    }
    return body;
}

// The answer to the question for an address: the picture's own members, and where it goes.
FrameSpec AddressAnswer(const Frame& request, const std::string& url) {
    FrameSpec answer = ResponseTo(request, 0);
    Json::Value body = JsonOf(request);
    body["URL"] = url;
    answer.tag = NSS_TAG_JSON_CONTENT;
    answer.body = gvx::WriteJson(body);
    return answer;
}

// Stops a stream and tells what both ends have counted. The exit code.
int StopAndTell(Platform& platform, const StreamSpec& spec, RtpReceiver& receiver, Json::Value outcome, bool json,
                const std::string& fault) {
    Response stopped;
    std::string silence;
    const bool answered = StopStream(platform, spec, stopped, silence);
    std::string error = fault.empty() ? silence : fault;
    receiver.Stop();
    const StreamStats stats = receiver.Stats();
    outcome["received"] = StatsToJson(stats);
    outcome["sent"] = answered ? JsonBody(stopped) : Json::Value();
    if (error.empty() && answered && stopped.code != 0) {
        error = std::string("the stop answered ") + ZvsErrorName(static_cast<int>(stopped.code));
    }
    if (error.empty()) {
        error = Faults(stats);
    }
    outcome["ok"] = error.empty();
    PrintOutcome(json, outcome, StatsLine(stats));
    return error.empty() ? kExitOk : Fail(kExitRefused, error);
}

using SendPacket = std::function<void(const unsigned char* packet, std::size_t size)>;

// Sends a file as G.711 in RTP (RFC 3551, section 4.5.14), 20 ms a packet, until it ends or `stop` says so. Packets
// sent.
std::uint64_t SendSound(const std::string& bytes, const SendPacket& send, int payloadType,
                        const std::function<bool()>& stop) {
    constexpr std::size_t kPiece = 160;
    constexpr std::size_t kHead = 12;
    const auto begin = std::chrono::steady_clock::now();
    std::uint32_t count = 0;
    for (std::size_t at = 0; at < bytes.size() && !stop(); at += kPiece, ++count) {
        const std::size_t length = std::min(kPiece, bytes.size() - at);
        const std::uint32_t time = count * static_cast<std::uint32_t>(kPiece);
        unsigned char packet[kHead + kPiece] = {0x80, static_cast<unsigned char>(payloadType)};
        packet[2] = static_cast<unsigned char>(count >> 8);
        packet[3] = static_cast<unsigned char>(count);
        for (int i = 0; i < 4; ++i) {
            packet[4 + i] = static_cast<unsigned char>(time >> (24 - 8 * i));
            packet[8 + i] = static_cast<unsigned char>("gvxc"[i]);
        }
        bytes.copy(reinterpret_cast<char*>(packet) + kHead, length, at);
        send(packet, kHead + length);
        std::this_thread::sleep_until(begin + std::chrono::milliseconds(20) * (count + 1));
    }
    return count;
}

// What sends to a UDP address, or back on the connection that the receiver has.
SendPacket VoiceSender(const StreamSpec& spec, const Endpoint& to, RtpReceiver& receiver) {
    if (spec.tcp) {
        constexpr std::uint8_t kSoundChannel = 2;
        return [&receiver](const unsigned char* packet, std::size_t size) {
            receiver.SendInterleaved(kSoundChannel, packet, size);
        };
    }
    std::string error;
    const auto fd = std::make_shared<gvx::UniqueFd>(BindUdp(Endpoint{"0.0.0.0", 0}, error));
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(to.port);
    inet_pton(AF_INET, to.ip.c_str(), &target.sin_addr);
    return [fd, target](const unsigned char* packet, std::size_t size) {
        sendto(fd->Get(), packet, size, 0, reinterpret_cast<const sockaddr*>(&target), sizeof target);
    };
}

}  // namespace

int RunSearch(const CommonOptions& common, const SearchOptions& options) {
    Notices notices;
    Platform platform(common.gateway, [&notices](const std::string&, const Frame& frame) {
        if (frame.Type() == NSS_DISCOVERED_DEVICE_NOTIFY_REQ) {
            notices.Add(frame);
        }
    });
    std::string error;
    Response response;
    if (!platform.LinkMainService(error)) {
        return Fail(kExitNoLink, error);
    }
    if (!SendJson(platform, NSS_START_SEARCH_DEVICE_REQ, SearchBody(options), response, error)) {
        return Fail(kExitRefused, error);
    }
    if (response.code != 0) {
        return Refused(response);
    }
    Json::Value outcome(Json::objectValue);
    Json::Value& devices = outcome["devices"] = Json::Value(Json::arrayValue);
    std::atomic<long long> percent{0};
    Progress progress("searching", [&percent] { return std::to_string(percent) + " percent"; });
    Frame frame;
    const std::int64_t endMs = EndAfter(options.seconds);
    while (percent < 100 && notices.Next(frame, endMs)) {
        if (frame.Transaction() != response.frame.Transaction()) {
            continue;
        }
        const Json::Value body = JsonOf(frame);
        percent = gvx::JsonInt(body, "Percent", 0);
        for (const Json::Value& device : body["Devices"]) {
            devices.append(device);
            if (!common.json) {
                progress.Hide();
                const long long port = gvx::JsonInt(device, "Port", 0);
                Print(gvx::JsonText(device, "IP") + (port == 0 ? "" : ":" + std::to_string(port)) + "  " +
                      gvx::JsonText(device, "Maker") + " " + gvx::JsonText(device, "Model") + "  " +
                      gvx::JsonText(device, "SerialNumber"));
            }
        }
    }
    progress.Hide();
    if (percent < 100) {
        Json::Value stop(Json::objectValue);
        stop["PluginName"] = options.plugin;
        SendJson(platform, NSS_STOP_SEARCH_DEVICE_REQ, stop, response, error);
    }
    outcome["percent"] = Json::Int64(percent);
    PrintOutcome(common.json, outcome,
                 std::to_string(devices.size()) + " devices, " + std::to_string(percent) + " percent");
    return percent == 100 || Interrupted() ? kExitOk : Fail(kExitRefused, "the search did not end in time");
}

int RunSnapshot(const CommonOptions& common, const SnapshotOptions& options) {
    Notices notices;
    Platform platform(common.gateway);
    platform.SetAnswerer([&notices, &options](const Frame& request, FrameSpec& answer) {
        if (request.Type() == NSS_GET_UPLOAD_IMAGE_URL_REQ) {
            answer = AddressAnswer(request, options.url);
            return true;
        }
        if (request.Type() == NSS_IMAGE_UPLOAD_COMPLETE_REQ) {
            notices.Add(request);
            answer = AddressAnswer(request, options.url);
            return true;
        }
        return false;
    });
    std::string error;
    Response response;
    if (!platform.LinkMainService(error)) {
        return Fail(kExitNoLink, error);
    }
    Json::Value body(Json::objectValue);
    body["DevCode"] = options.devCode;
    body["LensCode"] = options.lensCode;
    body["SnapNum"] = options.count;
    body["SnapType"] = options.type;
    body["SessionID"] = Json::Int64(gvx::WallSeconds());
    body["Upload"] = !options.url.empty();
    if (!SendJson(platform, NSS_SNAPSHOT_REQ, body, response, error)) {
        return Fail(kExitRefused, error);
    }
    if (response.code != 0) {
        return Refused(response);
    }
    Json::Value outcome(Json::objectValue);
    Json::Value& pictures = outcome["pictures"] = Json::Value(Json::arrayValue);
    int lost = 0;
    Frame frame;
    const int expected = options.url.empty() ? 0 : options.count;
    Progress progress("waiting for the pictures");
    const std::int64_t endMs = EndAfter(options.seconds);
    while (static_cast<int>(pictures.size()) < expected && notices.Next(frame, endMs)) {
        const Json::Value notice = JsonOf(frame);
        pictures.append(notice);
        lost += gvx::JsonInt(notice, "Result", 1) == 0 ? 0 : 1;
        if (!common.json) {
            progress.Hide();
            const std::string name = gvx::JsonText(notice, "ContentID");
            Print((name.empty() ? "a picture that was not taken" : name) +
                  (gvx::JsonInt(notice, "Result", 1) == 0 ? " was sent" : " could not be sent"));
        }
    }
    progress.Hide();
    const int missing = expected - static_cast<int>(pictures.size());
    outcome["ok"] = lost == 0 && missing == 0;
    PrintOutcome(common.json, outcome,
                 options.url.empty() ? "accepted" : std::to_string(pictures.size()) + " pictures");
    if (lost != 0 || missing != 0) {
        return Fail(kExitRefused, std::to_string(lost) + " pictures could not be sent, " + std::to_string(missing) +
                                      " did not come in time; the gateway's log says why");
    }
    return kExitOk;
}

int RunPlayback(const CommonOptions& common, const PlaybackOptions& options) {
    StreamSpec spec = options.stream;
    Notices notices;
    Platform platform(common.gateway, [&](const std::string&, const Frame& frame) {
        if (frame.Type() == NSS_FILE_TO_END_REQ && gvx::JsonText(JsonOf(frame), "ServiceID") == spec.serviceId) {
            notices.Add(frame);
        }
    });
    std::string error;
    Response response;
    RtpReceiver receiver;
    if (!(spec.tcp ? receiver.StartTcp(Endpoint{options.ip, 0}, options.files, error)
                   : receiver.StartUdp(options.ip, 0, 0, options.files, error)) ||
        !SdpFilesCanBe(spec, error)) {
        return Fail(kExitWrongUse, error);
    }
    if (!platform.LinkMainService(error)) {
        return Fail(kExitNoLink, error);
    }
    spec.video = Endpoint{options.ip, receiver.VideoPort()};
    spec.audioPort = receiver.AudioPort();
    if (!StartStream(platform, spec, response, error)) {
        return Fail(kExitRefused, error);
    }
    if (response.code != 0) {
        return Refused(response);
    }
    Json::Value outcome(Json::objectValue);
    outcome["started"] = JsonBody(response);
    const auto begin = gvx::MonotonicMilliseconds();
    const std::int64_t endMs = EndAfter(options.seconds);
    if (!WriteSdpFiles(spec, response, error)) {
        return StopAndTell(platform, spec, receiver, outcome, common.json, error);
    }
    std::vector<StreamControl> controls;
    if (options.speed != 1) {
        controls.push_back({3, options.speed, 0});
    }
    if (options.seek >= 0) {
        controls.push_back({2, 1, static_cast<unsigned int>(options.seek)});
    }
    if (options.pauseMs > 0) {
        controls.push_back({1, 1, 0});
        controls.push_back({0, 1, 0});
    }
    for (const StreamControl& control : controls) {
        if (control.command == 0) {
            SleepUnlessInterrupted(options.pauseMs);
            outcome["packetsAfterPause"] = Json::UInt64(receiver.Stats().video.packets);
        }
        if (!ControlStream(platform, spec, control, response, error)) {
            return StopAndTell(platform, spec, receiver, outcome, common.json, error);
        }
        if (response.code != 0) {
            return StopAndTell(platform, spec, receiver, outcome, common.json,
                               "the control was refused: " + gvx::JsonText(JsonBody(response), "Reason"));
        }
        if (control.command == 1) {
            constexpr int kSettleMs = 200;
            SleepUnlessInterrupted(kSettleMs);  // what was under way has come
            outcome["packetsBeforePause"] = Json::UInt64(receiver.Stats().video.packets);
        }
    }
    Frame frame;
    bool ended = false;
    {
        const Progress progress("playing", [&receiver] { return StatsLine(receiver.Stats()); });
        ended = notices.Next(frame, endMs);
    }
    outcome["seconds"] = static_cast<double>(gvx::MonotonicMilliseconds() - begin) / 1000;
    outcome["ended"] = ended;
    return StopAndTell(platform, spec, receiver, outcome, common.json,
                       ended || Interrupted() ? "" : "the recording did not end in time");
}

int RunTalk(const CommonOptions& common, const TalkOptions& options) {
    StreamSpec spec = options.stream;
    std::string error;
    std::string sound;
    if (!options.send.empty()) {
        std::ifstream file(options.send, std::ios::binary);
        sound.assign(std::istreambuf_iterator<char>(file), {});
        if (sound.empty()) {
            return Fail(kExitWrongUse, options.send + " cannot be read or is empty");
        }
    }
    Platform platform(common.gateway);
    Response response;
    RtpReceiver receiver;
    const RecordFiles files{"", options.receive};
    if (!(spec.tcp ? receiver.StartTcp(Endpoint{options.ip, 0}, files, error)
                   : receiver.StartUdp(options.ip, 0, 0, files, error)) ||
        !SdpFilesCanBe(spec, error)) {
        return Fail(kExitWrongUse, error);
    }
    if (!platform.LinkMainService(error)) {
        return Fail(kExitNoLink, error);
    }
    spec.video = Endpoint{options.ip, 0};
    spec.audioPort = spec.tcp ? receiver.VideoPort() : receiver.AudioPort();
    if (!StartStream(platform, spec, response, error)) {
        return Fail(kExitRefused, error);
    }
    if (response.code != 0) {
        return Refused(response);
    }
    Json::Value outcome(Json::objectValue);
    const Json::Value started = outcome["started"] = JsonBody(response);
    if (!WriteSdpFiles(spec, response, error)) {
        return StopAndTell(platform, spec, receiver, outcome, common.json, error);
    }
    const std::int64_t endMs = options.seconds > 0 ? EndAfter(options.seconds) : INT64_MAX;
    const auto over = [endMs] { return Interrupted() || gvx::MonotonicMilliseconds() >= endMs; };
    const Endpoint voice{gvx::JsonText(started, "SrcIP"),
                         static_cast<std::uint16_t>(gvx::JsonInt(started, "VoicePort", 0))};
    {
        const Progress progress("talking", [&receiver] { return StatsLine(receiver.Stats()); });
        outcome["said"] = Json::UInt64(SendSound(sound, VoiceSender(spec, voice, receiver),
                                                 static_cast<int>(gvx::JsonInt(started, "AudioPayload", 8)), over));
        while (options.seconds > 0 && !over()) {
            SleepUnlessInterrupted(kStepMs);
        }
    }
    constexpr int kSettleMs = 300;
    SleepUnlessInterrupted(kSettleMs);
    return StopAndTell(platform, spec, receiver, outcome, common.json, "");
}

}  // namespace gvxctl
