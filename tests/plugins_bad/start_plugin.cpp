// A plug-in of an older package, or of one with another layout: what the header exports by itself goes by another name.
#if defined(START_WITHOUT_LAYOUT) || defined(START_OTHER_LAYOUT)
#define GvxGetPluginLayout GvxHiddenLayout
#endif

#include "gvx_common/adapter/gvx_adapter_defaults.h"
#include "gvx_common/adapter/gvx_plugin.h"
#include "gvx_common/adapter/gvx_reason.h"

#include <chrono>
#include <new>
#include <stdexcept>
#include <thread>

// A plug-in whose start fails in the way that the build names.

#ifndef START_ABI
#define START_ABI GVX_PLUGIN_ABI_VERSION
#endif
#ifndef START_NAME
#define START_NAME BAD_PLUGIN_NAME
#endif

namespace {

class StartSdk : public CAdapterSdkBase {
public:
    bool Init(const char*) override {
#ifdef START_THROWS
        throw std::runtime_error("no start today");
#elif defined(START_TAKES)
        return true;
#elif defined(START_HANGS)
        while (true) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
#else
        return false;
#endif
    }
    int CreateDevice(const MainDeviceInfo&, CAdapterDevBase*&) override {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
};

}  // namespace

#ifdef START_OTHER_LAYOUT
#undef GvxGetPluginLayout
GVX_PLUGIN_EXPORT const GvxPluginLayout* GvxGetPluginLayout() {
    static const GvxTypeSize types[] = {gvx::kPluginTypes[0], {"CAdapterDevBase", sizeof(CAdapterDevBase) + 8}};
    static const GvxPluginLayout layout{GVX_PLUGIN_ABI_VERSION, 2, types};
    return &layout;
}
#endif

const GvxPluginDescription* GvxDescribePlugin() {
    static const GvxPluginDescription description{START_ABI, START_NAME, "1", "tests"};
    return &description;
}

CAdapterSdkBase* GvxCreateAdapter() {
#ifdef START_WITHOUT_ADAPTER
    return nullptr;
#else
    return new (std::nothrow) StartSdk;
#endif
}

void GvxDestroyAdapter(CAdapterSdkBase* adapter) {
    delete adapter;
}

const char* GvxPluginLastError() {
    return "clip /nowhere/clip.h264 cannot be opened";
}

#ifdef START_TAKES
// Tells how much came.
int GvxTakeIntakeBlock(CAdapterSdkBase*, const GvxIntakeBlock* block) {
    return GvxFail(ZVS_FAIL, "%u bytes", block->uiLength);
}
#endif
