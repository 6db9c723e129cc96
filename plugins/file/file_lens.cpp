#include "file/file_lens.h"

#include "base/log.h"
#include "bp/message_block_ptr.h"
#include "file/guarded.h"
#include "gvx_common/records/rtp_payload.h"
#include "gvx_common/records/stream_param.h"

#include <utility>

namespace gvxfile {
namespace {

constexpr const char* kTitle = "file plug-in";
constexpr int kNoChannel = -1;

// The channel of a live stream; none for other stream types and transports.
int ChannelOf(const CStreamParam& param) {
    if (param.m_nStreamID >= static_cast<std::uint32_t>(STREAM_TYPE_REAL_MAX)) {
        return kNoChannel;
    }
    const int type = static_cast<int>(param.m_nStreamID);
    switch (param.m_nDstTransProtocol) {
        case RTP_OVER_UDP:
            return type;
        case RTP_OVER_TCP:
            return type + GVX_MEDIA_CHANNEL_TCP_OFFSET;
        default:
            return kNoChannel;
    }
}

}  // namespace

FileLens::FileLens(const char* lensId, short channel, CAdapterDevBase& parent, MediaPtr media)
    : CAdapterLensDefaults(lensId, channel, parent),
      m_device(parent.GetMainDevID()),
      m_media(std::move(media)),
      m_metadataUser(kNoChannel) {}

FileLens::~FileLens() {
    m_players.clear();
}

int FileLens::Uninit() {
    m_players.clear();
    m_metadataUser = kNoChannel;
    return ZVS_SUCCEED;
}

int FileLens::NegotiateStreamParam(CStreamParam* param) {
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    if (ChannelOf(*param) == kNoChannel) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_DEV_UN_SUPPORT, "Stream[%s]: no live stream of type[%u] over protocol[%u].",
                         param->m_strServiceID.c_str(), param->m_nStreamID, param->m_nDstTransProtocol);
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    const bool h264 = m_media->codec == gvx::Codec::H264;
    param->m_nVideoFormat = h264 ? VIDEO_DEC_H264 : VIDEO_DEC_H265;
    param->m_nVideoPayLoadType = h264 ? gvx::kPayloadH264 : gvx::kPayloadH265;
    param->m_nAudioFormat = m_media->HasAudio() ? static_cast<std::uint32_t>(m_media->audioFormat) : 0;
    param->m_nAudioPayLoadType =
        m_media->audioFormat == GVX_AUDIO_FORMAT_G711A ? gvx::kPayloadG711A : gvx::kPayloadG711U;
    if (m_media->metadata == nullptr) {
        param->m_nVedioAnalysePort = 0;
    }
    return ZVS_SUCCEED;
}

int FileLens::CheckFree(int channelID, bool withMetadata) const {
    const bool running = m_players.count(channelID) != 0;
    if (!running && (!withMetadata || m_metadataUser == kNoChannel)) {
        return ZVS_SUCCEED;
    }
    GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_STREAM_EXIST, "[lens:%s, channel:%d]%s", GetSubDevID(), channelID,
                     running ? "" : " Another stream of the lens takes its metadata along.");
    return ZVS_GVX_STREAM_EXIST;
}

bool FileLens::PrepareChannel(int channelID, SEND_STREAM_FUNC* func) {
    CMediaChannel* channel = getMidiaChannel(channelID);
    GVX_CHECK_NULL_RETURN(channel, false);
    if (channel->m_pMediaBufWithRTP == nullptr) {
        channel->m_pMediaBufWithRTP = BP::MakeMessageBlock(GVX_MEDIA_BUF_MIN_SIZE).release();
        if (channel->m_pMediaBufWithRTP == nullptr) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_ALLOC_MEMORY_ERROR, "[channel:%d]", channelID);
            return false;
        }
    }
    channel->m_pSendStreamFunc = func;
    return true;
}

int FileLens::StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool needExternData) {
    GVX_CHECK_NULL_RETURN(func, ZVS_NULL_POINTER);
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    const int channelID = ChannelOf(*param);
    if (channelID == kNoChannel) {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    PlayTarget target;
    target.withMetadata = param->m_nVedioAnalysePort != 0 && m_media->metadata != nullptr;
    target.lens = this;
    target.device = m_device;
    target.channelID = channelID;
    target.overTcp = param->m_nDstTransProtocol == RTP_OVER_TCP;
    target.needExternData = needExternData;
    if (const int result = CheckFree(channelID, target.withMetadata); result != ZVS_SUCCEED) {
        return result;
    }
    if (!PrepareChannel(channelID, func) ||
        (target.withMetadata && !PrepareChannel(MetadataSender::Channel(target.overTcp), func))) {
        return ZVS_ALLOC_MEMORY_ERROR;
    }
    target.withAudio = param->m_nAudioFormat != 0;
    target.userInfo = userInfo;
    return Guarded("StartStream", [&] {
        target.serviceID = param->m_strServiceID;
        return StartPlayer(std::move(target));
    });
}

int FileLens::StartPlayer(PlayTarget target) {
    const int channelID = target.channelID;
    const std::string serviceID = target.serviceID;
    const bool withMetadata = target.withMetadata;
    auto player = std::make_unique<Player>(m_media, std::move(target));
    std::string error;
    if (!player->Start(error)) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_OPEN_FILE_ERROR, "Stream[%s]: %s", serviceID.c_str(), error.c_str());
        return ZVS_OPEN_FILE_ERROR;
    }
    m_players[channelID] = std::move(player);
    m_metadataUser = withMetadata ? channelID : m_metadataUser;
    return ZVS_SUCCEED;
}

Player* FileLens::FindPlayer(const CStreamParam* param) const {
    const auto found = m_players.find(ChannelOf(*param));
    return found == m_players.end() ? nullptr : found->second.get();
}

int FileLens::StopStream(CStreamParam* param, bool /*force*/) {
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    Player* player = FindPlayer(param);
    if (player == nullptr) {
        return ZVS_GVX_STREAM_NOT_EXIST;
    }
    player->Stop();
    const int channelID = ChannelOf(*param);
    m_players.erase(channelID);
    getMidiaChannel(channelID)->m_pSendStreamFunc = nullptr;
    if (m_metadataUser == channelID) {
        m_metadataUser = kNoChannel;
        getMidiaChannel(MetadataSender::Channel(param->m_nDstTransProtocol == RTP_OVER_TCP))->m_pSendStreamFunc =
            nullptr;
    }
    return ZVS_SUCCEED;
}

int FileLens::RequestKeyframe(CStreamParam* param) {
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    Player* player = FindPlayer(param);
    if (player == nullptr) {
        return ZVS_GVX_STREAM_NOT_EXIST;
    }
    GVX_DEBUG("Stream[%s]: the next key frame is led by its parameter sets.", param->m_strServiceID.c_str());
    player->RequestParameterSets();
    return ZVS_SUCCEED;
}

}  // namespace gvxfile
