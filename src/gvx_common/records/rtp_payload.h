#pragma once

#include <cstddef>

// Numbers of the RTP packets that leave the gateway, and of what stands ahead of them on a TCP connection.

namespace gvx {

// Payload types (RFC 3551, section 6; those from 96 on are this platform's own).
constexpr unsigned char kPayloadG711U = 0;
constexpr unsigned char kPayloadG711A = 8;
constexpr unsigned char kPayloadMjpeg = 26;
constexpr unsigned char kPayloadH264 = 99;
constexpr unsigned char kPayloadMetadata = 107;
constexpr unsigned char kPayloadH265 = 108;
constexpr unsigned char kPayloadPrivate = 109;  // frames of a maker's own format, VIDEO_DEC_HIK

// Bytes of an interleave head: '$', the channel, and the length of the packet behind it in network order (RFC 2326,
// section 10.12).
constexpr std::size_t kInterleaveLen = 4;
constexpr char kInterleaveVideo = 0;
constexpr char kInterleaveAudio = 2;
constexpr char kInterleaveMetadata = 4;

}  // namespace gvx
