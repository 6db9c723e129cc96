#pragma once

#include "gateway/plugins/plugin_guard.h"
#include "gateway/streams/stream_gate.h"
#include "gateway/streams/stream_ledger.h"
#include "gateway/streams/stream_ports.h"
#include "gateway/streams/stream_request.h"
#include "gateway/streams/voice_receiver.h"
#include "gvx_common/media/media_send_stream.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "gvx_common/records/stream_param.h"

#include <cstdint>
#include <memory>
#include <string>

class CAdapterLensBase;

namespace gvx {

// A lens as a stream needs to know it. The adapter outlives the stream.
struct StreamLens {
    std::string plugin;
    std::string device;
    std::string lensCode;
    CAdapterLensBase* adapter = nullptr;
};

// What a stream has sent. Dropped packets and bytes are those of all its media.
struct StreamStatistics : MediaSendStatistics {
    std::uint64_t metadataPackets = 0;
    std::uint64_t voiceFrames = 0;  // of the platform, handed to the lens
};

// One stream of a lens, from its parameters to its socket: live, of a recording, or a talk or broadcast, for which the
// platform's sound comes in as well. Used on the thread of the device's reactor alone.
class LiveStream {
public:
    LiveStream(StreamLens lens, StreamRequest request);
    // Stops the stream when it still runs.
    ~LiveStream();
    LiveStream(const LiveStream&) = delete;
    LiveStream& operator=(const LiveStream&) = delete;

    // Takes every step in order and undoes them in reverse when one fails: parameters made, filled and negotiated,
    // special case checked, ports taken, sockets opened, the plug-in started. No media leaves before LetFlow. 0, or the
    // code of the step that failed, with a sentence for the sender.
    int Start(std::string& reason);
    // The answer has left: media may follow.
    void LetFlow();
    // How the lens describes the running stream to the platform; empty with a log line when it does not.
    std::string SessionDescription();
    int RequestKeyframe();
    // What the platform wants of a stream that plays a recording; ZVS_GVX_DEV_UN_SUPPORT for any other.
    Result Control(const STREAM_CONTROL_PARAM_S& control);
    // Stops the plug-in, closes the sockets, deletes the parameters. The plug-in's answer, which tells about the device
    // alone: a plug-in that returns from StopStream calls the send function no more. IsLeftBehind is true when it threw
    // instead, or a call is still inside the send function.
    int Stop(bool force);

    // The plug-in may still use the stream's objects: they must not be deleted.
    bool IsLeftBehind() const { return m_leftBehind; }

    const StreamRequest& Request() const { return m_request; }
    const StreamLens& Lens() const { return m_lens; }
    StreamStatistics Statistics() const;

    // What was negotiated; valid between Start and Stop.
    std::uint32_t VideoFormat() const { return m_param->m_nVideoFormat; }
    std::uint32_t VideoPayload() const { return m_param->m_nVideoPayLoadType; }
    std::uint32_t AudioFormat() const { return SendsAudio() ? m_param->m_nAudioFormat : 0; }
    std::uint32_t AudioPayload() const { return m_param->m_nAudioPayLoadType; }
    bool SendsMetadata() const { return m_request.metadata && m_param->m_nVedioAnalysePort != 0; }
    std::string SourceIp() const;
    std::uint16_t SourceVideoPort() const { return m_media->GetVideoLocalAddr().get_port_number(); }
    std::uint16_t SourceAudioPort() const;
    std::uint16_t SourceMetadataPort() const;
    // Where the platform's sound is waited for; 0 where none is.
    std::uint16_t VoicePort() const { return m_voice == nullptr ? std::uint16_t{0} : m_voice->Port(); }

private:
    bool SendsAudio() const;
    int MakeParam(std::string& reason);
    void FillParam();
    int Negotiate(std::string& reason);
    int TakePorts(std::string& reason);
    int OpenMedia(std::string& reason);
    int OpenMetadata();
    int OpenVoice(std::string& reason);
    MediaSendParams SendParams() const;
    int StartPlugin(std::string& reason);
    int Call(const char* operation, int (*call)(LiveStream&), std::string* said = nullptr);
    void EnterLedger();
    void CloseSendPath();
    void DeleteParam();
    void LeaveObjectsBehind();

    const StreamLens m_lens;
    const StreamRequest m_request;
    CStreamParam* m_param = nullptr;  // made by the plug-in, owned here
    std::shared_ptr<CMediaSendStream> m_media = std::make_shared<CMediaSendStream>();
    // Over UDP metadata has sockets of its own; over TCP it leaves on the connection of the video.
    std::shared_ptr<CMediaSendStream> m_metadata;
    StreamPorts m_ports;
    StreamGate m_gate{m_lens.plugin, m_lens.device};
    std::unique_ptr<VoiceReceiver> m_voice;  // of a talk or a broadcast alone
    std::shared_ptr<StreamEntry> m_entry;    // in the ledger while the stream runs
    bool m_running = false;
    bool m_leftBehind = false;
    LeaveRoom m_mediaRoom;
    LeaveRoom m_metadataRoom;
    LeaveRoom m_paramRoom;
};

}  // namespace gvx
