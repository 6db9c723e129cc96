#pragma once

#include <cstdint>

namespace gvx {

enum class Codec { H264, H265 };

// A frame rate, or 0/1 when it is not known.
struct Rational {
    std::uint32_t numerator = 0;
    std::uint32_t denominator = 1;
    bool Known() const { return numerator != 0 && denominator != 0; }
    double Value() const { return Known() ? static_cast<double>(numerator) / denominator : 0.0; }
};

}  // namespace gvx
