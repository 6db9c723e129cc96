#pragma once

#include "gateway/settings/exit_codes.h"

#include <string>

namespace gvx {

// A whole number of the configuration that a start reads.
struct NumberSetting {
    const char* key;
    long long fallback;  // where the key is absent
    long long least;
    long long most;
};

// Decimal text within the bounds, both included. Any thread.
bool ReadNumber(const std::string& text, long long least, long long most, long long& value);

// The value of a setting. A value outside its range refuses the start, and the result names key, range and value. Any
// thread.
StartResult ReadSetting(const NumberSetting& setting, long long& value);

}  // namespace gvx
