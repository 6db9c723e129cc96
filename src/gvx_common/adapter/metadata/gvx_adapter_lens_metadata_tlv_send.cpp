#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/log.h"
#include "gvx_common/adapter/gvx_adapter_dev.h"
#include "gvx_common/media_memory/MemHandler.h"
#include "gvx_common/records/gvx_metadata_records.h"
#include "gvx_common/tlv/tlv_encoder.h"

#include <ace/Message_Block.h>

#include <algorithm>

#include <arpa/inet.h>

// An encoded message to packets. There is no head of a fragment: all packets of a message have its timestamp, and the
// receiver joins their bytes in order up to the marked one.

namespace {

constexpr unsigned int kInterleaveLen = 4;
constexpr unsigned short kLastSeqNo = 65535;

struct MetaStream {
    CAdapterLensBase& lens;
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
        stream.lens.SetTcpInter(htons(static_cast<unsigned short>(buffer->length() - kInterleaveLen)),
                                stream.channelID);
    }
    const int result = stream.lens.SendMediaData(stream.type, stream.userInfo, stream.overTcp, stream.channelID);
    if (result != ZVS_SUCCEED) {
        GVX_LOG_ERR("SendMetaData", "Lens[%s] IP[%s],Return ErrorCode[%d]", stream.lens.GetSubDevID(),
                    stream.lens.GetParentDev().GetIP().c_str(), result);
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

int CAdapterLensBase::SendMetaData(_METADATE_TYPE metaDataType, void* userInfo, int channelID, const MemHandler& tlvMem,
                                   unsigned long ulMetaDataTlvlen, bool isSendOverTCP, unsigned long long ullPts) {
    if (m_usMetaDataSeqNo == kLastSeqNo) {
        m_usMetaDataSeqNo = 0;
    }
    const MetaStream stream{*this, metaDataType, userInfo, channelID, isSendOverTCP, ullPts};
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
                  m_ParentDev.GetIP().c_str(), static_cast<int>(metaDataType), ulMetaDataTlvlen);
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
    const MetaStream stream{*this, enMetaDataType, pUserInfo, iChannelID, bIsSendOverTCP, pts};
    const int result = SendPackets(
        stream, total, static_cast<unsigned int>(total),
        [image](char* to, unsigned int length, unsigned long done) { std::copy_n(image + done, length, to); });
    if (result == ZVS_SUCCEED) {
        GVX_DEBUG("MetaDataToRtpAndSend,Lens[%s] IP[%s]send success, MetaDataType[%d:%s],len[%u]", m_chSubDevID,
                  m_ParentDev.GetIP().c_str(), static_cast<int>(enMetaDataType),
                  enMetaDataType == METADATE_TYPE_FACE ? "Face" : "Plate", static_cast<unsigned int>(total));
    }
    encoder.Clear();
    return result;
}
