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

// The path, free of symbolic links, of a regular file that somebody names who may reach nothing outside the folder
// root. A name is relative to root, or absolute below it; links are followed as long as they stay below it.
// mayBeMissing: also that of a file which does not exist yet, in a folder that does. False with the reason, as behind a
// colon, in error.
bool ResolveBelow(const std::string& root, const std::string& name, bool mayBeMissing, std::string& path,
                  std::string& error);

// The gateway's control socket, where no setting names another: GVX_CONTROL_SOCKET, else /run/gvx/control.sock under
// the root prefix.
std::string DefaultControlSocket();

}  // namespace gvx
