#pragma once

#include <cstdint>

// Integer names that the message records and the plug-in contract use.
using ZVS_CHAR = char;
using ZVS_BOOL = std::uint32_t;  // 0 or 1; 32 bits in records that go on the wire
using ZVS_INT32 = std::int32_t;
using ZVS_UINT16 = std::uint16_t;
using ZVS_UINT32 = std::uint32_t;
using ZVS_ULONG = std::uint64_t;
