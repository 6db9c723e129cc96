#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "bp/message_block_ptr.h"
#include "gvx_common/adapter/gvx_adapter_dev.h"
#include "gvx_common/adapter/metadata/gvx_adapter_lens_metadata_tlv.h"
#include "gvx_common/media_memory/MemHandler.h"
#include "gvx_common/rtp/gvx_rtp_packet.h"

#include <cstring>

namespace {

constexpr std::size_t kInterleaveLen = 4;
constexpr unsigned char kPayloadTypeMetaData = 107;
constexpr char kMagic = static_cast<char>(0xAA);  // first payload byte of every metadata packet
constexpr char kInterleaveChannel = 4;

// The packet buffer of a channel; null with a log line when the channel is none or has no buffer.
ACE_Message_Block* PacketBuffer(const CMediaChannel* channel, const char* title, int channelID) {
    if (channel == nullptr || channel->m_pMediaBufWithRTP == nullptr ||
        channel->m_pMediaBufWithRTP->data_block() == nullptr) {
        GVX_LOG_ERR_CODE(title, ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID, "m_pMediaBufWithRTP is invalid! StreamType[%d].",
                         static_cast<int>(StreamTypeOfChannel(channelID)));
        return nullptr;
    }
    return channel->m_pMediaBufWithRTP;
}

}  // namespace

void CAdapterLensBase::PackRtpHead(bool isLast, bool isSendOverTCP, int channelID, unsigned long long pts) {
    ACE_Message_Block* buffer = PacketBuffer(getMidiaChannel(channelID), "PackRtpHead", channelID);
    if (buffer == nullptr) {
        return;
    }
    char rtpHead[GVX_RTP_FIXED_HEAD_LEN] = {};
    CRtpPacket packet;
    packet.GeneratePacket(rtpHead, GVX_RTP_FIXED_HEAD_LEN, false);
    packet.SetTimeStamp(static_cast<unsigned long>(pts));
    packet.SetPayloadType(kPayloadTypeMetaData);
    packet.SetSeqNum(++m_usMetaDataSeqNo);
    packet.SetMarker(isLast);
    const std::size_t ahead = isSendOverTCP ? kInterleaveLen : 0;
    if (buffer->space() < ahead + sizeof(rtpHead) + sizeof(kMagic)) {
        GVX_LOG_ERR("PackRtpHead", "The packet buffer has only %zu bytes left.", buffer->space());
        return;
    }
    buffer->wr_ptr(ahead);
    buffer->copy(rtpHead, sizeof(rtpHead));
    buffer->copy(&kMagic, sizeof(kMagic));
}

void CAdapterLensBase::SetTcpInter(unsigned short rtpLen, int channelID) {
    ACE_Message_Block* buffer = PacketBuffer(getMidiaChannel(channelID), "SetTcpInter", channelID);
    if (buffer == nullptr || buffer->length() < kInterleaveLen) {
        return;
    }
    char* interleave = buffer->rd_ptr();
    interleave[0] = '$';
    interleave[1] = kInterleaveChannel;
    std::memcpy(interleave + 2, &rtpLen, sizeof(rtpLen));
}

int CAdapterLensBase::SendMediaData(_METADATE_TYPE, void* userInfo, bool isSendOverTCP, int channelID) {
    const CMediaChannel* channel = getMidiaChannel(channelID);
    const ACE_Message_Block* buffer = PacketBuffer(channel, "SendMediaData", channelID);
    if (buffer == nullptr || channel->m_pSendStreamFunc == nullptr) {
        return ZVS_FAIL;
    }
    MEDIA_DATA media;
    if (memset_s(&media, sizeof(media), 0, sizeof(media)) != 0) {
        GVX_LOG_ERR("SendMediaData", "memset_s failed.");
        return ZVS_FAIL;
    }
    media.pUserInfo = userInfo;
    media.eTransProtocol = isSendOverTCP ? RTP_OVER_TCP : RTP_OVER_UDP;
    media.pDataBuf = buffer->rd_ptr();
    media.nMetaDataSize = static_cast<std::uint16_t>(buffer->length());
    STREAM_TYPE_EX streamType = StreamTypeOfChannel(channelID);
    const int result = channel->m_pSendStreamFunc(&media, &streamType);
    if (result == ZVS_GVX_OPEN_SOCKET_ERROR) {
        GVX_LOG_ERR("SendMediaData", "Lens[%s] IP[%s],Return ErrorCode[%d]", m_chSubDevID, m_ParentDev.GetIP().c_str(),
                    result);
        return result;
    }
    return ZVS_SUCCEED;
}

unsigned long long CAdapterLensBase::GetPts(_METADATE_TYPE metaDataType, const void* metaData) {
    if (metaDataType == METADATA_TYPE_HEART_BEAT) {
        return static_cast<std::uint32_t>(gvx::WallSeconds());
    }
    const bool isFace = metaDataType == METADATE_TYPE_FACE;
    GVX_CHECK_NULL_RETURN(metaData, isFace ? 0 : 1);
    const auto* record = static_cast<const MemHandler*>(metaData);
    if (isFace) {
        const auto* faces = gvx::RecordOf<stFaceRects>(record, "GetPts");
        return faces == nullptr ? 0 : faces->uiTimeStampL;
    }
    const auto* plates = gvx::RecordOf<ITSPlatesTrim>(record, "GetPts");
    return plates == nullptr ? 1 : plates->vehicleInfo.uiSnapTime;
}

ACE_Message_Block* CAdapterLensBase::CreateMediaHeartBeatPkt() {
    BP::MessageBlockPtr mb = BP::MakeMessageBlock(0);
    GVX_CHECK_NULL_RETURN(mb, nullptr);
    mb->msg_type(ACE_Message_Block::MB_PROTO);
    return mb.release();
}
