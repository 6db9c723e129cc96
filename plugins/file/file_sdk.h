#pragma once

#include <string>

#include "file/media_list.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"

namespace gvxfile {

// The plug-in as a whole: its media, and the devices that play them.
class FileSdk : public CAdapterSdkBase {
public:
    bool Init(const char* configFile) override;
    int CreateDevice(const MainDeviceInfo& info, CAdapterDevBase*& device) override;

    // Why the last Init of the process failed.
    static const char* LastError();

private:
    MediaList m_media;
};

}  // namespace gvxfile
