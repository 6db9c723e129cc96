#pragma once

#include "gvx_common/rtp/nal_depacketizer.h"

namespace gvx {

// H.264 in RTP (RFC 6184) in single NAL unit and non-interleaved mode: single units, STAP-A and FU-A. STAP-B, MTAP and
// FU-B belong to the interleaved mode, which is not to be negotiated; they and undefined types damage the access unit.
// A fragment that is first and last at once, which 5.8 forbids its sender, is taken as the whole unit that it is.
class H264Depacketizer : public NalDepacketizer {
public:
    explicit H264Depacketizer(IRtpAccessUnitSink& sink, AccessUnitEnd end = AccessUnitEnd::Marker,
                              std::size_t maxBytes = kDefaultMaxBytes)
        : NalDepacketizer(sink, end, maxBytes) {}

    void OnPacket(const RtpView& packet, std::uint32_t lostBefore, std::int64_t arrivalUs) override;

private:
    void TakeAggregate(const std::uint8_t* at, const std::uint8_t* end);
    void TakeFragment(const std::uint8_t* payload, std::size_t size);
};

}  // namespace gvx
