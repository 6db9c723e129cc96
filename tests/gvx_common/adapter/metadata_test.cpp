#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/zvs_error.h"
#include "gvx_common/adapter/PicCounter.h"
#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/media_memory/MemHandler.h"
#include "gvx_common/records/gvx_metadata_records.h"
#include "gvx_common/tlv/metadata_tags.h"
#include "gvx_common/tlv/tlv_decoder.h"
#include "gvx_common/tlv/tlv_encoder.h"
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

template <typename V>
V Value(const TLV_Decoder& decoder, int type) {
    V value{};
    EXPECT_EQ(decoder.GetValue(type, &value, 1), 0) << std::hex << type;
    return value;
}

std::string BytesOf(const TLV_Decoder& decoder, int type) {
    unsigned int length = 0;
    EXPECT_EQ(decoder.GetValueLen(type, &length, 1), 0) << std::hex << type;
    std::string bytes(length, '?');
    char* const values[] = {bytes.data()};
    unsigned long lengths[] = {length};
    EXPECT_EQ(decoder.GetValue(type, values, lengths, 1), 0);
    return bytes;
}

std::vector<int> RectOf(const TLV_Decoder& decoder, int type) {
    _META_RECT_S rect{};
    const std::string bytes = BytesOf(decoder, type);
    EXPECT_EQ(bytes.size(), sizeof(rect));
    std::memcpy(&rect, bytes.data(), std::min(bytes.size(), sizeof(rect)));
    return {rect.usX, rect.usY, rect.usWidth, rect.usHeight};
}

// The types of the items of a message, in the order of the wire.
std::vector<int> TypesOf(const std::string& bytes) {
    std::vector<int> types;
    for (std::size_t at = 0; at + 8 <= bytes.size();) {
        int type = 0;
        unsigned int length = 0;
        std::memcpy(&type, &bytes[at], 4);
        std::memcpy(&length, &bytes[at + 4], 4);
        types.push_back(type);
        at += 8 + length;
    }
    return types;
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

    // Layer one and two of the joined message.
    static void Open(const std::string& message, TLV_Decoder& layerTwo) {
        TLV_Decoder top;
        ASSERT_EQ(top.Decode(reinterpret_cast<const unsigned char*>(message.data()), message.size()), 0);
        ASSERT_EQ(message.substr(0, 4), "META");
        ASSERT_EQ(top.GetValue(METADATA_TYPE, &layerTwo, 1), 0);
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

    static void CheckPlates(const std::string& message, const std::string& plate, const std::string& panorama) {
        TLV_Decoder two;
        Open(message, two);
        TLV_Decoder common;
        TLV_Decoder target;
        ASSERT_EQ(two.GetValue(COMMON, &common, 1), 0);
        ASSERT_EQ(two.GetValue(TARGET, &target, 1), 0);
        EXPECT_EQ(Value<unsigned long long>(common, PTS), 0x1122334455667788u);
        for (const auto& [type, value] : {std::pair<int, char>{LANE_ID, 3},
                                          {PLATE_TYPE, 4},
                                          {PLATE_COLOR, 5},
                                          {VEHICLE_TYPE_TV, 6},
                                          {VEHICLE_COLOR, 7}}) {
            EXPECT_EQ(BytesOf(target, type), std::string(1, value));
        }
        int first = 1;
        for (const int type : {PLATE_POS, PLATE_POS_COM, PLATE_POS_ABS, VEHICLE_POS_COM, VEHICLE_POS_ABS}) {
            EXPECT_EQ(RectOf(target, type),
                      (std::vector<int>{first, first + 1, first + 2, first == 41 ? 0xFFFF : first + 3}));
            first += 10;
        }
        EXPECT_EQ(BytesOf(target, PLATE_CHAR), "AB 123");
        EXPECT_EQ(Value<int>(target, VEHICLE_SPEED), -80);
        EXPECT_EQ(Value<unsigned long long>(target, GLOBAL_OBJID), 0x0102030405060708u);
        EXPECT_TRUE(BytesOf(target, PLATE_PIC) == plate);
        EXPECT_TRUE(BytesOf(target, PANORAMA_PIC) == panorama);
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

TEST_F(MetadataTest, PicturesOfAnySizeArriveByteForByteInBothForms) {
    for (const std::size_t size : {1u, 2047u, 2048u, 2049u, 300u * 1024, 10u * 1024 * 1024}) {
        std::string plate = Picture(size, 1);
        std::string panorama = Picture(size / 2 + 1, 2);
        packets.clear();
        ASSERT_EQ(SendPlateEx(plate, panorama, size % 2 == 0), 0);
        EXPECT_EQ(packets[0].TimeStamp(), 0x55667788u);
        CheckPlates(Joined(), plate, panorama);

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
        CheckPlates(Joined(), plate, panorama);
    }
}

TEST_F(MetadataTest, TheExFormKeepsTheOrderAndThePlainFormSorts) {
    ASSERT_EQ(SendPlateEx("p", "q", false), 0);
    const std::string message = Joined().substr(8);
    EXPECT_EQ(TypesOf(message), (std::vector<int>{COMMON, TARGET}));
    const std::string target = message.substr(8 + 16 + 8);
    EXPECT_EQ(TypesOf(target),
              (std::vector<int>{LANE_ID, VEHICLE_TYPE_TV, VEHICLE_COLOR, PLATE_TYPE, PLATE_COLOR, PLATE_POS,
                                PLATE_POS_COM, PLATE_POS_ABS, VEHICLE_POS_COM, VEHICLE_POS_ABS, PLATE_CHAR,
                                PIC_SNAPSHOT_TIME, VEHICLE_SPEED, PLATE_PIC, PANORAMA_PIC, GLOBAL_OBJID}));
    ITSPlates plates{};
    FillPlates(plates);
    packets.clear();
    ASSERT_EQ(lens.MetaDataToRtpAndSend(METADATE_TYPE_PLATE, &plates, kUdp, this, false), 0);
    const std::vector<int> sorted = TypesOf(Joined().substr(8 + 8 + 16 + 8));
    EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end()));
    EXPECT_EQ(sorted.size(), 14u);  // no pictures
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
        const std::string message = Joined();
        if (!plainForm) {
            // Behind the heads of message, common part and panorama comes the first face, in the order of the calls.
            const std::size_t face0 = 8 + (8 + 16) + (8 + 8 + panorama.size() + 16);
            EXPECT_EQ(
                TypesOf(message.substr(face0 + 8, 84 + 8 + 3000)),
                (std::vector<int>{FACE_POS, FACE_SCORE, FACE_ANGLE, FACE_ID, GLOBAL_OBJID, FACE_PIC_TIME, FACE_PIC}));
        }
        TLV_Decoder two;
        Open(message, two);
        TLV_Decoder common;
        TLV_Decoder targets[3];
        ASSERT_EQ(two.GetValue(COMMON, &common, 1), 0);
        EXPECT_EQ(Value<unsigned long long>(common, PTS), 0x700000009u);
        ASSERT_EQ(two.GetValueCount(TARGET), 3u);
        ASSERT_EQ(two.GetValue(TARGET, targets, 3), 0);
        EXPECT_TRUE(BytesOf(targets[0], FACE_PANORAMA) == panorama);
        EXPECT_EQ(Value<unsigned long>(targets[0], FACE_PIC_TIME), 1000u);
        EXPECT_EQ(RectOf(targets[1], FACE_POS), (std::vector<int>{0xFFFF, 2, 3, 4}));
        EXPECT_EQ(BytesOf(targets[1], FACE_SCORE).size(), 2u);
        EXPECT_EQ(Value<short>(targets[1], FACE_SCORE), 88);
        EXPECT_EQ(Value<short>(targets[1], FACE_ANGLE), -9);
        EXPECT_EQ(Value<unsigned long>(targets[1], GLOBAL_OBJID), 0x0102030405060708u);
        EXPECT_TRUE(BytesOf(targets[1], FACE_PIC) == face);
        EXPECT_EQ(Value<unsigned long>(targets[2], FACE_ID), 43u);
        EXPECT_EQ(Value<unsigned long>(targets[2], FACE_PIC_TIME), 1002u);
        EXPECT_EQ(targets[2].GetValueCount(FACE_PIC), 0u);
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
    TLV_Decoder two;
    Open(Joined(), two);
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
    EXPECT_EQ(SendPlateEx(Picture(10000, 5), "p", false), ZVS_GVX_OPEN_SOCKET_ERROR);
    EXPECT_EQ(packets.size(), 3u);
    lens.DropBuffer(kUdp);
    EXPECT_EQ(SendPlateEx("a", "b", false), ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID);
    lens.Prepare(kUdp, SentPackets::Take, 100);  // too small for a packet
    EXPECT_EQ(SendPlateEx("a", "b", false), ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID);
    MemHandler empty;
    EXPECT_EQ(lens.SendMetaData(METADATE_TYPE_PLATE, this, 99, empty, 10, false, 5),
              ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID);
}

TEST(PicCounterTest, CountsAndKeepsTheMean) {
    PicCbkCounter pictures;
    pictures.AddPic(PicCbkCounter::SCENEPIC, 10);
    pictures.AddPic(PicCbkCounter::SCENEPIC, 20);
    pictures.AddPic(6, 1000);
    pictures.AddPic(-1, 1000);
    EXPECT_EQ(pictures.m_scenePicNum, 2u);
    EXPECT_FLOAT_EQ(pictures.m_scenePicLen, 15);
    pictures.Reset();
    EXPECT_EQ(pictures.m_scenePicNum, 0u);
}

}  // namespace
