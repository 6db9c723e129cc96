#include "gvx_common/rtp/gvx_rtp_packet.h"

#include <gtest/gtest.h>

namespace {

TEST(RtpPacket, ParsesCsrcAndExtensionAndRefusesWhatIsTooShortOrOfAnotherVersion) {
    char buf[64] = {};
    buf[0] = static_cast<char>(0x92);  // X, two CSRCs
    buf[20 + 3] = 5;
    buf[20 + 4 + 19] = 0x7F;
    CRtpPacket whole;
    ASSERT_EQ(whole.ParsePacket(buf, sizeof(buf)), 0);
    EXPECT_EQ(whole.GetHeadLen(), 12u + 8u + 4u + 20u);
    ASSERT_NE(whole.GetExtData(), nullptr);
    EXPECT_EQ(whole.GetExtData()->uiGmtSecond, 0x7F000000u);
    buf[20 + 3] = 4;  // too short for the extension data
    ASSERT_EQ(whole.ParsePacket(buf, sizeof(buf)), 0);
    EXPECT_EQ(whole.GetExtData(), nullptr);
    buf[15] = 2;
    for (const auto& [first, length] :
         {std::pair<unsigned char, unsigned int>{0x80, 11}, {0x40, 12}, {0x90, 15}, {0x90, 20}, {0x8F, 20}}) {
        buf[0] = static_cast<char>(first);
        CRtpPacket packet;
        EXPECT_NE(packet.ParsePacket(buf, length), 0) << length;
        EXPECT_EQ(packet.GetHeadLen(), 12u) << "no refusal leaves a view behind";
    }
    EXPECT_NE(CRtpPacket().ParsePacket(nullptr, 12), 0);
}

}  // namespace
