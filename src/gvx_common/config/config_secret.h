#pragma once

#include <string>

namespace gvx {

// Whether the value of a setting of this name may not be shown: the names that a log line hides, too.
bool IsSecretName(const std::string& name);

// What a log line shows of a setting's value: value itself, or "***" when the name is a secret's.
const char* LoggableValue(const std::string& name, const char* value);

}  // namespace gvx
