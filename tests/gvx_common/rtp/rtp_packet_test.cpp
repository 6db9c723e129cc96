#include "gvx_common/rtp/gvx_rtp_packet.h"

#include "support/recording_logger.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes BytesOf(const char* data, std::size_t size) {
    return Bytes(data, data + size);
}

TEST(RtpPacket, WritesTheHeadInNetworkOrder) {
    char buf[14];
    std::memset(buf, 0x55, sizeof(buf));
    CRtpPacket packet;
    ASSERT_EQ(packet.GeneratePacket(buf, 12, false), 0);
    EXPECT_EQ(BytesOf(buf, 14), (Bytes{0x80, 96, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x55, 0x55}));
    packet.SetSeqNum(0x1234);
    packet.SetTimeStamp(0x9AABBCCDDul);
    packet.SetSSRC(0x01020304);
    packet.SetPayloadType(108);
    packet.SetMarker(true);
    EXPECT_EQ(BytesOf(buf, 12), (Bytes{0x80, 0xEC, 0x12, 0x34, 0xAA, 0xBB, 0xCC, 0xDD, 1, 2, 3, 4}));
    EXPECT_EQ(packet.GetSeqNum(), 0x1234);
    EXPECT_EQ(packet.GetTimeStamp(), 0xAABBCCDDul);
    EXPECT_EQ(packet.GetSSRC(), 0x01020304u);
    EXPECT_EQ(packet.GetPayloadType(), 108);
    EXPECT_TRUE(packet.GetMarker());
    packet.SetMarker(false);
    EXPECT_EQ(packet.GetPayloadType(), 108);
    packet.SetVersion(1);
    EXPECT_EQ(packet.GetVersion(), 1);
    EXPECT_EQ(packet.CheckVersion(), 1);
}

TEST(RtpPacket, WritesTheExtension) {
    char buf[36] = {};
    CRtpPacket packet;
    ASSERT_EQ(packet.GeneratePacket(buf, 12, true), 0);
    EXPECT_EQ(packet.GetHeadLen(), 12u);
    EXPECT_EQ(buf[0], static_cast<char>(0x80));
    packet.setExtension(true);
    packet.setHeadLen(36);
    packet.setExtDataTime(0x0102, 0x03040506);
    unsigned short profile = 0;
    std::memcpy(&profile, "TV", 2);
    packet.setExternHead(profile, 5);
    Bytes expected{0x90, 96, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 'T', 'V', 0, 5};
    expected.resize(30, 0);
    for (const unsigned char byte : {1, 2, 3, 4, 5, 6}) {
        expected.push_back(byte);
    }
    EXPECT_EQ(BytesOf(buf, 36), expected);
    EXPECT_EQ(packet.GetHeadLen(), 36u);
}

TEST(RtpPacket, WithoutABufferItSaysSoAndDoesNothing) {
    ScopedRecordingLogger log;
    CRtpPacket packet;
    packet.SetSeqNum(1);
    packet.setExternHead(1, 5);
    packet.setExtDataTime(1, 2);
    EXPECT_EQ(packet.GetTimeStamp(), 0u);
    EXPECT_EQ(log->CountLevel(OM_LOG_ERR), 4u);
    char buf[12];
    ASSERT_EQ(packet.GeneratePacket(buf, 12, false), 0);
    packet.SetSeqNum(7);
    EXPECT_EQ(packet.GeneratePacket(nullptr, 12, false), 2);
    EXPECT_TRUE(log->Contains("pRtpPacket is null."));
    EXPECT_EQ(packet.GetSeqNum(), 7);  // still the former buffer
}

TEST(RtpPacket, ParsesCsrcAndExtension) {
    char buf[64] = {};
    buf[0] = static_cast<char>(0x92);  // X, two CSRCs
    buf[1] = static_cast<char>(0x80 | 99);
    buf[3] = 9;
    buf[20 + 3] = 5;
    buf[20 + 4 + 19] = 0x7F;
    CRtpPacket packet;
    ASSERT_EQ(packet.ParsePacket(buf, sizeof(buf)), 0);
    EXPECT_EQ(packet.GetHeadLen(), 12u + 8u + 4u + 20u);
    EXPECT_EQ(packet.GetSeqNum(), 9);
    EXPECT_TRUE(packet.GetMarker());
    ASSERT_NE(packet.GetExtData(), nullptr);
    EXPECT_EQ(packet.GetExtData()->uiGmtSecond, 0x7F000000u);
    buf[20 + 3] = 4;  // too short for the extension data
    ASSERT_EQ(packet.ParsePacket(buf, sizeof(buf)), 0);
    EXPECT_EQ(packet.GetExtData(), nullptr);
}

TEST(RtpPacket, RefusesWhatIsTooShortOrOfAnotherVersion) {
    ScopedRecordingLogger log;
    CRtpPacket packet;
    char buf[20] = {};
    EXPECT_NE(packet.ParsePacket(nullptr, 12), 0);
    EXPECT_TRUE(log->Contains("Rtp data is null."));
    EXPECT_NE(packet.ParsePacket(buf, 11), 0);
    EXPECT_TRUE(log->Contains("Packet len is too short, uilen[11]"));
    buf[0] = 0x40;
    EXPECT_NE(packet.ParsePacket(buf, 12), 0);
    EXPECT_TRUE(log->Contains("Version is not 2. version[1]"));
    EXPECT_TRUE(log->Contains("Check version fail."));
    buf[0] = static_cast<char>(0x90);
    EXPECT_NE(packet.ParsePacket(buf, 15), 0);
    EXPECT_TRUE(log->Contains("Packet len is too short to contain extend head, uilen[15]"));
    buf[15] = 2;
    EXPECT_NE(packet.ParsePacket(buf, 20), 0);
    EXPECT_TRUE(log->Contains("As ulLen[20] is smaller than ulHeadLen[24]."));
    buf[0] = static_cast<char>(0x8F);
    EXPECT_NE(packet.ParsePacket(buf, 20), 0);
    EXPECT_EQ(packet.GetTimeStamp(), 0u);  // no refusal left a view behind
}

}  // namespace
