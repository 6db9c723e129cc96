#pragma once

#include <string>
#include <string_view>

// Text with passwords, keys and credentials in URLs replaced by "***". Pure; any thread.
std::string RedactSecrets(std::string line);
// The same; of what it hides no copy is left behind in memory.
std::string RedactedText(std::string_view text);
