#pragma once

#include "gvx_common/records/media_types.h"
#include "gvx_common/rtp/gvx_rtp_packet.h"
#include "gvx_common/rtp/media_channel.h"

#include <cstddef>

namespace gvx {

// Builds the packets of one frame in the channel's buffer and hands each to the channel's send function. The head is
// built once and patched for each packet; nothing is allocated. Made for one call on the thread of the lens's stream.
class FramePacker {
public:
    // The channel has a send function. media says by nVideoSize, else nAudioSize, what the frame is, and is overwritten
    // packet by packet.
    FramePacker(CMediaChannel& channel, MEDIA_DATA& media, int channelID, bool overTcp)
        : m_channel(channel), m_media(media), m_channelID(channelID), m_overTcp(overTcp) {}

    // Before the first unit. Moves the channel's timestamp on.
    void BuildHead(bool extension, unsigned short millisecond, unsigned int second);

    // Sends a NAL unit, which is only read, whole or in fragments (RFC 6184, 5.8; RFC 7798, 4.4.3). 0, also for one
    // that found no usable packet buffer; ZVS_GVX_OPEN_SOCKET_ERROR when the send function returned that; 1 for a frame
    // that is neither video nor audio. A nonzero result ends the frame.
    // What is not H.265, audio and private formats included, is cut as H.264 is.
    int SendUnit(const char* unit, std::size_t size);

private:
    int SendWhole(const char* unit, std::size_t size);
    template <typename Fragment>
    int SendFragments(const char* unit, std::size_t size);
    void PatchHead(bool marker);
    bool BeginPacket(bool marker, std::size_t payloadRoom);
    int FinishPacket();
    void PutBytes(const char* bytes, std::size_t size);

    CMediaChannel& m_channel;
    MEDIA_DATA& m_media;
    const int m_channelID;
    const bool m_overTcp;
    char m_head[GVX_RTP_EXTENDED_HEAD_LEN] = {};
    CRtpPacket m_packet;
    unsigned short* m_pSeqNo = nullptr;
    unsigned char m_payloadType = 0;
    std::size_t m_headLen = 0;
    char* m_pInterleave = nullptr;  // start of the packet that is being built
    char* m_pWrite = nullptr;       // its end
};

}  // namespace gvx
