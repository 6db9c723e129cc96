#pragma once

#include <cstdint>
#include <ctime>

// Types that pass between a plug-in, the lens base and the send function of a stream.

enum _STREAM_TYPE_EX : int {
    STREAM_TYPE_UN_SET = -1,
    STREAM_TYPE_REAL_MAIN = 0,
    STREAM_TYPE_REAL_SUB1 = 1,
    STREAM_TYPE_REAL_SUB2 = 2,
    STREAM_TYPE_REAL_MAX = 3,
    STREAM_AUDIO_TALKBACK = 4,
    STREAM_TYPE_PLAYBACK1 = 5,
    STREAM_TYPE_PLAYBACK2 = 6,
    STREAM_TYPE_PLAYBACK3 = 7,
    STREAM_TYPE_PLAYBACK4 = 8,
    STREAM_TYPE_METADATA = 9,
    STREAM_AUDIO_BROADCAST = 10,
    STREAM_TYPE_BUTT = 11,
};
using STREAM_TYPE_EX = _STREAM_TYPE_EX;

enum _TRANS_PROTOCOL : int {
    RTP_OVER_UDP = 1,
    RTP_OVER_TCP = 2,
    UDP = 3,
    TCP = 4,
    TRANS_PROTOCOL_BUTS = 5,  // none; an idle record
};
using TRANS_PROTOCOL = _TRANS_PROTOCOL;

enum ZVS_VIDEO_DEC_TYPE : int {
    VIDEO_DEC_H264 = 1,
    VIDEO_DEC_MJPEG = 2,
    VIDEO_DEC_MPEG4 = 3,
    VIDEO_DEC_MPEG2 = 4,
    VIDEO_DEC_AVS = 5,
    VIDEO_DEC_H265 = 6,
    VIDEO_DEC_SVAC = 7,
    VIDEO_DEC_INIT = 8,
    VIDEO_DEC_HIK = 9,
};

enum AUDIO_FORMAT_TYPE : int {
    GVX_AUDIO_FORMAT_G711A = 1,
    GVX_AUDIO_FORMAT_G711U = 2,
    AUDIO_FORMAT_G726 = 3,
    GVX_AUDIO_FORMAT_AAC = 4,
    AUDIO_FORMAT_BUTS = 5,
};

enum FRAME_TYPE_I : int {
    FRAME_BP = 0,
    FRAME_I = 1,
};

enum _METADATE_TYPE : int {
    METADATE_TYPE_FACE = 0,
    METADATE_TYPE_PLATE = 1,
    METADATA_TYPE_HEART_BEAT = 2,
    METADATE_TYPE_BUT = 3,
};

// One frame on its way in, one packet on its way out. A plug-in fills it for a frame; the lens base then reuses the
// same record for each packet of that frame, so sizes and pDataBuf change during the call. Without padding.
#pragma pack(push, 1)
struct _MEDIA_DATA {
    void* pUserInfo;                      // opaque; belongs to the plug-in and the send function
    void* pDataBuf;                       // out: start of the packet; valid only during the send function
    std::uint32_t nVideoSize;             // in: non-zero marks a video frame, its bytes. Out: bytes of the packet
    std::uint16_t nAudioSize;             // the same for audio; used only while nVideoSize is 0
    std::uint16_t nMetaDataSize;          // bytes of a metadata packet
    std::uint16_t nHeight;                // picture size in pixels
    std::uint16_t nWidth;
    FRAME_TYPE_I FrameType;
    ZVS_VIDEO_DEC_TYPE eVideoFormatType;  // selects the RTP payload type of video
    AUDIO_FORMAT_TYPE eAudioFormatType;   // selects the RTP payload type of audio
    std::time_t nUtcSecond;               // frame time
    std::uint16_t nUtcMillsec;
    std::uint32_t nTimeTick;              // RTP clock ticks since the previous frame of the channel
    TRANS_PROTOCOL eTransProtocol;        // out: RTP_OVER_UDP, or RTP_OVER_TCP with four bytes of interleave
};
#pragma pack(pop)
using MEDIA_DATA = _MEDIA_DATA;

static_assert(sizeof(_MEDIA_DATA) == 58, "the record between plug-in and core has no padding");

// The function that takes each packet of a channel. It must copy what it wants to keep. ZVS_GVX_OPEN_SOCKET_ERROR
// stops the frame; every other result is ignored.
using SEND_STREAM_FUNC = int(MEDIA_DATA*, STREAM_TYPE_EX*);
