#include "gvx_common/rtp/frame_packer.h"

#include "base/log.h"
#include "gvx_common/records/rtp_payload.h"
#include "gvx_common/rtp/nal_fragment.h"
#include "gvx_common/rtp/packet_run.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstring>

namespace gvx {

namespace {

unsigned char VideoPayloadType(ZVS_VIDEO_DEC_TYPE format) {
    switch (format) {
        case VIDEO_DEC_H264:
            return kPayloadH264;
        case VIDEO_DEC_MJPEG:
            return kPayloadMjpeg;
        case VIDEO_DEC_H265:
            return kPayloadH265;
        case VIDEO_DEC_HIK:
            return kPayloadPrivate;
        default:
            return 0;
    }
}

unsigned char AudioPayloadType(AUDIO_FORMAT_TYPE format) {
    return format == GVX_AUDIO_FORMAT_G711A ? kPayloadG711A : kPayloadG711U;
}

}  // namespace

void FramePacker::BuildHead(bool extension, unsigned short millisecond, unsigned int second) {
    m_packet.GeneratePacket(m_head, GVX_RTP_FIXED_HEAD_LEN, extension);
    if (extension) {
        unsigned short profile = 0;
        std::memcpy(&profile, "TV", sizeof(profile));
        m_packet.setExtension(true);
        m_packet.setHeadLen(GVX_RTP_EXTENDED_HEAD_LEN);
        m_packet.setExtDataTime(millisecond, second);
        m_packet.setExternHead(profile, 5);
    }
    const bool video = m_media.nVideoSize != 0;
    unsigned long& timestamp = video ? m_channel.m_ulVideoTimestamp : m_channel.m_ulAudioTimestamp;
    timestamp += m_media.nTimeTick;
    m_packet.SetTimeStamp(timestamp);
    m_pSeqNo = video ? &m_channel.m_usVideoSeqNo : &m_channel.m_usAudioSeqNo;
    if (*m_pSeqNo == 0xFFFF) {
        *m_pSeqNo = 0;
    }
    m_payloadType = video ? VideoPayloadType(m_media.eVideoFormatType) : AudioPayloadType(m_media.eAudioFormatType);
    m_packet.SetPayloadType(m_payloadType);
    m_headLen = m_packet.GetHeadLen();
}

// Sequence number and marker bit are all that differs between the packets' heads (RFC 3550, 5.1).
void FramePacker::PatchHead(bool marker) {
    const unsigned short seqNo = ++*m_pSeqNo;
    m_head[1] = static_cast<char>((m_head[1] & 0x7F) | (marker ? 0x80 : 0));
    m_head[2] = static_cast<char>(seqNo >> 8);
    m_head[3] = static_cast<char>(seqNo);
}

// Numbers the packet and writes its head. False with a log line when the channel's buffer is missing or too small for
// it; the number is used up all the same.
bool FramePacker::BeginPacket(bool marker, std::size_t payloadRoom) {
    PatchHead(marker);
    ACE_Message_Block* buffer = m_channel.m_pMediaBufWithRTP;
    if (buffer == nullptr || buffer->data_block() == nullptr ||
        buffer->size() < kInterleaveLen + m_headLen + payloadRoom) {
        GVX_LOG_ERR_CODE("SendFrame:", ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID,
                         "m_pMediaBufWithRTP is invalid! StreamType[%d].",
                         static_cast<int>(StreamTypeOfChannel(m_channelID)));
        return false;
    }
    buffer->reset();
    m_pInterleave = buffer->wr_ptr();
    m_pWrite = m_pInterleave + kInterleaveLen;
    PutBytes(m_head, m_headLen);
    return true;
}

void FramePacker::PutBytes(const char* bytes, std::size_t size) {
    std::memcpy(m_pWrite, bytes, size);
    m_pWrite += size;
}

int FramePacker::SendWhole(const char* unit, std::size_t size) {
    if (!BeginPacket(true, size)) {
        return ZVS_SUCCEED;
    }
    if (size != 0) {
        PutBytes(unit, size);
    }
    return FinishPacket();
}

template <typename Fragment>
int FramePacker::SendFragments(const char* unit, std::size_t size) {
    constexpr std::size_t kHeadRoom = 3;
    static_assert(Fragment::kHeadBytes <= kHeadRoom, "one size of buffer for every codec");
    const PacketRun run((size + GVX_RTP_MAX_PAYLOAD - 1) / GVX_RTP_MAX_PAYLOAD);
    unsigned char unitHead[Fragment::kUnitHeadBytes];
    std::memcpy(unitHead, unit, sizeof(unitHead));
    for (std::size_t at = 0; at < size;) {
        const bool first = at == 0;
        const std::size_t next = std::min(at + GVX_RTP_MAX_PAYLOAD, size);
        const bool last = next == size;
        if (!BeginPacket(last, kHeadRoom + GVX_RTP_MAX_PAYLOAD)) {
            return ZVS_SUCCEED;
        }
        Fragment::PutHead(unitHead, first, last, m_pWrite);
        m_pWrite += Fragment::kHeadBytes;
        const std::size_t from = first ? Fragment::kUnitHeadBytes : at;
        PutBytes(unit + from, next - from);
        at = next;
        const int result = FinishPacket();
        if (result != ZVS_SUCCEED) {
            return result;
        }
    }
    return ZVS_SUCCEED;
}

int FramePacker::SendUnit(const char* unit, std::size_t size) {
    if (size <= GVX_RTP_MAX_PAYLOAD) {
        return SendWhole(unit, size);
    }
    return m_payloadType == kPayloadH265 ? SendFragments<H265Fragment>(unit, size)
                                         : SendFragments<H264Fragment>(unit, size);
}

int FramePacker::FinishPacket() {
    ACE_Message_Block& buffer = *m_channel.m_pMediaBufWithRTP;
    buffer.wr_ptr(m_pWrite);
    std::size_t size = buffer.length();
    if (m_overTcp) {
        const std::size_t rest = size - kInterleaveLen;
        m_media.eTransProtocol = RTP_OVER_TCP;
        m_pInterleave[0] = '$';
        m_pInterleave[2] = static_cast<char>(rest >> 8);
        m_pInterleave[3] = static_cast<char>(rest);
    } else {
        m_media.eTransProtocol = RTP_OVER_UDP;
        size -= kInterleaveLen;
        buffer.rd_ptr(kInterleaveLen);
    }
    if (m_media.nVideoSize != 0) {
        m_pInterleave[1] = kInterleaveVideo;
        m_media.nVideoSize = static_cast<std::uint32_t>(size);
    } else if (m_media.nAudioSize == 0) {
        return ZVS_FAIL;
    } else {
        m_pInterleave[1] = kInterleaveAudio;
        m_media.nAudioSize = static_cast<std::uint16_t>(size);
    }
    m_media.pDataBuf = buffer.rd_ptr();
    STREAM_TYPE_EX streamType = StreamTypeOfChannel(m_channelID);
    const int result = m_channel.m_pSendStreamFunc(&m_media, &streamType);
    return result == ZVS_GVX_OPEN_SOCKET_ERROR ? result : ZVS_SUCCEED;
}

}  // namespace gvx
