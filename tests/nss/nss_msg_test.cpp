#include "nss/nss_msg.h"

#include "base/zvs_error.h"
#include "nss/nss_msg_type.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <string>

namespace {

std::string Bytes(const ACE_Message_Block& block) {
    return std::string(block.rd_ptr(), block.length());
}

// Request 0x0501, sequence 0x01020304, trace 0x0A0B0C0D, transaction "T1", code 0x10203040, XML body "<a/>".
std::string GoldenBytes() {
    return std::string("\x01\0\x05\x01\x01\x02\x03\x04\x0A\x0B\x0C\x0DT1", 14) + std::string(62, '\0') +
           "\x10\x20\x30\x40" + std::string(35, '\0') + std::string("\x7E\0\x01\0\0\0\x04<a/>", 11);
}

CNssXMLMsg GoldenMessage() {
    return CNssXMLMsg(static_cast<unsigned short>(NSS_START_STREAM_REQ), 0x01020304, "T1", 0x10203040, 0x0A0B0C0D);
}

void Fill(ACE_Message_Block& block, const std::string& bytes) {
    ASSERT_EQ(block.size(bytes.size()), 0);
    ASSERT_EQ(block.copy(bytes.data(), bytes.size()), 0);
}

TEST(NssMsg, EncodesHeadAndItemInNetworkOrderBehindWhatTheBlockHolds) {
    CNssXMLMsg message = GoldenMessage();
    ASSERT_EQ(message.SetXML("<a/>", 4), 0);
    ACE_Message_Block block;
    Fill(block, "before");
    ASSERT_EQ(message.encode(&block), 0);
    EXPECT_EQ(Bytes(block), "before" + GoldenBytes());
}

TEST(NssMsg, CarriesNoBodyUntilAValueIsSetAndNoTransactionThatDoesNotFit) {
    CNssXMLMsg message = GoldenMessage();
    ACE_Message_Block bare;
    ASSERT_EQ(message.encode(&bare), 0);
    EXPECT_EQ(bare.length(), 116u);
    EXPECT_EQ(bare.rd_ptr()[115], 116);
    ASSERT_EQ(message.SetXML("", 0), 0);
    ACE_Message_Block empty;
    ASSERT_EQ(message.encode(&empty), 0);
    EXPECT_EQ(Bytes(empty).substr(116), std::string("\0\1\0\0\0\0", 6));
    EXPECT_EQ(message.SetXML(nullptr, 3), ZVS_NULL_POINTER);

    ACE_Message_Block block;
    EXPECT_EQ(CNssXMLMsg(1, 1, std::string(64, 'x').c_str(), 0, 0).encode(&block), 0);
    EXPECT_EQ(CNssXMLMsg(1, 1, std::string(65, 'x').c_str(), 0, 0).encode(&block), ZVS_PARA_INVALID);
    EXPECT_EQ(block.length(), 116u);
    EXPECT_EQ(Bytes(block).substr(12, 64), std::string(64, 'x'));
}

TEST(NssMsg, DecodesTheHeadLeavesTheReadPointerAndRefusesFramesThatAreNone) {
    ACE_Message_Block block;
    Fill(block, GoldenBytes());
    CNssMsgBase base;
    ASSERT_EQ(base.decode(&block), 0);
    EXPECT_EQ(base.GetHeader().usiMsgType, 0x0501);
    EXPECT_EQ(base.GetHeader().uiSeqID, 0x01020304u);
    EXPECT_STREQ(base.GetHeader().szTransactionNo, "T1");
    EXPECT_EQ(Bytes(block), GoldenBytes());

    CNssMsgBase none;
    EXPECT_EQ(none.decode(nullptr), 1);
    const std::string good = GoldenBytes();
    std::string lengthBelowHead = good;
    lengthBelowHead[115] = 115;
    std::string lengthBeyondBlock = good;
    lengthBeyondBlock[115] = 127;
    std::string hugeLength = good;
    hugeLength[112] = '\xFF';
    for (const std::string& bytes : {good.substr(0, 115), lengthBelowHead, lengthBeyondBlock, hugeLength}) {
        ACE_Message_Block bad;
        Fill(bad, bytes);
        EXPECT_EQ(none.decode(&bad), 1);
    }
    EXPECT_EQ(none.GetHeader().usiMsgType, 0);
}

TEST(NssBodyView, IsBoundedByTheBlockAndByTheStatedLength) {
    NssBodyView body;
    EXPECT_FALSE(NssBody(nullptr, body));
    ACE_Message_Block more;
    Fill(more, GoldenBytes() + "next frame");
    ASSERT_TRUE(NssBody(&more, body));
    EXPECT_EQ(std::string(body.data, body.length), GoldenBytes().substr(116));

    ACE_Message_Block less;
    Fill(less, GoldenBytes().substr(0, 120));
    ASSERT_TRUE(NssBody(&less, body));
    EXPECT_EQ(body.length, 4u);

    std::string zero = GoldenBytes();
    zero[115] = 0;
    ACE_Message_Block lying;
    Fill(lying, zero);
    EXPECT_FALSE(NssBody(&lying, body));
}

TEST(NssItems, AreFoundByTagAndNeverLeadOutside) {
    const std::string items("\0\2\0\0\0\3abc\0\1\0\0\0\0\0\7\0\0\0\1z", 22);
    NssBodyView value;
    ASSERT_TRUE(NssFindItem(items.data(), items.size(), 2, value));
    EXPECT_EQ(std::string(value.data, value.length), "abc");
    ASSERT_TRUE(NssFindItem(items.data(), items.size(), 1, value));
    EXPECT_EQ(value.length, 0u);
    ASSERT_TRUE(NssFindItem(items.data(), items.size(), 7, value));
    EXPECT_EQ(std::string(value.data, value.length), "z");
    EXPECT_FALSE(NssFindItem(items.data(), items.size(), 3, value));
    EXPECT_FALSE(NssFindItem(items.data(), items.size() - 1, 7, value));
    EXPECT_FALSE(NssFindItem(items.data(), 5, 2, value));
    EXPECT_FALSE(NssFindItem(nullptr, 0, 2, value));

    std::string huge = items;
    huge.replace(2, 4, "\xFF\xFF\xFF\xFF");
    EXPECT_FALSE(NssFindItem(huge.data(), huge.size(), 2, value));
    EXPECT_FALSE(NssFindItem(huge.data(), huge.size(), 7, value));
}

}  // namespace
