#pragma once

#include <string>

namespace gvx {

// One alarm for all faults of configuration files that are not the settings themselves, remembered under an empty text.
// Raises and remembers it; false when it is open already, and nothing is done then. Any thread.
bool RaiseConfigAlarmOnce(const std::string& location, const std::string& description);

}  // namespace gvx
