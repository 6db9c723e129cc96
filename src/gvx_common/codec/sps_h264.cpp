#include "gvx_common/codec/sequence_parameter_set_parts.h"

#include <algorithm>
#include <iterator>

namespace gvx {
namespace {

constexpr std::uint32_t kUsualChroma = 1;

// ITU-T H.264 section 7.3.2.1.1: profiles whose sets carry a chroma format.
bool HasChromaFormat(std::uint32_t profile) {
    static constexpr std::uint32_t kProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
    return std::find(std::begin(kProfiles), std::end(kProfiles), profile) != std::end(kProfiles);
}

void SkipScalingList(BitReader& bits, unsigned size) {
    std::int32_t last = 8;
    std::int32_t next = 8;
    for (unsigned i = 0; i < size && bits.Ok(); ++i) {
        if (next != 0) {
            // Unsigned, since a broken file may hold any step; the sum counts modulo 256.
            next = static_cast<std::int32_t>(
                (static_cast<std::uint32_t>(last) + static_cast<std::uint32_t>(bits.Se())) & 0xFFu);
        }
        last = next == 0 ? last : next;
    }
}

std::uint32_t ReadSampleFormat(BitReader& bits) {
    const std::uint32_t chroma = ReadChromaFormat(bits);
    bits.Ue();  // bit depths
    bits.Ue();
    bits.Skip(1);
    if (bits.Flag()) {
        const unsigned lists = chroma == 3 ? 12 : 8;
        for (unsigned i = 0; i < lists && bits.Ok(); ++i) {
            if (bits.Flag()) {
                SkipScalingList(bits, i < 6 ? 16 : 64);
            }
        }
    }
    return chroma;
}

void SkipPictureOrder(BitReader& bits) {
    const std::uint32_t type = bits.Ue();
    if (type == 0) {
        bits.Ue();
    } else if (type == 1) {
        bits.Skip(1);
        bits.Se();
        bits.Se();
        const std::uint32_t cycle = bits.Ue();
        for (std::uint32_t i = 0; i < cycle && bits.Ok(); ++i) {
            bits.Se();
        }
    }
}

bool ReadPictureSize(BitReader& bits, std::uint32_t chroma, SequenceInfo& info) {
    const std::uint32_t widthInMbs = bits.Ue();
    const std::uint32_t heightInUnits = bits.Ue();
    const bool framesOnly = bits.Flag();
    if (!framesOnly) {
        bits.Skip(1);
    }
    bits.Skip(1);
    constexpr std::uint32_t kMaxMbs = kMaxPictureSide / 16;
    if (!bits.Ok() || widthInMbs >= kMaxMbs || heightInUnits >= kMaxMbs || chroma > 3) {
        return false;
    }
    const std::uint32_t fields = framesOnly ? 1 : 2;
    info.width = (widthInMbs + 1) * 16;
    info.height = (heightInUnits + 1) * 16 * fields;
    return CutWindow(bits, chroma, fields, info);
}

}  // namespace

bool ParseSpsH264(const std::uint8_t* nal, std::size_t length, SequenceInfo& info) {
    BitReader bits(nal, length, 1);
    const std::uint32_t profile = bits.Bits(8);
    bits.Skip(16);
    info.id = bits.Ue();
    const std::uint32_t chroma = HasChromaFormat(profile) ? ReadSampleFormat(bits) : kUsualChroma;
    bits.Ue();  // log2_max_frame_num
    SkipPictureOrder(bits);
    bits.Ue();  // reference frames
    bits.Skip(1);
    constexpr std::uint32_t kMaxId = 31;
    if (!ReadPictureSize(bits, chroma, info) || info.id > kMaxId) {
        return false;
    }
    if (bits.Flag()) {
        SkipUsabilityHead(bits);
        if (bits.Flag()) {
            info.frameRate = ReadTiming(bits, 2);  // a tick is a field
        }
    }
    return true;
}

}  // namespace gvx
