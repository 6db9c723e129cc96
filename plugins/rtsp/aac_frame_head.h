#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace gvxrtsp {

// The head that makes an AAC access unit stand for itself (ADTS, ISO/IEC 13818-7, section 6.2), made of what a camera's
// description says of its sound. Platforms learn no more of AAC than that it comes, so each unit must carry its form.
class AacFrameHead {
public:
    static constexpr std::size_t kBytes = 7;

    // config is the hexadecimal AudioSpecificConfig (ISO/IEC 14496-3, section 1.6.2.1) of the fmtp line (RFC 3640,
    // section 4.1). False when such a head cannot say what it says: other objects than those of MPEG-2, other
    // sampling rates than the listed ones, or channels or frames of their own form.
    bool Read(const std::string& config);

    // The head of a unit of that many bytes, at most kMostUnit.
    static constexpr std::size_t kMostUnit = 0x1FFF - kBytes;
    std::array<std::uint8_t, kBytes> For(std::size_t unitBytes) const;

private:
    unsigned int m_profile = 1;    // object type less one: 1 is AAC LC
    unsigned int m_rateIndex = 0;  // of the table of sampling rates
    unsigned int m_channels = 0;
};

}  // namespace gvxrtsp
