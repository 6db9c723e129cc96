#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/log.h"
#include "bp/message_block_ptr.h"
#include "gvx_common/rtp/frame_packer.h"
#include "gvx_common/rtp/start_code.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

bool IsChannel(int channelID) {
    return channelID >= 0 && channelID < GVX_MEDIA_CHANNEL_NUM;
}

// Appends a block with a copy of each unit to the channel's NAL list. 0; 1 with errno ENOMEM.
int QueueUnits(CMediaChannel& channel, gvx::FrameUnits& units) {
    while (units.Next()) {
        ACE_Message_Block* block = BP::MakeMessageBlock(units.Size()).release();
        if (block == nullptr) {
            return ZVS_FAIL;
        }
        if (units.Size() != 0) {
            std::memcpy(block->wr_ptr(), units.Data(), units.Size());
        }
        block->wr_ptr(units.Size());
        channel.m_NaluList.push_back(block);
    }
    return ZVS_SUCCEED;
}

bool HasSendFunc(CMediaChannel* channel, int channelID) {
    if (channel != nullptr && channel->m_pSendStreamFunc != nullptr) {
        return true;
    }
    GVX_LOG_ERR("SendFrame:", "The channel has no send function. StreamType[%d].",
                static_cast<int>(StreamTypeOfChannel(channelID)));
    if (channel != nullptr) {
        channel->clearNaluList();
    }
    return false;
}

void LogGoneSocket(int result) {
    if (result == ZVS_GVX_OPEN_SOCKET_ERROR) {
        GVX_LOG_ERR("m_pSendStreamFunc(SendMediaOverSocket)", "Return ErrorCode[%d]", result);
    }
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
    // Units go straight from the caller's memory to the packets, unless some wait on the channel's list: those leave
    // first. A frame that is neither video nor audio leaves its units there.
    const bool direct = channel->m_NaluList.empty() && (strMediaData.nVideoSize != 0 || strMediaData.nAudioSize != 0);
    struct Part {
        const unsigned char* data;
        unsigned int size;
        bool hasStartCodes;
    };
    for (const Part& part : {Part{videoData, videoLen, true}, Part{audioData, audioLen, false}}) {
        if (part.size == 0) {
            continue;
        }
        gvx::FrameUnits units(part.data, part.size, part.hasStartCodes);
        int result = ZVS_SUCCEED;
        if (!direct) {
            if (QueueUnits(*channel, units) != ZVS_SUCCEED) {
                channel->clearNaluList();  // the units found before memory ran out
                return ZVS_FAIL;
            }
            result =
                SendFrame(strMediaData, iChannelID, bIsSendOverTCP, bNeedAddExternData, usGmtMillsecond, uiGmtSecond);
        } else if (HasSendFunc(channel, iChannelID)) {
            gvx::FramePacker packer(*channel, strMediaData, iChannelID, bIsSendOverTCP);
            packer.BuildHead(bNeedAddExternData, usGmtMillsecond, uiGmtSecond);
            while (result == ZVS_SUCCEED && units.Next()) {
                result = packer.SendUnit(reinterpret_cast<const char*>(units.Data()), units.Size());
            }
            LogGoneSocket(result);
        } else {
            result = ZVS_FAIL;
        }
        if (result == ZVS_GVX_OPEN_SOCKET_ERROR) {
            GVX_LOG_ERR("H264 to rtp.", "Return ErrorCode[%d]", result);
            return result;
        }
        if (result != ZVS_SUCCEED) {
            GVX_LOG_ERR("H264 to rtp.", "SendFrame error, video len[%d], audio len[%d]", static_cast<int>(videoLen),
                        static_cast<int>(audioLen));
            return ZVS_FAIL;
        }
    }
    return ZVS_SUCCEED;
}

int CAdapterLensBase::SplitFrame2Nalu(unsigned char* pFrameBuf, unsigned int iFrameLen, int iChannelID) {
    CMediaChannel* channel = getMidiaChannel(iChannelID);
    if (pFrameBuf == nullptr || channel == nullptr) {
        GVX_LOG_ERR("SplitFrame2Nalu", "Pointer is null.");
        return ZVS_FAIL;
    }
    gvx::FrameUnits units(pFrameBuf, iFrameLen, true);
    return QueueUnits(*channel, units);
}

int CAdapterLensBase::SendFrame(_MEDIA_DATA& strMediaData, int iChannelID, bool bIsSendOverTCP, bool bHaveExternData,
                                unsigned short usGmtMillsecond, unsigned int uiGmtSecond) {
    if (!IsChannel(iChannelID)) {
        GVX_LOG_INFO("SendFrame", "H264ToRtp ChannelID Is Invalid ");
        return ZVS_FAIL;
    }
    CMediaChannel* channel = getMidiaChannel(iChannelID);
    if (!HasSendFunc(channel, iChannelID)) {
        return ZVS_FAIL;
    }
    gvx::FramePacker packer(*channel, strMediaData, iChannelID, bIsSendOverTCP);
    packer.BuildHead(bHaveExternData, usGmtMillsecond, uiGmtSecond);
    std::list<ACE_Message_Block*>& units = channel->m_NaluList;
    while (!units.empty()) {
        ACE_Message_Block* unit = units.front();
        const int result = packer.SendUnit(unit->rd_ptr(), unit->length());
        if (result == ZVS_GVX_OPEN_SOCKET_ERROR) {
            LogGoneSocket(result);
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

int CAdapterLensBase::SendHikStream(unsigned char* pFrameBuf, int iFrameLen, _MEDIA_DATA& strMediaData, int iChannelID,
                                    bool bIsSendOverTCP, bool bNeedAddExternData, unsigned short usGmtMillsecond,
                                    unsigned int uiGmtSecond) {
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
