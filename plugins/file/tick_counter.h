#pragma once

#include "gvx_common/codec/codec.h"

#include <cstdint>

namespace gvxfile {

constexpr std::uint32_t kVideoClockHz = 90000;  // RTP clock of video (RFC 6184 section 5.1, RFC 7798 section 4.1)
constexpr std::uint32_t kAudioClockHz = 8000;   // RTP clock and sampling rate of G.711 (RFC 3551 section 4.5.14)

// Ticks of the video clock from frame to frame. What a tick cannot express is carried over to the next frame, so that
// the sum never drifts from the frame rate. One thread.
class TickCounter {
public:
    explicit TickCounter(const gvx::Rational& frameRate)
        : m_step(static_cast<std::uint64_t>(kVideoClockHz) * frameRate.denominator), m_rate(frameRate.numerator) {}

    // Ticks that the next frame lasts.
    std::uint32_t Next() {
        m_rest += m_step;
        const std::uint64_t ticks = m_rest / m_rate;
        m_rest %= m_rate;
        return static_cast<std::uint32_t>(ticks);
    }

private:
    std::uint64_t m_step;
    std::uint64_t m_rate;  // not 0
    std::uint64_t m_rest = 0;
};

}  // namespace gvxfile
