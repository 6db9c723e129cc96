// The depacketisers of AAC, with formats as the input has them, and of G.711.

#include "fuzz_input.h"

#include "gvx_common/rtp/audio_depacketizer.h"

#include <memory>

namespace {

constexpr std::size_t kMaxUnitBytes = 3000;

class Sink : public gvx::IRtpAccessUnitSink {
public:
    void OnAccessUnit(const gvx::RtpAccessUnit& unit) override {
        fuzz::Require(unit.size <= kMaxUnitBytes);
        fuzz::Require(unit.size != 0 || unit.IsDamaged());
        if (!unit.IsDamaged()) {
            wholeBytes += unit.size;
        }
    }
    std::size_t wholeBytes = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    Sink sink;
    std::unique_ptr<gvx::RtpDepacketizer> depacketizer;
    const std::uint8_t mode = input.Byte();
    if (mode == 0) {
        depacketizer = std::make_unique<gvx::G711Depacketizer>(sink, kMaxUnitBytes);
    } else {
        gvx::AacFormat format;
        if (mode > 100) {
            format.sizeLength = input.Byte() % 17;
            format.indexLength = input.Byte() % 17;
            format.indexDeltaLength = input.Byte() % 17;
        }
        depacketizer = std::make_unique<gvx::AacDepacketizer>(sink, format, kMaxUnitBytes);
    }
    gvx::RtpView view;
    std::size_t given = 0;
    while (!input.IsEmpty()) {
        const std::uint8_t control = input.Byte();
        const std::vector<std::uint8_t> payload =
            input.Bytes((control & 0x80) != 0 ? input.Word() % 4096 : input.Byte());
        view.marker = (control & 1) != 0;
        view.timestamp += (control & 2) != 0 ? 1024 : 0;
        view.payload = payload.data();
        view.payloadSize = payload.size();
        given += payload.size();
        depacketizer->OnPacket(view, (control & 0x0C) == 0x0C ? 1 : 0, 0);
    }
    depacketizer->Reset();
    fuzz::Require(sink.wholeBytes <= given);
    return 0;
}
