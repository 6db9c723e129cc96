#include "lens.h"

#include "test_picture.h"

#include <base/zvs_error.h>
#include <gvx_common/records/stream_param.h>

#include <ace/Message_Block.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

namespace gvx_plugin_@IDENT@ {

namespace {

constexpr int kNoChannel = -1;
constexpr std::uint32_t kVideoClock = 90000;  // ticks a second of video, RFC 6184, section 8.2.1
constexpr std::uint32_t kH264Payload = 99;

// The channel of a stream; kNoChannel for a type that a live lens does not have.
int ChannelOf(const CStreamParam& param) {
    if (param.m_nStreamID >= STREAM_TYPE_REAL_MAX) {
        return kNoChannel;
    }
    const int type = static_cast<int>(param.m_nStreamID);
    return param.m_nDstTransProtocol == RTP_OVER_TCP ? type + GVX_MEDIA_CHANNEL_TCP_OFFSET : type;
}

}  // namespace

// Step 7: what the device sends. Here it is a test picture, from a thread that the stream owns. With a device of your
// own its callback or your receiver takes the place of the thread; what stays is SendFrame, called by one thread at a
// time, and a destructor that returns only when no call of SendFrame runs any more.
class Stream {
public:
    Stream(CAdapterLensBase& lens, int channel, bool extension, void* userInfo)
        : m_lens(lens),
          m_channel(channel),
          m_extension(extension),
          m_userInfo(userInfo),
          m_thread([this] { Run(); }) {}
    ~Stream() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
        }
        m_wake.notify_all();
        m_thread.join();
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

private:
    void Run() {
        const auto period = std::chrono::microseconds(1000000 / TestPicture::kFramesPerSecond);
        auto due = std::chrono::steady_clock::now();
        TestPicture picture;
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_stop) {
            lock.unlock();
            if (!SendFrame(picture.NextFrame())) {
                return;
            }
            due += period;
            lock.lock();
            m_wake.wait_until(lock, due, [this] { return m_stop; });
        }
    }

    // A frame is one picture with all its NAL units, each behind a start code of four bytes. False when the stream is
    // gone: send no more and wait for StopStream.
    bool SendFrame(std::vector<unsigned char> frame) {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
        MEDIA_DATA data{};
        data.pUserInfo = m_userInfo;
        data.nVideoSize = static_cast<std::uint32_t>(frame.size());
        data.FrameType = FRAME_I;  // FRAME_BP for a picture at which decoding cannot begin
        data.eVideoFormatType = VIDEO_DEC_H264;
        data.nTimeTick = kVideoClock / TestPicture::kFramesPerSecond;  // since the frame before
        data.nWidth = TestPicture::kWidth;
        data.nHeight = TestPicture::kHeight;
        data.nUtcSecond = static_cast<std::time_t>(milliseconds / 1000);
        data.nUtcMillsec = static_cast<std::uint16_t>(milliseconds % 1000);
        const bool overTcp = m_channel >= GVX_MEDIA_CHANNEL_TCP_OFFSET;
        return m_lens.H264ToRtp(frame.data(), static_cast<int>(frame.size()), data, m_channel, overTcp, m_extension,
                                data.nUtcMillsec, static_cast<unsigned int>(data.nUtcSecond),
                                false) != ZVS_GVX_OPEN_SOCKET_ERROR;
    }

    CAdapterLensBase& m_lens;
    const int m_channel;
    const bool m_extension;
    void* const m_userInfo;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;   // guarded by m_mutex
    std::thread m_thread;  // last: it uses all of the above
};

Lens::Lens(const char* lensId, short channel, CAdapterDevBase& parent)
    : CAdapterLensDefaults(lensId, channel, parent) {}

// The streams end while the channels still stand.
Lens::~Lens() = default;

// Step 6: say what the stream will carry. An audio format of 0 means that there is no audio; with audio, fill in
// m_nAudioPayLoadType as well.
int Lens::NegotiateStreamParam(CStreamParam* param) {
    if (param == nullptr) {
        return ZVS_NULL_POINTER;
    }
    param->m_nVideoFormat = VIDEO_DEC_H264;
    param->m_nVideoPayLoadType = kH264Payload;
    param->m_nAudioFormat = 0;
    param->m_nVedioAnalysePort = 0;  // no metadata
    return ZVS_SUCCEED;
}

int Lens::StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool needExternData) {
    if (func == nullptr || param == nullptr) {
        return ZVS_NULL_POINTER;
    }
    const int channelID = ChannelOf(*param);
    CMediaChannel* channel = getMidiaChannel(channelID);
    if (channel == nullptr) {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    if (m_streams.count(channelID) != 0) {
        return ZVS_GVX_STREAM_EXIST;
    }
    if (channel->m_pMediaBufWithRTP == nullptr) {  // the channel keeps it, for the next stream too
        channel->m_pMediaBufWithRTP = new (std::nothrow) ACE_Message_Block(GVX_MEDIA_BUF_MIN_SIZE);
    }
    channel->m_pSendStreamFunc = func;
    m_streams[channelID] = std::make_unique<Stream>(*this, channelID, needExternData, userInfo);
    return ZVS_SUCCEED;
}

// When it returns, nothing is sent for the stream any more: the destructor of Stream waits for its thread.
int Lens::StopStream(CStreamParam* param, bool /*force*/) {
    if (param == nullptr) {
        return ZVS_NULL_POINTER;
    }
    return m_streams.erase(ChannelOf(*param)) == 1 ? ZVS_SUCCEED : ZVS_GVX_STREAM_NOT_EXIST;
}

// Step 8: ask the device for a key frame. Every test picture is one.
int Lens::RequestKeyframe(CStreamParam* param) {
    if (param == nullptr) {
        return ZVS_NULL_POINTER;
    }
    return m_streams.count(ChannelOf(*param)) == 1 ? ZVS_SUCCEED : ZVS_GVX_STREAM_NOT_EXIST;
}

}  // namespace gvx_plugin_@IDENT@
