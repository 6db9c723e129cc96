#pragma once

#include "gvx_common/codec/bit_reader.h"
#include "gvx_common/codec/sequence_parameter_set.h"

#include <cstddef>
#include <cstdint>

// What the parsers of the two codecs share.
namespace gvx {

constexpr std::uint32_t kMaxPictureSide = 16384;

// chroma_format_idc, which both codecs begin a description of their samples with: 0 to 3, 1 for 4:2:0.
std::uint32_t ReadChromaFormat(BitReader& bits);

// Takes the window that is cut off the picture, where there is one, which is counted in samples of colour, of each of
// the fields. False when nothing would be left.
bool CutWindow(BitReader& bits, std::uint32_t chromaFormat, std::uint32_t fields, SequenceInfo& info);

// Aspect, overscan, signal type and chroma location, which stand alike in both codecs (H.264 and H.265 section E.2.1).
void SkipUsabilityHead(BitReader& bits);

// num_units_in_tick and time_scale as frames a second; not known when they say nothing sensible.
Rational ReadTiming(BitReader& bits, std::uint32_t ticksPerFrame);

bool ParseSpsH264(const std::uint8_t* nal, std::size_t length, SequenceInfo& info);
bool ParseSpsH265(const std::uint8_t* nal, std::size_t length, SequenceInfo& info);

}  // namespace gvx
