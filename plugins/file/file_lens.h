#pragma once

#include "file/media_list.h"
#include "file/player.h"
#include "file/talk.h"
#include "gvx_common/adapter/gvx_adapter_defaults.h"
#include "plugin_support/picture_desk.h"

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace gvxfile {

// A lens that plays one medium, live and as something recorded. Each stream has a player of its own; there is one
// stream for each channel, that is for each stream type and transport. The sub streams show the same medium. One stream
// at a time takes its metadata along. Operations run on the thread of the device's reactor, one at a time; players have
// threads of their own.
class FileLens : public CAdapterLensDefaults {
public:
    FileLens(const char* lensId, short channel, CAdapterDevBase& parent, MediaPtr media,
             std::shared_ptr<gvxplugin::PictureDesk> desk);
    ~FileLens() override;

    int Uninit() override;
    int NegotiateStreamParam(CStreamParam* param) override;
    int StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool needExternData) override;
    int StopStream(CStreamParam* param, bool force) override;
    int RequestKeyframe(CStreamParam* param) override;
    int PlayBackStreamControl(const STREAM_CONTROL_PARAM_S& control, CStreamParam* param) override;
    int StartVoiceStream(void* userInfo, SEND_VOICE_STREAM_FUNC* func, CStreamParam* param) override;
    int StopVoiceStream(CStreamParam* param) override;
    void EnqueueAudioData(ACE_Message_Block* block) override;
    int GetPuRecordList(GET_PU_RECORD_INFO& search, std::list<_GET_PU_RECORD_DATA_LIST>& list) override;
    int VcuSnapShotReqInfo(const PU_SNAP_CONF_REQ& request) override;
    int VcuUploadImgCompReq(PU_UPLOAD_IMAGE_COMP_REQ& end) override;
    int SetPresetParam(MSG_PTZ_SET_PRESET_REQ& preset) override;
    int GetPresetParam(std::list<_MSG_PTZ_GET_PRESET_RSP>& presets) override;
    int DelPresetParam(const MSG_PTZ_DEL_PRESET_REQ& preset) override;

private:
    int CheckFree(int channelID, bool withMetadata) const;
    bool PrepareChannel(int channelID, SEND_STREAM_FUNC* func);
    int StartPlayer(PlayTarget target);
    int FindPictures(const CStreamParam& param, PictureRange& range) const;
    Player* FindPlayer(const CStreamParam* param) const;

    const std::string m_device;
    MediaPtr m_media;
    std::map<int, std::unique_ptr<Player>> m_players;  // by channel
    int m_metadataUser;                                // channel of the player that sends metadata
    const std::shared_ptr<gvxplugin::PictureDesk> m_desk;
    std::mutex m_talkMutex;
    std::unique_ptr<Talk> m_talk;                    // Guarded by m_talkMutex.
    std::map<std::uint32_t, std::string> m_presets;  // names by number
};

}  // namespace gvxfile
