#pragma once

#include "gvx_common/records/gvx_adapter_records.h"

#include <string>
#include <vector>

namespace BP {
class CCmd;
}

namespace gvx {

struct LensRequest {
    std::string code;
    short channel = 0;
};

// What NSS_ADD_MAIN_DEV_REQ asks for.
struct DeviceRequest {
    MainDeviceInfo info;
    std::vector<LensRequest> lenses;  // empty: every lens that the plug-in reports
};

// Reads the request (docs/nss-messages.md). False, with a sentence for the sender, for one that is not allowed.
bool ReadDeviceRequest(const BP::CCmd& cmd, DeviceRequest& request, std::string& reason);

}  // namespace gvx
