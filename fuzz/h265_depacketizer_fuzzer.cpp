// The depacketiser of H.265: payloads as they come, and frames of our own packer with losses.

#include "depacketizer_check.h"

#include "gvx_common/rtp/h265_depacketizer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::uint8_t mode = input.Byte();
    fuzz::UnitSink sink;
    const bool raw = (mode & 1) != 0;
    const auto end = raw && (mode & 2) != 0 ? gvx::AccessUnitEnd::Marker : gvx::AccessUnitEnd::TimeStamp;
    gvx::H265Depacketizer depacketizer(sink, end, fuzz::kMaxUnitBytes);
    if (raw) {
        fuzz::FeedRaw(input, depacketizer, sink);
        return 0;
    }
    fuzz::CheckAgainstPacker(input, depacketizer, sink, VIDEO_DEC_H265,
                             [](fuzz::Input& from, bool first, std::size_t length) {
                                 fuzz::Bytes unit = from.Spun(length);
                                 // Layer 0 and TID 1: the packer writes these into every fragment.
                                 unit[0] = static_cast<std::uint8_t>((first ? 19 : from.Byte() % 48) << 1);
                                 unit[1] = 1;
                                 unit[2] |= first ? 0x80 : 0;
                                 return unit;
                             });
    return 0;
}
