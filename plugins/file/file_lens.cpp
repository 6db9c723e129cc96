#include "file/file_lens.h"

#include "base/log.h"
#include "bp/message_block_ptr.h"
#include "gvx_common/adapter/gvx_reason.h"
#include "gvx_common/records/ptz_records.h"
#include "gvx_common/records/rtp_payload.h"
#include "gvx_common/records/stream_param.h"
#include "plugin_support/guarded.h"

#include <utility>

namespace gvxfile {
namespace {

constexpr const char* kTitle = "file plug-in";
constexpr int kNoChannel = -1;

bool IsRecording(const CStreamParam& param) {
    return param.m_nStreamID >= STREAM_TYPE_PLAYBACK1 && param.m_nStreamID <= STREAM_TYPE_PLAYBACK4;
}

bool IsVoice(const CStreamParam& param) {
    return param.m_nStreamID == STREAM_AUDIO_TALKBACK || param.m_nStreamID == STREAM_AUDIO_BROADCAST;
}

// The channel of a live stream or a recording; none for other stream types and transports.
int ChannelOf(const CStreamParam& param) {
    if (param.m_nStreamID >= static_cast<std::uint32_t>(STREAM_TYPE_REAL_MAX) && !IsRecording(param)) {
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

FileLens::FileLens(const char* lensId, short channel, CAdapterDevBase& parent, MediaPtr media,
                   std::shared_ptr<gvxplugin::PictureDesk> desk)
    : CAdapterLensDefaults(lensId, channel, parent),
      m_device(parent.GetMainDevID()),
      m_media(std::move(media)),
      m_metadataUser(kNoChannel),
      m_desk(std::move(desk)) {}

FileLens::~FileLens() {
    StopSnapQueueThread();
    m_players.clear();
    m_talk.reset();
}

int FileLens::Uninit() {
    m_players.clear();
    StopVoiceStream(nullptr);
    m_metadataUser = kNoChannel;
    return ZVS_SUCCEED;
}

int FileLens::NegotiateStreamParam(CStreamParam* param) {
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    if (IsVoice(*param)) {
        if (m_media->talkPath.empty()) {
            return GvxFail(ZVS_GVX_DEV_UN_SUPPORT, "Medium '%s' names no file \"talk\".", m_media->name.c_str());
        }
    } else if (ChannelOf(*param) == kNoChannel) {
        return GvxFail(ZVS_GVX_DEV_UN_SUPPORT, "There is no stream of type %u over protocol %u.", param->m_nStreamID,
                       param->m_nDstTransProtocol);
    }
    PictureRange pictures;
    if (const int result = IsRecording(*param) ? FindPictures(*param, pictures) : ZVS_SUCCEED; result != ZVS_SUCCEED) {
        return result;
    }
    const bool h264 = m_media->codec == gvx::Codec::H264;
    param->m_nVideoFormat = h264 ? VIDEO_DEC_H264 : VIDEO_DEC_H265;
    param->m_nVideoPayLoadType = h264 ? gvx::kPayloadH264 : gvx::kPayloadH265;
    param->m_nAudioFormat =
        m_media->HasAudio() || IsVoice(*param) ? static_cast<std::uint32_t>(m_media->audioFormat) : 0;
    param->m_nAudioPayLoadType =
        m_media->audioFormat == GVX_AUDIO_FORMAT_G711A ? gvx::kPayloadG711A : gvx::kPayloadG711U;
    if (m_media->metadata == nullptr || IsRecording(*param)) {
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
    target.withMetadata = param->m_nVedioAnalysePort != 0 && m_media->metadata != nullptr && !IsRecording(*param);
    if (IsRecording(*param)) {
        if (const int result = FindPictures(*param, target.pictures); result != ZVS_SUCCEED) {
            return result;
        }
    }
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
    return gvxplugin::Guarded(kTitle, "StartStream", [&] {
        target.serviceID = param->m_strServiceID;
        if (IsRecording(*param)) {
            target.download = param->m_nBusinessType == SERVICE_TYPE_PU_DOWNLOAD;
            target.onEnd = [desk = m_desk, device = GetParentDev().GetMainDevID(), lens = std::string(GetSubDevID()),
                            service = param->m_strServiceID] {
                desk->Report(ADAPTER_REPORT_RECORDING_END, device, lens, service);
            };
        }
        return StartPlayer(std::move(target));
    });
}

int FileLens::StartPlayer(PlayTarget target) {
    const int channelID = target.channelID;
    const std::string serviceID = target.serviceID;
    const bool withMetadata = target.withMetadata;
    MediaPtr media = m_media;
    if (target.onEnd != nullptr) {
        constexpr double kDownloadFactor = 4;
        auto recorded = std::make_shared<MediaEntry>(*m_media);
        recorded->loop = false;
        recorded->speed = {false, target.download ? kDownloadFactor : 1};
        media = std::move(recorded);
    }
    auto player = std::make_unique<Player>(std::move(media), std::move(target));
    std::string error;
    if (!player->Start(error)) {
        return GvxFail(ZVS_OPEN_FILE_ERROR, "%s", error.c_str());
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

int FileLens::FindPictures(const CStreamParam& param, PictureRange& range) const {
    std::int64_t from = 0;
    std::int64_t to = 0;
    std::string error;
    if (!param.m_strRecordFileName.empty() && param.m_strRecordFileName != m_media->name) {
        return GvxFail(ZVS_PARA_INVALID, "There is no recording '%s'.", param.m_strRecordFileName.c_str());
    }
    if (!ParseUtcTime(param.m_strPuRecordStartTime, from) || !ParseUtcTime(param.m_strPuRecordEndTime, to)) {
        return GvxFail(ZVS_PARA_INVALID, "The recording's range is none of UTC times.");
    }
    if (!m_media->recording->Find(from, to, range, error)) {
        return GvxFail(ZVS_PARA_INVALID, "%s", error.c_str());
    }
    return ZVS_SUCCEED;
}

int FileLens::PlayBackStreamControl(const STREAM_CONTROL_PARAM_S& control, CStreamParam* param) {
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    Player* const player = IsRecording(*param) ? FindPlayer(param) : nullptr;
    if (player == nullptr) {
        return GvxFail(ZVS_GVX_STREAM_NOT_EXIST, "The stream plays no recording.");
    }
    switch (control.eCmd) {
        case STREAM_CONTROL_PLAY:
        case STREAM_CONTROL_PAUSE:
            player->Pause(control.eCmd == STREAM_CONTROL_PAUSE);
            return ZVS_SUCCEED;
        case STREAM_CONTROL_SEEK:
            player->SeekTo(m_media->recording->KeyOfSecond(control.uiPosition));
            return ZVS_SUCCEED;
        case STREAM_CONTROL_SPEED:
            if (control.dSpeed <= 0) {
                return GvxFail(ZVS_GVX_DEV_UN_SUPPORT, "A file plays forwards only.");
            }
            player->SetSpeed(control.dSpeed);
            return ZVS_SUCCEED;
    }
    return GvxFail(ZVS_GVX_DEV_UN_SUPPORT, "Command %d is not known.", static_cast<int>(control.eCmd));
}

int FileLens::StartVoiceStream(void* userInfo, SEND_VOICE_STREAM_FUNC* func, CStreamParam* param) {
    GVX_CHECK_NULL_RETURN(func, ZVS_NULL_POINTER);
    GVX_CHECK_NULL_RETURN(param, ZVS_NULL_POINTER);
    const int channelID = static_cast<int>(param->m_nStreamID) +
                          (param->m_nDstTransProtocol == RTP_OVER_TCP ? GVX_MEDIA_CHANNEL_TCP_OFFSET : 0);
    const std::lock_guard<std::mutex> lock(m_talkMutex);
    if (m_talk != nullptr) {
        return GvxFail(ZVS_GVX_STREAM_EXIST, "The lens is being talked to already.");
    }
    if (!PrepareChannel(channelID, func)) {
        return ZVS_ALLOC_MEMORY_ERROR;
    }
    return gvxplugin::Guarded(kTitle, "StartVoiceStream", [&]() -> int {
        std::string error;
        auto talk = std::make_unique<Talk>(m_media, *this, channelID, userInfo);
        if (!talk->Start(param->m_nStreamID == STREAM_AUDIO_TALKBACK, error)) {
            return GvxFail(ZVS_OPEN_FILE_ERROR, "%s", error.c_str());
        }
        m_talk = std::move(talk);
        return ZVS_SUCCEED;
    });
}

int FileLens::StopVoiceStream(CStreamParam*) {
    const std::lock_guard<std::mutex> lock(m_talkMutex);
    if (m_talk == nullptr) {
        return ZVS_GVX_STREAM_NOT_EXIST;
    }
    const int channelID = m_talk->ChannelID();
    m_talk.reset();
    getMidiaChannel(channelID)->m_pSendStreamFunc = nullptr;
    return ZVS_SUCCEED;
}

void FileLens::EnqueueAudioData(ACE_Message_Block* block) {
    const BP::MessageBlockPtr owned(block);
    const std::lock_guard<std::mutex> lock(m_talkMutex);
    if (owned != nullptr && m_talk != nullptr) {
        m_talk->Write(*owned);
    }
}

// A medium is one recording.
int FileLens::GetPuRecordList(GET_PU_RECORD_INFO& search, std::list<_GET_PU_RECORD_DATA_LIST>& list) {
    std::int64_t begin = 0;
    std::int64_t end = 0;
    _GET_PU_RECORD_DATA_LIST row;
    std::string error;
    list.clear();
    search.uiTotal = 0;
    if (!m_media->recording->Span(begin, end, row.ullBytes, error)) {
        return GvxFail(ZVS_OPEN_FILE_ERROR, "%s", error.c_str());
    }
    row.strContentID = m_media->name;
    row.strStartTime = UtcTimeText(begin);
    row.strEndTime = UtcTimeText(end);
    const bool overlaps = (search.strEndTime.empty() || row.strStartTime < search.strEndTime) &&
                          (search.strStartTime.empty() || row.strEndTime > search.strStartTime);
    const bool ofType = search.eRecordType == PU_RECORD_ALL || search.eRecordType == row.eRecordType;
    if (overlaps && ofType) {
        search.uiTotal = 1;
        if (search.uiFromIndex == 0 && search.uiMaxCount > 0) {
            list.push_back(std::move(row));
        }
    }
    return ZVS_SUCCEED;
}

// The picture of a file does not change, so that those of one request are taken at once.
int FileLens::VcuSnapShotReqInfo(const PU_SNAP_CONF_REQ& request) {
    return gvxplugin::Guarded(kTitle, "VcuSnapShotReqInfo", [&]() -> int {
        std::string error;
        const std::string& device = GetParentDev().GetMainDevID();
        gvxplugin::PictureDesk::Owed owed(*m_desk, device, GetSubDevID(), request);
        const gvxplugin::PictureBytes bytes = m_media->still->Get(error);
        if (bytes == nullptr) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_OPEN_FILE_ERROR, "%s [lens:%s]", error.c_str(), GetSubDevID());
            owed.SetReason(error);
            return GvxFail(ZVS_OPEN_FILE_ERROR, "%s", error.c_str());
        }
        while (owed.Left() > 0) {
            const int result = m_desk->Keep(device, GetSubDevID(), request, bytes);
            if (result != ZVS_SUCCEED) {
                owed.SetReason("It cannot be kept.");
                return result;
            }
            owed.NoteTaken();
        }
        return ZVS_SUCCEED;
    });
}

int FileLens::VcuUploadImgCompReq(PU_UPLOAD_IMAGE_COMP_REQ& end) {
    m_desk->NoteEnd(GetSubDevID(), end);
    return ZVS_SUCCEED;
}

int FileLens::SetPresetParam(MSG_PTZ_SET_PRESET_REQ& preset) {
    constexpr std::uint32_t kMost = 256;
    return gvxplugin::Guarded(kTitle, "SetPresetParam", [&]() -> int {
        if (preset.uiPresetIndex == 0) {
            for (preset.uiPresetIndex = 1; m_presets.count(preset.uiPresetIndex) != 0; ++preset.uiPresetIndex) {
            }
        }
        if (m_presets.size() >= kMost && m_presets.count(preset.uiPresetIndex) == 0) {
            return GvxFail(ZVS_PARA_INVALID, "The lens has 256 presets already.");
        }
        m_presets[preset.uiPresetIndex] = preset.strPresetName;
        return ZVS_SUCCEED;
    });
}

int FileLens::GetPresetParam(std::list<_MSG_PTZ_GET_PRESET_RSP>& presets) {
    return gvxplugin::Guarded(kTitle, "GetPresetParam", [&] {
        presets.clear();
        for (const auto& [index, name] : m_presets) {
            presets.push_back({index, name});
        }
        return ZVS_SUCCEED;
    });
}

int FileLens::DelPresetParam(const MSG_PTZ_DEL_PRESET_REQ& preset) {
    return m_presets.erase(preset.uiPresetIndex) != 0
               ? ZVS_SUCCEED
               : GvxFail(ZVS_PARA_INVALID, "There is no preset %u.", preset.uiPresetIndex);
}

}  // namespace gvxfile
