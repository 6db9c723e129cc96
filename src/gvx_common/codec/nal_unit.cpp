#include "gvx_common/codec/nal_unit.h"

namespace gvx {
namespace {

// ITU-T H.264 table 7-1.
enum H264Type : unsigned {
    kH264Slice = 1,
    kH264DataPartitionC = 4,
    kH264Idr = 5,
    kH264Sei = 6,
    kH264Sps = 7,
    kH264Pps = 8,
    kH264Delimiter = 9,
    kH264Prefix = 14,
    kH264LastReservedPrefix = 18,
};

// ITU-T H.265 table 7-1.
enum H265Type : unsigned {
    kH265FirstIrap = 16,
    kH265LastIrap = 23,
    kH265LastSlice = 31,
    kH265Vps = 32,
    kH265Sps = 33,
    kH265Pps = 34,
    kH265Delimiter = 35,
    kH265PrefixSei = 39,
};

NalKind ClassifyH264(const std::uint8_t* nal, std::size_t length) {
    NalKind kind;
    const unsigned type = nal[0] & 0x1Fu;
    kind.type = static_cast<std::uint8_t>(type);
    kind.slice = type >= kH264Slice && type <= kH264Idr;
    kind.key = type == kH264Idr;
    // first_mb_in_slice is the first element of a slice head; the one-bit code "1" stands for 0. Partitions B and C
    // begin with a slice number instead.
    const bool hasAddress = type == kH264Slice || type == kH264Slice + 1 || type == kH264Idr;
    kind.firstSlice = hasAddress && length > 1 && (nal[1] & 0x80u) != 0;
    kind.delimiter = type == kH264Delimiter;
    kind.sequenceSet = type == kH264Sps;
    kind.parameterSet = type == kH264Sps || type == kH264Pps;
    kind.opensUnit = kind.firstSlice || (type >= kH264Sei && type <= kH264Delimiter) ||
                     (type >= kH264Prefix && type <= kH264LastReservedPrefix);
    return kind;
}

NalKind ClassifyH265(const std::uint8_t* nal, std::size_t length) {
    NalKind kind;
    if (length < 2) {
        return kind;
    }
    const unsigned type = (nal[0] >> 1) & 0x3Fu;
    const bool baseLayer = (nal[0] & 1u) == 0 && (nal[1] >> 3) == 0;
    kind.type = static_cast<std::uint8_t>(type);
    kind.slice = type <= kH265LastSlice && baseLayer;
    kind.key = kind.slice && type >= kH265FirstIrap && type <= kH265LastIrap;
    kind.firstSlice = kind.slice && length > 2 && (nal[2] & 0x80u) != 0;  // first_slice_segment_in_pic_flag
    kind.delimiter = type == kH265Delimiter;
    kind.sequenceSet = type == kH265Sps;
    kind.parameterSet = type >= kH265Vps && type <= kH265Pps;
    // 41 to 44 and 48 to 55 are reserved and unspecified types that stand in front of a picture as well.
    kind.opensUnit = kind.firstSlice || (type >= kH265Vps && type <= kH265Delimiter) || type == kH265PrefixSei ||
                     (type >= 41 && type <= 44) || (type >= 48 && type <= 55);
    return kind;
}

}  // namespace

NalKind ClassifyNal(Codec codec, const std::uint8_t* nal, std::size_t length) {
    if (length == 0) {
        return NalKind{};
    }
    return codec == Codec::H264 ? ClassifyH264(nal, length) : ClassifyH265(nal, length);
}

}  // namespace gvx
