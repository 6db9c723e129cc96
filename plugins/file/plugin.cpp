#include "gvx_common/adapter/gvx_plugin.h"

#include "base/log.h"
#include "file/file_sdk.h"

#include <new>

const GvxPluginDescription* GvxDescribePlugin() {
    static constexpr GvxPluginDescription kDescription{GVX_PLUGIN_ABI_VERSION, "file", "0.1.0", "gvx"};
    return &kDescription;
}

CAdapterSdkBase* GvxCreateAdapter() {
    return new (std::nothrow) gvxfile::FileSdk;
}

void GvxDestroyAdapter(CAdapterSdkBase* adapter) {
    delete adapter;
}

const char* GvxPluginLastError() {
    return gvxfile::FileSdk::LastError();
}

int GvxTakeIntakeBlock(CAdapterSdkBase* adapter, const GvxIntakeBlock* block) {
    GVX_CHECK_NULL_RETURN(adapter, ZVS_NULL_POINTER);
    GVX_CHECK_NULL_RETURN(block, ZVS_NULL_POINTER);
    return static_cast<gvxfile::FileSdk*>(adapter)->TakeIntakeBlock(*block);
}
