#pragma once

#include "gvx_common/codec/parameter_sets.h"
#include "gvx_common/records/media_types.h"
#include "gvx_common/rtp/common_rtp_receiver.h"
#include "rtsp/aac_frame_head.h"

#include <cstdint>
#include <string>
#include <vector>

namespace gvxrtsp {

// One media of a camera's stream that this gateway can take.
struct TrackDescription {
    bool video = false;
    enRtpCodec codec = RTP_CODEC_H264;
    bool aLaw = false;    // of G.711
    int payloadType = 0;  // in the camera's RTP heads
    std::uint32_t clockRate = 90000;
    std::string url;           // what SETUP names
    bool pictureLoss = false;  // "nack pli" was offered (RFC 4585, section 4.2)
    gvx::AacFormat aac;
    AacFrameHead aacHead;                    // of AAC
    std::vector<std::string> parameterSets;  // NAL units of the description, without start codes

    // The same in the words of the platform and of the parsers.
    ZVS_VIDEO_DEC_TYPE VideoFormat() const { return codec == RTP_CODEC_H265 ? VIDEO_DEC_H265 : VIDEO_DEC_H264; }
    AUDIO_FORMAT_TYPE AudioFormat() const;
    gvx::Codec VideoCodec() const { return codec == RTP_CODEC_H265 ? gvx::Codec::H265 : gvx::Codec::H264; }
};

// What DESCRIBE told of a stream.
struct StreamDescription {
    std::vector<TrackDescription> tracks;  // at most one video and one audio, the video first
    std::string leftOut;                   // why the sound that is offered is not among them; else empty

    const TrackDescription* Video() const { return tracks.empty() || !tracks[0].video ? nullptr : &tracks[0]; }
    const TrackDescription* Audio() const { return tracks.empty() || tracks.back().video ? nullptr : &tracks.back(); }
};

// Reads a description (RFC 4566; RFC 6184, RFC 7798 and RFC 3640 for the formats). base is the URL below which relative
// control paths stand (RFC 2326, section C.1.1). False with one sentence in error when there is no video that this
// gateway can take.
bool ReadDescription(const std::string& text, const std::string& base, StreamDescription& description,
                     std::string& error);

}  // namespace gvxrtsp
