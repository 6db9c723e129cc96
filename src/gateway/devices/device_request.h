#pragma once

#include "bp/cmd.h"
#include "gateway/messages/answer.h"
#include "gvx_common/records/gvx_adapter_records.h"

#include <string>
#include <vector>

namespace gvx {

class LoadedPlugin;
class PluginHost;

struct LensRequest {
    std::string code;
    short channel = 0;
};

// What NSS_ADD_MAIN_DEV_REQ asks for. It is read once, where the request comes in, and goes with the command to the
// work.
struct DeviceRequest : BP::CmdAttachment {
    MainDeviceInfo info;
    LoadedPlugin* plugin = nullptr;   // which info names; not owned
    std::vector<LensRequest> lenses;  // empty: every lens that the plug-in reports
};

// Reads the request (docs/nss-messages.md) and finds its plug-in: all that needs neither the device table nor the
// plug-in's work. Any thread.
Result ReadDeviceRequest(const PluginHost& plugins, const BP::CCmd& cmd, DeviceRequest& request);

}  // namespace gvx
