#pragma once

#include "gvx_common/codec/codec.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Small elementary streams, made by hand.
namespace stream_bytes {

// A NAL unit with a start code of three or four bytes in front. NAL units do not end in a zero byte.
std::string Nal(const std::string& unit, bool longCode = true);

// H.264: sequence parameter set of that size (a multiple of 16) in Baseline, picture parameter set, delimiter, slices.
// A slice with first = false is a further one of the same picture; its payload is filled with `fill`.
std::string H264Sps(unsigned width, unsigned height);
std::string H264Pps();
std::string H264Delimiter();
std::string H264Slice(bool key, bool first, std::size_t bytes = 20, char fill = '\x55');

// H.265 in the same manner; the type is that of table 7-1 (1 trailing picture, 19 IDR, 21 CRA).
std::string H265Slice(unsigned type, bool first, std::size_t bytes = 20);
std::string H265Nal(unsigned type);

// A playable H.264 stream: parameter sets, then a key picture and further ones, `pictures` in all, each picture of
// `slices` slices, a key picture every `group` pictures.
std::string H264Stream(unsigned pictures, unsigned slices = 1, unsigned group = 1000);

}  // namespace stream_bytes
