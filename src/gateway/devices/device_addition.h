#pragma once

#include "gateway/devices/device_request.h"

#include <string>

namespace gvx {

class LoadedPlugin;
class PluginHost;

// Reads an addition and checks what needs neither the device table nor the plug-in's work: the body, its codes, the
// plug-in's name. 0, the request and the plug-in; or a code with a sentence for the sender. Any thread.
int ReadAddition(const PluginHost& plugins, const BP::CCmd& cmd, DeviceRequest& request, LoadedPlugin*& plugin,
                 std::string& reason);

}  // namespace gvx
