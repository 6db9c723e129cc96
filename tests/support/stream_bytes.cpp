#include "support/stream_bytes.h"

namespace stream_bytes {
namespace {

class BitWriter {
public:
    void Bits(std::uint32_t value, unsigned count) {
        for (; count > 0; --count) {
            m_bits += (value >> (count - 1) & 1u) != 0 ? '1' : '0';
        }
    }
    void Ue(std::uint32_t value) {
        unsigned length = 0;
        while (((value + 1) >> (length + 1)) != 0) {
            ++length;
        }
        Bits(0, length);
        Bits(value + 1, length + 1);
    }
    std::string Close() {
        Bits(1, 1);
        std::string bytes;
        for (std::size_t at = 0; at < m_bits.size(); at += 8) {
            std::string octet = m_bits.substr(at, 8);
            octet.resize(8, '0');
            bytes += static_cast<char>(std::stoul(octet, nullptr, 2));
        }
        return bytes;
    }

private:
    std::string m_bits;
};

}  // namespace

std::string Nal(const std::string& unit, bool longCode) {
    return std::string(longCode ? 4 : 3, '\0').replace(longCode ? 3 : 2, 1, 1, '\1') + unit;
}

std::string H264Sps(unsigned width, unsigned height) {
    BitWriter bits;
    bits.Bits(66 << 16 | 30, 24);
    for (const unsigned value : {0u, 0u, 2u, 1u}) {  // identifier; picture order follows decoding
        bits.Ue(value);
    }
    bits.Bits(0, 1);
    bits.Ue(width / 16 - 1);
    bits.Ue(height / 16 - 1);
    bits.Bits(0b1100, 4);  // neither cropping nor usability information
    return "\x67" + bits.Close();
}

std::string H264Pps() {
    return "\x68\xCE\x3C\x80";
}
std::string H264Delimiter() {
    return "\x09\xF0";
}

std::string H264Slice(bool key, bool first, std::size_t bytes, char fill) {
    return std::string(1, key ? '\x65' : '\x41') + (first ? '\x88' : '\x41') + std::string(bytes, fill);
}

std::string H265Nal(unsigned type) {
    return std::string(1, static_cast<char>(type << 1)) + "\x01\xAB\xCD";
}

std::string H265Slice(unsigned type, bool first, std::size_t bytes) {
    return std::string(1, static_cast<char>(type << 1)) + '\x01' + (first ? '\xAF' : '\x2F') +
           std::string(bytes, '\x55');
}

std::string H264Stream(unsigned pictures, unsigned slices, unsigned group) {
    std::string stream = Nal(H264Sps(320, 240)) + Nal(H264Pps());
    for (unsigned picture = 0; picture < pictures; ++picture) {
        for (unsigned slice = 0; slice < slices; ++slice) {
            stream += Nal(H264Slice(picture % group == 0, slice == 0), slice == 0);
        }
    }
    return stream;
}

}  // namespace stream_bytes
