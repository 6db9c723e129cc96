#pragma once

namespace gvx {

#ifdef GVX_VERSION
constexpr const char* kGatewayVersion = GVX_VERSION;
#else
constexpr const char* kGatewayVersion = "0.1.0";
#endif

}  // namespace gvx
