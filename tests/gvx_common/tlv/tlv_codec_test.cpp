#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/tlv/metadata_tags.h"
#include "gvx_common/tlv/tlv_decoder.h"
#include "gvx_common/tlv/tlv_encoder.h"
#include "support/recording_logger.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes Item(int type, const std::string& value) {
    const auto length = static_cast<unsigned int>(value.size());
    Bytes bytes(8 + value.size());
    std::memcpy(bytes.data(), &type, 4);
    std::memcpy(bytes.data() + 4, &length, 4);
    std::copy(value.begin(), value.end(), bytes.begin() + 8);
    return bytes;
}

Bytes Join(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

class TlvTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(g_mediaPool.Init()); }
    static void TearDownTestSuite() { g_mediaPool.UnInit(); }
};

TEST_F(TlvTest, TheMemoryFormKeepsTheOrderOfTheCalls) {
    TLV_Encoder encoder;
    TLV_Encoder inner;
    const std::string picture(5000, 'p');
    char text[] = "text";
    EXPECT_EQ(inner.EncodeValue<short>(4, 0x0201, 2), 0);
    EXPECT_EQ((inner.EncodePtrValue<char*>(9, text, 4)), 0);
    EXPECT_EQ(
        (inner.EncodePtrValue<const unsigned char*>(1, reinterpret_cast<const unsigned char*>(picture.data()), 5000)),
        0);
    EXPECT_EQ(encoder.EncodeMemBuf(8, 0, inner.GetMemBufLength(), *inner.GetMemHandler()), 0);
    EXPECT_EQ(encoder.EncodeValue<LAYER_ONE_TYPE>(2, HEART_BEART_TYPE, 4), 0);
    const Bytes nested = Join({Item(4, "\x01\x02"), Item(9, "text"), Item(1, picture)});
    Bytes all(encoder.GetMemBufLength());
    EXPECT_EQ(encoder.GetMemHandler()->MemcpyToChar(reinterpret_cast<char*>(all.data()), encoder.GetMemBufLength(), 0),
              0u);
    EXPECT_EQ(all, Join({Item(8, std::string(nested.begin(), nested.end())), Item(2, "HTBT")}));

    EXPECT_EQ(encoder.EncodeMemBuf(0x0A000009, inner.GetMemBufLength() + 1, 5, *inner.GetMemHandler()), 1);
    EXPECT_EQ((encoder.EncodePtrValue<char*>(9, nullptr, 4)), 1);
    EXPECT_EQ(encoder.EncodeValue<char>(3, 'x', 2), 1);  // no more than the value has
    encoder.Clear();
    EXPECT_EQ(encoder.GetMemBufLength(), 0u);
    inner.Clear();
}

TEST_F(TlvTest, GettersRefuseWhatDoesNotFit) {
    const Bytes bytes = Join({Item(1, "abcd"), Item(1, "ef"), Item(2, "123456789")});
    TLV_Decoder decoder;
    ASSERT_EQ(decoder.Decode(bytes.data(), bytes.size()), 0);
    int two[2] = {-1, -1};
    EXPECT_EQ(decoder.GetValue(1, two, 1), 1);
    EXPECT_EQ(decoder.GetValue(1, two, 0), 1);
    EXPECT_EQ(decoder.GetValue(3, two, 2), 1);
    ASSERT_EQ(decoder.GetValue(1, two, 2), 0);
    EXPECT_EQ(two[1], 'e' | 'f' << 8);  // the short one fills the low bytes
    unsigned long long one = 0;
    EXPECT_EQ(decoder.GetValue(2, &one, 1), 1);  // nine bytes
    char room[9];
    char* const values[] = {room};
    unsigned long lengths[] = {8};
    EXPECT_EQ(decoder.GetValue(2, values, lengths, 1), 1);
    lengths[0] = 9;
    EXPECT_EQ(decoder.GetValue(2, values, lengths, 1), 0);
    EXPECT_EQ(std::string(room, 9), "123456789");
    EXPECT_EQ(decoder.Decode(nullptr, 4), 1);
}

TEST_F(TlvTest, DecodeNeverLeavesTheBuffer) {
    const Bytes good = Item(1, "abcd");
    const Bytes head = Item(1, "");
    Bytes tooLong = good;
    tooLong[4] = 200;
    Bytes huge = good;
    std::fill(huge.begin() + 4, huge.begin() + 8, 0xFF);
    struct Row {
        const char* situation;
        Bytes bytes;
        unsigned long items;  // of type 1
        unsigned int length;  // of the first of them
        std::size_t lines;    // in the log: one for each good item
    };
    const Row rows[] = {
        {"nothing", {}, 0, 0, 0},
        {"one byte", {1}, 0, 0, 0},
        {"a type alone", Bytes(head.begin(), head.begin() + 4), 0, 0, 0},
        {"half a length", Bytes(head.begin(), head.begin() + 6), 0, 0, 1},
        {"an empty item at the end", head, 0, 0, 1},
        {"an empty item ahead of another", Join({head, good}), 2, 0, 2},
        {"a length beyond the end", tooLong, 1, 4, 0},
        {"the greatest length", huge, 1, 4, 0},
        {"a good item and a wrong one", Join({good, tooLong}), 2, 4, 1},
    };
    for (const Row& row : rows) {
        // Exactly as long as the bytes, so that a read beyond is seen.
        const std::unique_ptr<unsigned char[]> exact(new unsigned char[row.bytes.size()]);
        std::copy(row.bytes.begin(), row.bytes.end(), exact.get());
        const ScopedRecordingLogger log;
        TLV_Decoder decoder;
        EXPECT_EQ(decoder.Decode(exact.get(), row.bytes.size()), 0) << row.situation;
        EXPECT_EQ(log->Count("!,Buf Remain Length ", "Invalid Tlv Obj"), row.lines) << row.situation;
        EXPECT_EQ(decoder.GetValueCount(1), row.items) << row.situation;
        if (row.items != 0) {
            unsigned int lengths[2] = {};
            EXPECT_EQ(decoder.GetValueLen(1, lengths, 2), 0);
            EXPECT_EQ(lengths[0], row.length) << row.situation;
            EXPECT_LE(lengths[1], 4u) << row.situation;
        }
    }
}

}  // namespace
