#pragma once

#include "gvxctl/commands.h"

#include <string>

namespace gvxctl {

struct ConfigOptions {
    std::string section;  // of get: empty for all
    std::string key;
    std::string value;
    bool changed = false;  // set by the changed-config message instead of the edit request
};

// Prints the gateway's unified document, a setting a line; the password of the log upload shows as "***".
int RunConfigGet(const CommonOptions& common, const ConfigOptions& options);
// Edits one setting of the running gateway; a refusal says why.
int RunConfigSet(const CommonOptions& common, const ConfigOptions& options);

// The document for people. Pure.
std::string ShowUnifiedDocument(std::string xml);

}  // namespace gvxctl
