#pragma once

#include "gateway/requests/work_parts.h"

#include <cstdint>
#include <functional>

namespace gvx {

// The work of every request of request_table.inc (docs/nss-requests.md): reads its record, calls the plug-in's
// operation and answers with what it wrote. It runs on the thread of the device's reactor, or of the plug-in's for one
// as a whole. Secrets are wiped when the operation has returned.
using OperationWork = std::function<int(GatewayContext&, BP::CGvxSessionBase&, const BP::CCmd&)>;

// Calls add with the number of each of these requests and its work.
void ForEachOperation(const std::function<void(std::uint32_t reqID, OperationWork work)>& add);

}  // namespace gvx
