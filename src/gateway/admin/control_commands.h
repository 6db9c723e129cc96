#pragma once

#include "gateway/admin/control_socket.h"
#include "gateway/admin/status.h"
#include "gateway/admin/trace_desk.h"

#include <functional>
#include <string>
#include <vector>

namespace gvx {

// Whom the requests are about.
struct ControlParts {
    std::function<GatewayStatus()> collect;
    std::function<std::vector<std::string>()> devices;  // their codes
    TraceDesk& traces;
};

// Answers a request of the control socket: "status", "devices", "streams", "links", "alarms", "queue", "plugins",
// "all", "log level [LEVEL]", LEVEL being 0 to 7 or a name such as "debug", and those of AnswerTrace. An object with
// the member that the request names; one with the member "error", a sentence, for any other request. Collects only what
// it answers with. Any thread.
ControlAnswer AnswerControl(const std::string& request, const ControlParts& parts);

}  // namespace gvx
