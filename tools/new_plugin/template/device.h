#pragma once

#include <gvx_common/adapter/gvx_adapter_defaults.h>

namespace gvx_plugin_@IDENT@ {

// One device. The gateway calls one operation at a time, on a thread that this device keeps for its whole life; an
// operation may take its time, but it must return.
class Device : public CAdapterDevDefaults {
public:
    explicit Device(const MainDeviceInfo& info);

    int Init() override;
    int GetDeviceAbility(GVX_DEVICE_ABILITY_INFO& ability) override;
    int CreateLens(const char* lensId, const short& channel, CAdapterDevBase*& parent, CAdapterLensBase*& lens) override;
    int ClearAdapterInfo() override;
};

}  // namespace gvx_plugin_@IDENT@
