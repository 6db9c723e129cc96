#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "bp/message_block_ptr.h"
#include "gvx_common/adapter/gvx_adapter_dev.h"
#include "gvx_common/adapter/metadata/ex_metadata_writer.h"
#include "gvx_common/adapter/metadata/metadata_records.h"
#include "gvx_common/adapter/metadata/plain_metadata_writer.h"
#include "gvx_common/media_memory/MemHandler.h"
#include "gvx_common/records/rtp_payload.h"
#include "gvx_common/rtp/gvx_rtp_packet.h"
#include "gvx_common/tlv/metadata_tags.h"
#include "gvx_common/tlv/tlv_encoder.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstring>

#include <arpa/inet.h>

// An encoded message becomes packets without a head of fragments: all packets of a message have its timestamp, and the
// receiver joins their bytes in order up to the marked one.

namespace {

constexpr char kMagic = static_cast<char>(0xAA);  // first payload byte of every metadata packet

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

constexpr unsigned short kLastSeqNo = 65535;

struct MetaStream {
    CAdapterLensBase& lens;
    const char* ip;  // of the device, for lines
    _METADATE_TYPE type;
    void* userInfo;
    int channelID;
    bool overTcp;
    unsigned long long pts;
};

// Packs one packet into the channel's buffer and sends it. copy(to, length) supplies the bytes.
template <typename Copy>
int SendPacket(const MetaStream& stream, ACE_Message_Block* buffer, bool isLast, unsigned int chunk, Copy copy) {
    buffer->reset();
    stream.lens.PackRtpHead(isLast, stream.overTcp, stream.channelID, stream.pts);
    if (buffer->space() < chunk) {
        GVX_LOG_ERR_CODE("SendMetaData", ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID,
                         "The packet buffer has %zu bytes for %u. StreamType[%d].", buffer->space(), chunk,
                         static_cast<int>(StreamTypeOfChannel(stream.channelID)));
        return ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID;
    }
    copy(buffer->wr_ptr(), chunk);
    buffer->wr_ptr(chunk);
    if (stream.overTcp) {
        stream.lens.SetTcpInter(htons(static_cast<unsigned short>(buffer->length() - gvx::kInterleaveLen)),
                                stream.channelID);
    }
    const int result = stream.lens.SendMediaData(stream.type, stream.userInfo, stream.overTcp, stream.channelID);
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR("SendMetaData", "Lens[%s] IP[%s],Return ErrorCode[%d]", stream.lens.GetSubDevID(), stream.ip,
                    result);
        return ZVS_GVX_OPEN_SOCKET_ERROR;
    }
    return ZVS_SUCCEED;
}

// Cuts a message of `total` bytes into packets. A message of one packet is sent as long as `whole` says.
template <typename Copy>
int SendPackets(const MetaStream& stream, unsigned long total, unsigned int whole, Copy copy) {
    const CMediaChannel* channel = stream.lens.getMidiaChannel(stream.channelID);
    ACE_Message_Block* buffer = channel == nullptr ? nullptr : channel->m_pMediaBufWithRTP;
    if (buffer == nullptr || buffer->data_block() == nullptr) {
        GVX_LOG_ERR_CODE("SendMetaData", ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID,
                         "m_pMediaBufWithRTP is invalid! StreamType[%d].",
                         static_cast<int>(StreamTypeOfChannel(stream.channelID)));
        return ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID;
    }
    const unsigned long count = (total + GVX_RTP_MAX_PAYLOAD - 1) / GVX_RTP_MAX_PAYLOAD;
    unsigned long done = 0;
    for (unsigned long i = 0; i < count; ++i) {
        const auto part = static_cast<unsigned int>(std::min<unsigned long>(total - done, GVX_RTP_MAX_PAYLOAD));
        const unsigned int chunk = count == 1 ? whole : part;
        const int result = SendPacket(stream, buffer, i == count - 1, chunk,
                                      [&copy, done](char* to, unsigned int length) { copy(to, length, done); });
        if (result != ZVS_SUCCEED) {
            return result;
        }
        done += chunk;
    }
    return ZVS_SUCCEED;
}

// The timestamp of a record with pictures by pointer.
unsigned long long PlainPts(CAdapterLensBase& lens, _METADATE_TYPE type, const void* record) {
    if (type == METADATA_TYPE_HEART_BEAT || record == nullptr) {
        return lens.GetPts(type, nullptr);
    }
    return type == METADATE_TYPE_FACE ? static_cast<const stFaceRects*>(record)->uiTimeStampL
                                      : static_cast<const ITSPlates*>(record)->vehicleInfo.uiSnapTime;
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
    packet.SetPayloadType(gvx::kPayloadMetadata);
    packet.SetSeqNum(++m_usMetaDataSeqNo);
    packet.SetMarker(isLast);
    const std::size_t ahead = isSendOverTCP ? gvx::kInterleaveLen : 0;
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
    if (buffer == nullptr || buffer->length() < gvx::kInterleaveLen) {
        return;
    }
    char* interleave = buffer->rd_ptr();
    interleave[0] = '$';
    interleave[1] = gvx::kInterleaveMetadata;
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
        GVX_LOG_ERR("SendMediaData", "Lens[%s] IP[%s],Return ErrorCode[%d]", m_chSubDevID, m_strParentIP.c_str(),
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

int CAdapterLensBase::GetMetaTlv(_METADATE_TYPE metaDataType, const void* metaData, TLV_Encoder& encoder) {
    switch (metaDataType) {
        case METADATE_TYPE_FACE:
            return FaceMetaDataToTLV(static_cast<const stFaceRects*>(metaData), encoder);
        case METADATE_TYPE_PLATE:
            return ITSMetaDataToTLV(static_cast<const ITSPlates*>(metaData), encoder);
        case METADATA_TYPE_HEART_BEAT:
            if (encoder.PutValue(HEART_BEART_TYPE, static_cast<int>(HEART_BEART_TYPE)) != 0 || encoder.Encode() != 0) {
                encoder.Clear();
                return ZVS_FAIL;
            }
            return ZVS_SUCCEED;
        default:
            GVX_LOG_ERR("GetMetaTlv", "MetaDataType[%d]", static_cast<int>(metaDataType));
            return ZVS_FAIL;
    }
}

int CAdapterLensBase::GetMetaTlvEx(_METADATE_TYPE metaDataType, const void* metaData, TLV_Encoder& encoder) {
    switch (metaDataType) {
        case METADATE_TYPE_FACE:
            return FaceMetaDataToTLVEx(static_cast<const MemHandler*>(metaData), encoder);
        case METADATE_TYPE_PLATE:
            return ITSMetaDataToTLVEx(static_cast<const MemHandler*>(metaData), encoder);
        case METADATA_TYPE_HEART_BEAT:
            if (encoder.EncodeValue(HEART_BEART_TYPE, HEART_BEART_TYPE, sizeof(HEART_BEART_TYPE)) != 0) {
                encoder.Clear();
                return ZVS_FAIL;
            }
            return ZVS_SUCCEED;
        default:
            GVX_LOG_ERR("GetMetaTlvEx", "MetaDataType[%d]", static_cast<int>(metaDataType));
            return ZVS_FAIL;
    }
}

// The steps by their public names.

int CAdapterLensBase::ITSMetaDataToTLV(const ITSPlates* plates, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(plates, ZVS_FAIL);
    return gvx::PlainMetadataWriter(encoder).WritePlates(*plates);
}

int CAdapterLensBase::FaceMetaDataToTLV(const stFaceRects* faces, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(faces, ZVS_FAIL);
    return gvx::PlainMetadataWriter(encoder).WriteFaces(*faces);
}

int CAdapterLensBase::ITSMetaDataToTLVEx(const MemHandler* record, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(record, ZVS_FAIL);
    return gvx::ExMetadataWriter(encoder).WritePlates(*record);
}

int CAdapterLensBase::FaceMetaDataToTLVEx(const MemHandler* record, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(record, ZVS_FAIL);
    return gvx::ExMetadataWriter(encoder).WriteFaces(*record);
}

int CAdapterLensBase::ITSVehicleMetaDataToTLVEx(const ITSPlatesTrim* plates, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(plates, ZVS_FAIL);
    return gvx::ExMetadataWriter(encoder).WriteVehicle(*plates);
}

int CAdapterLensBase::ITSPlateRectMetaDataToTLVEx(const ITSPlatesTrim* plates, TLV_Encoder& encoder) {
    GVX_CHECK_NULL_RETURN(plates, ZVS_FAIL);
    return gvx::ExMetadataWriter(encoder).WritePlateRects(*plates);
}

int CAdapterLensBase::FaceInfoMetaDataToTLVEx(const stFaceRects* faces, TLV_Encoder& encoder, const MemHandler* record,
                                              unsigned int index) {
    GVX_CHECK_NULL_RETURN(faces, ZVS_FAIL);
    GVX_CHECK_NULL_RETURN(record, ZVS_FAIL);
    if (index >= GVX_MAX_FACES) {
        GVX_LOG_ERR("FaceInfoMetaDataToTLVEx", "index[%u]", index);
        return ZVS_FAIL;
    }
    return gvx::ExMetadataWriter(encoder).WriteFace(faces->faces[index], *record);
}

void CAdapterLensBase::GetPlateRect(const stObjectRect& from, _META_RECT_S& to) {
    to = gvx::PlateRect(from);
}

int CAdapterLensBase::SendMetaData(_METADATE_TYPE metaDataType, void* userInfo, int channelID, const MemHandler& tlvMem,
                                   unsigned long ulMetaDataTlvlen, bool isSendOverTCP, unsigned long long ullPts) {
    if (m_usMetaDataSeqNo == kLastSeqNo) {
        m_usMetaDataSeqNo = 0;
    }
    const MetaStream stream{*this, m_strParentIP.c_str(), metaDataType, userInfo, channelID, isSendOverTCP, ullPts};
    MemReader reader(tlvMem, 0);
    const int result = SendPackets(stream, ulMetaDataTlvlen, tlvMem.GetLength(),
                                   [&reader](char* to, unsigned int length, unsigned long done) {
                                       if (reader.Read(to, length) != 0) {
                                           GVX_LOG_ERR("SendMetaData", "MemcpyToChar failed! uiAlreadyCopyLen:%u",
                                                       static_cast<unsigned int>(done));
                                       }
                                   });
    if (result == ZVS_SUCCEED) {
        GVX_DEBUG("SendMetaData,Lens[%s] IP[%s]send success, MetaDataType[%d],len[%lu]", m_chSubDevID,
                  m_strParentIP.c_str(), static_cast<int>(metaDataType), ulMetaDataTlvlen);
    }
    return result;
}

int CAdapterLensBase::MetaDataToRtpAndSendEx(_METADATE_TYPE metaDataType, const void* metaData, int channelID,
                                             void* userInfo, bool isSendOverTCP) {
    GVX_CHECK_NULL_RETURN(userInfo, ZVS_FAIL);
    const unsigned long long pts = GetPts(metaDataType, metaData);
    TLV_Encoder encoder;
    if (GetMetaTlvEx(metaDataType, metaData, encoder) != 0) {
        GVX_LOG_ERR("MetaDataToRtpAndSendEx", "MetaDataToTLV fail");
        encoder.Clear();
        return ZVS_FAIL;
    }
    const int result = SendMetaData(metaDataType, userInfo, channelID, *encoder.GetMemHandler(),
                                    encoder.GetMemBufLength(), isSendOverTCP, pts);
    encoder.Clear();
    return result;
}

int CAdapterLensBase::MetaDataToRtpAndSend(_METADATE_TYPE enMetaDataType, const void* pMetaData, int iChannelID,
                                           void* pUserInfo, bool bIsSendOverTCP) {
    GVX_CHECK_NULL_RETURN(pUserInfo, ZVS_FAIL);
    const unsigned long long pts = PlainPts(*this, enMetaDataType, pMetaData);
    TLV_Encoder encoder;
    if (GetMetaTlv(enMetaDataType, pMetaData, encoder) != 0) {
        GVX_LOG_ERR("MetaDataToRtpAndSend", "MetaDataToTLV fail");
        encoder.Clear();
        return ZVS_FAIL;
    }
    if (m_usMetaDataSeqNo == kLastSeqNo) {
        m_usMetaDataSeqNo = 0;
    }
    const auto* image = reinterpret_cast<const char*>(encoder.GetTlvBuf());
    const unsigned long total = encoder.GetTlvDataLen();
    const MetaStream stream{*this, m_strParentIP.c_str(), enMetaDataType, pUserInfo, iChannelID, bIsSendOverTCP, pts};
    const int result = SendPackets(
        stream, total, static_cast<unsigned int>(total),
        [image](char* to, unsigned int length, unsigned long done) { std::copy_n(image + done, length, to); });
    if (result == ZVS_SUCCEED) {
        GVX_DEBUG("MetaDataToRtpAndSend,Lens[%s] IP[%s]send success, MetaDataType[%d:%s],len[%u]", m_chSubDevID,
                  m_strParentIP.c_str(), static_cast<int>(enMetaDataType),
                  enMetaDataType == METADATE_TYPE_FACE ? "Face" : "Plate", static_cast<unsigned int>(total));
    }
    encoder.Clear();
    return result;
}
