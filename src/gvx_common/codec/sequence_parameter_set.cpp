#include "gvx_common/codec/sequence_parameter_set.h"

#include "gvx_common/codec/bit_reader.h"

#include <algorithm>
#include <iterator>

namespace gvx {
namespace {

constexpr std::uint32_t kMaxPictureSide = 16384;

// chroma_format_idc, which both codecs begin a description of their samples with: 0 to 3, 1 for 4:2:0.
std::uint32_t ReadChromaFormat(BitReader& bits) {
    const std::uint32_t format = bits.Ue();
    if (format == 3) {
        bits.Skip(1);  // separate planes, which have as many samples
    }
    return format;
}

// Takes the window that is cut off the picture, where there is one, which is counted in samples of colour, of each of
// the fields. False when nothing would be left.
bool CutWindow(BitReader& bits, std::uint32_t chromaFormat, std::uint32_t fields, SequenceInfo& info) {
    if (!bits.Flag()) {
        return bits.Ok();
    }
    const std::uint64_t left = bits.Ue();
    const std::uint64_t right = bits.Ue();
    const std::uint64_t top = bits.Ue();
    const std::uint64_t bottom = bits.Ue();
    const std::uint64_t cutX = (left + right) * (chromaFormat == 1 || chromaFormat == 2 ? 2 : 1);
    const std::uint64_t cutY = (top + bottom) * (chromaFormat == 1 ? 2 : 1) * fields;
    if (!bits.Ok() || cutX >= info.width || cutY >= info.height) {
        return false;
    }
    info.width -= static_cast<std::uint32_t>(cutX);
    info.height -= static_cast<std::uint32_t>(cutY);
    return true;
}

// Aspect, overscan, signal type and chroma location, which stand alike in both codecs (H.264 and H.265 section E.2.1).
void SkipUsabilityHead(BitReader& bits) {
    constexpr std::uint32_t kExtendedSampleAspect = 255;
    if (bits.Flag() && bits.Bits(8) == kExtendedSampleAspect) {
        bits.Skip(32);
    }
    if (bits.Flag()) {  // overscan
        bits.Skip(1);
    }
    if (bits.Flag()) {  // video signal type
        bits.Skip(4);
        if (bits.Flag()) {
            bits.Skip(24);
        }
    }
    if (bits.Flag()) {  // chroma location
        bits.Ue();
        bits.Ue();
    }
}

// num_units_in_tick and time_scale as frames a second; not known when they say nothing sensible.
Rational ReadTiming(BitReader& bits, std::uint32_t ticksPerFrame) {
    const std::uint32_t unitsInTick = bits.Bits(32);
    const std::uint32_t timeScale = bits.Bits(32);
    const std::uint64_t denominator = static_cast<std::uint64_t>(unitsInTick) * ticksPerFrame;
    if (!bits.Ok() || denominator == 0 || denominator > UINT32_MAX) {
        return Rational{};
    }
    const Rational rate{timeScale, static_cast<std::uint32_t>(denominator)};
    constexpr double kSlowest = 0.1;
    constexpr double kFastest = 1000;
    return rate.Value() < kSlowest || rate.Value() > kFastest ? Rational{} : rate;
}

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

bool ReadPictureSizeH264(BitReader& bits, std::uint32_t chroma, SequenceInfo& info) {
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
    if (!ReadPictureSizeH264(bits, chroma, info) || info.id > kMaxId) {
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

bool ReadPictureSizeH265(BitReader& bits, SequenceInfo& info) {
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

bool ParseSpsH265(const std::uint8_t* nal, std::size_t length, SequenceInfo& info) {
    BitReader bits(nal, length, 2);
    bits.Skip(4);
    const unsigned subLayers = bits.Bits(3);
    bits.Skip(1);
    SkipProfileTierLevel(bits, subLayers);
    info.id = bits.Ue();
    constexpr std::uint32_t kMaxId = 15;
    if (!ReadPictureSizeH265(bits, info) || info.id > kMaxId) {
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

}  // namespace

bool ParseSequenceParameterSet(Codec codec, const std::uint8_t* nal, std::size_t length, SequenceInfo& info) {
    info = SequenceInfo{};
    return codec == Codec::H264 ? ParseSpsH264(nal, length, info) : ParseSpsH265(nal, length, info);
}

}  // namespace gvx
