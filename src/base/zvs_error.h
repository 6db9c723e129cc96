#pragma once

#include <string>

// The one enumeration of results. 0 is success; many functions use only ZVS_SUCCEED and ZVS_FAIL. All others are
// nine-digit numbers. The rows (name, number, sentence) stand once, in zvs_error_table.inc.
enum enZvsError : int {
#define ZVS_ERROR_ROW(name, number, text) name = number,
#include "base/zvs_error_table.inc"
#undef ZVS_ERROR_ROW
};

// Name of an error code, such as "ZVS_NULL_POINTER"; "ZVS_UNKNOWN" for a number without a row. Static text.
const char* ZvsErrorName(int code);

// One sentence that tells an operator what the code means; an empty text for a number without a row. Static text.
const char* ZvsErrorText(int code);

namespace gvx {

// "connect failed: Connection refused" for an activity and an errno. Any thread.
std::string ErrnoText(const char* activity, int error);

}  // namespace gvx
