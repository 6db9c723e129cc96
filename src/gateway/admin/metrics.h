#pragma once

#include "gateway/admin/status.h"

#include <string>

namespace gvx {

// The status in the text format of Prometheus, version 0.0.4: base units, names of counters end with "_total". Devices
// are a label only on demand; without it the number of series does not grow with them. Any thread.
std::string MetricsText(const GatewayStatus& status, bool perDevice);

}  // namespace gvx
