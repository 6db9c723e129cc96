#pragma once

#include "gvx_common/rtp/nal_depacketizer.h"

namespace gvx {

// H.265 in RTP (RFC 7798) on one stream without decoding order numbers (sprop-max-don-diff 0, the default): single
// units, AP and FU. PACI packets and undefined types damage the access unit. A fragment that is first and last at once
// is taken as the whole unit that it is.
class H265Depacketizer : public NalDepacketizer {
public:
    explicit H265Depacketizer(IRtpAccessUnitSink& sink, AccessUnitEnd end = AccessUnitEnd::Marker,
                              std::size_t maxBytes = kDefaultMaxBytes)
        : NalDepacketizer(sink, end, maxBytes) {}

    void OnPacket(const RtpView& packet, std::uint32_t lostBefore, std::int64_t arrivalUs) override;

private:
    void TakeAggregate(const std::uint8_t* at, const std::uint8_t* end);
    void TakeFragment(const std::uint8_t* payload, std::size_t size);
};

}  // namespace gvx
