#include "gvxctl/metadata_receiver.h"

#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/media_memory/MemHandler.h"
#include "gvx_common/records/gvx_metadata_records.h"
#include "support/temp_folder.h"
#include "support/test_lens.h"

#include <gtest/gtest.h>

#include <cstring>

// From the records of a plug-in through the lens's packets to what the receiver keeps.

namespace gvxctl {
namespace {

std::vector<std::string> g_packets;

int KeepPacket(MEDIA_DATA* data, STREAM_TYPE_EX*) {
    g_packets.emplace_back(static_cast<const char*>(data->pDataBuf), data->nMetaDataSize);
    return 0;
}

// Bytes that differ from place to place, so that a page that is swapped or left out shows.
std::string PictureOf(std::size_t size, unsigned int seed) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 2654435761u + seed) >> 13);
    }
    return bytes;
}

unsigned char* Pointer(const std::string& bytes) {
    return const_cast<unsigned char*>(reinterpret_cast<const unsigned char*>(bytes.data()));
}

class MetadataStream : public ::testing::Test {
protected:
    static constexpr int kUdp = STREAM_TYPE_METADATA;
    static constexpr int kTcp = STREAM_TYPE_METADATA + GVX_MEDIA_CHANNEL_TCP_OFFSET;

    static void SetUpTestSuite() { ASSERT_TRUE(g_mediaPool.Init()); }
    static void TearDownTestSuite() { g_mediaPool.UnInit(); }
    void SetUp() override {
        g_packets.clear();
        m_source.lens.Prepare(kUdp, KeepPacket);
        m_source.lens.Prepare(kTcp, KeepPacket);
    }

    int SendPlate(const std::string& plate, const std::string& panorama, bool ex, bool tcp = false) {
        return ex ? SendPlateEx(plate, panorama, tcp) : SendPlatePlain(plate, panorama, tcp);
    }
    int SendPlatePlain(const std::string& plate, const std::string& panorama, bool tcp) {
        ITSPlates record{};
        record.iPicCnt = 2;
        std::strcpy(record.vehicleInfo.stPlateInfo.szPlateNumber, "AB 123");
        record.astPicInfos[0].iPicLen = static_cast<std::int32_t>(plate.size());
        record.astPicInfos[0].ptrPicBuffer = Pointer(plate);
        record.astPicInfos[1].iPicLen = static_cast<std::int32_t>(panorama.size());
        record.astPicInfos[1].ptrPicBuffer = Pointer(panorama);
        return m_source.lens.MetaDataToRtpAndSend(METADATE_TYPE_PLATE, &record, tcp ? kTcp : kUdp, this, tcp);
    }
    int SendPlateEx(const std::string& plate, const std::string& panorama, bool tcp) {
        ITSPlatesTrim record{};
        record.iPicCnt = 2;
        std::strcpy(record.vehicleInfo.stPlateInfo.szPlateNumber, "AB 123");
        record.astPicInfos[0].iPicLen = static_cast<std::int32_t>(plate.size());
        record.astPicInfos[1].iPicLen = static_cast<std::int32_t>(panorama.size());
        ACE_Message_Block* block = nullptr;
        EXPECT_EQ(CreateMemHandler(&block), 0u);
        MemHandler& memory = *GetMemHandler(block);
        record.astPicInfos[0].picBufferPos = sizeof(record);
        record.astPicInfos[1].picBufferPos = static_cast<unsigned int>(sizeof(record) + plate.size());
        unsigned int at = 0;
        EXPECT_EQ(memory.AddCharBuf(reinterpret_cast<const char*>(&record), sizeof(record), at), 0u);
        for (const std::string* picture : {&plate, &panorama}) {
            EXPECT_EQ(memory.AddCharBuf(picture->data(), static_cast<unsigned int>(picture->size()), at), 0u);
        }
        const int result =
            m_source.lens.MetaDataToRtpAndSendEx(METADATE_TYPE_PLATE, &memory, tcp ? kTcp : kUdp, this, tcp);
        EXPECT_EQ(ReleaseMemHandler(&block), 0u);
        return result;
    }
    void SendHeartbeat() {
        ASSERT_EQ(m_source.lens.MetaDataToRtpAndSendEx(METADATA_TYPE_HEART_BEAT, nullptr, kUdp, this, false), 0);
    }

    // Receives g_packets without the one of that number.
    MetadataStats Receive(std::size_t without, const std::string& folder = "") {
        MetadataReceiver receiver;
        std::string error;
        m_printed.clear();
        EXPECT_TRUE(
            receiver.Open({true, folder, 0, [this](const std::string& text) { m_printed += text + "\n"; }}, error))
            << error;
        for (std::size_t i = 0; i < g_packets.size(); ++i) {
            RtpPacket packet;
            const char* reason = nullptr;
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(g_packets[i].data());
            if (i != without && ParseRtp(bytes, g_packets[i].size(), packet, reason)) {
                EXPECT_EQ(packet.payloadType, kPayloadMetadata);
                receiver.Take(packet);
            }
        }
        receiver.Finish();
        return receiver.Stats();
    }

    static constexpr std::size_t kNone = ~std::size_t{0};
    TestLensOnDevice m_source;
    std::string m_printed;
};

TEST_F(MetadataStream, PicturesOfEverySizeArriveByteForByte) {
    for (const std::size_t size : {1u, 2047u, 2048u, 2049u, 300000u, 10u << 20}) {
        for (const bool ex : {false, true}) {
            SCOPED_TRACE(std::to_string(size) + (ex ? " bytes, ex" : " bytes, plain"));
            const TempFolder folder;
            const std::string plate = PictureOf(size, 1);
            const std::string panorama = PictureOf(size, 2);
            g_packets.clear();
            ASSERT_EQ(SendPlate(plate, panorama, ex), 0);
            const MetadataStats stats = Receive(kNone, folder.Path());
            EXPECT_EQ(MetadataFaults(stats), "");
            EXPECT_EQ(stats.kinds[static_cast<std::size_t>(MetadataKind::Plate)], 1u);
            EXPECT_TRUE(folder.Read("metadata_0001_plate_pic.jpg") == plate);
            EXPECT_TRUE(folder.Read("metadata_0001_panorama_pic.jpg") == panorama);
        }
    }
}

TEST_F(MetadataStream, AFaceIsPrintedAsATreeAndItsPicturesAreKept) {
    const TempFolder folder;
    const std::string pictures[] = {PictureOf(5000, 3), PictureOf(700, 4), PictureOf(900, 5)};
    stFaceRects record{};
    record.uiTimeStampL = 4711;
    record.pPanoramaPicBuf = Pointer(pictures[0]);
    record.ulPanoramaPicsize = 5000;
    record.count = 2;
    for (std::size_t i = 0; i < 2; ++i) {
        record.faces[i].x = 10;
        record.faces[i].width = 64;
        record.faces[i].angle = -7;
        record.faces[i].ulfaceid = 0x1122334455667788;
        record.faces[i].pfacebuf = Pointer(pictures[i + 1]);
        record.faces[i].ulsize = static_cast<std::uint32_t>(pictures[i + 1].size());
    }
    ASSERT_EQ(m_source.lens.MetaDataToRtpAndSend(METADATE_TYPE_FACE, &record, kUdp, this, false), 0);
    SendHeartbeat();
    const MetadataStats stats = Receive(kNone, folder.Path());
    EXPECT_EQ(MetadataFaults(stats), "");
    EXPECT_EQ(stats.pictures.size(), 3u);
    for (const char* line :
         {"face: METADATA_TYPE, ", "RTP time 4711", "\n  COMMON\n    PTS 4711\n", "\n    FACE_POS x 10, y 0, 64 x 0\n",
          "\n    FACE_ANGLE -7\n", "\n    FACE_ID 1234605616436508552\n",
          "\n    FACE_PIC 900 bytes -> metadata_0001_face_pic_2.jpg\n", "\nheartbeat: "}) {
        EXPECT_NE(m_printed.find(line), std::string::npos) << line << "is not in\n" << m_printed;
    }
    EXPECT_EQ(folder.Read("metadata_0001_face_panorama.jpg"), pictures[0]);
    EXPECT_EQ(folder.Read("metadata_0001_face_pic.jpg"), pictures[1]);
    EXPECT_EQ(folder.Read("metadata_0001_face_pic_2.jpg"), pictures[2]);
}

// Whichever packet is missing, also where the numbering begins anew and where a message of one packet stood.
TEST_F(MetadataStream, LossOfAnyOnePacketIsNoticed) {
    const std::string plate = PictureOf(20000, 6);
    for (const bool ex : {false, true}) {
        for (const unsigned short begin : {100, 65500, 65515, 65534}) {
            g_packets.clear();
            m_source.lens.SetMetaDataSeqNo(begin);
            SendHeartbeat();
            ASSERT_EQ(SendPlate(plate, plate, ex), 0);
            SendHeartbeat();
            ASSERT_EQ(SendPlate(plate, plate, ex), 0);
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
    }
    // The first message cut at its head, the last at its end.
    g_packets.clear();
    ASSERT_EQ(SendPlate(plate, plate, true), 0);
    EXPECT_EQ(MetadataFaults(Receive(0)), "1 metadata messages incomplete");
    EXPECT_EQ(m_printed, "a metadata message is incomplete: its first packet is missing\n");
    EXPECT_EQ(MetadataFaults(Receive(g_packets.size() - 1)), "1 metadata messages incomplete");
    EXPECT_NE(m_printed.find("the stream ends after 38920 of 40239 bytes"), std::string::npos) << m_printed;
}

TEST_F(MetadataStream, ComesInterleavedOverTcp) {
    const std::string plate = PictureOf(9000, 7);
    ASSERT_EQ(SendPlate(plate, plate, true, true), 0);
    InterleaveCutter cutter;
    for (const std::string& packet : g_packets) {
        cutter.Feed(reinterpret_cast<const std::uint8_t*>(packet.data()), packet.size());
    }
    std::vector<std::string> cut;
    std::uint8_t channel = 0;
    const std::uint8_t* data = nullptr;
    std::size_t length = 0;
    while (cutter.Next(channel, data, length) == InterleaveCutter::Result::Ready) {
        EXPECT_EQ(channel, 4);
        cut.emplace_back(reinterpret_cast<const char*>(data), length);
    }
    EXPECT_EQ(cut.size(), g_packets.size());
    g_packets = cut;
    const MetadataStats stats = Receive(kNone);
    EXPECT_EQ(MetadataFaults(stats), "");
    EXPECT_EQ(stats.assembler.messages, 1u);
}

struct BrokenRow {
    const char* what;
    std::string bytes;
    const char* reason;
};

std::string Item(const std::string& type, const std::string& value, int more = 0) {
    const auto length = static_cast<std::uint32_t>(static_cast<int>(value.size()) + more);
    return type + std::string(reinterpret_cast<const char*>(&length), sizeof length) + value;
}

TEST(TlvTree, SaysWhatIsWrongWithAMessage) {
    const std::string common("\1\0\0\0", 4);
    const std::string pts("\1\0\0\x09", 4);
    const BrokenRow rows[] = {
        {"whole", Item("META", Item(common, Item(pts, "12345678"))), ""},
        {"no layer one", Item(common, "1234"), "it is not one item of layer one"},
        {"two messages", Item("HTBT", "HTBT") + "x", "it is not one item of layer one"},
        {"beyond its layer", Item("META", Item(common, Item(pts, "12345678", 1))),
         "PTS has 9 bytes, and only 8 are there"},
        {"greatest length", Item("META", Item(common, "", -1)), "COMMON has 4294967295 bytes, and only 0 are there"},
        {"left over", Item("META", Item(common, Item(pts, "12345678") + "abc")),
         "3 bytes are left over, too few for an item"}};
    for (const BrokenRow& row : rows) {
        TlvItem message;
        std::string reason;
        EXPECT_EQ(
            ParseMetadata(reinterpret_cast<const std::uint8_t*>(row.bytes.data()), row.bytes.size(), message, reason),
            *row.reason == '\0')
            << row.what;
        EXPECT_EQ(reason, row.reason) << row.what;
    }
}

}  // namespace
}  // namespace gvxctl
