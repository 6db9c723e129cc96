#include "gvx_common/rtp/frame_packer.h"

#include "base/log.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstring>

namespace gvx {

namespace {

constexpr std::size_t kInterleaveLen = 4;
constexpr unsigned char kPayloadTypeH265 = 108;
constexpr unsigned char kFuTypeH264 = 28;
constexpr unsigned char kFuStart = 0x80;
constexpr unsigned char kFuEnd = 0x40;

unsigned char VideoPayloadType(ZVS_VIDEO_DEC_TYPE format) {
    switch (format) {
        case VIDEO_DEC_H264:
            return 99;
        case VIDEO_DEC_MJPEG:
            return 26;
        case VIDEO_DEC_H265:
            return kPayloadTypeH265;
        case VIDEO_DEC_HIK:
            return 109;
        default:
            return 0;
    }
}

unsigned char AudioPayloadType(AUDIO_FORMAT_TYPE format) {
    return format == GVX_AUDIO_FORMAT_G711A ? 8 : 0;
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

void FramePacker::PutByte(unsigned char value) {
    *m_pWrite++ = static_cast<char>(value);
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

int FramePacker::SendFragments(const char* unit, std::size_t size) {
    constexpr std::size_t kFuRoom = 3;
    const char* const end = unit + size;
    const std::size_t count = (size + GVX_RTP_MAX_PAYLOAD - 1) / GVX_RTP_MAX_PAYLOAD;
    m_nalHead = static_cast<unsigned char>(*unit);
    for (std::size_t i = 0; unit != end; ++i) {
        const bool last = i == count - 1;
        if (!BeginPacket(last, kFuRoom + GVX_RTP_MAX_PAYLOAD)) {
            return ZVS_SUCCEED;
        }
        const char* const next = unit + std::min(static_cast<std::size_t>(end - unit), GVX_RTP_MAX_PAYLOAD);
        unit += PutFragmentHead(i == 0, last);
        PutBytes(unit, static_cast<std::size_t>(next - unit));
        unit = next;
        const int result = FinishPacket();
        if (result != ZVS_SUCCEED) {
            return result;
        }
    }
    return ZVS_SUCCEED;
}

// Writes what stands before the NAL bytes of a fragment. How many bytes of the unit it takes the place of: of the first
// fragment, the NAL header.
std::size_t FramePacker::PutFragmentHead(bool first, bool last) {
    const unsigned char flags = static_cast<unsigned char>((first ? kFuStart : 0) | (last ? kFuEnd : 0));
    if (m_payloadType == kPayloadTypeH265) {
        PutByte(0x62);
        PutByte(0x01);
        PutByte(static_cast<unsigned char>(flags | ((m_nalHead >> 1) & 0x3F)));
        return first ? 2 : 0;
    }
    PutByte(static_cast<unsigned char>((m_nalHead & 0xE0) | kFuTypeH264));
    PutByte(static_cast<unsigned char>(flags | (m_nalHead & 0x1F)));
    return first ? 1 : 0;
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
        m_pInterleave[1] = 0;
        m_media.nVideoSize = static_cast<std::uint32_t>(size);
    } else if (m_media.nAudioSize == 0) {
        return ZVS_FAIL;
    } else {
        m_pInterleave[1] = 2;
        m_media.nAudioSize = static_cast<std::uint16_t>(size);
    }
    m_media.pDataBuf = buffer.rd_ptr();
    STREAM_TYPE_EX streamType = StreamTypeOfChannel(m_channelID);
    const int result = m_channel.m_pSendStreamFunc(&m_media, &streamType);
    return result == ZVS_GVX_OPEN_SOCKET_ERROR ? result : ZVS_SUCCEED;
}

}  // namespace gvx
