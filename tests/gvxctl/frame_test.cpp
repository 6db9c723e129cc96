#include "gvxctl/frame.h"

#include "nss/nss_msg_type.h"

#include <gtest/gtest.h>

namespace gvxctl {
namespace {

TEST(Frame, CutterGivesFramesWhereverTheStreamIsSplit) {
    FrameSpec spec;
    spec.type = NSS_START_STREAM_RSP;
    spec.seq = 7;
    spec.tag = NSS_TAG_JSON_CONTENT;
    spec.body = "{\"Reason\":\"no\"}";
    const std::string one = EncodeFrame(spec);
    const std::string stream = one + one;
    for (std::size_t split = 1; split < stream.size(); ++split) {
        FrameCutter cutter;
        Frame frame;
        std::string error;
        int frames = 0;
        for (const std::string& part : {stream.substr(0, split), stream.substr(split)}) {
            cutter.Feed(part.data(), part.size());
            while (cutter.Next(frame, error) == FrameCutter::Result::Ready) {
                ++frames;
                std::string body;
                EXPECT_TRUE(frame.Item(NSS_TAG_JSON_CONTENT, body));
                EXPECT_EQ(body, spec.body);
            }
        }
        EXPECT_EQ(frames, 2) << "split at " << split;
    }
}

TEST(Frame, CutterRefusesImpossibleLengths) {
    FrameSpec spec;
    const std::string good = EncodeFrame(spec);
    for (const std::uint32_t length : {0u, 115u, 4u * 1024 * 1024 + 1, 0xFFFFFFFFu}) {
        std::string bytes = good;
        for (std::size_t i = 0; i < 4; ++i) {
            bytes[112 + i] = static_cast<char>(length >> (24 - 8 * i));
        }
        FrameCutter cutter;
        cutter.Feed(bytes.data(), bytes.size());
        Frame frame;
        std::string error;
        EXPECT_EQ(cutter.Next(frame, error), FrameCutter::Result::Broken) << length;
        EXPECT_NE(error.find(std::to_string(length)), std::string::npos) << error;
    }
}

}  // namespace
}  // namespace gvxctl
