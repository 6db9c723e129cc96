#include "gvx_common/adapter/gvx_adapter_defaults.h"
#include "gvx_common/adapter/gvx_plugin.h"
#include "gvx_common/records/stream_param.h"

#include <ace/Message_Block.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

// A camera that streams, and breaks the one promise that the build names.

namespace {

constexpr std::uint32_t kTicks = 900;
constexpr std::chrono::milliseconds kPeriod(10);

struct LatePacket {
    void* userInfo = nullptr;
    SEND_STREAM_FUNC* func = nullptr;
};
LatePacket g_late;

class Sender {
public:
    Sender(CAdapterLensBase& lens, int channel, void* userInfo)
        : m_thread([this, &lens, channel, userInfo] { Run(lens, channel, userInfo); }) {}
    ~Sender() {
        m_stop = true;
        m_thread.join();
    }

private:
    void Run(CAdapterLensBase& lens, int channel, void* userInfo) const {
        std::vector<unsigned char> frame = {0, 0,    0,    1, 0x67, 0x42, 0, 0x0A, 0xF8, 0x41, 0xA2, 0,    0,   0,
                                            1, 0x68, 0xCE, 0, 0,    0,    1, 0x65, 0x88, 0x84, 0x21, 0x33, 0xFF};
#ifdef BREAKS_START_CODES
        frame.assign(40, 0x65);
#endif
        for (unsigned number = 0; !m_stop; ++number) {
            MEDIA_DATA data{};
            data.pUserInfo = userInfo;
            data.nVideoSize = static_cast<std::uint32_t>(frame.size());
            data.FrameType = FRAME_I;
            data.eVideoFormatType = VIDEO_DEC_H264;
            data.nTimeTick = kTicks;
#ifdef BREAKS_TIME
            data.nTimeTick = number % 5 == 4 ? ~kTicks : kTicks;
#endif
            lens.H264ToRtp(frame.data(), static_cast<int>(frame.size()), data, channel,
                           channel >= GVX_MEDIA_CHANNEL_TCP_OFFSET, false, 0, 0, false);
            std::this_thread::sleep_for(kPeriod);
        }
    }

    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

class PromiseLens : public CAdapterLensDefaults {
public:
    using CAdapterLensDefaults::CAdapterLensDefaults;

    int NegotiateStreamParam(CStreamParam* param) override {
        if (param == nullptr) {
            return ZVS_NULL_POINTER;
        }
        param->m_nVideoPayLoadType = 99;
        param->m_nAudioFormat = 0;
        return ZVS_SUCCEED;
    }
    int StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool) override {
        CMediaChannel* channel = func == nullptr || param == nullptr ? nullptr : getMidiaChannel(ChannelOf(*param));
        if (channel == nullptr || m_senders.count(ChannelOf(*param)) != 0) {
            return ZVS_PARA_INVALID;
        }
        if (channel->m_pMediaBufWithRTP == nullptr) {
            channel->m_pMediaBufWithRTP = new (std::nothrow) ACE_Message_Block(GVX_MEDIA_BUF_MIN_SIZE);
        }
        channel->m_pSendStreamFunc = func;
        g_late = {userInfo, func};
        m_senders[ChannelOf(*param)] = std::make_unique<Sender>(*this, ChannelOf(*param), userInfo);
        return ZVS_SUCCEED;
    }
    int StopStream(CStreamParam* param, bool) override {
        return param != nullptr && m_senders.erase(ChannelOf(*param)) == 1 ? ZVS_SUCCEED : ZVS_GVX_STREAM_NOT_EXIST;
    }
    int RequestKeyframe(CStreamParam* param) override {
#ifdef BREAKS_LIMIT
        static std::atomic<bool> slept{false};
        if (!slept.exchange(true)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(BREAKS_LIMIT));
        }
#endif
        return param == nullptr ? ZVS_NULL_POINTER : ZVS_SUCCEED;
    }

private:
    static int ChannelOf(const CStreamParam& param) {
        return static_cast<int>(param.m_nStreamID) +
               (param.m_nDstTransProtocol == RTP_OVER_TCP ? GVX_MEDIA_CHANNEL_TCP_OFFSET : 0);
    }

    std::map<int, std::unique_ptr<Sender>> m_senders;
};

class PromiseDevice : public CAdapterDevDefaults {
public:
    int Init() override { return ZVS_SUCCEED; }
    int CreateLens(const char* id, const short& channel, CAdapterDevBase*& parent, CAdapterLensBase*& lens) override {
        lens = channel == 0 ? new (std::nothrow) PromiseLens(id, channel, *parent) : nullptr;
        return lens != nullptr ? ZVS_SUCCEED : ZVS_GVX_LENS_NOT_EXIST;
    }
#ifdef BREAKS_DELETION
    ~PromiseDevice() override {
        std::thread([late = g_late] {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            char packet[20] = {static_cast<char>(0x80), 99};
            MEDIA_DATA data{};
            data.pUserInfo = late.userInfo;
            data.pDataBuf = packet;
            data.nVideoSize = sizeof(packet);
            STREAM_TYPE_EX type = STREAM_TYPE_REAL_MAIN;
            static std::mutex oneAtATime;  // two at once would break another promise, too
            const std::lock_guard<std::mutex> lock(oneAtATime);
            late.func(&data, &type);
        }).detach();
    }
#endif
};

class PromiseSdk : public CAdapterSdkBase {
public:
    bool Init(const char*) override { return true; }
    int CreateDevice(const MainDeviceInfo&, CAdapterDevBase*& device) override {
        device = new (std::nothrow) PromiseDevice;
        return ZVS_SUCCEED;
    }
};

}  // namespace

const GvxPluginDescription* GvxDescribePlugin() {
    static const GvxPluginDescription description{GVX_PLUGIN_ABI_VERSION, BAD_PLUGIN_NAME, "1", "tests"};
    return &description;
}

CAdapterSdkBase* GvxCreateAdapter() {
    return new (std::nothrow) PromiseSdk;
}

void GvxDestroyAdapter(CAdapterSdkBase* adapter) {
    delete adapter;
}
