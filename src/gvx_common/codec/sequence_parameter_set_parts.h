#pragma once

#include "gvx_common/codec/bit_reader.h"
#include "gvx_common/codec/sequence_parameter_set.h"

#include <cstddef>
#include <cstdint>

// What the parsers of the two codecs share.
namespace gvx {

constexpr std::uint32_t kMaxPictureSide = 16384;

struct CropWindow {
    std::uint32_t left = 0;
    std::uint32_t right = 0;
    std::uint32_t top = 0;
    std::uint32_t bottom = 0;
};

// Takes a window, counted in units, off the picture; false when nothing would be left.
bool ApplyWindow(const CropWindow& window, std::uint32_t unitX, std::uint32_t unitY, SequenceInfo& info);

// Aspect, overscan, signal type and chroma location, which stand alike in both codecs (H.264 and H.265 section E.2.1).
void SkipUsabilityHead(BitReader& bits);

// num_units_in_tick and time_scale as frames a second; not known when they say nothing sensible.
Rational ReadTiming(BitReader& bits, std::uint32_t ticksPerFrame);

bool ParseSpsH264(const std::uint8_t* nal, std::size_t length, SequenceInfo& info);
bool ParseSpsH265(const std::uint8_t* nal, std::size_t length, SequenceInfo& info);

}  // namespace gvx
