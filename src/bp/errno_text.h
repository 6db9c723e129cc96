#pragma once

#include <string>

namespace BP {

// "connect failed: Connection refused" for an activity and an errno. Any thread.
std::string ErrnoText(const char* activity, int error);

}  // namespace BP
