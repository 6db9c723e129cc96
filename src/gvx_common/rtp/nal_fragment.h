#pragma once

#include <cstddef>

// What stands ahead of the bytes of one fragment of a NAL unit that is too long for a packet. Any thread.

namespace gvx {

constexpr unsigned char kFragmentStart = 0x80;
constexpr unsigned char kFragmentEnd = 0x40;

inline unsigned char FragmentFlags(bool first, bool last) {
    return static_cast<unsigned char>((first ? kFragmentStart : 0) | (last ? kFragmentEnd : 0));
}

// FU-A of H.264 (RFC 6184, section 5.8): the FU indicator has the F bit and NRI of the unit's head and type 28, the FU
// header has the flags and the unit's type. Together they carry all of the one-byte head.
struct H264Fragment {
    static constexpr std::size_t kHeadBytes = 2;
    static constexpr std::size_t kUnitHeadBytes = 1;  // of the unit, left out of the first fragment

    // Writes kHeadBytes for a unit that begins with these bytes.
    static void PutHead(const unsigned char* unit, bool first, bool last, char* to) {
        constexpr unsigned char kFuTypeH264 = 28;
        to[0] = static_cast<char>((unit[0] & 0xE0) | kFuTypeH264);
        to[1] = static_cast<char>(FragmentFlags(first, last) | (unit[0] & 0x1F));
    }
};

// FU of H.265 (RFC 7798, section 4.4.3): a payload header of two bytes with type 49, then the flags and the type of the
// unit. Layer and temporal identifier of the payload header are always 0 and 1, whatever the unit's are: a receiver
// takes them for those of the unit.
struct H265Fragment {
    static constexpr std::size_t kHeadBytes = 3;
    static constexpr std::size_t kUnitHeadBytes = 2;

    static void PutHead(const unsigned char* unit, bool first, bool last, char* to) {
        constexpr unsigned char kFuTypeH265 = 49;
        constexpr unsigned char kLayerZeroTemporalOne = 0x01;
        to[0] = static_cast<char>(kFuTypeH265 << 1);
        to[1] = kLayerZeroTemporalOne;
        to[2] = static_cast<char>(FragmentFlags(first, last) | ((unit[0] >> 1) & 0x3F));
    }
};

}  // namespace gvx
