#pragma once

#include "gvx_common/config/setting_table.h"

#include <cstddef>
#include <string>

namespace gvx {

constexpr std::size_t kMaxConfigBytes = 4u * 1024u * 1024u;  // of one file: far above any real one; bounds a wrong path

// What becomes of a file with a value that cannot be used.
enum class FaultyFile { Counts, IsRefused };

// Tells a finding for each line of a settings file (zvs_gvx.conf) that is no setting of the table, stands twice or in
// another section, or has a value that readers cannot use. content is the whole of the file. False when it is no text
// or has a value that cannot be used; the findings say what holds instead where the file counts all the same. Any
// thread.
bool CheckSettingsFile(const std::string& file, const std::string& content, FaultyFile faulty);

// What zvs_gvx.conf of a folder gives a setting, for what must be known before the configuration is loaded. False, with
// nothing told, when the file cannot be read. Any thread.
bool PeekSetting(const std::string& directory, Setting setting, std::string& value);

// The key and the value of a line; false for a line that is no setting.
bool SplitSetting(const std::string& line, std::string& key, std::string& value);

}  // namespace gvx
