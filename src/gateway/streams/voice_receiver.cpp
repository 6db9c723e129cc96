#include "gateway/streams/voice_receiver.h"

#include "base/log.h"
#include "base/zvs_error.h"
#include "bp/message_block_ptr.h"
#include "gateway/plugins/plugin_guard.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/records/media_types.h"
#include "gvx_common/utility/gvx_utility.h"

#include <cstring>
#include <system_error>

#include <pthread.h>

namespace gvx {

namespace {

constexpr int kPollMs = 200;
constexpr std::uint32_t kG711ClockRate = 8000;

}  // namespace

int VoiceReceiver::Open(const Source& source) {
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
    return m_receiver.Open(params);
}

bool VoiceReceiver::Start(const std::string& plugin, const std::string& device, CAdapterLensBase& lens) {
    m_plugin = plugin;
    m_device = device;
    m_lens = &lens;
    if (m_poller.Add(m_receiver) != 0) {
        return false;
    }
    try {
        m_thread = std::thread(&VoiceReceiver::Run, this);
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
        m_thread.join();
        m_poller.Remove(m_receiver);
    }
    m_receiver.Close();
}

void VoiceReceiver::Run() {
    while (!m_stop) {
        if (m_poller.Poll(kPollMs) < 0) {
            GVX_LOG_ERR("Voice", "The platform's sound cannot be waited for. [dev:%s]", m_device.c_str());
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
