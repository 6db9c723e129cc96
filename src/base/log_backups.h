#pragma once

#include "base/log_fault.h"

#include <cstddef>
#include <optional>
#include <string>

namespace gvx {

// The name of a backup: "a.log" gives "a.3.log".
std::string BackupName(const std::string& path, std::size_t number);

// Makes the file its first backup and moves the older ones on, up to the first free name; the one that would be beyond
// count is removed. Nothing is moved when a name is taken by what is no file. No value for success.
std::optional<LogFault> ShiftBackups(const std::string& path, std::size_t count);

}  // namespace gvx
