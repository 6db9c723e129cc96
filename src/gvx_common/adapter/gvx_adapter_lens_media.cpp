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

struct HeadExtension {
    bool wanted;
    unsigned short millisecond;
    unsigned int second;
};

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

// Calls send(unit, size) for each NAL unit of a frame until it answers nonzero; its last answer, 0 without a unit.
template <typename Send>
int ForEachUnit(const unsigned char* frame, std::size_t size, Send send) {
    const unsigned char* const end = frame + size;
    const unsigned char* unit = gvx::FindStartCode(frame, end);
    if (unit == end) {
        GVX_DEBUG("Lens Base SplitFrame2Nalu, NaluBegin Is NULL Can not found Nalu Head 00 00 00 01");
        return ZVS_SUCCEED;
    }
    int result = ZVS_SUCCEED;
    while (unit != end && result == ZVS_SUCCEED) {
        unit += gvx::kStartCodeLen;
        const unsigned char* const next = gvx::FindStartCode(unit, end);
        result = send(unit, static_cast<std::size_t>(next - unit));
        unit = next;
    }
    return result;
}

// One call of H264ToRtp: the frame's video and its audio, by way of the lens's own steps where units may have to wait
// on the channel's list, else straight from the caller's memory.
class FrameJob {
public:
    FrameJob(CAdapterLensBase& lens, CMediaChannel& channel, MEDIA_DATA& media, int channelID, bool overTcp,
             const HeadExtension& extension, unsigned int videoLen, unsigned int audioLen)
        : m_lens(lens),
          m_channel(channel),
          m_media(media),
          m_channelID(channelID),
          m_overTcp(overTcp),
          m_extension(extension),
          m_videoLen(videoLen),
          m_audioLen(audioLen) {}

    // Both with the results of H264ToRtp.
    int SendVideo(unsigned char* data) {
        if (CanSendDirect()) {
            return Told(SendDirect([&](auto send) { return ForEachUnit(data, m_videoLen, send); }));
        }
        if (m_lens.SplitFrame2Nalu(data, m_videoLen, m_channelID) != ZVS_SUCCEED) {
            m_channel.clearNaluList();  // the units found before memory ran out
            return ZVS_FAIL;
        }
        return Told(SendQueued());
    }
    int SendAudio(const unsigned char* data) {
        if (data != nullptr && CanSendDirect()) {
            return Told(SendDirect([&](auto send) { return send(data, m_audioLen); }));
        }
        return QueueUnit(m_channel, data, m_audioLen) == ZVS_SUCCEED ? Told(SendQueued()) : int{ZVS_FAIL};
    }

private:
    // When nothing waits on the list and no unit can stay behind there, as it does of a frame that is neither video nor
    // audio.
    bool CanSendDirect() const {
        return m_channel.m_NaluList.empty() && (m_media.nVideoSize != 0 || m_media.nAudioSize != 0);
    }

    int SendQueued() {
        return m_lens.SendFrame(m_media, m_channelID, m_overTcp, m_extension.wanted, m_extension.millisecond,
                                m_extension.second);
    }

    // eachUnit calls what it is given for each unit. Results as SendFrame.
    template <typename EachUnit>
    int SendDirect(EachUnit eachUnit) {
        if (!HasSendFunc(&m_channel, m_channelID)) {
            return ZVS_FAIL;
        }
        gvx::FramePacker packer(m_channel, m_media, m_channelID, m_overTcp);
        packer.BuildHead(m_extension.wanted, m_extension.millisecond, m_extension.second);
        const int result = eachUnit([&packer](const unsigned char* unit, std::size_t size) {
            return packer.SendUnit(reinterpret_cast<const char*>(unit), size);
        });
        LogGoneSocket(result);
        return result;
    }

    int Told(int result) const {
        if (result == ZVS_GVX_OPEN_SOCKET_ERROR) {
            GVX_LOG_ERR("H264 to rtp.", "Return ErrorCode[%d]", result);
            return result;
        }
        if (result != ZVS_SUCCEED) {
            GVX_LOG_ERR("H264 to rtp.", "SendFrame error, video len[%d], audio len[%d]", static_cast<int>(m_videoLen),
                        static_cast<int>(m_audioLen));
            return ZVS_FAIL;
        }
        return ZVS_SUCCEED;
    }

    CAdapterLensBase& m_lens;
    CMediaChannel& m_channel;
    MEDIA_DATA& m_media;
    const int m_channelID;
    const bool m_overTcp;
    const HeadExtension m_extension;
    const unsigned int m_videoLen;
    const unsigned int m_audioLen;
};

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
    FrameJob job(*this, *channel, strMediaData, iChannelID, bIsSendOverTCP,
                 {bNeedAddExternData, usGmtMillsecond, uiGmtSecond}, videoLen, audioLen);
    const int result = videoLen == 0 ? int{ZVS_SUCCEED} : job.SendVideo(videoData);
    return result != ZVS_SUCCEED || audioLen == 0 ? result : job.SendAudio(audioData);
}

int CAdapterLensBase::SplitFrame2Nalu(unsigned char* pFrameBuf, unsigned int iFrameLen, int iChannelID) {
    CMediaChannel* channel = getMidiaChannel(iChannelID);
    if (pFrameBuf == nullptr || channel == nullptr) {
        GVX_LOG_ERR("SplitFrame2Nalu", "Pointer is null.");
        return ZVS_FAIL;
    }
    return ForEachUnit(pFrameBuf, iFrameLen, [channel](const unsigned char* unit, std::size_t size) {
        return QueueUnit(*channel, unit, size);
    });
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
