#include "gateway/devices/device_addition.h"

#include "gateway/messages/answer.h"
#include "gateway/plugins/plugin_host.h"

namespace gvx {

int ReadAddition(const PluginHost& plugins, const BP::CCmd& cmd, DeviceRequest& request, LoadedPlugin*& plugin,
                 std::string& reason) {
    if (!ReadDeviceRequest(cmd, request, reason)) {
        return ZVS_PARA_INVALID;
    }
    plugin = plugins.Find(request.info.strPluginName);
    if (plugin == nullptr) {
        reason = ReasonOf(ZVS_GVX_PLUGIN_NOT_EXIST);
        return ZVS_GVX_PLUGIN_NOT_EXIST;
    }
    return ZVS_SUCCEED;
}

}  // namespace gvx
