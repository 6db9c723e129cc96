#pragma once

#include "gateway/settings/exit_codes.h"

namespace gvx {

// Begins the operation log in the file of GVX_OPERATION_LOG_FILE, if there is one. Refused when the file cannot be
// opened.
StartResult StartOperationLog();

}  // namespace gvx
