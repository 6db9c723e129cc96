#pragma once

#include "gateway/admin/status.h"

#include <json/value.h>

#include <functional>
#include <string>

namespace gvx {

// Answers a request of the control socket: "status", "devices", "streams", "links", "alarms", "queue", "plugins", "all"
// or "log level [LEVEL]", LEVEL being 0 to 7 or a name such as "debug". An object with the member that the request
// names; one with the member "error", a sentence, for any other request. Collects only what it answers with. Any
// thread.
Json::Value AnswerControl(const std::string& request, const std::function<GatewayStatus()>& collect);

}  // namespace gvx
