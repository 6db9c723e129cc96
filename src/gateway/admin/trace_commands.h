#pragma once

#include "gateway/admin/control_socket.h"
#include "gateway/admin/trace_desk.h"

#include <string>
#include <vector>

namespace gvx {

// Answers "trace start DEV [SECONDS]", "trace stop DEV", "trace list", "trace dialogue DEV" and "trace fetch FILE
// FROM", the words behind "trace"; docs/status.md names the members. An object with the member "error" for what is
// refused; devices are those of the gateway, for the names that are near. That of "stop" comes with the end of the
// file, after two seconds at most. Any thread.
ControlAnswer AnswerTrace(const std::vector<std::string>& words, TraceDesk& desk,
                          const std::vector<std::string>& devices);

}  // namespace gvx
