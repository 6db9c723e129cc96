// The plug-in as a whole, and what the shared object exports.
#include "device.h"

#include <base/zvs_error.h>
#include <gvx_common/adapter/gvx_adapter_sdk.h>
#include <gvx_common/adapter/gvx_plugin.h>

#include <new>
#include <string>

namespace gvx_plugin_@IDENT@ {

namespace {

std::string g_lastError;  // why Init failed, one sentence

class Sdk : public CAdapterSdkBase {
public:
    // Step 1: start the SDK of your devices. configFile is <configuration folder>/plugins/@NAME@.json and need not
    // exist. On a failure put a sentence into g_lastError and answer false: the gateway then does not start.
    bool Init(const char* configFile) override { return configFile != nullptr; }

    // Step 2: what the platform said of the device is in info: address, user, password, a text of your own
    // (strExtend). Refuse here what can never work; Device::Init logs in.
    int CreateDevice(const MainDeviceInfo& info, CAdapterDevBase*& device) override {
        device = new (std::nothrow) Device(info);
        return device == nullptr ? ZVS_ALLOC_MEMORY_ERROR : ZVS_SUCCEED;
    }
};

}  // namespace

}  // namespace gvx_plugin_@IDENT@

const GvxPluginDescription* GvxDescribePlugin() {
    static const GvxPluginDescription description{GVX_PLUGIN_ABI_VERSION, "@NAME@", "0.1.0", "your name"};
    return &description;
}

CAdapterSdkBase* GvxCreateAdapter() {
    return new (std::nothrow) gvx_plugin_@IDENT@::Sdk;
}

void GvxDestroyAdapter(CAdapterSdkBase* adapter) {
    delete adapter;
}

const char* GvxPluginLastError() {
    return gvx_plugin_@IDENT@::g_lastError.c_str();
}
