#pragma once

#include <cstdint>

namespace BP {

// What the command layer's flow control tells about one of its threads. Numbers in host order.
struct fluxControlWarnInfo {
    std::uint32_t uiThreadID;
    bool bIsFluxControlWarn;
    std::uint32_t uiLevel;
    std::uint32_t uiNameLength;  // bytes at pThreadName, a terminator included or not
    char pThreadName[1];         // of variable length
};
using FLUX_CONTROL_WARN_INFO = fluxControlWarnInfo;

}  // namespace BP
