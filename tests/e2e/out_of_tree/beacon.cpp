// A camera without a device behind it: it sends a fixed number of small H.264 access units at 100 frames a second.
#include "base/zvs_error.h"
#include "gvx_common/adapter/gvx_adapter_defaults.h"
#include "gvx_common/adapter/gvx_plugin.h"
#include "gvx_common/records/stream_param.h"

#include <ace/Message_Block.h>

#include <atomic>
#include <chrono>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kFrames = 200;
constexpr unsigned kTicksPerFrame = 900;  // 90 kHz clock, 100 frames a second

class BeaconLens : public CAdapterLensDefaults {
public:
    using CAdapterLensDefaults::CAdapterLensDefaults;
    ~BeaconLens() override { Join(); }

    int NegotiateStreamParam(CStreamParam* param) override {
        param->m_nVideoFormat = VIDEO_DEC_H264;
        param->m_nVideoPayLoadType = 99;
        param->m_nAudioFormat = 0;
        return 0;
    }

    int StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool needExternData) override {
        const bool overTcp = param->m_nDstTransProtocol == RTP_OVER_TCP;
        const int channelId = static_cast<int>(param->m_nStreamID) + (overTcp ? GVX_MEDIA_CHANNEL_TCP_OFFSET : 0);
        CMediaChannel& channel = m_pMediaChannel[channelId];
        if (channel.m_pMediaBufWithRTP == nullptr) {
            channel.m_pMediaBufWithRTP = new (std::nothrow) ACE_Message_Block(GVX_MEDIA_BUF_MIN_SIZE);
        }
        channel.m_pSendStreamFunc = func;
        m_stop = false;
        m_thread = std::thread([=] { Send(userInfo, channelId, overTcp, needExternData); });
        return 0;
    }

    int StopStream(CStreamParam*, bool) override {
        Join();
        return 0;
    }

private:
    void Send(void* userInfo, int channelId, bool overTcp, bool needExternData) {
        std::vector<unsigned char> frame = {0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x68, 0xce, 0, 0, 0, 1, 0x65};
        frame.resize(4000, 0x5a);
        for (int i = 0; i < kFrames && !m_stop; ++i) {
            MEDIA_DATA data{};
            data.pUserInfo = userInfo;
            data.nVideoSize = static_cast<std::uint32_t>(frame.size());
            data.FrameType = FRAME_I;
            data.eVideoFormatType = VIDEO_DEC_H264;
            data.nTimeTick = kTicksPerFrame;
            if (H264ToRtp(frame.data(), static_cast<int>(frame.size()), data, channelId, overTcp, needExternData, 0,
                          0, false) == ZVS_GVX_OPEN_SOCKET_ERROR) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    void Join() {
        m_stop = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

class BeaconDevice : public CAdapterDevDefaults {
public:
    int Init() override { return 0; }
    int GetDeviceAbility(GVX_DEVICE_ABILITY_INFO& ability) override {
        GVX_CHANNEL_ABILITY_INFO channel;
        channel.nVideoFormat = VIDEO_DEC_H264;
        ability.channels.push_back(channel);
        return 0;
    }
    int CreateLens(const char* lensId, const short& channel, CAdapterDevBase*& parent,
                   CAdapterLensBase*& lens) override {
        lens = new (std::nothrow) BeaconLens(lensId, channel, *parent);
        return lens == nullptr ? ZVS_ALLOC_MEMORY_ERROR : 0;
    }
};

class BeaconSdk : public CAdapterSdkBase {
public:
    bool Init(const char*) override { return true; }
    int CreateDevice(const MainDeviceInfo&, CAdapterDevBase*& device) override {
        device = new (std::nothrow) BeaconDevice();
        return device == nullptr ? ZVS_ALLOC_MEMORY_ERROR : 0;
    }
};

}  // namespace

const GvxPluginDescription* GvxDescribePlugin() {
    static const GvxPluginDescription description = {GVX_PLUGIN_ABI_VERSION, "beacon", "1.0", "example"};
    return &description;
}

CAdapterSdkBase* GvxCreateAdapter() {
    return new (std::nothrow) BeaconSdk();
}

void GvxDestroyAdapter(CAdapterSdkBase* adapter) {
    delete adapter;
}
