#include "gateway/streams/voice_receiver.h"

#include "base/log.h"
#include "base/zvs_error.h"
#include "bp/message_block_ptr.h"
#include "gateway/plugins/plugin_guard.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/records/media_types.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

namespace gvx {

namespace {

constexpr int kPollMs = 200;
constexpr std::uint32_t kG711ClockRate = 8000;
constexpr std::uint8_t kSoundChannel = 2;  // of sound on a connection, both ways; the next one is RTCP's

}  // namespace

int VoiceReceiver::Open(Source source) {
    if (source.audioFormat != GVX_AUDIO_FORMAT_G711A && source.audioFormat != GVX_AUDIO_FORMAT_G711U) {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    RtpReceiverParams params;
    params.codec = RTP_CODEC_G711;
    params.iPayloadType = source.payloadType;
    params.endpoint.strLocalIp = source.localIp;
    params.endpoint.usLocalPort = source.localPort;
    params.endpoint.strRemoteIp = CGvxUtility::convertNum2Ipv4(source.ip);
    params.endpoint.usRemotePort = source.port;
    params.endpoint.uiClockRate = kG711ClockRate;
    if (source.connection.Valid()) {
        m_connection = std::move(source.connection);
        m_reader =
            std::make_unique<RtpInterleaveReader>([this](std::uint8_t channel, const std::uint8_t* data,
                                                         std::size_t size) { TakeInterleaved(channel, data, size); },
                                                  RtpInterleaveReader::TextSink());
        // No reports go back: what leaves by the connection is for the threads of transmission alone.
        params.endpoint.interleavedSend = [](enRtpFlow, const std::uint8_t*, std::size_t) { return true; };
    }
    return m_receiver.Open(params);
}

void VoiceReceiver::TakeInterleaved(std::uint8_t channel, const std::uint8_t* data, std::size_t size) {
    if (channel == kSoundChannel) {
        m_receiver.Push(data, size);
    } else if (channel == kSoundChannel + 1) {
        m_receiver.PushControl(data, size);
    }
}

bool VoiceReceiver::Start(const std::string& plugin, const std::string& device, CAdapterLensBase& lens) {
    m_plugin = plugin;
    m_device = device;
    m_lens = &lens;
    if (!m_connection.Valid() && m_poller.Add(m_receiver) != 0) {
        return false;
    }
    try {
        m_thread = std::thread(m_connection.Valid() ? &VoiceReceiver::RunConnection : &VoiceReceiver::Run, this);
    } catch (const std::system_error& fault) {
        GVX_LOG_ERR("Voice", "There is no thread: %s. [dev:%s]", fault.what(), device.c_str());
        m_poller.Remove(m_receiver);
        return false;
    }
    CGvxUtility::pthreadSetThreadname(m_thread.native_handle(), "VoiceReceive");
    return true;
}

void VoiceReceiver::Stop() {
    if (m_thread.joinable()) {
        m_stop = true;
        m_poller.Wake();
        ::shutdown(m_connection.Get(), SHUT_RD);  // wakes the reader; nothing happens without a connection
        m_thread.join();
        m_poller.Remove(m_receiver);
    }
    m_receiver.Close();
    m_connection.Reset();
}

void VoiceReceiver::Run() {
    while (!m_stop) {
        if (m_poller.Poll(kPollMs) < 0) {
            GVX_LOG_ERR("Voice", "The platform's sound cannot be waited for. [dev:%s]", m_device.c_str());
            return;
        }
    }
}

void VoiceReceiver::RunConnection() {
    while (!m_stop) {
        pollfd waited{m_connection.Get(), POLLIN, 0};
        const int ready = ::poll(&waited, 1, std::min(kPollMs, m_receiver.OnTimer()));
        const int result = ready <= 0 || m_stop ? 0 : m_reader->Receive(m_connection.Get());
        if ((ready < 0 && errno != EINTR) || result != 0) {
            GVX_LOG_WARN("Voice", "The platform's sound ends: %s. [dev:%s]",
                         result > 0 ? "it has closed the connection" : "the connection is of no more use",
                         m_device.c_str());
            return;
        }
    }
}

void VoiceReceiver::OnAccessUnit(const RtpAccessUnit& unit) {
    BP::MessageBlockPtr block = unit.size == 0 || m_stop ? nullptr : BP::MakeMessageBlock(unit.size);
    if (block == nullptr) {
        return;
    }
    std::memcpy(block->wr_ptr(), unit.data, unit.size);
    block->wr_ptr(unit.size);
    ++m_frames;
    CallPlugin(m_plugin, "EnqueueAudioData", m_device, [this, &block] {
        m_lens->EnqueueAudioData(block.release());
        return 0;
    });
}

}  // namespace gvx
