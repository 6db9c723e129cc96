#pragma once

#include "fuzz_input.h"

#include "gvx_common/rtp/frame_packer.h"
#include "gvx_common/rtp/rtp_depacketizer.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

// What the fuzzers of the depacketisers of video share: payloads as an input has them, and frames of our own packer.
namespace fuzz {

using Bytes = std::vector<std::uint8_t>;
constexpr std::size_t kMaxUnitBytes = 20000;

struct TakenUnit {
    Bytes bytes;
    std::uint32_t rtpTime;
    std::uint32_t lostPackets;
    bool damaged;
};

class UnitSink : public gvx::IRtpAccessUnitSink {
public:
    void OnAccessUnit(const gvx::RtpAccessUnit& unit) override {
        Require(unit.size <= kMaxUnitBytes);
        Require(unit.size == 0 ? unit.IsDamaged() : unit.data != nullptr);
        taken.push_back({Bytes(unit.data, unit.data + unit.size), unit.rtpTime, unit.lostPackets, unit.IsDamaged()});
    }
    std::vector<TakenUnit> taken;
};

// Payloads with their marks and gaps as the input has them. What comes out holds start codes where units begin.
inline void FeedRaw(Input& input, gvx::RtpDepacketizer& depacketizer, const UnitSink& sink) {
    gvx::RtpView view;
    while (!input.IsEmpty()) {
        const std::uint8_t control = input.Byte();
        const Bytes payload = input.Bytes((control & 0x80) != 0 ? input.Word() % 2048 : input.Byte() % 32);
        view.marker = (control & 1) != 0;
        view.timestamp += (control & 2) != 0 ? 3600 : 0;
        view.payload = payload.data();
        view.payloadSize = payload.size();
        depacketizer.OnPacket(view, (control & 0x0C) == 0x0C ? 1 + (control >> 4 & 3) : 0, 0);
    }
    depacketizer.Reset();
    const std::uint8_t startCode[] = {0, 0, 0, 1};
    std::uint64_t damaged = 0;
    for (const TakenUnit& unit : sink.taken) {
        Require(unit.bytes.empty() || (unit.bytes.size() > 4 && std::memcmp(unit.bytes.data(), startCode, 4) == 0));
        damaged += unit.damaged;
    }
    Require(depacketizer.GetStatistics().accessUnits == sink.taken.size());
    Require(depacketizer.GetStatistics().damaged == damaged);
}

inline std::vector<Bytes>* packedPackets = nullptr;

inline int TakePacked(MEDIA_DATA* media, STREAM_TYPE_EX*) {
    const auto* bytes = static_cast<const std::uint8_t*>(media->pDataBuf);
    packedPackets->emplace_back(bytes, bytes + media->nVideoSize);
    return 0;
}

// Frames of NAL units through our packer, some packets of which are lost. What is called whole is what was sent; where
// packets are missing in front it may lack whole units there. Without a loss everything is whole.
template <typename MakeUnit>
void CheckAgainstPacker(Input& input, gvx::RtpDepacketizer& depacketizer, UnitSink& sink, ZVS_VIDEO_DEC_TYPE format,
                        MakeUnit makeUnit) {
    CMediaChannel channel;
    channel.init();
    channel.m_pMediaBufWithRTP = new ACE_Message_Block(GVX_MEDIA_BUF_MIN_SIZE);
    channel.m_pSendStreamFunc = &TakePacked;
    std::vector<Bytes> sent;
    bool anyLost = false;
    std::uint32_t lost = 0;
    for (int frame = 0; frame < 12 && (frame == 0 || !input.IsEmpty()); ++frame) {
        MEDIA_DATA media{};
        media.nVideoSize = 1;
        media.eVideoFormatType = format;
        media.nTimeTick = 3600;
        gvx::FramePacker packer(channel, media, 0, false);
        packer.BuildHead((input.Byte() & 1) != 0, 1, 2);
        std::vector<Bytes> packets;
        packedPackets = &packets;
        Bytes whole;
        const int units = frame == 0 ? 1 : 1 + input.Byte() % 4;
        for (int i = 0; i < units; ++i) {
            const Bytes unit = makeUnit(input, frame == 0, 3 + input.Word() % 4500);
            const std::uint8_t startCode[] = {0, 0, 0, 1};
            whole.insert(whole.end(), startCode, startCode + 4);
            whole.insert(whole.end(), unit.begin(), unit.end());
            Require(packer.SendUnit(reinterpret_cast<const char*>(unit.data()), unit.size()) == 0);
        }
        sent.push_back(whole);
        const std::uint8_t losses = input.Byte();
        for (std::size_t i = 0; i < packets.size(); ++i) {
            if (frame != 0 && (losses & 0x80) != 0 && (losses >> (i % 7) & 1) != 0) {
                ++lost;
                anyLost = true;
                continue;
            }
            gvx::RtpView view;
            Require(gvx::ParseRtp(packets[i].data(), packets[i].size(), view));
            depacketizer.OnPacket(view, lost, 0);
            lost = 0;
        }
    }
    if (lost != 0) {
        // Nobody can tell of a loss behind which nothing comes.
        gvx::RtpView last;
        const std::uint8_t parameterSet[] = {0x40, 1, 0};
        last.payload = parameterSet;
        last.payloadSize = sizeof(parameterSet);
        depacketizer.OnPacket(last, lost, 0);
    }
    depacketizer.Reset();
    if (lost != 0) {
        Require(sink.taken.back().damaged);
        sink.taken.pop_back();
    }
    Require(anyLost || sink.taken.size() == sent.size());
    for (const TakenUnit& unit : sink.taken) {
        const std::size_t frame = unit.rtpTime / 3600 - 1;
        Require(frame < sent.size());
        if (unit.damaged) {
            Require(anyLost || sent[frame].size() > kMaxUnitBytes);
            continue;
        }
        Require(unit.bytes.size() <= sent[frame].size() &&
                std::equal(unit.bytes.rbegin(), unit.bytes.rend(), sent[frame].rbegin()));
        Require(unit.bytes.size() == sent[frame].size() || unit.lostPackets != 0);
    }
}

}  // namespace fuzz
