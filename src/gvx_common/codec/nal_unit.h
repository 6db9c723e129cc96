#pragma once

#include "gvx_common/codec/codec.h"

#include <cstddef>
#include <cstdint>

namespace gvx {

// What a NAL unit is to the access unit around it (ITU-T H.264 section 7.4.1.2.3, H.265 section 7.4.2.4.4).
struct NalKind {
    bool slice = false;       // carries picture data of the base layer
    bool firstSlice = false;  // the first slice of a picture
    bool opensUnit = false;   // behind a slice, begins the next access unit
    bool key = false;         // a slice of a picture at which decoding can begin (IDR, IRAP)
    bool delimiter = false;   // access unit delimiter
    bool parameterSet = false;
    bool sequenceSet = false;  // a sequence parameter set, too
    std::uint8_t type = 0;
};

// Looks at a NAL unit with its header, without start code. An empty or cut one is of no kind. Any thread.
NalKind ClassifyNal(Codec codec, const std::uint8_t* nal, std::size_t length);

}  // namespace gvx
