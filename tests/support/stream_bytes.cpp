#include "support/stream_bytes.h"

namespace stream_bytes {
namespace {

class BitWriter {
public:
    void Bits(std::uint32_t value, unsigned count) {
        for (unsigned i = count; i > 0; --i) {
            m_used = m_used % 8;
            if (m_used == 0) {
                m_bytes.push_back('\0');
            }
            const unsigned bit = (value >> (i - 1)) & 1u;
            m_bytes.back() = static_cast<char>(static_cast<unsigned char>(m_bytes.back()) | (bit << (7 - m_used)));
            ++m_used;
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
        return m_bytes;
    }

private:
    std::string m_bytes;
    unsigned m_used = 0;
};

}  // namespace

std::string Nal(const std::string& unit, bool longCode) {
    return std::string(longCode ? 4 : 3, '\0').replace(longCode ? 3 : 2, 1, 1, '\1') + unit;
}

std::string H264Sps(unsigned width, unsigned height) {
    BitWriter bits;
    bits.Bits(66, 8);
    bits.Bits(0, 8);
    bits.Bits(30, 8);
    bits.Ue(0);  // identifier
    bits.Ue(0);
    bits.Ue(2);  // picture order follows decoding
    bits.Ue(1);
    bits.Bits(0, 1);
    bits.Ue(width / 16 - 1);
    bits.Ue(height / 16 - 1);
    bits.Bits(1, 1);
    bits.Bits(1, 1);
    bits.Bits(0, 1);  // no cropping
    bits.Bits(0, 1);  // no usability information
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
