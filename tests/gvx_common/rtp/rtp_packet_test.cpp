#include "gvx_common/rtp/gvx_rtp_packet.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(RtpPacket, WritesAndReadsTheHeadInNetworkOrder) {
    char buf[] = "\x55\x55\x55\x55\x55\x55\x55\x55\x55\x55\x55\x55\x55";
    CRtpPacket packet;
    ASSERT_EQ(packet.GeneratePacket(buf, 12, false), 0);
    EXPECT_EQ(std::string(buf, 13), std::string("\x80\x60\0\0\0\0\0\0\0\0\0\0\x55", 13));
    packet.SetSeqNum(0x1234);
    packet.SetTimeStamp(0x9AABBCCDDul);
    packet.SetSSRC(0x01020304);
    packet.SetPayloadType(108);
    packet.SetMarker(true);
    EXPECT_EQ(std::string(buf, 12), "\x80\xEC\x12\x34\xAA\xBB\xCC\xDD\x01\x02\x03\x04");
    CRtpPacket read;
    ASSERT_EQ(read.ParsePacket(buf, 12), 0);
    EXPECT_EQ(read.GetSeqNum(), 0x1234);
    EXPECT_EQ(read.GetTimeStamp(), 0xAABBCCDDul);
    EXPECT_EQ(read.GetSSRC(), 0x01020304u);
    EXPECT_EQ(read.GetPayloadType(), 108);
    EXPECT_TRUE(read.GetMarker());
    packet.SetMarker(false);
    EXPECT_EQ(read.GetPayloadType(), 108);
    EXPECT_EQ(packet.GeneratePacket(nullptr, 12, false), 2);
    EXPECT_EQ(packet.GetSeqNum(), 0x1234) << "still the former buffer";
    EXPECT_EQ(CRtpPacket().GetSeqNum(), 0);
}

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
