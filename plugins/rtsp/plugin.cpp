#include "gvx_common/adapter/gvx_plugin.h"

#include "rtsp/rtsp_sdk.h"

#include <new>

const GvxPluginDescription* GvxDescribePlugin() {
    static constexpr GvxPluginDescription kDescription{GVX_PLUGIN_ABI_VERSION, "rtsp", "0.1.0", "gvx"};
    return &kDescription;
}

CAdapterSdkBase* GvxCreateAdapter() {
    return new (std::nothrow) gvxrtsp::RtspSdk;
}

void GvxDestroyAdapter(CAdapterSdkBase* adapter) {
    delete adapter;
}

const char* GvxPluginLastError() {
    return gvxrtsp::RtspSdk::LastError();
}
