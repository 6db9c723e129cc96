#include "gvxctl/metadata_receiver.h"

#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/records/gvx_metadata_records.h"
#include "support/test_lens.h"

#include <gtest/gtest.h>

namespace gvxctl {
namespace {

std::vector<std::string> g_packets;

int KeepPacket(MEDIA_DATA* data, STREAM_TYPE_EX*) {
    g_packets.emplace_back(static_cast<const char*>(data->pDataBuf), data->nMetaDataSize);
    return 0;
}

class MetadataStream : public ::testing::Test {
protected:
    static constexpr int kUdp = STREAM_TYPE_METADATA;

    static void SetUpTestSuite() { ASSERT_TRUE(g_mediaPool.Init()); }
    static void TearDownTestSuite() { g_mediaPool.UnInit(); }
    void SetUp() override {
        g_packets.clear();
        m_source.lens.Prepare(kUdp, KeepPacket);
    }

    int SendPlate(const std::string& plate) {
        ITSPlates record{};
        record.iPicCnt = 2;
        for (auto& picture : {&record.astPicInfos[0], &record.astPicInfos[1]}) {
            picture->iPicLen = static_cast<std::int32_t>(plate.size());
            picture->ptrPicBuffer = reinterpret_cast<unsigned char*>(const_cast<char*>(plate.data()));
        }
        return m_source.lens.MetaDataToRtpAndSend(METADATE_TYPE_PLATE, &record, kUdp, this, false);
    }
    void SendHeartbeat() {
        ASSERT_EQ(m_source.lens.MetaDataToRtpAndSendEx(METADATA_TYPE_HEART_BEAT, nullptr, kUdp, this, false), 0);
    }

    // Receives g_packets without the one of that number.
    static MetadataStats Receive(std::size_t without) {
        MetadataReceiver receiver;
        std::string error;
        EXPECT_TRUE(receiver.Open({true, "", 0, [](const std::string&) {}}, error)) << error;
        for (std::size_t i = 0; i < g_packets.size(); ++i) {
            RtpPacket packet;
            const char* reason = nullptr;
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(g_packets[i].data());
            if (i != without && ParseRtp(bytes, g_packets[i].size(), packet, reason)) {
                receiver.Take(packet);
            }
        }
        receiver.Finish();
        return receiver.Stats();
    }

    static constexpr std::size_t kNone = ~std::size_t{0};
    TestLensOnDevice m_source;
};

// Whichever packet is missing, also where the numbering begins anew and where a message of one packet stood.
TEST_F(MetadataStream, LossOfAnyOnePacketIsNoticed) {
    const std::string plate(20000, 'p');
    for (const unsigned short begin : {100, 65500, 65534}) {
        g_packets.clear();
        m_source.lens.SetMetaDataSeqNo(begin);
        for (int round = 0; round < 2; ++round) {
            SendHeartbeat();
            ASSERT_EQ(SendPlate(plate), 0);
        }
        SendHeartbeat();
        EXPECT_EQ(MetadataFaults(Receive(kNone)), "");
        for (std::size_t missing = 1; missing + 1 < g_packets.size(); ++missing) {
            const MetadataStats stats = Receive(missing);
            const std::string where = "packet " + std::to_string(missing) + " from " + std::to_string(begin);
            EXPECT_NE(MetadataFaults(stats), "") << where;
            EXPECT_EQ(stats.assembler.messages, 4u) << where;
            EXPECT_EQ(stats.assembler.broken, 0u) << where;
        }
    }
    // The first message cut at its head, the last at its end.
    g_packets.clear();
    ASSERT_EQ(SendPlate(plate), 0);
    EXPECT_EQ(MetadataFaults(Receive(0)), "1 metadata messages incomplete");
    EXPECT_EQ(MetadataFaults(Receive(g_packets.size() - 1)), "1 metadata messages incomplete");
}

}  // namespace
}  // namespace gvxctl
