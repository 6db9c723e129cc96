#include "gvxctl/rtp_receiver.h"

#include <gtest/gtest.h>

namespace gvxctl {
namespace {

TEST(Receiver, ForeignBytesEndAnInterleavedStream) {
    RtpReceiver receiver;
    std::string error;
    ASSERT_TRUE(receiver.StartTcp(Endpoint{}, RecordFiles{}, error)) << error;
    gvx::UniqueFd peer = ConnectTcp(Endpoint{"127.0.0.1", receiver.VideoPort()}, 5000, error);
    ASSERT_TRUE(peer.Valid() && SendAll(peer.Get(), "HTTP/1.1", 8, 5000)) << error;
    const std::atomic<bool> stop{false};
    EXPECT_FALSE(receiver.WaitForFrames(1, 0, 20000, stop));
    EXPECT_EQ(receiver.Stats().error, "the interleaved stream has lost its framing");
}

}  // namespace
}  // namespace gvxctl
