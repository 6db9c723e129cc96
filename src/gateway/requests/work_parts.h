#pragma once

// What the signatures of the work about requests name.

namespace BP {
class CCmd;
class CGvxSessionBase;
}  // namespace BP

namespace gvx {
struct GatewayContext;
}
