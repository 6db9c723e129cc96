#pragma once

#include "gvx_common/records/media_types.h"
#include "gvx_common/records/rtp_payload.h"
#include "gvx_common/rtp/ps2es_parse.h"

#include <cstddef>
#include <list>

class ACE_Message_Block;

// Channels of one lens: one for each stream type over UDP, then one for each over TCP.
constexpr int GVX_MEDIA_CHANNEL_TCP_OFFSET = 11;
constexpr int GVX_MEDIA_CHANNEL_NUM = 22;

// Most bytes of a NAL unit that travel in one packet, and the least size of a channel's packet buffer: interleave,
// RTP head with extension, fragment head, payload.
constexpr std::size_t GVX_RTP_MAX_PAYLOAD = 1390;
constexpr std::size_t GVX_MEDIA_BUF_MIN_SIZE = gvx::kInterleaveLen + 36 + 3 + GVX_RTP_MAX_PAYLOAD;

// The stream type of a channel: its index, over TCP less the offset.
inline STREAM_TYPE_EX StreamTypeOfChannel(int channelID) {
    return static_cast<STREAM_TYPE_EX>(
        channelID >= GVX_MEDIA_CHANNEL_TCP_OFFSET ? channelID - GVX_MEDIA_CHANNEL_TCP_OFFSET : channelID);
}

// State of one channel of one lens. One thread at a time: the one that the plug-in uses for the lens's stream.
// Sequence numbers and timestamps run for the life of the lens.
class CMediaChannel {
public:
    CMediaChannel() = default;
    ~CMediaChannel() { destroy(); }
    CMediaChannel(const CMediaChannel&) = delete;
    CMediaChannel& operator=(const CMediaChannel&) = delete;

    // Puts all fields to zero and null. Only for a channel that owns nothing: fresh, or after destroy.
    void init();

    // Frees the packet buffer, the PS parser and what is left on the NAL list. May be called again.
    void destroy();

    // Releases all units of the NAL list.
    void clearNaluList();

    unsigned long m_ulVideoTimestamp = 0;  // running RTP timestamps
    unsigned long m_ulAudioTimestamp = 0;
    ACE_Message_Block* m_pMediaBufWithRTP = nullptr;  // set at stream start, GVX_MEDIA_BUF_MIN_SIZE or more; owned
    unsigned short m_usVideoSeqNo = 0;                // number of the last packet sent
    unsigned short m_usAudioSeqNo = 0;
    std::list<ACE_Message_Block*> m_NaluList;       // NAL units of the frame being sent; owned
    SEND_STREAM_FUNC* m_pSendStreamFunc = nullptr;  // set at stream start
    CPs2EsParse* m_pHstPESParse = nullptr;          // made on first use; owned
    HstPSHeader m_PSheaderNew;                      // what the PS headers of this channel said last
};
