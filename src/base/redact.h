#pragma once

#include <string>

// Text with passwords, keys and credentials in URLs replaced by "***". Pure; any thread.
std::string RedactSecrets(std::string line);
