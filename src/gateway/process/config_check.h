#pragma once

#include "gateway/process/options.h"

namespace gvx {

// Looks through the configuration as a start would load it: settings, identity, alarm texts, key files, plug-ins with
// their media and mapping files. It opens no port and writes to no file; a plug-in is started and ended. Each finding
// is a line on standard output. The exit code of gvxd --check-config: 0 nothing found, 1 a start would serve, with what
// is named, 2 it would not. Of main's thread, with nothing started.
int CheckConfiguration(const GatewayOptions& options);

}  // namespace gvx
