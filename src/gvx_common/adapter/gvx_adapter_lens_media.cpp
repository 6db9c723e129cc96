#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/log.h"
#include "bp/message_block_ptr.h"
#include "gvx_common/media/gvx_rtp_packet.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

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

bool IsChannel(int channelID) {
    return channelID >= 0 && channelID < GVX_MEDIA_CHANNEL_NUM;
}

// Appends a block with a copy of the bytes, which may be none, to the channel's NAL list. 0; 1 with errno ENOMEM.
int QueueUnit(CMediaChannel& channel, const unsigned char* bytes, std::size_t size) {
    ACE_Message_Block* block = BP::MakeMessageBlock(size).release();
    if (block == nullptr) {
        return ZVS_FAIL;
    }
    if (bytes != nullptr && size != 0) {
        std::memcpy(block->wr_ptr(), bytes, size);
    }
    block->wr_ptr(size);
    channel.m_NaluList.push_back(block);
    return ZVS_SUCCEED;
}

constexpr std::ptrdiff_t kStartCodeLen = 4;

// Start of the first 00 00 00 01 that begins in [first, last) and ends by end; null when there is none.
const unsigned char* ScanStartCode(const unsigned char* first, const unsigned char* last, const unsigned char* end) {
    for (const unsigned char* at = first; at < last && end - at >= kStartCodeLen; ++at) {
        if ((at[0] | at[1] | at[2]) == 0 && at[3] == 1) {
            return at;
        }
    }
    return nullptr;
}

// Start of the next 00 00 00 01 at or behind from, or end. Three zeros always fill one 16-bit word of those that
// follow each other from `from` on, and such words are rare in coded video: whole blocks without one are passed over
// in a loop that the compiler turns into vector instructions.
const unsigned char* FindStartCode(const unsigned char* from, const unsigned char* end) {
    constexpr std::ptrdiff_t kBlock = 128;
    const unsigned char* block = from;
    for (; end - block >= kBlock; block += kBlock) {
        std::uint16_t words[kBlock / 2];
        std::memcpy(words, block, sizeof(words));
        std::uint16_t zeros = 0;
        for (const std::uint16_t word : words) {
            zeros = static_cast<std::uint16_t>(zeros | (word == 0 ? 0xFFFF : 0));
        }
        if (zeros != 0) {
            const unsigned char* found = ScanStartCode(block == from ? from : block - 1, block + kBlock, end);
            if (found != nullptr) {
                return found;
            }
        }
    }
    const unsigned char* found = ScanStartCode(block == from ? from : block - 1, end, end);
    return found != nullptr ? found : end;
}

// Builds the packets of one SendFrame call in the channel's buffer and hands them out. The head is built once and
// patched for each packet.
class FramePacker {
public:
    FramePacker(CMediaChannel& channel, MEDIA_DATA& media, int channelID, bool overTcp)
        : m_channel(channel), m_media(media), m_channelID(channelID), m_overTcp(overTcp) {}

    void BuildHead(bool extension, unsigned short millisecond, unsigned int second);
    // Both: 0, or the result with which SendFrame ends. The block stays on the list.
    int SendWhole(const ACE_Message_Block& unit);
    int SendFragments(ACE_Message_Block& unit);

private:
    bool BeginPacket(bool marker, std::size_t payloadRoom);
    std::size_t PutFragmentHead(ACE_Message_Block& unit, bool first, bool last, std::size_t copyLen);
    int FinishPacket();
    void PutByte(unsigned char value) {
        *m_channel.m_pMediaBufWithRTP->wr_ptr() = static_cast<char>(value);
        m_channel.m_pMediaBufWithRTP->wr_ptr(1);
    }
    void PutBytes(const char* bytes, std::size_t size) {
        std::memcpy(m_channel.m_pMediaBufWithRTP->wr_ptr(), bytes, size);
        m_channel.m_pMediaBufWithRTP->wr_ptr(size);
    }

    CMediaChannel& m_channel;
    MEDIA_DATA& m_media;
    const int m_channelID;
    const bool m_overTcp;
    char m_head[GVX_RTP_EXTENDED_HEAD_LEN] = {};
    CRtpPacket m_packet;
    unsigned short* m_pSeqNo = nullptr;
    unsigned char m_payloadType = 0;
    unsigned char m_nalHead = 0;
    char* m_pInterleave = nullptr;
};

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
}

// Numbers the packet and writes its head. False with a log line when the channel's buffer is missing or too small for
// it; the number is used up all the same.
bool FramePacker::BeginPacket(bool marker, std::size_t payloadRoom) {
    m_packet.SetSeqNum(++*m_pSeqNo);
    m_packet.SetMarker(marker);
    ACE_Message_Block* buffer = m_channel.m_pMediaBufWithRTP;
    if (buffer == nullptr || buffer->data_block() == nullptr ||
        buffer->size() < kInterleaveLen + m_packet.GetHeadLen() + payloadRoom) {
        GVX_LOG_ERR_CODE("SendFrame:", ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID,
                         "m_pMediaBufWithRTP is invalid! StreamType[%d].",
                         static_cast<int>(StreamTypeOfChannel(m_channelID)));
        return false;
    }
    buffer->reset();
    m_pInterleave = buffer->wr_ptr();
    buffer->wr_ptr(kInterleaveLen);
    PutBytes(m_head, m_packet.GetHeadLen());
    return true;
}

int FramePacker::SendWhole(const ACE_Message_Block& unit) {
    if (!BeginPacket(true, unit.length())) {
        return ZVS_SUCCEED;
    }
    if (unit.length() != 0) {
        PutBytes(unit.rd_ptr(), unit.length());
    }
    return FinishPacket();
}

int FramePacker::SendFragments(ACE_Message_Block& unit) {
    constexpr std::size_t kFuRoom = 3;
    const std::size_t count = (unit.length() + GVX_RTP_MAX_PAYLOAD - 1) / GVX_RTP_MAX_PAYLOAD;
    m_nalHead = static_cast<unsigned char>(*unit.rd_ptr());
    for (std::size_t i = 0; unit.length() > 0; ++i) {
        const bool last = i == count - 1;
        if (!BeginPacket(last, kFuRoom + GVX_RTP_MAX_PAYLOAD)) {
            return ZVS_SUCCEED;
        }
        std::size_t copyLen = std::min(unit.length(), GVX_RTP_MAX_PAYLOAD);
        copyLen = PutFragmentHead(unit, i == 0, last, copyLen);
        PutBytes(unit.rd_ptr(), copyLen);
        unit.rd_ptr(copyLen);
        const int result = FinishPacket();
        if (result != ZVS_SUCCEED) {
            return result;
        }
    }
    return ZVS_SUCCEED;
}

// Writes what stands before the NAL bytes of a fragment (RFC 6184, 5.8; RFC 7798, 4.4.3) and gives the number of NAL
// bytes that are left to copy.
std::size_t FramePacker::PutFragmentHead(ACE_Message_Block& unit, bool first, bool last, std::size_t copyLen) {
    const unsigned char flags = static_cast<unsigned char>((first ? kFuStart : 0) | (last ? kFuEnd : 0));
    if (m_payloadType == kPayloadTypeH265) {
        PutByte(0x62);
        PutByte(0x01);
        PutByte(static_cast<unsigned char>(flags | ((m_nalHead >> 1) & 0x3F)));
        if (first) {
            unit.rd_ptr(2);
            copyLen -= 2;
        }
        return copyLen;
    }
    const unsigned char fuHead = static_cast<unsigned char>(flags | (m_nalHead & 0x1F));
    PutByte(static_cast<unsigned char>((m_nalHead & 0xE0) | kFuTypeH264));
    if (first) {
        *unit.rd_ptr() = static_cast<char>(fuHead);  // takes the place of the NAL header
    } else {
        PutByte(fuHead);
    }
    return copyLen;
}

int FramePacker::FinishPacket() {
    ACE_Message_Block& buffer = *m_channel.m_pMediaBufWithRTP;
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

}  // namespace

int CAdapterLensBase::H264ToRtp(unsigned char* pFrameBuf, int iFrameLen, _MEDIA_DATA& strMediaData, int iChannelID,
                                bool bIsSendOverTCP, bool bNeedAddExternData, unsigned short usGmtMillsecond,
                                unsigned int uiGmtSecond, bool bPSType) {
    CMediaChannel* channel = getMidiaChannel(iChannelID);
    if (pFrameBuf == nullptr || iFrameLen <= 0 || (channel != nullptr && channel->m_pMediaBufWithRTP == nullptr)) {
        GVX_LOG_ERR("H264 to rtp.", "Pointer is null.");
        return ZVS_FAIL;
    }
    if (channel == nullptr) {
        GVX_LOG_ERR("H264 to rtp.", "m_iChannelID[%d]", iChannelID);
        return ZVS_FAIL;
    }
    const unsigned int frameLen = static_cast<unsigned int>(iFrameLen);
    unsigned char* videoData = pFrameBuf;
    unsigned char* audioData = pFrameBuf;
    unsigned int videoLen = std::min<unsigned int>(strMediaData.nVideoSize, frameLen);
    unsigned int audioLen = std::min<unsigned int>(strMediaData.nAudioSize, frameLen);
    if (bPSType &&
        HSPspkt2ESFrm(pFrameBuf, iFrameLen, videoData, videoLen, audioData, audioLen, iChannelID) != ZVS_SUCCEED) {
        return ZVS_FAIL;
    }
    const auto sendQueued = [&] {
        const int result =
            SendFrame(strMediaData, iChannelID, bIsSendOverTCP, bNeedAddExternData, usGmtMillsecond, uiGmtSecond);
        if (result == ZVS_GVX_OPEN_SOCKET_ERROR) {
            GVX_LOG_ERR("H264 to rtp.", "Return ErrorCode[%d]", result);
            return result;
        }
        if (result != ZVS_SUCCEED) {
            GVX_LOG_ERR("H264 to rtp.", "SendFrame error, video len[%d], audio len[%d]", static_cast<int>(videoLen),
                        static_cast<int>(audioLen));
            return int{ZVS_FAIL};
        }
        return result;
    };
    if (videoLen != 0) {
        if (SplitFrame2Nalu(videoData, videoLen, iChannelID) != ZVS_SUCCEED) {
            channel->clearNaluList();  // the units found before memory ran out
            return ZVS_FAIL;
        }
        const int result = sendQueued();
        if (result != ZVS_SUCCEED) {
            return result;
        }
    }
    if (audioLen == 0) {
        return ZVS_SUCCEED;
    }
    return QueueUnit(*channel, audioData, audioLen) == ZVS_SUCCEED ? sendQueued() : int{ZVS_FAIL};
}

int CAdapterLensBase::SplitFrame2Nalu(unsigned char* pFrameBuf, unsigned int iFrameLen, int iChannelID) {
    CMediaChannel* channel = getMidiaChannel(iChannelID);
    if (pFrameBuf == nullptr || channel == nullptr) {
        GVX_LOG_ERR("SplitFrame2Nalu", "Pointer is null.");
        return ZVS_FAIL;
    }
    const unsigned char* const end = pFrameBuf + iFrameLen;
    const unsigned char* unit = FindStartCode(pFrameBuf, end);
    if (unit == end) {
        GVX_DEBUG("Lens Base SplitFrame2Nalu, NaluBegin Is NULL Can not found Nalu Head 00 00 00 01");
        return ZVS_SUCCEED;
    }
    while (unit != end) {
        unit += kStartCodeLen;
        const unsigned char* next = FindStartCode(unit, end);
        if (QueueUnit(*channel, unit, static_cast<std::size_t>(next - unit)) != ZVS_SUCCEED) {
            return ZVS_FAIL;
        }
        unit = next;
    }
    return ZVS_SUCCEED;
}

int CAdapterLensBase::SendFrame(_MEDIA_DATA& strMediaData, int iChannelID, bool bIsSendOverTCP, bool bHaveExternData,
                                unsigned short usGmtMillsecond, unsigned int uiGmtSecond) {
    if (!IsChannel(iChannelID)) {
        GVX_LOG_INFO("SendFrame", "H264ToRtp ChannelID Is Invalid ");
        return ZVS_FAIL;
    }
    CMediaChannel* channel = getMidiaChannel(iChannelID);
    if (channel == nullptr || channel->m_pSendStreamFunc == nullptr) {
        GVX_LOG_ERR("SendFrame:", "The channel has no send function. StreamType[%d].",
                    static_cast<int>(StreamTypeOfChannel(iChannelID)));
        if (channel != nullptr) {
            channel->clearNaluList();
        }
        return ZVS_FAIL;
    }
    FramePacker packer(*channel, strMediaData, iChannelID, bIsSendOverTCP);
    packer.BuildHead(bHaveExternData, usGmtMillsecond, uiGmtSecond);
    std::list<ACE_Message_Block*>& units = channel->m_NaluList;
    while (!units.empty()) {
        ACE_Message_Block* unit = units.front();
        const int result =
            unit->length() <= GVX_RTP_MAX_PAYLOAD ? packer.SendWhole(*unit) : packer.SendFragments(*unit);
        if (result == ZVS_GVX_OPEN_SOCKET_ERROR) {
            GVX_LOG_ERR("m_pSendStreamFunc(SendMediaOverSocket)", "Return ErrorCode[%d]", result);
            channel->clearNaluList();
            return result;
        }
        if (result != ZVS_SUCCEED) {
            return result;  // a frame that is neither video nor audio: its units stay, destroy releases them
        }
        units.pop_front();
        unit->release();
    }
    return ZVS_SUCCEED;
}

int CAdapterLensBase::SendHikStream(unsigned char* pFrameBuf, int iFrameLen, _MEDIA_DATA& strMediaData,
                                    int iChannelID, bool bIsSendOverTCP, bool bNeedAddExternData,
                                    unsigned short usGmtMillsecond, unsigned int uiGmtSecond) {
    CMediaChannel* channel = getMidiaChannel(iChannelID);
    if (pFrameBuf == nullptr || iFrameLen <= 0 || channel == nullptr) {
        GVX_LOG_ERR("SendHikStream", "Pointer is null.");
        return ZVS_FAIL;
    }
    ACE_Message_Block* block = BP::MakeMessageBlock(static_cast<std::size_t>(iFrameLen) + 1).release();
    if (block == nullptr) {
        return ZVS_FAIL;
    }
    if (strMediaData.nVideoSize != 0) {
        constexpr unsigned char kNri3 = 0x60;
        *block->wr_ptr() = static_cast<char>(kNri3 | (strMediaData.FrameType == FRAME_I ? 5 : 1));
        block->wr_ptr(1);
    }
    if (strMediaData.nVideoSize != 0 || strMediaData.nAudioSize != 0) {
        std::memcpy(block->wr_ptr(), pFrameBuf, static_cast<std::size_t>(iFrameLen));
        block->wr_ptr(static_cast<std::size_t>(iFrameLen));
    }
    channel->m_NaluList.push_back(block);
    const int result =
        SendFrame(strMediaData, iChannelID, bIsSendOverTCP, bNeedAddExternData, usGmtMillsecond, uiGmtSecond);
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR("SendFrame", "Return ErrorCode[%d]", result);
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

bool CAdapterLensBase::DoSendVideoFrame(const _MEDIA_DATA& struMediaData, const _STREAM_TYPE_EX& streamType) {
    const int channelID =
        streamType + (struMediaData.eTransProtocol == RTP_OVER_TCP ? GVX_MEDIA_CHANNEL_TCP_OFFSET : 0);
    const CMediaChannel* channel = getMidiaChannel(channelID);
    if (channel == nullptr || channel->m_pSendStreamFunc == nullptr) {
        GVX_LOG_ERR("DoSendVideoFrame", "channelID=%d", channelID);
        return false;
    }
    MEDIA_DATA media = struMediaData;
    STREAM_TYPE_EX type = streamType;
    channel->m_pSendStreamFunc(&media, &type);
    return true;
}

int CAdapterLensBase::HSPspkt2ESFrm(const unsigned char* pPacket, int iPktLen, unsigned char*& pVideoData,
                                    unsigned int& iVideoLen, unsigned char*& pAudioData, unsigned int& iAudioLen,
                                    int iChannelID) {
    CMediaChannel* channel = getMidiaChannel(iChannelID);
    if (channel == nullptr) {
        GVX_LOG_ERR("HSPspkt2ESFrm", "m_iChannelID[%d]", iChannelID);
        return ZVS_FAIL;
    }
    if (channel->m_pHstPESParse == nullptr) {
        channel->m_pHstPESParse = new (std::nothrow) CPs2EsParse;
        if (channel->m_pHstPESParse == nullptr) {
            GVX_LOG_ERR_CODE("HSPspkt2ESFrm", ZVS_ALLOC_MEMORY_ERROR, "Parse Ps2Es has no parser.");
            return ZVS_FAIL;
        }
        ++g_bp_memstat;
    }
    if (channel->m_pHstPESParse->ParsePSPack(pPacket, iPktLen, pVideoData, iVideoLen, pAudioData, iAudioLen,
                                             channel->m_PSheaderNew) != ZVS_SUCCEED) {
        GVX_LOG_ERR("HSPspkt2ESFrm", "Call Ps2Es Analytic error.");
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}
