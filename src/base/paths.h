#pragma once

#include <string>

// Folders. GVX_CONFIG_DIR names the configuration folder, else it is "/etc/gvx" under the root prefix.
// GVX_ROOT is put in front of every fixed absolute path; it is empty in production. Any thread.

// Gives the configuration folder without a trailing slash. 0, or 1 when it does not exist, is no folder or
// cannot be read; directory then still names what was looked for.
int get_config_directory(std::string& directory);

namespace gvx {

// The root prefix joined to a fixed absolute path: RootedPath("/opt/x") is "/opt/x" when GVX_ROOT is empty.
std::string RootedPath(const std::string& absolutePath);

}  // namespace gvx
