// The depacketiser of H.264: payloads as they come, and frames of our own packer with losses.

#include "depacketizer_check.h"

#include "gvx_common/rtp/h264_depacketizer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::uint8_t mode = input.Byte();
    fuzz::UnitSink sink;
    const bool raw = (mode & 1) != 0;
    const auto end = raw && (mode & 2) != 0 ? gvx::AccessUnitEnd::Marker : gvx::AccessUnitEnd::TimeStamp;
    gvx::H264Depacketizer depacketizer(sink, end, fuzz::kMaxUnitBytes);
    if (raw) {
        fuzz::FeedRaw(input, depacketizer, sink);
        return 0;
    }
    fuzz::CheckAgainstPacker(
        input, depacketizer, sink, VIDEO_DEC_H264, [](fuzz::Input& from, bool first, std::size_t length) {
            fuzz::Bytes unit = from.Spun(length);
            const std::uint8_t head = from.Byte();
            unit[0] = static_cast<std::uint8_t>(first ? 0x65 : (head & 0xE0) | (1 + (head & 0x1F) % 23));
            unit[1] |= first ? 0x80 : 0;
            return unit;
        });
    return 0;
}
