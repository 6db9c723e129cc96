#include "gvxctl/demo.h"

#include "gvxctl/frame_text.h"
#include "gvxctl/platform.h"
#include "gvxctl/report.h"
#include "gvxctl/rtp_receiver.h"
#include "gvxctl/terminal.h"
#include "nss/nss_msg_type.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace gvxctl {
namespace {

constexpr int kPauseMs = 1000;  // silence after the last frame that tells that the clip has ended
constexpr int kStepMs = 1000;   // between two lines of progress

void Say(const std::string& text) {
    Print("gvxctl: " + text);
}

// The scripted run: links, device, streams, and what came of each step as one JSON document.
class Demo {
public:
    Demo(const CommonOptions& common, const DemoOptions& options)
        : m_options(options), m_platform(common.gateway, nullptr, common.ports) {}

    int Run();

private:
    bool Prepare();
    bool Link();
    bool Steps();
    bool CheckAnswer(bool answered, const Response& response);
    bool PlayClip(const char* transport, bool tcp);
    bool PlayUntilInterrupted();
    bool StartReceiver(RtpReceiver& receiver, bool tcp);
    bool Watch(RtpReceiver& receiver, const StreamSpec& spec);
    bool Finish(RtpReceiver& receiver, const StreamSpec& spec, const char* transport);
    bool Judge(const StreamStats& got, const SentCounts& sent, const char* transport);
    StreamSpec SpecFor(const RtpReceiver& receiver, bool tcp) const;
    void Fault(const std::string& text);

    DemoOptions m_options;
    Platform m_platform;
    std::string m_error;  // of the step in hand
    Json::Value m_summary{Json::objectValue};
};

int Demo::Run() {
    m_summary["faults"] = Json::Value(Json::arrayValue);
    m_summary["answers"] = Json::Value(Json::arrayValue);
    m_summary["streams"] = Json::Value(Json::arrayValue);
    const bool prepared = Prepare();
    const bool linked = prepared && Link();
    if (!linked) {
        Fault(m_error);
    }
    const bool good = linked && Steps() && m_summary["faults"].empty();
    m_summary["ok"] = good;
    std::string error;
    if (!m_options.summary.empty() && !WriteJsonFile(m_options.summary, m_summary, error)) {
        Fault(error);
        return kExitRefused;
    }
    Say(good ? "done, everything as expected" : "done, with faults");
    return good ? kExitOk : linked ? kExitRefused : prepared ? kExitNoLink : kExitWrongUse;
}

// What has to be there before anything is sent.
bool Demo::Prepare() {
    if (::access(m_options.outDir.c_str(), W_OK) != 0) {
        m_error = "cannot write to the folder " + m_options.outDir + ": " + std::strerror(errno);
        return false;
    }
    return m_platform.OpenMu(m_options.mu, m_error);
}

bool Demo::Link() {
    if (!m_platform.LinkMainService(m_error) || !m_platform.LinkScu(m_error) || !m_platform.LinkOmu(m_error) ||
        !m_platform.WaitForMu(m_error)) {
        return false;
    }
    for (const std::string& name : m_platform.OpenLinks()) {
        m_summary["links"].append(name);
        Say("linked: " + name);
    }
    m_summary["gateway"] = m_platform.GatewayId();
    if (m_options.keep) {
        m_platform.RelinkWhenClosed();  // another gvxctl may ask the gateway something meanwhile
    }
    return true;
}

bool Demo::Steps() {
    Response response;
    if (!CheckAnswer(AddDevice(m_platform, m_options.device, response, m_error), response)) {
        return false;
    }
    const bool played = m_options.keep ? PlayUntilInterrupted() : PlayClip("udp", false) && PlayClip("tcp", true);
    const bool deleted = CheckAnswer(DeleteDevice(m_platform, m_options.device.devCode, response, m_error), response);
    const std::size_t links = m_platform.OpenLinks().size();
    if (links != 4) {
        Fault("only " + std::to_string(links) + " of 4 links were open at the end");
    }
    return played && deleted;
}

bool Demo::CheckAnswer(bool answered, const Response& response) {
    if (!answered) {
        Fault(m_error);
        return false;
    }
    Say(DescribeResponse(response));
    m_summary["answers"].append(ResponseToJson(response));
    if (response.code != 0) {
        Fault(std::string(NssMsgTypeName(response.requestType)) + " was refused with " + CodeText(response.code));
    }
    return response.code == 0;
}

StreamSpec Demo::SpecFor(const RtpReceiver& receiver, bool tcp) const {
    StreamSpec spec;
    spec.devCode = m_options.device.devCode;
    spec.serviceId = tcp ? "live-tcp" : "live-udp";
    spec.tcp = tcp;
    spec.video = Endpoint{"127.0.0.1", receiver.VideoPort()};
    spec.audioPort = receiver.AudioPort();
    spec.metadata = m_options.metadata;
    spec.metadataPort = receiver.MetadataPort();
    return spec;
}

bool Demo::StartReceiver(RtpReceiver& receiver, bool tcp) {
    const std::string base = m_options.outDir + "/";
    const RecordFiles files{base + (tcp ? "stream_tcp." : "stream.") + m_options.codec,
                            base + (tcp ? "audio_tcp.alaw" : "audio.alaw")};
    if (m_options.metadata) {
        receiver.ReceiveMetadata(MetadataOptions{true, base + (tcp ? "metadata_tcp" : "metadata_udp"), 0, &Say});
    }
    return tcp ? receiver.StartTcp(Endpoint{"127.0.0.1", 0}, files, m_error)
               : receiver.StartUdp("127.0.0.1", 0, 0, m_options.keep ? RecordFiles{} : files, m_error);
}

bool Demo::PlayClip(const char* transport, bool tcp) {
    RtpReceiver receiver;
    Response response;
    if (!StartReceiver(receiver, tcp)) {
        Fault(m_error);
        return false;
    }
    const StreamSpec spec = SpecFor(receiver, tcp);
    if (!CheckAnswer(StartStream(m_platform, spec, response, m_error), response)) {
        return false;
    }
    const bool watched = Watch(receiver, spec);
    return Finish(receiver, spec, transport) && watched;
}

// Follows the clip to its end and asks for a key frame once half of it has come.
bool Demo::Watch(RtpReceiver& receiver, const StreamSpec& spec) {
    bool asked = false;
    for (int waited = 0; waited < m_options.timeoutSeconds * 1000; waited += kStepMs) {
        const std::uint64_t goal =
            asked ? m_options.expectFrames : std::max<std::uint64_t>(1, m_options.expectFrames / 2);
        const bool there = receiver.WaitForFrames(goal, asked ? kPauseMs : 0, kStepMs, Interrupted());
        Say(spec.serviceId + ": " + StatsLine(receiver.Stats()));
        if (Interrupted()) {
            Fault("interrupted");
            return false;
        }
        if (there && asked) {
            return true;
        }
        if (there) {
            Response response;
            asked = true;
            if (!CheckAnswer(RequestIFrame(m_platform, spec, response, m_error), response)) {
                return false;
            }
        }
    }
    Fault(spec.serviceId + ": the clip did not come to its end in time");
    return false;
}

bool Demo::Finish(RtpReceiver& receiver, const StreamSpec& spec, const char* transport) {
    Response response;
    const bool stopped = CheckAnswer(StopStream(m_platform, spec, response, m_error), response);
    receiver.Stop();
    const StreamStats got = receiver.Stats();
    const SentCounts sent = stopped ? SentCountsOf(response) : SentCounts{};
    Json::Value entry;
    entry["transport"] = transport;
    entry["received"] = StatsToJson(got);
    entry["sent"] = JsonBody(response);
    entry["expectedFrames"] = static_cast<Json::Value::UInt64>(m_options.expectFrames);
    m_summary["streams"].append(entry);
    return stopped && Judge(got, sent, transport);
}

bool Demo::Judge(const StreamStats& got, const SentCounts& sent, const char* transport) {
    const std::size_t before = m_summary["faults"].size();
    const auto compare = [&](const char* what, long long received, long long expected) {
        if (received != expected) {
            Fault(std::string(transport) + ": " + std::to_string(received) + " " + what + " received, " +
                  std::to_string(expected) + " sent");
        }
    };
    const std::string faults = Faults(got);
    if (!faults.empty()) {
        Fault(std::string(transport) + ": " + faults);
    }
    compare("video packets", static_cast<long long>(got.video.packets), sent.videoPackets);
    compare("audio packets", static_cast<long long>(got.audio.packets), sent.audioPackets);
    if (m_options.metadata) {
        compare("metadata packets", static_cast<long long>(got.metadata.assembler.packets), sent.metadataPackets);
    }
    compare("video frames", static_cast<long long>(got.video.frames), sent.videoFrames);
    if (sent.dropped != 0) {
        Fault(std::string(transport) + ": the gateway dropped " + std::to_string(sent.dropped) + " packets");
    }
    if (m_options.expectFrames != 0 && !m_options.keep) {
        compare("frames of the clip", static_cast<long long>(got.video.frames),
                static_cast<long long>(m_options.expectFrames));
    }
    return m_summary["faults"].size() == before;
}

bool Demo::PlayUntilInterrupted() {
    RtpReceiver receiver;
    Response response;
    if (!StartReceiver(receiver, false)) {
        Fault(m_error);
        return false;
    }
    const StreamSpec spec = SpecFor(receiver, false);
    if (!CheckAnswer(StartStream(m_platform, spec, response, m_error), response)) {
        return false;
    }
    // Another gvxctl takes the main service's place for a moment; only without any link is the gateway gone.
    while (SleepUnlessInterrupted(kStepMs) && !m_platform.OpenLinks().empty()) {
        Say(StatsLine(receiver.Stats()));
    }
    const bool stopped = CheckAnswer(StopStream(m_platform, spec, response, m_error), response);
    receiver.Stop();
    Say(StatsLine(receiver.Stats()));
    const std::string faults = Faults(receiver.Stats());
    if (!faults.empty()) {
        Fault(faults);
    }
    return stopped;
}

void Demo::Fault(const std::string& text) {
    Fail(kExitRefused, text);
    m_summary["faults"].append(text);
}

}  // namespace

int RunDemo(const CommonOptions& common, const DemoOptions& options) {
    return Demo(common, options).Run();
}

}  // namespace gvxctl
