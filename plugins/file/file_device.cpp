#include "file/file_device.h"

#include "base/log.h"
#include "file/file_lens.h"
#include "gvx_common/adapter/gvx_device_state.h"
#include "plugin_support/guarded.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace gvxfile {
namespace {

constexpr const char* kTitle = "file plug-in";
constexpr std::size_t kMaxIdentifier = 32;
constexpr std::uint32_t kStreamsOfLens = 3;  // the main stream and two sub streams, which show the same

}  // namespace

FileDevice::FileDevice(std::vector<MediaPtr> media, std::unique_ptr<DirectoryEntry> entry,
                       std::shared_ptr<gvxplugin::PictureDesk> desk)
    : m_media(std::move(media)), m_entry(std::move(entry)), m_desk(std::move(desk)) {}

int FileDevice::Init() {
    return ResetLogin();
}

int FileDevice::ResetLogin() {
    return gvxplugin::Guarded(kTitle, "ResetLogin", [this] {
        GvxReportLoginTry(GetMainDevID());
        SetLoginStatus(true);
        GvxReportDeviceState(GetMainDevID(), GVX_DEVICE_ONLINE,
                             "Its media are in memory; the first one is '" + m_media.front()->name + "'.");
        return ZVS_SUCCEED;
    });
}

GVX_CHANNEL_ABILITY_INFO FileDevice::DescribeChannel(std::size_t channel) const {
    const MediaEntry& media = *m_media[channel];
    GVX_CHANNEL_ABILITY_INFO info;
    info.nChannelId = static_cast<int>(channel);
    info.strName = media.name;
    info.nVideoFormat = media.codec == gvx::Codec::H264 ? VIDEO_DEC_H264 : VIDEO_DEC_H265;
    info.nAudioFormat = media.HasAudio() ? static_cast<std::uint32_t>(media.audioFormat) : 0;
    info.nWidth = static_cast<std::uint16_t>(media.width);
    info.nHeight = static_cast<std::uint16_t>(media.height);
    info.dFrameRate = media.frameRate.Value();
    info.nStreamCount = kStreamsOfLens;
    return info;
}

int FileDevice::GetDeviceAbility(GVX_DEVICE_ABILITY_INFO& ability) {
    ability = GVX_DEVICE_ABILITY_INFO{};
    ability.eDevFormType = GetDevFromType();
    ability.strModel = "file";
    for (std::size_t channel = 0; channel < m_media.size(); ++channel) {
        ability.channels.push_back(DescribeChannel(channel));
    }
    return ZVS_SUCCEED;
}

int FileDevice::GetSubDeviceAbility(LENS_ABILITY_INFO& ability) {
    const auto found = std::find_if(m_lensIds.begin(), m_lensIds.end(),
                                    [&ability](const auto& lens) { return lens.second == ability.strLensCode; });
    if (found == m_lensIds.end()) {
        return ZVS_GVX_LENS_NOT_EXIST;
    }
    ability.channel = DescribeChannel(found->first);
    return ZVS_SUCCEED;
}

int FileDevice::CreateLens(const char* lensId, const short& channel, CAdapterDevBase*& parent,
                           CAdapterLensBase*& lens) {
    lens = nullptr;
    const std::size_t length = lensId == nullptr ? 0 : std::strlen(lensId);
    if (length == 0 || length > kMaxIdentifier) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_PARA_INVALID, "A lens identifier has 1 to 32 characters. [dev:%s]",
                         GetMainDevID().c_str());
        return ZVS_PARA_INVALID;
    }
    if (channel < 0 || static_cast<std::size_t>(channel) >= m_media.size()) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_LENS_NOT_EXIST, "[dev:%s, ch:%d]", GetMainDevID().c_str(), channel);
        return ZVS_GVX_LENS_NOT_EXIST;
    }
    CAdapterDevBase& owner = parent == nullptr ? *this : *parent;
    return gvxplugin::Guarded(kTitle, "CreateLens", [&] {
        m_lensIds[static_cast<unsigned int>(channel)] = lensId;
        m_entry->AddLens(static_cast<unsigned int>(channel), lensId);
        lens = new FileLens(lensId, channel, owner, m_media[static_cast<std::size_t>(channel)], m_desk);
        return ZVS_SUCCEED;
    });
}

int FileDevice::VcuGetUploadImgRsp(PU_UPLOAD_IMAGE_RSP& address) {
    return gvxplugin::Guarded(kTitle, "VcuGetUploadImgRsp", [&] { return m_desk->Send(GetMainDevID(), address); });
}

const std::string FileDevice::GetLensIDThroughChannoId(unsigned int channel) {
    const auto found = m_lensIds.find(channel);
    return found == m_lensIds.end() ? std::string() : found->second;
}

}  // namespace gvxfile
