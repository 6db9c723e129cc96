#include "rtsp/aac_frame_head.h"

#include "gvx_common/codec/bit_reader.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iterator>
#include <vector>

namespace gvxrtsp {
namespace {

constexpr unsigned int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                   22050, 16000, 12000, 11025, 8000,  7350};
constexpr unsigned int kRateCount = std::size(kRates);
constexpr unsigned int kOwnRate = 15;  // the rate itself follows
constexpr unsigned int kLastOfMpeg2 = 4;
constexpr unsigned int kBandReplication = 5;    // HE-AAC: the core's type follows
constexpr unsigned int kParametricStereo = 29;  // the same
constexpr unsigned int kMostChannels = 7;

// The place of a sampling rate in the table; kRateCount for one that is not there.
unsigned int TakeRate(gvx::BitReader& bits) {
    const unsigned int index = bits.Bits(4);
    if (index != kOwnRate) {
        return std::min(index, kRateCount);
    }
    const unsigned int rate = bits.Bits(24);
    return static_cast<unsigned int>(std::find(std::begin(kRates), std::end(kRates), rate) - std::begin(kRates));
}

}  // namespace

bool AacFrameHead::Read(const std::string& config) {
    constexpr std::size_t kMostDigits = 64;
    if (config.size() > kMostDigits ||
        !std::all_of(config.begin(), config.end(), [](unsigned char c) { return std::isxdigit(c) != 0; })) {
        return false;
    }
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < config.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::strtoul(config.substr(i, 2).c_str(), nullptr, 16)));
    }
    gvx::BitReader bits(bytes.data(), bytes.size(), 0);
    unsigned int type = bits.Bits(5);
    m_rateIndex = TakeRate(bits);
    m_channels = bits.Bits(4);
    if (type == kBandReplication || type == kParametricStereo) {
        TakeRate(bits);  // of what a decoder makes of the core
        type = bits.Bits(5);
    }
    const bool shortFrames = bits.Flag();  // 960 samples instead of 1024
    m_profile = type - 1;
    return bits.Ok() && type >= 1 && type <= kLastOfMpeg2 && m_rateIndex < kRateCount && m_channels >= 1 &&
           m_channels <= kMostChannels && !shortFrames;
}

std::array<std::uint8_t, AacFrameHead::kBytes> AacFrameHead::For(std::size_t unitBytes) const {
    const auto length = static_cast<unsigned int>(std::min(unitBytes, kMostUnit) + kBytes);
    return {0xFF,
            0xF1,  // MPEG-4, no checksum
            static_cast<std::uint8_t>(m_profile << 6 | m_rateIndex << 2 | m_channels >> 2),
            static_cast<std::uint8_t>((m_channels & 3u) << 6 | length >> 11),
            static_cast<std::uint8_t>(length >> 3),
            static_cast<std::uint8_t>((length & 7u) << 5 | 0x1F),  // a buffer of variable rate
            0xFC};
}

}  // namespace gvxrtsp
