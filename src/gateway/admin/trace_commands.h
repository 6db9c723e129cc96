#pragma once

#include "gateway/admin/trace_desk.h"

#include <json/value.h>

#include <string>
#include <vector>

namespace gvx {

// Answers "trace start DEV [SECONDS]", "trace stop DEV", "trace list", "trace dialogue DEV" and "trace fetch FILE
// FROM", the words behind "trace"; docs/status.md names the members. An object with the member "error" for what is
// refused; devices are those of the gateway, for the names that are near. Any thread.
Json::Value AnswerTrace(const std::vector<std::string>& words, TraceDesk& desk,
                        const std::vector<std::string>& devices);

}  // namespace gvx
