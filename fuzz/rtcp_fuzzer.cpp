// Compound RTCP packets: what is read from anybody stays inside the packet, and what is built is read again as it was.

#include "fuzz_input.h"

#include "gvx_common/rtp/rtcp_packet.h"

#include <string>

namespace {

class Visitor : public gvx::IRtcpVisitor {
public:
    void OnSenderReport(const gvx::RtcpSenderInfo& info) override { Note("SR", info.ssrc + info.packets); }
    void OnReportBlock(std::uint32_t reporter, const gvx::RtcpReportBlock& block) override {
        fuzz::Require(block.cumulativeLost >= -0x800000 && block.cumulativeLost <= 0x7FFFFF);
        Note("block", reporter + block.ssrc + static_cast<std::uint32_t>(block.cumulativeLost) + block.highestSeq);
    }
    void OnCname(std::uint32_t ssrc, const char* name, std::size_t size) override {
        Note("cname", ssrc);
        told.append(name, size);
    }
    void OnBye(std::uint32_t ssrc) override { Note("bye", ssrc); }
    void OnPictureLoss(std::uint32_t sender, std::uint32_t media) override { Note("pli", sender ^ media); }

    std::string told;

private:
    void Note(const char* what, std::uint32_t value) { told += what + std::to_string(value); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Visitor visitor;
    if (!gvx::ParseRtcp(data, size, visitor)) {
        fuzz::Require(visitor.told.empty());
    }
    fuzz::Input input(data, size);
    gvx::RtcpBuilder builder;
    Visitor expected;
    gvx::RtcpReportBlock block;
    block.ssrc = input.Long();
    block.cumulativeLost = static_cast<std::int32_t>(input.Long() << 8) >> 8;
    block.highestSeq = input.Long();
    gvx::RtcpSenderInfo info;
    info.ssrc = input.Long();
    info.packets = input.Long();
    const bool sender = (input.Byte() & 1) != 0;
    if (sender) {
        expected.OnSenderReport(info);
        fuzz::Require(builder.AddSenderReport(info, &block));
    } else {
        fuzz::Require(builder.AddReceiverReport(info.ssrc, &block));
    }
    expected.OnReportBlock(info.ssrc, block);
    while (!input.IsEmpty()) {
        const std::uint8_t what = input.Byte();
        const std::uint32_t ssrc = input.Long();
        if (what % 3 == 0) {
            const std::vector<std::uint8_t> name = input.Bytes(input.Byte());
            const std::string text(name.begin(), name.end());
            if (builder.AddCname(ssrc, text)) {
                expected.OnCname(ssrc, text.data(), text.size());
            }
        } else if (what % 3 == 1 && builder.AddBye(ssrc)) {
            expected.OnBye(ssrc);
        } else if (what % 3 == 2 && builder.AddPictureLoss(ssrc, block.ssrc)) {
            expected.OnPictureLoss(ssrc, block.ssrc);
        }
    }
    Visitor read;
    fuzz::Require(gvx::ParseRtcp(builder.Data(), builder.Size(), read));
    fuzz::Require(read.told == expected.told);
    const std::int64_t wall = static_cast<std::int64_t>(block.highestSeq) * 1000000 + block.ssrc % 1000000;
    if (wall < 2085978496000000) {  // until 2036, when the era of NTP ends
        fuzz::Require(gvx::WallUsOfNtp(gvx::NtpOfWallUs(wall)) == wall);
    }
    return 0;
}
