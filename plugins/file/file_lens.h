#pragma once

#include "file/media_list.h"
#include "file/player.h"
#include "gvx_common/adapter/gvx_adapter_defaults.h"

#include <map>
#include <memory>
#include <string>

namespace gvxfile {

// A lens that plays one medium. Each stream has a player of its own; there is one stream for each channel, that is for
// each stream type and transport. The sub streams show the same medium. One stream at a time takes its metadata along.
// Operations run on the thread of the device's reactor, one at a time; players have threads of their own.
class FileLens : public CAdapterLensDefaults {
public:
    FileLens(const char* lensId, short channel, CAdapterDevBase& parent, MediaPtr media);
    ~FileLens() override;

    int Uninit() override;
    int NegotiateStreamParam(CStreamParam* param) override;
    int StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool needExternData) override;
    int StopStream(CStreamParam* param, bool force) override;
    int RequestKeyframe(CStreamParam* param) override;

private:
    int CheckFree(int channelID, bool withMetadata) const;
    bool PrepareChannel(int channelID, SEND_STREAM_FUNC* func);
    int StartPlayer(PlayTarget target);
    Player* FindPlayer(const CStreamParam* param) const;

    const std::string m_device;
    MediaPtr m_media;
    std::map<int, std::unique_ptr<Player>> m_players;  // by channel
    int m_metadataUser;                                // channel of the player that sends metadata
};

}  // namespace gvxfile
