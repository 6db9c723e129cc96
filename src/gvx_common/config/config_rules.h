#pragma once

#include <string>

namespace gvx {

// Whether value is legal for key, by the first group of rules that names the key; a key that none names is free.
// Otherwise value becomes the text to offer as default: empty for digit strings, unchanged for addresses and
// identities. Pure; any thread.
bool CheckSetting(const std::string& key, std::string& value);

// Whether an edit at run time may give key that value. Stricter than a file's rules, and an allow-list: a key that it
// does not name is refused. Pure; any thread.
bool CheckEdit(const std::string& key, const std::string& value);

// Whether CheckEdit allows any value for key.
bool IsEditable(const std::string& key);

// Whether zvs_gvx.conf gives the value back as it is: the loader takes a ';' for a comment and drops outer blanks.
// Pure; any thread.
bool ReadsBackEqual(const std::string& value);

// Whether the value of a setting of this name may not be shown: the names that a log line hides, too. Pure; any thread.
bool IsSecretName(const std::string& name);

// What a log line shows of a setting's value: value itself, or "***" when the name is a secret's. Any thread.
const char* LoggableValue(const std::string& name, const char* value);

}  // namespace gvx
