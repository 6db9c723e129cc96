#pragma once

#include <string>

namespace gvx {

// Tells a finding for each line of a settings file (zvs_gvx.conf) that is no setting of the table, stands twice or in
// another section, or has a value that readers cannot use. content is the whole of the file. Any thread.
void CheckSettingsFile(const std::string& file, const std::string& content);

// The key and the value of a line; false for a line that is no setting.
bool SplitSetting(const std::string& line, std::string& key, std::string& value);

}  // namespace gvx
