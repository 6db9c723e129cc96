#include "gateway/streams/live_stream.h"

#include "base/clock.h"
#include "base/log.h"
#include "gateway/messages/answer.h"
#include "gateway/plugins/plugin_guard.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/config/setting_table.h"

#include <arpa/inet.h>

namespace gvx {

namespace {

constexpr int kGateLimitMs = 500;
// A stop of the gateway waits for a connect that is under way, within the time that devices get of it.
constexpr unsigned int kConnectLimitMs = 1000;
constexpr const char* kAnyAddress = "0.0.0.0";

std::string MediaAddress() {
    const std::string address = CGvxConfigMgr::Instance()->GetConfValue("GVX_MEDIA_IP", kAnyAddress);
    const bool usable = address != kAnyAddress && FitsSetting(RowOf(Setting::GVX_MEDIA_IP), address);
    return usable ? address : std::string();
}

}  // namespace

LiveStream::LiveStream(StreamLens lens, StreamRequest request)
    : m_lens(std::move(lens)), m_request(std::move(request)) {}

LiveStream::~LiveStream() {
    if (m_running) {
        Stop(true);
    }
}

int LiveStream::Start(std::string& reason) {
    if (!m_gate.IsUsable()) {
        reason = "There are too many streams.";
        return ZVS_GVX_OPEN_SOCKET_ERROR;
    }
    using Step = int (LiveStream::*)(std::string&);
    int code = MakeParam(reason);
    for (const Step step :
         {&LiveStream::Negotiate, &LiveStream::TakePorts, &LiveStream::OpenMedia, &LiveStream::StartPlugin}) {
        if (code == 0) {
            code = (this->*step)(reason);
        }
    }
    if (code != 0) {
        CloseSendPath();
        DeleteParam();
    }
    m_running = code == 0;
    if (m_running) {
        EnterLedger();
    }
    return code;
}

void LiveStream::EnterLedger() {
    auto entry = std::make_shared<StreamEntry>();
    entry->serviceID = m_request.serviceID;
    entry->plugin = m_lens.plugin;
    entry->device = m_lens.device;
    entry->lens = m_lens.lensCode;
    entry->askedBy = m_request.askedBy;
    entry->service = m_request.service;
    entry->overTcp = m_request.protocol == RTP_OVER_TCP;
    entry->videoFormat = m_request.IsVoice() ? 0 : m_param->m_nVideoFormat;
    entry->audioFormat = AudioFormat();
    entry->dstIp = m_request.dstIp;
    entry->dstPort = m_request.IsVoice() ? m_request.dstAudioPort : m_request.dstVideoPort;
    entry->startedMs = MonotonicMilliseconds();
    entry->media = m_media;
    entry->metadata = m_metadata;
    m_entry = std::move(entry);
    StreamLedger::Instance().Enter(m_entry);
}

int LiveStream::MakeParam(std::string& reason) {
    m_param = GuardPluginCall<CStreamParam*>(m_lens.plugin, "CreateStreamParam", m_lens.device, nullptr,
                                             [this] { return m_lens.adapter->CreateStreamParam(m_request.serviceID); });
    if (m_param == nullptr) {
        reason = "The plug-in made no stream parameters.";
        return ZVS_ALLOC_MEMORY_ERROR;
    }
    FillParam();
    return 0;
}

void LiveStream::FillParam() {
    const bool overTcp = m_request.protocol == RTP_OVER_TCP;
    m_param->m_strServiceID = m_request.serviceID;
    m_param->m_strSrcCode = m_lens.lensCode;
    m_param->m_nStreamID = static_cast<std::uint32_t>(m_request.streamType);
    m_param->m_nSrcTransProtocol = static_cast<std::uint32_t>(m_request.protocol);
    m_param->m_nDstTransProtocol = static_cast<std::uint32_t>(m_request.protocol);
    m_param->m_nDstVideoIP = m_request.dstIp;
    m_param->m_nDstVideoPort = m_request.dstVideoPort;
    m_param->m_nDstAudioIP = m_request.dstIp;
    m_param->m_nDstAudioPort = overTcp && !m_request.IsVoice() ? m_request.dstVideoPort : m_request.dstAudioPort;
    m_param->m_nBusinessType = static_cast<std::uint32_t>(m_request.service);
    m_param->m_strRecordFileName = m_request.contentID;
    m_param->m_strRecordStartTime = m_request.startTime;
    m_param->m_strRecordEndTime = m_request.endTime;
    m_param->m_strPuRecordStartTime = m_request.startTime;
    m_param->m_strPuRecordEndTime = m_request.endTime;
    if (!m_request.audio) {
        m_param->m_nDstAudioPort = 0;
    }
    m_param->m_nVedioAnalyseIP = m_request.metadata ? m_request.dstIp : 0;
    m_param->m_nVedioAnalysePort = !m_request.metadata ? 0
                                   : overTcp           ? m_request.dstVideoPort
                                                       : m_request.dstMetadataPort;
    m_param->m_nMediaTransMode = MU_MEDIA_DIRECT_TRANS;
    m_param->m_nMediaSecurityEnable = MEDIA_SECURITY_DISABLE;
}

int LiveStream::Call(const char* operation, int (*call)(LiveStream&), std::string* said) {
    return CallPlugin(
        m_lens.plugin, operation, m_lens.device, [this, call] { return call(*this); }, said);
}

int LiveStream::Negotiate(std::string& reason) {
    std::string said;
    int code = Call(
        "NegotiateStreamParam",
        [](LiveStream& self) { return self.m_lens.adapter->NegotiateStreamParam(self.m_param); }, &said);
    if (code != 0) {
        reason = Failure(code, "The plug-in refused the stream's parameters.", said).reason;
        return code;
    }
    code = Call(
        "CheckSpecialCase", [](LiveStream& self) { return self.m_lens.adapter->CheckSpecialCase(self.m_param); },
        &said);
    if (code != 0) {
        reason = Failure(code, "The plug-in refused the stream.", said).reason;
    }
    return code;
}

MediaSendParams LiveStream::SendParams() const {
    MediaSendParams params;
    params.strServiceID = m_request.serviceID;
    params.enStreamType = m_request.streamType;
    params.eProtocol = m_request.protocol;
    params.videoDstAddr.set(m_request.dstVideoPort, m_request.dstIp);
    params.strLocalIp = MediaAddress();
    params.nConnectTimeoutMs = kConnectLimitMs;
    return params;
}

int LiveStream::TakePorts(std::string& reason) {
    if (m_request.protocol != RTP_OVER_UDP || !StreamPorts::AreManaged() ||
        m_ports.Take(SendsAudio(), SendsMetadata(), *m_param)) {
        return 0;
    }
    reason = "There is no local port for the stream.";
    return ZVS_GVX_OPEN_SOCKET_ERROR;
}

int LiveStream::OpenMedia(std::string& reason) {
    MediaSendParams params = SendParams();
    if (m_request.IsVoice()) {
        params.videoDstAddr.set(m_request.dstAudioPort, m_request.dstIp);  // over UDP nothing goes there
    } else {
        params.nVideoLocalPort = m_ports.Video();
    }
    params.nAudioLocalPort = m_ports.Audio();
    params.audioDstAddr.set(m_request.audio ? m_request.dstAudioPort : std::uint16_t{0}, m_request.dstIp);
    int code = m_media->Open(params);
    if (code == 0 && SendsMetadata()) {
        code = OpenMetadata();
    }
    if (code != 0) {
        reason = "The sockets of the stream could not be opened. " + ReasonOf(code);
        if (CSocketInfoMgr::Instance()->GetFreeNum() == 0) {
            reason += " As many are in use as MAX_SOCKET_SIZE allows.";
        }
        return code;
    }
    m_gate.SetTarget(m_media.get(), SendsAudio() && m_request.service != SERVICE_TYPE_AUDIO_BROADCAST);
    const std::uint32_t source = inet_addr(SourceIp().c_str());
    m_param->m_nSrcRtpVideoIp = source;
    m_param->m_nSrcRtpVideoPort = SourceVideoPort();
    m_param->m_nSrcRtpAudioIp = source;
    m_param->m_nSrcRtpAudioPort = SourceAudioPort();
    return m_request.IsVoice() ? OpenVoice(reason) : 0;
}

// A description tells the platform where to send its sound: over TCP on the connection that it was reached by.
int LiveStream::OpenVoice(std::string& reason) {
    VoiceReceiver::Source source;
    source.ip = m_request.dstIp;
    source.port = m_request.dstAudioPort;
    source.localPort = m_ports.Video();
    source.localIp = MediaAddress();
    source.audioFormat = m_param->m_nAudioFormat;
    source.payloadType = static_cast<int>(m_param->m_nAudioPayLoadType);
    const bool overTcp = m_request.protocol == RTP_OVER_TCP;
    if (overTcp) {
        source.connection.Reset(m_media->DuplicateConnection());
        if (!source.connection.Valid()) {
            reason = "There is no descriptor to read the platform's sound by.";
            return ZVS_GVX_OPEN_SOCKET_ERROR;
        }
    }
    m_voice = std::make_unique<VoiceReceiver>();
    const int code = m_voice->Open(std::move(source));
    if (code == ZVS_GVX_DEV_UN_SUPPORT) {
        reason =
            "The lens wants sound of format " + std::to_string(m_param->m_nAudioFormat) +
            ", and a talk carries G.711 A-law (1) and mu-law (2) alone: descriptions have no words for AAC and G.726.";
        return code;
    }
    if (code != 0) {
        reason = Failure(code, "The platform's sound cannot be received.").reason;
        return code;
    }
    m_param->m_nSrcRtpVideoPort = 0;
    if (!overTcp) {
        m_param->m_nSrcRtpAudioPort = m_voice->Port();
    }
    return 0;
}

int LiveStream::OpenMetadata() {
    if (m_request.protocol == RTP_OVER_TCP) {
        m_gate.SetMetadataTarget(m_media.get());
        return 0;
    }
    MediaSendParams params = SendParams();
    params.enStreamType = STREAM_TYPE_METADATA;
    params.nVideoLocalPort = m_ports.Metadata();
    params.videoDstAddr.set(m_request.dstMetadataPort, m_request.dstIp);
    m_metadata = std::make_shared<CMediaSendStream>();
    m_gate.SetMetadataTarget(m_metadata.get());
    return m_metadata->Open(params);
}

int LiveStream::StartPlugin(std::string& reason) {
    std::string said;
    int code = m_request.IsVoice()
                   ? Call(
                         "StartVoiceStream",
                         [](LiveStream& self) {
                             return self.m_lens.adapter->StartVoiceStream(self.m_gate.UserInfo(), &StreamGate::Send,
                                                                          self.m_param);
                         },
                         &said)
                   : Call(
                         "StartStream",
                         [](LiveStream& self) {
                             return self.m_lens.adapter->StartStream(self.m_gate.UserInfo(), &StreamGate::Send,
                                                                     self.m_param, self.m_request.extension);
                         },
                         &said);
    if (code == ZVS_GVX_PLUGIN_EXCEPTION) {
        LeaveObjectsBehind();  // whether it has started a thread is not known
    }
    if (code == 0 && m_request.IsVoice() && !m_voice->Start(m_lens.plugin, m_lens.device, *m_lens.adapter)) {
        Call("StopVoiceStream", [](LiveStream& self) { return self.m_lens.adapter->StopVoiceStream(self.m_param); });
        code = ZVS_FAIL;
        said = "There is no thread for the platform's sound.";
    }
    if (code != 0) {
        reason = Failure(code, "The plug-in did not start the stream.", said).reason;
    }
    return code;
}

void LiveStream::LetFlow() {
    m_gate.Open();
}

std::string LiveStream::SessionDescription() {
    std::string sdp;
    const int code = CallPlugin(m_lens.plugin, "EncodeRspSDP", m_lens.device,
                                [this, &sdp] { return m_lens.adapter->EncodeRspSDP(m_param, sdp); });
    if (code != 0) {
        GVX_LOG_WARN_CODE("Session description", code, "The answer has none. [dev:%s, stream:%s]",
                          m_lens.device.c_str(), m_request.serviceID.c_str());
        sdp.clear();
    }
    return sdp;
}

int LiveStream::RequestKeyframe() {
    return Call("RequestKeyframe", [](LiveStream& self) { return self.m_lens.adapter->RequestKeyframe(self.m_param); });
}

Result LiveStream::Control(const STREAM_CONTROL_PARAM_S& control) {
    if (!m_request.IsRecording()) {
        return {ZVS_GVX_DEV_UN_SUPPORT, "The stream plays no recording."};
    }
    std::string said;
    const int code = CallPlugin(
        m_lens.plugin, "PlayBackStreamControl", m_lens.device,
        [this, &control] { return m_lens.adapter->PlayBackStreamControl(control, m_param); }, &said);
    if (code != 0) {
        return Failure(code, "", said);
    }
    if (m_entry != nullptr && (control.eCmd == STREAM_CONTROL_PAUSE || control.eCmd == STREAM_CONTROL_PLAY)) {
        m_entry->flowsSinceMs = control.eCmd == STREAM_CONTROL_PAUSE ? StreamEntry::kPaused : MonotonicMilliseconds();
    }
    return {};
}

int LiveStream::Stop(bool force) {
    if (m_voice != nullptr) {
        m_voice->Stop();
    }
    const int code =
        CallPlugin(m_lens.plugin, m_request.IsVoice() ? "StopVoiceStream" : "StopStream", m_lens.device, [this, force] {
            return m_request.IsVoice() ? m_lens.adapter->StopVoiceStream(m_param)
                                       : m_lens.adapter->StopStream(m_param, force);
        });
    m_running = false;
    if (code == ZVS_GVX_PLUGIN_EXCEPTION) {
        LeaveObjectsBehind();  // whether its thread has ended is not known
    }
    CloseSendPath();
    DeleteParam();
    if (m_entry != nullptr) {
        StreamLedger::Instance().Leave(m_entry);
        m_entry = nullptr;
    }
    return code;
}

// A call that is inside still uses the socket, and its thread perhaps more.
void LiveStream::CloseSendPath() {
    m_gate.Close();
    m_media->Close();
    if (m_metadata != nullptr) {
        m_metadata->Close();
    }
    if (!m_gate.WaitEmpty(kGateLimitMs)) {
        LeaveObjectsBehind();
    }
}

void LiveStream::DeleteParam() {
    if (m_param == nullptr || m_leftBehind) {
        return;
    }
    CallPlugin(m_lens.plugin, "~CStreamParam", m_lens.device, [this] {
        delete m_param;
        return 0;
    });
    m_param = nullptr;
}

void LiveStream::LeaveObjectsBehind() {
    if (m_leftBehind) {
        return;
    }
    m_leftBehind = true;
    NoteLeftBehind(m_lens.plugin, "a stream", m_lens.device);
    GVX_LOG_WARN("Stream left behind",
                 "plug-in %s: what it did with stream %s is not known, its objects are kept. [dev:%s]",
                 m_lens.plugin.c_str(), m_request.serviceID.c_str(), m_lens.device.c_str());
    m_mediaRoom.Keep(m_media);
    m_metadataRoom.Keep(m_metadata);
    m_paramRoom.Keep(m_param);
}

StreamStatistics LiveStream::Statistics() const {
    return {StatisticsOf(*m_media, m_metadata.get()), m_gate.MetadataPackets(),
            m_voice == nullptr ? 0 : m_voice->Frames()};
}

bool LiveStream::SendsAudio() const {
    return m_request.audio && m_param->m_nAudioFormat != 0 &&
           (m_request.protocol == RTP_OVER_TCP || m_request.dstAudioPort != 0);
}

std::string LiveStream::SourceIp() const {
    char text[64] = {};
    const char* address = m_media->GetVideoLocalAddr().get_host_addr(text, sizeof(text));
    if (address != nullptr && std::string(address) != kAnyAddress) {
        return address;
    }
    return CGvxConfigMgr::Instance()->GetLocalIP();
}

std::uint16_t LiveStream::SourceMetadataPort() const {
    if (!SendsMetadata()) {
        return 0;
    }
    const CMediaSendStream& sender = m_metadata != nullptr ? *m_metadata : *m_media;
    return sender.GetVideoLocalAddr().get_port_number();
}

std::uint16_t LiveStream::SourceAudioPort() const {
    return SendsAudio() ? m_media->GetAudioLocalAddr().get_port_number() : std::uint16_t{0};
}

}  // namespace gvx
