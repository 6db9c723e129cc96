#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/zvs_error.h"
#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/media_memory/MemHandler.h"
#include "gvx_common/records/gvx_metadata_records.h"
#include "gvx_common/tlv/metadata_tags.h"
#include "gvx_common/tlv/tlv_decoder.h"
#include "support/recording_logger.h"
#include "support/sent_packets.h"
#include "support/test_clock.h"
#include "support/test_lens.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kUdp = STREAM_TYPE_METADATA;
constexpr int kTcp = STREAM_TYPE_METADATA + GVX_MEDIA_CHANNEL_TCP_OFFSET;

std::string Tlv(const SentPacket& packet) {
    return std::string(packet.bytes.begin() + static_cast<std::ptrdiff_t>(packet.RtpAt() + 13), packet.bytes.end());
}

std::string Picture(std::size_t size, unsigned int seed) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        seed = seed * 1664525 + 1013904223;
        byte = static_cast<char>(seed >> 24);
    }
    return bytes;
}

unsigned char* Raw(std::string& bytes) {
    return reinterpret_cast<unsigned char*>(bytes.data());
}

template <typename T>
std::string BytesOf(T value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

std::string Item(int type, const std::string& value) {
    return BytesOf(type) + BytesOf(static_cast<unsigned int>(value.size())) + value;
}

// The items of a target by type: in the order of the Ex form, or sorted as in the plain one.
using Items = std::vector<std::pair<int, std::string>>;
std::string Target(Items items, bool sorted) {
    if (sorted) {
        std::stable_sort(items.begin(), items.end(), [](auto& left, auto& right) { return left.first < right.first; });
    }
    std::string joined;
    for (const auto& [type, value] : items) {
        joined += Item(type, value);
    }
    return Item(TARGET, joined);
}

std::string Message(unsigned long long time, const std::string& targets) {
    return Item(METADATA_TYPE, Item(COMMON, Item(PTS, BytesOf(time))) + targets);
}

class MetadataTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(g_mediaPool.Init()); }
    static void TearDownTestSuite() { g_mediaPool.UnInit(); }

    void SetUp() override {
        lens.Prepare(kUdp, SentPackets::Take);
        lens.Prepare(kTcp, SentPackets::Take);
    }

    // The TLV bytes of the packets, which must be whole, in order and marked at the end alone.
    std::string Joined() const {
        std::string all;
        for (std::size_t i = 0; i < packets.size(); ++i) {
            const SentPacket& packet = packets[i];
            EXPECT_EQ(packet.Marked(), i + 1 == packets.size());
            EXPECT_EQ(packet.streamType, STREAM_TYPE_METADATA);
            EXPECT_EQ(packet.PayloadType(), 107u);
            EXPECT_EQ(packet.Number(12, 1), 0xAAu);
            EXPECT_EQ(packet.TimeStamp(), packets[0].TimeStamp());
            EXPECT_EQ(static_cast<unsigned short>(packet.SeqNo() - packets[0].SeqNo()), i);
            all += Tlv(packet);
        }
        return all;
    }

    template <typename Plates>
    static void FillPlates(Plates& plates) {
        auto& seen = plates.vehicleInfo;
        plates.iPicCnt = 2;
        seen.cLaneChannel = 3;
        seen.uiSnapTime = 0x1122334455667788;
        seen.stPlateInfo.cPlateType = 4;
        seen.stPlateInfo.cPlateColor = 5;
        std::strcpy(seen.stPlateInfo.szPlateNumber, "AB 123");
        seen.stVehicleInfo.cVehicleType = 6;
        seen.stVehicleInfo.cVehicleColor = 7;
        seen.stVehicleInfo.iVehicleSpeed = -80;
        plates.astPicInfos[0].ulPicFileID = 0x0102030405060708;
        plates.stPlatePos = {1, 2, 3, 4};
        plates.platePosCom = {11, 12, 13, 14};
        plates.platePosAbs = {21, 22, 23, 24};
        plates.vehiclePosCom = {31, 32, 33, 34};
        plates.vehiclePosAbs = {41, 42, 43, 0xFFFF};
    }

    // The message of the record that FillPlates makes.
    static std::string Plates(const std::string& plate, const std::string& panorama, bool sorted) {
        const auto rect = [](int first, int last) {
            return BytesOf(static_cast<unsigned short>(first)) + BytesOf(static_cast<unsigned short>(first + 1)) +
                   BytesOf(static_cast<unsigned short>(first + 2)) + BytesOf(static_cast<unsigned short>(last));
        };
        return Message(0x1122334455667788, Target({{LANE_ID, "\3"},
                                                   {VEHICLE_TYPE_TV, "\6"},
                                                   {VEHICLE_COLOR, "\7"},
                                                   {PLATE_TYPE, "\4"},
                                                   {PLATE_COLOR, "\5"},
                                                   {PLATE_POS, rect(1, 4)},
                                                   {PLATE_POS_COM, rect(11, 14)},
                                                   {PLATE_POS_ABS, rect(21, 24)},
                                                   {VEHICLE_POS_COM, rect(31, 34)},
                                                   {VEHICLE_POS_ABS, rect(41, 0xFFFF)},
                                                   {PLATE_CHAR, "AB 123"},
                                                   {PIC_SNAPSHOT_TIME, BytesOf(0x1122334455667788)},
                                                   {VEHICLE_SPEED, BytesOf(-80)},
                                                   {PLATE_PIC, plate},
                                                   {PANORAMA_PIC, panorama},
                                                   {GLOBAL_OBJID, BytesOf(0x0102030405060708)}},
                                                  sorted));
    }

    // A record at the start of a buffer with its pictures behind it.
    template <typename Record>
    static Record* NewRecord(ACE_Message_Block** mb) {
        EXPECT_EQ(CreateMemHandlerAndAlloc(mb, sizeof(Record), 0), 0u);
        return new (GetMemHandler(*mb)->GetHead()->rd_ptr()) Record{};
    }

    static unsigned int AddPicture(ACE_Message_Block* mb, const std::string& bytes) {
        unsigned int pos = 0;
        EXPECT_EQ(GetMemHandler(mb)->AddCharBuf(bytes.data(), static_cast<unsigned int>(bytes.size()), pos), 0u);
        return pos;
    }

    int SendPlateEx(const std::string& plate, const std::string& panorama, bool tcp) {
        ACE_Message_Block* mb = nullptr;
        auto* record = NewRecord<ITSPlatesTrim>(&mb);
        FillPlates(*record);
        const std::string* pictures[] = {&plate, &panorama};
        for (int i = 0; i < 2; ++i) {
            record->astPicInfos[i].iPicLen = static_cast<int>(pictures[i]->size());
            record->astPicInfos[i].picBufferPos = AddPicture(mb, *pictures[i]);
        }
        const int result =
            lens.MetaDataToRtpAndSendEx(METADATE_TYPE_PLATE, GetMemHandler(mb), tcp ? kTcp : kUdp, this, tcp);
        ReleaseMemHandler(&mb);
        return result;
    }

    SentPackets m_sent;
    std::vector<SentPacket>& packets = m_sent.all;
    TestLensOnDevice on;
    TestLens& lens = on.lens;
};

TEST_F(MetadataTest, PicturesOfAnySizeArriveInTheOrderOfEachForm) {
    for (const std::size_t size : {1u, 2047u, 2048u, 2049u, 300u * 1024, 10u * 1024 * 1024}) {
        std::string plate = Picture(size, 1);
        std::string panorama = Picture(size / 2 + 1, 2);
        packets.clear();
        ASSERT_EQ(SendPlateEx(plate, panorama, size % 2 == 0), 0);
        EXPECT_EQ(packets[0].TimeStamp(), 0x55667788u);
        EXPECT_TRUE(Joined() == Plates(plate, panorama, false)) << size;

        ITSPlates plates{};
        FillPlates(plates);
        std::string* pictures[] = {&plate, &panorama};
        for (int i = 0; i < 2; ++i) {
            plates.astPicInfos[i].iPicLen = static_cast<int>(pictures[i]->size());
            plates.astPicInfos[i].ptrPicBuffer = Raw(*pictures[i]);
        }
        packets.clear();
        ASSERT_EQ(lens.MetaDataToRtpAndSend(METADATE_TYPE_PLATE, &plates, kUdp, this, false), 0);
        EXPECT_EQ(packets[0].TimeStamp(), 0x55667788u);
        EXPECT_TRUE(Joined() == Plates(plate, panorama, true)) << size;
    }
}

TEST_F(MetadataTest, FacesComeOneTargetEach) {
    std::string panorama = Picture(5000, 3);
    std::string face = Picture(3000, 4);
    ACE_Message_Block* mb = nullptr;
    auto* ex = NewRecord<stFaceRects>(&mb);
    stFaceRects plain{};
    for (stFaceRects* record : {ex, &plain}) {
        record->uAlarmTime = 1000;
        record->uiTimeStampH = 7;
        record->uiTimeStampL = 9;
        record->ulPanoramaPicsize = 5000;
        record->count = 2;
        record->faces[0] = {-1, 2, 3, 4, 88, -9, 0x0102030405060708, Raw(face), 0, 3000, 1001};
        record->faces[1] = {5, 6, 7, 8, 1, 2, 43, nullptr, 0, 0, 1002};
    }
    plain.pPanoramaPicBuf = Raw(panorama);
    ex->panoramaPicBufPos = AddPicture(mb, panorama);
    ex->faces[0].facebufPos = AddPicture(mb, face);

    for (const bool plainForm : {true, false}) {
        packets.clear();
        ASSERT_EQ(plainForm ? lens.MetaDataToRtpAndSend(METADATE_TYPE_FACE, &plain, kUdp, this, false)
                            : lens.MetaDataToRtpAndSendEx(METADATE_TYPE_FACE, GetMemHandler(mb), kUdp, this, false),
                  0);
        EXPECT_EQ(packets[0].TimeStamp(), 9u);
        const Items first = {{FACE_PANORAMA, panorama}, {FACE_PIC_TIME, BytesOf(1000L)}};
        const Items second = {{FACE_POS, {"\xFF\xFF\2\0\3\0\4\0", 8}},
                              {FACE_SCORE, BytesOf(short{88})},
                              {FACE_ANGLE, BytesOf(short{-9})},
                              {FACE_ID, BytesOf(0x0102030405060708)},
                              {GLOBAL_OBJID, BytesOf(0x0102030405060708)},
                              {FACE_PIC_TIME, BytesOf(1001L)},
                              {FACE_PIC, face}};
        const Items third = {{FACE_POS, {"\5\0\6\0\7\0\x8\0", 8}}, {FACE_SCORE, BytesOf(short{1})},
                             {FACE_ANGLE, BytesOf(short{2})},      {FACE_ID, BytesOf(43L)},
                             {GLOBAL_OBJID, BytesOf(43L)},         {FACE_PIC_TIME, BytesOf(1002L)}};
        EXPECT_TRUE(Joined() == Message(0x700000009, Target(first, plainForm) + Target(second, plainForm) +
                                                         Target(third, plainForm)));
    }
    ReleaseMemHandler(&mb);
}

TEST_F(MetadataTest, ARecordThatPointsOutsideIsRefused) {
    ACE_Message_Block* mb = nullptr;
    auto* record = NewRecord<ITSPlatesTrim>(&mb);
    FillPlates(*record);
    record->iPicCnt = 100;
    record->astPicInfos[0].picBufferPos = AddPicture(mb, "picture");
    record->astPicInfos[0].iPicLen = 8;
    EXPECT_EQ(lens.MetaDataToRtpAndSendEx(METADATE_TYPE_PLATE, GetMemHandler(mb), kUdp, this, false), 1);
    record->astPicInfos[0].iPicLen = 2;
    record->astPicInfos[0].picBufferPos = 0xFFFFFFFF;
    EXPECT_EQ(lens.MetaDataToRtpAndSendEx(METADATE_TYPE_PLATE, GetMemHandler(mb), kUdp, this, false), 1);
    // A plate record where faces are expected is too short for them.
    EXPECT_EQ(lens.MetaDataToRtpAndSendEx(METADATE_TYPE_FACE, GetMemHandler(mb), kUdp, this, false), 1);
    EXPECT_EQ(lens.MetaDataToRtpAndSendEx(METADATE_TYPE_BUT, GetMemHandler(mb), kUdp, this, false), 1);
    EXPECT_EQ(lens.MetaDataToRtpAndSendEx(METADATE_TYPE_PLATE, nullptr, kUdp, this, false), 1);
    EXPECT_EQ(lens.MetaDataToRtpAndSend(METADATE_TYPE_FACE, nullptr, kUdp, this, false), 1);
    EXPECT_EQ(lens.MetaDataToRtpAndSend(METADATE_TYPE_FACE, nullptr, kUdp, nullptr, false), 1);
    EXPECT_TRUE(packets.empty());
    ReleaseMemHandler(&mb);

    stFaceRects faces{};
    faces.count = 1000000;
    EXPECT_EQ(lens.MetaDataToRtpAndSend(METADATE_TYPE_FACE, &faces, kUdp, this, false), 0);
    const std::string message = Joined();
    TLV_Decoder top;
    TLV_Decoder two;
    ASSERT_EQ(top.Decode(reinterpret_cast<const unsigned char*>(message.data()), message.size()), 0);
    ASSERT_EQ(top.GetValue(METADATA_TYPE, &two, 1), 0);
    EXPECT_EQ(two.GetValueCount(TARGET), 17u);
}

TEST_F(MetadataTest, PacketsAreCutAt1390Bytes) {
    for (const unsigned int length : {1u, 1390u, 1391u, 2780u, 2781u}) {
        MemHandler memory;
        unsigned int pos = 0;
        const std::string bytes = Picture(length, 9);
        ASSERT_EQ(memory.AddCharBuf(bytes.data(), length, pos), 0u);
        for (const bool tcp : {false, true}) {
            packets.clear();
            ASSERT_EQ(lens.SendMetaData(METADATE_TYPE_PLATE, this, tcp ? kTcp : kUdp, memory, length, tcp, 5), 0);
            EXPECT_EQ(Joined(), bytes);
            ASSERT_EQ(packets.size(), (length + 1389) / 1390);
            EXPECT_EQ(Tlv(packets.front()).size(), std::min(length, 1390u));
            const Bytes& last = packets.back().bytes;
            const std::string whole(last.begin(), last.end());
            const std::size_t rest = whole.size() - 4;
            EXPECT_TRUE(!tcp || whole.substr(0, 4) == (std::string{'$', 4, static_cast<char>(rest >> 8),
                                                                   static_cast<char>(rest & 0xFF)}));
        }
        memory.FreeMem();
    }
    // A length that the memory does not hold ends with one packet.
    packets.clear();
    EXPECT_EQ(lens.SendMetaData(METADATE_TYPE_PLATE, this, kUdp, MemHandler(), 10, false, 5), 0);
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_TRUE(Tlv(packets[0]).empty());
}

TEST_F(MetadataTest, AHeartbeatIsTwelveBytesWithTheTime) {
    const ScopedTestClock clock;
    for (const bool ex : {false, true}) {
        packets.clear();
        ASSERT_EQ(ex ? lens.MetaDataToRtpAndSendEx(METADATA_TYPE_HEART_BEAT, nullptr, kUdp, this, false)
                     : lens.MetaDataToRtpAndSend(METADATA_TYPE_HEART_BEAT, nullptr, kUdp, this, false),
                  0);
        ASSERT_EQ(packets.size(), 1u);
        EXPECT_EQ(Joined(), std::string("HTBT\x04\0\0\0HTBT", 12));
        EXPECT_EQ(packets[0].TimeStamp(), 1767323045u);
    }
}

TEST_F(MetadataTest, PacketsAreNumberedAndAFailedOneEndsTheMessage) {
    // Numbers wrap at the start of a message to 1, within one to 0.
    lens.SetMetaDataSeqNo(65535);
    ASSERT_EQ(SendPlateEx("a", "b", false), 0);
    EXPECT_EQ(packets[0].SeqNo(), 1u);
    lens.SetMetaDataSeqNo(65534);
    packets.clear();
    ASSERT_EQ(SendPlateEx(Picture(2000, 1), "b", false), 0);
    EXPECT_EQ(packets[0].SeqNo(), 65535u);
    EXPECT_EQ(packets[1].SeqNo(), 0u);
    packets.clear();
    m_sent.result = ZVS_GVX_OPEN_SOCKET_ERROR;
    m_sent.failFrom = 2;
    const ScopedRecordingLogger log;
    on.device.SetIP("the device's command thread is at it");
    EXPECT_EQ(SendPlateEx(Picture(10000, 5), "p", false), ZVS_GVX_OPEN_SOCKET_ERROR);
    EXPECT_EQ(log->Count("Lens[LENS001] IP[127.0.0.1],Return ErrorCode"), 2u) << log->Dump();
    EXPECT_EQ(packets.size(), 3u);
    lens.DropBuffer(kUdp);
    EXPECT_EQ(SendPlateEx("a", "b", false), ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID);
    lens.Prepare(kUdp, SentPackets::Take, 100);  // too small for a packet
    EXPECT_EQ(SendPlateEx("a", "b", false), ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID);
    MemHandler empty;
    EXPECT_EQ(lens.SendMetaData(METADATE_TYPE_PLATE, this, 99, empty, 10, false, 5),
              ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID);
}

}  // namespace
