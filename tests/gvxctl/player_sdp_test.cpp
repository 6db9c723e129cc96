#include "gvxctl/player_sdp.h"

#include <gtest/gtest.h>

namespace gvxctl {
namespace {

const std::string kHead = "v=0\r\no=c 7 7 IN IP4 10.0.0.9\r\ns=Play\r\n";
const std::string kVideo = "a=rtpmap:99 H264/90000\r\n";

TEST(PlayerSdp, NamesTheReceiverAndWhatIsSentToItAlone) {
    const std::string answer =
        kHead +
        "u=rtsp://10.0.0.9:6000/s.sdp\r\nc=IN IP4 10.0.0.9\r\nt=0 0\r\n"
        "m=application 6000 UDP vss_rtsp\r\na=setup:passive\r\n"
        "m=video 6000 RTP/AVP 99 98\r\n" +
        kVideo + "a=control:trackID=1\r\nm=audio 6002 RTP/AVP 8\r\na=rtpmap:8 PCMA/8000\r\na=sendrecv\r\n";
    const std::string video = kHead + "c=IN IP4 192.0.2.1\r\nt=0 0\r\nm=video 20000 RTP/AVP 99 98\r\n" + kVideo;
    std::string player;
    std::string error;
    EXPECT_TRUE(MakePlayerSdp(answer, {"192.0.2.1", 20000}, 20002, player, error)) << error;
    EXPECT_EQ(player, video + "m=audio 20002 RTP/AVP 8\r\na=rtpmap:8 PCMA/8000\r\n");
    EXPECT_TRUE(MakePlayerSdp(answer, {"192.0.2.1", 20000}, 0, player, error)) << error;
    EXPECT_EQ(player, video);
}

TEST(PlayerSdp, RefusesWhatNoPlayerReceives) {
    std::string player = "before";
    std::string error;
    EXPECT_FALSE(MakePlayerSdp(kHead + "m=video 6000 RTP/AVP/TCP 99\r\n", {"192.0.2.1", 20000}, 0, player, error));
    EXPECT_EQ(error, "a plain player receives over UDP alone, the stream comes by RTP/AVP/TCP");
    for (const char* media : {"", "m=audio 0 RTP/AVP 8\r\n", "m=video\r\n", "m=application 6000 UDP x\r\n"}) {
        EXPECT_FALSE(MakePlayerSdp(kHead + media, {"192.0.2.1", 20000}, 20002, player, error)) << media;
    }
    EXPECT_EQ(player, "before");
}

}  // namespace
}  // namespace gvxctl
