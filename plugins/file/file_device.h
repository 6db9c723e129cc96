#pragma once

#include "file/device_directory.h"
#include "file/media_list.h"
#include "gvx_common/adapter/gvx_adapter_defaults.h"
#include "plugin_support/picture_desk.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace gvxfile {

// A camera whose lenses play files. It is always logged in and always reachable.
class FileDevice : public CAdapterDevDefaults {
public:
    // One lens for each medium, numbered from 0.
    FileDevice(std::vector<MediaPtr> media, std::unique_ptr<DirectoryEntry> entry,
               std::shared_ptr<gvxplugin::PictureDesk> desk);

    int Init() override;
    int GetDeviceAbility(GVX_DEVICE_ABILITY_INFO& ability) override;
    int GetSubDeviceAbility(LENS_ABILITY_INFO& ability) override;
    int ResetLogin() override;
    int CreateLens(const char* lensId, const short& channel, CAdapterDevBase*& parent,
                   CAdapterLensBase*& lens) override;
    int VcuGetUploadImgRsp(PU_UPLOAD_IMAGE_RSP& address) override;
    const std::string GetLensIDThroughChannoId(unsigned int channel) override;

private:
    GVX_CHANNEL_ABILITY_INFO DescribeChannel(std::size_t channel) const;

    std::vector<MediaPtr> m_media;
    std::map<unsigned int, std::string> m_lensIds;  // by channel
    const std::unique_ptr<DirectoryEntry> m_entry;  // what other threads may know of this device
    const std::shared_ptr<gvxplugin::PictureDesk> m_desk;
};

}  // namespace gvxfile
