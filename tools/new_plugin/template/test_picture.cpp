#include "test_picture.h"

#include <initializer_list>

namespace gvx_plugin_@IDENT@ {

namespace {

constexpr int kMacroblock = 16;

// The bits of a NAL unit, behind its start code.
class NalWriter {
public:
    explicit NalWriter(unsigned char header) : m_bytes{0, 0, 0, 1, header} {}

    void Bits(unsigned value, int count) {
        while (count-- > 0) {
            m_current = static_cast<unsigned char>(m_current << 1 | ((value >> count) & 1u));
            if (++m_filled == 8) {
                Byte(m_current);
                m_current = 0;
                m_filled = 0;
            }
        }
    }
    // An unsigned number as an Exp-Golomb code, section 9.1.
    void Number(unsigned value) {
        int length = 0;
        while ((value + 1) >> (length + 1) != 0) {
            ++length;
        }
        Bits(0, length);
        Bits(value + 1, length + 1);
    }
    void Numbers(std::initializer_list<unsigned> values) {
        for (const unsigned value : values) {
            Number(value);
        }
    }
    void Align() {
        while (m_filled != 0) {
            Bits(0, 1);
        }
    }
    void AppendTo(std::vector<unsigned char>& frame) {
        Bits(1, 1);
        Align();
        frame.insert(frame.end(), m_bytes.begin(), m_bytes.end());
    }

private:
    // Two zeros and a byte below 4 would look like a start code: a 3 goes between, section 7.4.1.
    void Byte(unsigned char value) {
        if (m_zeros == 2 && value < 4) {
            m_bytes.push_back(3);
            m_zeros = 0;
        }
        m_bytes.push_back(value);
        m_zeros = value == 0 ? m_zeros + 1 : 0;
    }

    std::vector<unsigned char> m_bytes;
    unsigned char m_current = 0;
    int m_filled = 0;
    int m_zeros = 0;
};

// Section 7.3.2.1.1: Baseline, level 3, no reordering of pictures.
void AppendSequenceParameterSet(std::vector<unsigned char>& frame) {
    NalWriter nal(0x67);
    nal.Bits(66, 8);
    nal.Bits(0xC0, 8);
    nal.Bits(30, 8);
    nal.Numbers({0, 0, 2, 1});
    nal.Bits(0, 1);
    nal.Numbers({TestPicture::kWidth / kMacroblock - 1, TestPicture::kHeight / kMacroblock - 1});
    nal.Bits(0b1100, 4);  // frames; 8x8 inference; no cropping; no further information
    nal.AppendTo(frame);
}

// Section 7.3.2.2.
void AppendPictureParameterSet(std::vector<unsigned char>& frame) {
    NalWriter nal(0x68);
    nal.Numbers({0, 0});
    nal.Bits(0b00, 2);
    nal.Numbers({0, 0, 0});
    nal.Bits(0b000, 3);
    nal.Numbers({0, 0, 0});
    nal.Bits(0b100, 3);  // slices tell how they are deblocked
    nal.AppendTo(frame);
}

// A ramp from left to right that a bright bar wanders over.
unsigned Luma(int x, unsigned number) {
    const int bar = static_cast<int>(number * 4 % TestPicture::kWidth);
    return x >= bar && x < bar + kMacroblock ? 235u : static_cast<unsigned>(40 + x * 160 / TestPicture::kWidth);
}

void AppendPicture(std::vector<unsigned char>& frame, unsigned number) {
    NalWriter nal(0x65);
    // Section 7.3.3: the whole picture in one intra slice. Pictures in a row have different identifiers.
    nal.Numbers({0, 7, 0});
    nal.Bits(0, 4);
    nal.Number(number % 2);
    nal.Bits(0b00, 2);
    nal.Numbers({0, 1});
    for (int y = 0; y < TestPicture::kHeight; y += kMacroblock) {
        for (int x = 0; x < TestPicture::kWidth; x += kMacroblock) {
            nal.Number(25);  // I_PCM
            nal.Align();
            for (int i = 0; i < kMacroblock * kMacroblock; ++i) {
                nal.Bits(Luma(x + i % kMacroblock, number), 8);
            }
            for (int i = 0; i < kMacroblock * kMacroblock / 4; ++i) {
                nal.Bits(static_cast<unsigned>(64 + y), 8);
            }
            for (int i = 0; i < kMacroblock * kMacroblock / 4; ++i) {
                nal.Bits(static_cast<unsigned>(208 - x / 2), 8);
            }
        }
    }
    nal.AppendTo(frame);
}

}  // namespace

std::vector<unsigned char> TestPicture::NextFrame() {
    std::vector<unsigned char> frame;
    AppendSequenceParameterSet(frame);
    AppendPictureParameterSet(frame);
    AppendPicture(frame, m_number++);
    return frame;
}

}  // namespace gvx_plugin_@IDENT@
