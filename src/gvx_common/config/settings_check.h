#pragma once

#include <string>

namespace gvx {

// What becomes of a file with a value that cannot be used.
enum class FaultyFile { Counts, IsRefused };

// Tells a finding for each line of a settings file (zvs_gvx.conf) that is no setting of the table, stands twice or in
// another section, or has a value that readers cannot use. content is the whole of the file. False when it is no text
// or has a value that cannot be used; the findings say what holds instead where the file counts all the same. Any
// thread.
bool CheckSettingsFile(const std::string& file, const std::string& content, FaultyFile faulty);

// The key and the value of a line; false for a line that is no setting.
bool SplitSetting(const std::string& line, std::string& key, std::string& value);

}  // namespace gvx
