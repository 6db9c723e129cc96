#pragma once

#include "gateway/admin/status.h"

namespace gvx {

// Writes the status as lines of the log: a summary, then what an operator would look for, a line each and at most
// kMostRows of a kind. Any thread.
constexpr std::size_t kMostRows = 20;
void LogStatus(const GatewayStatus& status);

}  // namespace gvx
