#pragma once

#include "gvx_common/rtp/common_rtp_receiver.h"
#include "gvx_common/rtp/frame_packer.h"
#include "gvx_common/rtp/rtp_view.h"

#include <ace/Message_Block.h>

#include <cstdint>
#include <random>
#include <vector>

// Streams of H.264 as packets, and a sink that keeps what comes out of a receiver.
namespace rtp_stream {

using Bytes = std::vector<std::uint8_t>;

struct Frame {
    Bytes whole;  // NAL units behind four-byte start codes
    std::vector<Bytes> packets;
    std::uint32_t rtpTime;
};

// Frames through the core's own packer, with an SSRC, and with the marker on the last packet of a frame only.
class Maker {
public:
    explicit Maker(std::uint32_t ssrc = 0x11223344) : m_ssrc(ssrc) {
        m_channel.init();
        m_channel.m_pMediaBufWithRTP = new ACE_Message_Block(GVX_MEDIA_BUF_MIN_SIZE);
        m_channel.m_pSendStreamFunc = &Take;
        m_channel.m_usVideoSeqNo = 65000;
    }
    Frame Next(bool key, std::size_t sliceBytes) {
        Frame frame;
        MEDIA_DATA media{};
        media.nVideoSize = 1;
        media.eVideoFormatType = VIDEO_DEC_H264;
        media.nTimeTick = 3600;
        gvx::FramePacker packer(m_channel, media, 0, false);
        packer.BuildHead(false, 0, 0);
        Current() = &frame.packets;
        if (key) {
            Add(packer, frame, {0x67, 0x42, 7});
            Add(packer, frame, {0x68, 0xCE});
        }
        Bytes slice{static_cast<std::uint8_t>(key ? 0x65 : 0x41), 0x88};
        while (slice.size() < sliceBytes) {
            slice.push_back(static_cast<std::uint8_t>(m_random()));
        }
        Add(packer, frame, slice);
        for (Bytes& packet : frame.packets) {
            packet[1] &= 0x7F;
            gvx::StoreBe32(&packet[8], m_ssrc);
        }
        frame.packets.back()[1] |= 0x80;
        frame.rtpTime = gvx::LoadBe32(&frame.packets.front()[4]);
        return frame;
    }
    // A second and more of it: a key frame every `group` frames.
    std::vector<Frame> Many(std::size_t count, std::size_t group = 25) {
        std::vector<Frame> frames;
        for (std::size_t i = 0; i < count; ++i) {
            frames.push_back(Next(i % group == 0, i % group == 0 ? 20000 : 200 + m_random() % 9000));
        }
        return frames;
    }

private:
    static std::vector<Bytes>*& Current() {
        static std::vector<Bytes>* packets = nullptr;
        return packets;
    }
    static int Take(MEDIA_DATA* media, STREAM_TYPE_EX*) {
        const auto* bytes = static_cast<const std::uint8_t*>(media->pDataBuf);
        Current()->emplace_back(bytes, bytes + media->nVideoSize);
        return 0;
    }
    static void Add(gvx::FramePacker& packer, Frame& frame, const Bytes& unit) {
        frame.whole.insert(frame.whole.end(), {0, 0, 0, 1});
        frame.whole.insert(frame.whole.end(), unit.begin(), unit.end());
        packer.SendUnit(reinterpret_cast<const char*>(unit.data()), unit.size());
    }

    const std::uint32_t m_ssrc;
    CMediaChannel m_channel;
    std::mt19937 m_random{20260103};
};

struct Taken {
    gvx::RtpAccessUnit unit;  // without its bytes
    Bytes bytes;
};

class Sink : public IRtpReceiverSink {
public:
    void OnAccessUnit(const gvx::RtpAccessUnit& unit) override {
        taken.push_back({unit, Bytes(unit.data, unit.data + unit.size)});
    }
    void OnSource(std::uint32_t ssrc) override { sources.push_back(ssrc); }
    void OnSourceEnd(std::uint32_t) override { ++ends; }
    std::vector<Taken> taken;
    std::vector<std::uint32_t> sources;
    int ends = 0;
};

}  // namespace rtp_stream
