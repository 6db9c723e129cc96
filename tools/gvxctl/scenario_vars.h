#pragma once

#include "gvxctl/scenario.h"

#include <json/value.h>

#include <functional>
#include <string>

namespace gvxctl {

// Puts values for ${name} into a text, in one pass: a value that holds such a name is not looked into. `valueOf`
// answers false for a name that has no value. That is a fault, which names it; a name that begins with `later` stays.
using VarLookup = std::function<bool(const std::string& name, std::string& value)>;
bool FillText(std::string& text, const VarLookup& valueOf, const std::string& later, std::string& error);

// Into every text of a JSON value, save the names of members. Names that begin with "port:" stay for the run.
bool FillJson(Json::Value& value, const ScenarioVars& vars, std::string& error);

}  // namespace gvxctl
