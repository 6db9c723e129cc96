#pragma once

#include "gateway/requests/work_parts.h"

#include <memory>

namespace gvx {

// Registers the work of every request that the gateway serves, which shares the context; and the refusal of every other
// one, which leaves by the main-service link as all responses do. Of the thread that starts and stops the gateway.
//
// Work runs on the thread of the reactor that serves the command, answers a request itself, and returns the code that
// it answered with.
void RegisterGatewayWork(const std::shared_ptr<GatewayContext>& context);
// Takes it all away again. Work that runs at this moment is finished.
void UnregisterGatewayWork();

}  // namespace gvx
