#pragma once

#include <string>

namespace BP {

// The net element code of a peer from its link identifier: 10105 SCU, 60105 OMU, 30105 MU, 240105 IMGU, 40105 GVX,
// otherwise 80105. The first name that is found in this order decides, since "OMU" contains "MU".
int ElementTypeOf(const std::string& linkID);

}  // namespace BP
