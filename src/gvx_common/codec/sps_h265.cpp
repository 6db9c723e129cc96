#include "gvx_common/codec/sequence_parameter_set_parts.h"

#include <algorithm>

namespace gvx {
namespace {

constexpr unsigned kProfileBits = 88;
constexpr unsigned kLevelBits = 8;
constexpr std::uint32_t kMaxShortTermSets = 64;
constexpr std::uint32_t kMaxPicturesInSet = 16;

// profile_tier_level, H.265 section 7.3.3.
void SkipProfileTierLevel(BitReader& bits, unsigned subLayers) {
    bits.Skip(kProfileBits + kLevelBits);
    bool profilePresent[8] = {};
    bool levelPresent[8] = {};
    for (unsigned i = 0; i < subLayers; ++i) {
        profilePresent[i] = bits.Flag();
        levelPresent[i] = bits.Flag();
    }
    if (subLayers > 0) {
        bits.Skip(2 * static_cast<std::size_t>(8 - subLayers));
    }
    for (unsigned i = 0; i < subLayers; ++i) {
        bits.Skip((profilePresent[i] ? kProfileBits : 0) + (levelPresent[i] ? kLevelBits : 0));
    }
}

// scaling_list_data, H.265 section 7.3.4.
void SkipScalingLists(BitReader& bits) {
    for (unsigned size = 0; size < 4; ++size) {
        for (unsigned matrix = 0; matrix < 6 && bits.Ok(); matrix += size == 3 ? 3 : 1) {
            if (!bits.Flag()) {
                bits.Ue();
                continue;
            }
            const unsigned coefficients = std::min(64u, 1u << (4 + (size << 1)));
            if (size > 1) {
                bits.Se();
            }
            for (unsigned i = 0; i < coefficients && bits.Ok(); ++i) {
                bits.Se();
            }
        }
    }
}

// st_ref_pic_set, H.265 section 7.3.7. Gives the number of pictures in the set, which the next one may build on.
std::uint32_t SkipShortTermSet(BitReader& bits, std::uint32_t index, std::uint32_t previousCount) {
    if (index != 0 && bits.Flag()) {
        bits.Skip(1);
        bits.Ue();
        std::uint32_t count = 0;
        for (std::uint32_t i = 0; i <= previousCount && bits.Ok(); ++i) {
            const bool used = bits.Flag();
            const bool useDelta = used || bits.Flag();
            count += useDelta ? 1 : 0;
        }
        return count;
    }
    const std::uint32_t negative = bits.Ue();
    const std::uint32_t positive = bits.Ue();
    if (negative > kMaxPicturesInSet || positive > kMaxPicturesInSet) {
        bits.Fail();
        return 0;
    }
    for (std::uint32_t i = 0; i < negative + positive && bits.Ok(); ++i) {
        bits.Ue();
        bits.Skip(1);
    }
    return negative + positive;
}

bool ReadPictureSize(BitReader& bits, SequenceInfo& info) {
    const std::uint32_t chroma = ReadChromaFormat(bits);
    info.width = bits.Ue();
    info.height = bits.Ue();
    if (!bits.Ok() || chroma > 3 || info.width == 0 || info.height == 0 || info.width > kMaxPictureSide ||
        info.height > kMaxPictureSide) {
        return false;
    }
    return CutWindow(bits, chroma, 1, info);
}

void SkipCodingTools(BitReader& bits) {
    for (unsigned i = 0; i < 6; ++i) {  // block sizes and hierarchy depths
        bits.Ue();
    }
    if (bits.Flag() && bits.Flag()) {
        SkipScalingLists(bits);
    }
    bits.Skip(2);
    if (bits.Flag()) {  // PCM
        bits.Skip(8);
        bits.Ue();
        bits.Ue();
        bits.Skip(1);
    }
}

void SkipReferenceSets(BitReader& bits, unsigned pictureOrderBits) {
    const std::uint32_t sets = bits.Ue();
    if (sets > kMaxShortTermSets) {
        bits.Fail();
    }
    std::uint32_t count = 0;
    for (std::uint32_t i = 0; i < sets && bits.Ok(); ++i) {
        count = SkipShortTermSet(bits, i, count);
    }
    if (bits.Flag()) {
        const std::uint32_t longTerm = bits.Ue();
        for (std::uint32_t i = 0; i < longTerm && bits.Ok(); ++i) {
            bits.Skip(pictureOrderBits + 1);
        }
    }
    bits.Skip(2);
}

Rational ReadUsabilityTiming(BitReader& bits) {
    SkipUsabilityHead(bits);
    bits.Skip(3);
    if (bits.Flag()) {  // default display window
        for (unsigned i = 0; i < 4; ++i) {
            bits.Ue();
        }
    }
    return bits.Flag() && bits.Ok() ? ReadTiming(bits, 1) : Rational{};
}

}  // namespace

bool ParseSpsH265(const std::uint8_t* nal, std::size_t length, SequenceInfo& info) {
    BitReader bits(nal, length, 2);
    bits.Skip(4);
    const unsigned subLayers = bits.Bits(3);
    bits.Skip(1);
    SkipProfileTierLevel(bits, subLayers);
    info.id = bits.Ue();
    constexpr std::uint32_t kMaxId = 15;
    if (!ReadPictureSize(bits, info) || info.id > kMaxId) {
        return false;
    }
    bits.Ue();  // bit depths
    bits.Ue();
    const unsigned pictureOrderBits = bits.Ue() + 4;
    const unsigned first = bits.Flag() ? 0 : subLayers;
    for (unsigned i = first; i <= subLayers && bits.Ok(); ++i) {
        bits.Ue();
        bits.Ue();
        bits.Ue();
    }
    SkipCodingTools(bits);
    SkipReferenceSets(bits, pictureOrderBits);
    if (bits.Flag()) {
        info.frameRate = ReadUsabilityTiming(bits);
    }
    return true;
}

}  // namespace gvx
