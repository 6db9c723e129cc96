#pragma once

#include <cstdint>
#include <vector>

namespace gvx_plugin_@IDENT@ {

// A moving test picture as H.264, made without an encoder: each picture is a key frame whose macroblocks carry their
// samples as they are (I_PCM, ITU-T H.264, section 7.3.5). It goes when your device's video comes.
class TestPicture {
public:
    static constexpr int kWidth = 176;
    static constexpr int kHeight = 144;
    static constexpr int kFramesPerSecond = 10;

    // The next picture with its parameter sets, each NAL unit behind a start code of four bytes.
    std::vector<unsigned char> NextFrame();

private:
    unsigned m_number = 0;
};

}  // namespace gvx_plugin_@IDENT@
