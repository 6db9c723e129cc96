#pragma once

#include "base/unique_fd.h"
#include "gvx_common/rtp/common_rtp_receiver.h"
#include "gvx_common/rtp/rtp_interleave.h"
#include "gvx_common/rtp/rtp_poller.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

class CAdapterLensBase;

namespace gvx {

// The platform's sound of a talk or a broadcast: received as RTP over UDP, or interleaved on the TCP connection that
// the lens's sound leaves by (channel 2), and handed to the lens, frame by frame, on a thread of its own. Open, Start
// and Stop are for one thread.
class VoiceReceiver : private IRtpReceiverSink {
public:
    struct Source {
        std::uint32_t ip = 0;           // from which alone sound is taken, host order
        std::uint16_t port = 0;         // that reports go to, the next one of it
        std::uint16_t localPort = 0;    // even; 0: any
        std::string localIp;            // empty: GVX_MEDIA_IP
        std::uint32_t audioFormat = 0;  // an AUDIO_FORMAT_TYPE
        int payloadType = -1;
        UniqueFd connection;  // over TCP: a descriptor of the connection; addresses and ports do not count then
    };

    VoiceReceiver() = default;
    ~VoiceReceiver() override { Stop(); }
    VoiceReceiver(const VoiceReceiver&) = delete;
    VoiceReceiver& operator=(const VoiceReceiver&) = delete;

    // Opens the sockets. 0; ZVS_GVX_DEV_UN_SUPPORT for a format that is not received; else as CCommonRtpReceiver.
    int Open(Source source);
    // From now on each frame goes to EnqueueAudioData of the lens, which outlives this. False when there is no thread.
    bool Start(const std::string& plugin, const std::string& device, CAdapterLensBase& lens);
    // When it returns, no frame is handed over any more. May be called again.
    void Stop();

    // 0 over TCP.
    std::uint16_t Port() const { return m_receiver.GetPort(); }
    std::uint64_t Frames() const { return m_frames; }

private:
    void Run();
    void RunConnection();
    void TakeInterleaved(std::uint8_t channel, const std::uint8_t* data, std::size_t size);
    void OnAccessUnit(const RtpAccessUnit& unit) override;

    CCommonRtpReceiver m_receiver{*this};
    RtpPoller m_poller{0};
    UniqueFd m_connection;  // over TCP alone, as is the next
    std::unique_ptr<RtpInterleaveReader> m_reader;
    std::string m_plugin;
    std::string m_device;
    CAdapterLensBase* m_lens = nullptr;  // not owned
    std::atomic<bool> m_stop{false};
    std::atomic<std::uint64_t> m_frames{0};
    std::thread m_thread;
};

}  // namespace gvx
