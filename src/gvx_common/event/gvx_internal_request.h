#pragma once

#include <cstdint>

// Request types that never travel on a link: the layers inside the gateway give them to each other.
enum enGvxInternalRequest : std::uint32_t {
    GVX_INTERNAL_REQ_FFFA = 0xFFFA,           // served by BP::CDeviceManageSession
    GVX_INTERNAL_REQ_DELETE = 0xFFFB,         // treated like the deletion of a device
    GVX_INTERNAL_REQ_FFFC = 0xFFFC,           // never expires
    GVX_INTERNAL_REQ_SDK_EXCEPTION = 0xFFFF,  // its block holds an ADAPTER_COMMON_MESSAGE
};
