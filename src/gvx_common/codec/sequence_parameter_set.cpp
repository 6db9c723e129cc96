#include "gvx_common/codec/sequence_parameter_set.h"

#include "gvx_common/codec/sequence_parameter_set_parts.h"

namespace gvx {

bool ParseSequenceParameterSet(Codec codec, const std::uint8_t* nal, std::size_t length, SequenceInfo& info) {
    info = SequenceInfo{};
    return codec == Codec::H264 ? ParseSpsH264(nal, length, info) : ParseSpsH265(nal, length, info);
}

std::uint32_t ReadChromaFormat(BitReader& bits) {
    const std::uint32_t format = bits.Ue();
    if (format == 3) {
        bits.Skip(1);  // separate planes, which have as many samples
    }
    return format;
}

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

}  // namespace gvx
