// A receiver as the network sees it: RTP and RTCP of any content, and frames of our own packer over a link that loses,
// swaps and doubles. Also what comes interleaved on a TCP link. Whatever is called whole was sent.

#include "depacketizer_check.h"

#include "base/clock.h"
#include "gvx_common/rtp/common_rtp_receiver.h"
#include "gvx_common/rtp/rtp_interleave.h"

namespace {

using fuzz::Bytes;
using fuzz::Require;

class HandClock : public gvx::Clock {
public:
    std::int64_t WallMicroseconds() const noexcept override { return 1767323045000000 + now; }
    std::int64_t MonotonicMicroseconds() const noexcept override { return now; }
    std::int64_t now = 1000000;
};

class Sink : public IRtpReceiverSink {
public:
    void OnAccessUnit(const gvx::RtpAccessUnit& unit) override {
        Require(unit.size <= fuzz::kMaxUnitBytes && (unit.size == 0 || unit.data != nullptr));
        if (!unit.IsDamaged() && oracle) {
            const Bytes bytes(unit.data, unit.data + unit.size);
            const std::size_t frame = unit.rtpTime / 3600 - 1;
            Require(frame < sent.size() && bytes.size() <= sent[frame].size());
            Require(std::equal(bytes.rbegin(), bytes.rend(), sent[frame].rbegin()));
        }
    }
    std::vector<Bytes> sent;
    bool oracle = false;
};

// Frames with the marker where the format has it; packets leave in another order, twice or not at all.
void FeedFrames(fuzz::Input& input, CCommonRtpReceiver& receiver, Sink& sink, HandClock& clock) {
    sink.oracle = true;
    CMediaChannel channel;
    channel.init();
    channel.m_pMediaBufWithRTP = new ACE_Message_Block(GVX_MEDIA_BUF_MIN_SIZE);
    channel.m_pSendStreamFunc = &fuzz::TakePacked;
    channel.m_usVideoSeqNo = 65500;
    std::vector<Bytes> onTheWay;
    for (int i = 0; i < 30 && !input.IsEmpty(); ++i) {
        MEDIA_DATA media{};
        media.nVideoSize = 1;
        media.eVideoFormatType = VIDEO_DEC_H264;
        media.nTimeTick = 3600;
        gvx::FramePacker packer(channel, media, 0, false);
        packer.BuildHead(false, 0, 0);
        std::vector<Bytes> packets;
        fuzz::packedPackets = &packets;
        Bytes unit = input.Spun(2 + input.Word() % 9000);
        unit[0] = i % 5 == 0 ? 0x65 : 0x41;
        unit[1] |= 0x80;
        packer.SendUnit(reinterpret_cast<const char*>(unit.data()), unit.size());
        sink.sent.push_back({0, 0, 0, 1});
        sink.sent.back().insert(sink.sent.back().end(), unit.begin(), unit.end());
        for (Bytes& packet : packets) {
            const std::uint8_t fate = input.Byte();
            if (fate % 16 == 1) {
                continue;
            }
            onTheWay.push_back(packet);
            if (fate % 16 == 2) {
                onTheWay.push_back(packet);
            }
            while (onTheWay.size() > static_cast<std::size_t>(fate >> 5)) {
                const std::size_t which = input.Byte() % onTheWay.size();
                receiver.Push(onTheWay[which].data(), onTheWay[which].size());
                onTheWay.erase(onTheWay.begin() + static_cast<std::ptrdiff_t>(which));
                clock.now += 500;
            }
        }
        clock.now += 20000;
        receiver.OnTimer();
    }
}

void FeedRawPackets(fuzz::Input& input, CCommonRtpReceiver& receiver, HandClock& clock) {
    while (!input.IsEmpty()) {
        const std::uint8_t control = input.Byte();
        Bytes packet = input.Bytes((control & 0x80) != 0 ? input.Word() % 2048 : input.Byte() % 64);
        if ((control & 0x40) != 0 && packet.size() >= 12) {
            packet[0] = 0x80;
            std::fill(packet.begin() + 8, packet.begin() + 12, static_cast<std::uint8_t>(control & 1));
        }
        receiver.Push(packet.data(), packet.size());
        clock.now += (control & 0x3F) * 1000;
        receiver.OnTimer();
        receiver.RequestKeyframe();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::uint8_t mode = input.Byte();
    HandClock clock;
    gvx::SetClock(&clock);
    {
        Sink sink;
        CCommonRtpReceiver receiver(sink);
        RtpReceiverParams params;
        const bool frames = (mode & 1) != 0;
        params.codec = frames ? RTP_CODEC_H264 : static_cast<enRtpCodec>(mode >> 1 & 3);
        params.maxAccessUnit = fuzz::kMaxUnitBytes;
        params.bPictureLoss = true;
        params.endpoint.strLocalIp = "127.0.0.1";
        params.endpoint.interleavedSend = [](enRtpFlow, const std::uint8_t*, std::size_t) { return true; };
        Require(receiver.Open(params) == 0);
        if (frames) {
            FeedFrames(input, receiver, sink, clock);
        } else if ((mode & 0x80) == 0) {
            FeedRawPackets(input, receiver, clock);
        } else {
            gvx::RtpInterleaveReader reader(
                [&](std::uint8_t channel, const std::uint8_t* packet, std::size_t length) {
                    channel % 2 == 0 ? receiver.Push(packet, length) : receiver.PushControl(packet, length);
                },
                [](const char*, std::size_t) {});
            while (!input.IsEmpty()) {
                const Bytes piece = input.Bytes(1 + input.Byte());
                reader.Feed(piece.data(), piece.size());
            }
        }
        receiver.Close();
    }
    gvx::SetClock(nullptr);
    return 0;
}
