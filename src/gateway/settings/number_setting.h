#pragma once

#include <string>

namespace gvx {

// Decimal text within the bounds, both included. Any thread.
bool ReadNumber(const std::string& text, long long least, long long most, long long& value);

}  // namespace gvx
