#pragma once

#include "gateway/admin/status.h"

#include <json/value.h>

#include <cstddef>
#include <map>
#include <string>

namespace gvx {

// The status as JSON, as docs/status.md describes it. Ages are in milliseconds, null for what has never been. Any
// thread.

// A list of the status by its name, such as "devices"; null for a name that is none.
Json::Value StatusList(const GatewayStatus& status, const std::string& name);
// What stands above the lists: the process, whether it is ready, and how many there are of each kind.
Json::Value StatusSummary(const GatewayStatus& status);
// The summary with all lists; as text, one line with its end, in a tenth of the time and memory.
Json::Value WholeStatus(const GatewayStatus& status);
std::string WholeStatusText(const GatewayStatus& status);

// How many devices are in each state, by the state's words.
std::map<std::string, std::size_t> CountDeviceStates(const GatewayStatus& status);

}  // namespace gvx
