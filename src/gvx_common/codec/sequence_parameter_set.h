#pragma once

#include "gvx_common/codec/codec.h"

#include <cstddef>
#include <cstdint>

namespace gvx {

// What a sequence parameter set tells about the pictures.
struct SequenceInfo {
    std::uint32_t id = 0;
    std::uint32_t width = 0;  // in luma samples, behind the cropping window
    std::uint32_t height = 0;
    Rational frameRate;  // from the timing of the usability information, when there is one
};

// Reads a sequence parameter set: the NAL unit with its header, without start code. False when it is cut short or holds
// values that no picture can have; the frame rate alone may be missing. ITU-T H.264 section 7.3.2.1.1, H.265 section
// 7.3.2.2. Any thread.
bool ParseSequenceParameterSet(Codec codec, const std::uint8_t* nal, std::size_t length, SequenceInfo& info);

}  // namespace gvx
