#include "device.h"

#include "lens.h"
#include "test_picture.h"

#include <base/zvs_error.h>

#include <new>

namespace gvx_plugin_@IDENT@ {

// Address, user and password are members of the base class already, for GetIP, GetPort, GetUserName, GetPassword.
Device::Device(const MainDeviceInfo& /*info*/) {}

// Step 3: log in to the device at GetIP() and GetPort(). Any result but 0 deletes the device again; zvs_error.h has the
// codes, and the guide tells how to add words to them.
int Device::Init() {
    SetLoginStatus(true);
    return ZVS_SUCCEED;
}

// Step 4: one entry for each channel of the device.
int Device::GetDeviceAbility(GVX_DEVICE_ABILITY_INFO& ability) {
    ability.strModel = "test picture";
    GVX_CHANNEL_ABILITY_INFO channel;
    channel.nChannelId = 0;
    channel.strName = "test picture";
    channel.nVideoFormat = VIDEO_DEC_H264;
    channel.nWidth = TestPicture::kWidth;
    channel.nHeight = TestPicture::kHeight;
    channel.dFrameRate = TestPicture::kFramesPerSecond;
    ability.channels.push_back(channel);
    return ZVS_SUCCEED;
}

int Device::CreateLens(const char* lensId, const short& channel, CAdapterDevBase*& parent, CAdapterLensBase*& lens) {
    lens = nullptr;
    if (lensId == nullptr || parent == nullptr || channel != 0) {
        return ZVS_GVX_LENS_NOT_EXIST;
    }
    lens = new (std::nothrow) Lens(lensId, channel, *parent);
    return lens == nullptr ? ZVS_ALLOC_MEMORY_ERROR : ZVS_SUCCEED;
}

// Step 5: log out. The lenses are gone, the destructor follows; no callback may name this device any more.
int Device::ClearAdapterInfo() {
    SetLoginStatus(false);
    return ZVS_SUCCEED;
}

}  // namespace gvx_plugin_@IDENT@
