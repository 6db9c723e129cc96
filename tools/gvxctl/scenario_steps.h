#pragma once

#include "gvxctl/scenario.h"

namespace gvxctl {

// Reads one step, an object with the step's name as its only member. False with the fault, which begins with the
// step's name where there is one. Repetitions are none of its business.
bool ReadStep(const Json::Value& object, Step& step, std::string& error);

}  // namespace gvxctl
