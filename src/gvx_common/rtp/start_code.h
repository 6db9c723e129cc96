#pragma once

#include <cstddef>

namespace gvx {

// Length of the start code 00 00 00 01 (ITU-T H.264, annex B). The three-byte form counts for nothing here.
constexpr std::ptrdiff_t kStartCodeLen = 4;

// Start of the next 00 00 00 01 at or behind from, or end. Reads nothing outside [from, end). Any
// thread.
const unsigned char* FindStartCode(const unsigned char* from, const unsigned char* end);

}  // namespace gvx
