#include "gvx_common/rtp/ps2es_parse.h"

#include "gvx_common/rtp/pes_parse.h"

#include "support/recording_logger.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

void Append(Bytes& to, const Bytes& what) {
    to.insert(to.end(), what.begin(), what.end());
}

Bytes PackHeader(unsigned char stuffing) {
    // clock reference base 0x1_2345_6789, mux rate 0x1234
    Bytes head{0, 0, 1, 0xBA, 0x64, 0x68, 0xAC, 0xCF, 0x4C, 0x01, 0x00, 0x48, 0xD3};
    head.push_back(static_cast<unsigned char>(0xF8 | stuffing));
    head.resize(head.size() + stuffing, 0xFF);
    return head;
}

const Bytes kSystemHeader{0, 0, 1, 0xBB, 0, 6, 0x80, 0x00, 0x09, 0, 0, 0};
const Bytes kStreamMap{0, 0, 1, 0xBC, 0, 18, 0xE0, 0xFF, 0, 0, 0, 8, 0x1B, 0xE0, 0, 0, 0x90, 0xC0, 0, 0, 1, 2, 3, 4};

Bytes Pes(unsigned char id, const Bytes& payload, bool withLength = true) {
    const std::size_t length = withLength ? 3 + 5 + payload.size() : 0;
    Bytes pes{0, 0, 1, id, static_cast<unsigned char>(length >> 8), static_cast<unsigned char>(length), 0x80, 0x80, 5};
    Append(pes, {0x21, 0x00, 0x01, 0x00, 0x03});  // time 1
    Append(pes, payload);
    return pes;
}

struct Parsed {
    int result = -1;
    Bytes video;
    Bytes audio;
    HstPSHeader header;
};

Parsed Parse(const Bytes& packet, CPs2EsParse& parser) {
    Parsed parsed;
    // A copy of exactly that size, so that a checker sees any read behind it.
    std::unique_ptr<unsigned char[]> data(new unsigned char[packet.size()]);
    std::copy(packet.begin(), packet.end(), data.get());
    unsigned char* video = nullptr;
    unsigned char* audio = nullptr;
    unsigned int videoLen = 7;
    unsigned int audioLen = 7;
    parsed.result = parser.ParsePSPack(data.get(), static_cast<int>(packet.size()), video, videoLen, audio, audioLen,
                                       parsed.header);
    parsed.video.assign(video, video + videoLen);
    parsed.audio.assign(audio, audio + audioLen);
    return parsed;
}

TEST(Ps2EsParse, GathersVideoAndAudioAndReadsTheHeaders) {
    Bytes packet = PackHeader(3);
    Append(packet, kSystemHeader);
    Append(packet, kStreamMap);
    Append(packet, Pes(0xE0, {0, 0, 0, 1, 0x67, 1}));
    Append(packet, Pes(0xBD, {9, 9, 9}));  // private stream: passed over
    Append(packet, Pes(0xC0, {0xD5, 0xD5}));
    Append(packet, Pes(0xE0, {2, 3}));
    Append(packet, {0, 0, 1, 0xB9});
    CPs2EsParse parser;
    const Parsed parsed = Parse(packet, parser);
    ASSERT_EQ(parsed.result, 0);
    EXPECT_EQ(parsed.video, (Bytes{0, 0, 0, 1, 0x67, 1, 2, 3}));
    EXPECT_EQ(parsed.audio, (Bytes{0xD5, 0xD5}));
    EXPECT_EQ(parsed.header.uiMuxRate, 0x1234u);
    EXPECT_EQ(parsed.header.uiRateBound, 4u);
    EXPECT_TRUE(parsed.header.bHaveMap);
    EXPECT_EQ(parsed.header.ucVideoStreamType, 0x1B);
    EXPECT_EQ(parsed.header.ucAudioStreamType, 0x90);
    EXPECT_EQ(parsed.header.ullVideoPts, 1u);
    // A second packet starts afresh.
    EXPECT_EQ(Parse(Pes(0xC0, {1}), parser).video, Bytes());
}

TEST(Ps2EsParse, APacketWithoutLengthEndsAtTheNextStartCodeOfThePackLayer) {
    Bytes packet = Pes(0xE0, {0, 0, 0, 1, 0x65, 0xAA, 0, 0, 1, 0x41}, false);
    Append(packet, Pes(0xC0, {7}));
    CPs2EsParse parser;
    const Parsed parsed = Parse(packet, parser);
    ASSERT_EQ(parsed.result, 0);
    EXPECT_EQ(parsed.video, (Bytes{0, 0, 0, 1, 0x65, 0xAA, 0, 0, 1, 0x41}));
    EXPECT_EQ(parsed.audio, (Bytes{7}));
}

TEST(Ps2EsParse, ALengthBeyondTheBufferIsCutAtItsEnd) {
    Bytes packet = Pes(0xE0, {1, 2, 3});
    packet[4] = 0xFF;
    packet[5] = 0xFF;
    CPs2EsParse parser;
    const Parsed parsed = Parse(packet, parser);
    EXPECT_EQ(parsed.result, 0);
    EXPECT_EQ(parsed.video, (Bytes{1, 2, 3}));
}

TEST(Ps2EsParse, RefusesWhatIsNoProgramStream) {
    CPs2EsParse parser;
    Bytes longHead = Pes(0xE0, {1, 2});
    longHead[8] = 200;
    Bytes longInfo = kStreamMap;
    longInfo[8] = 0x10;
    const std::vector<Bytes> refused{
        {1},      {1, 2, 3, 4, 5, 6}, {0, 0, 1, 0xBA, 0x24}, {0, 0, 1, 0x65, 1, 2, 3}, {0, 0, 1, 0xE0, 0, 1, 0x80},
        longHead, longInfo,
    };
    for (const Bytes& packet : refused) {
        ScopedRecordingLogger log;
        const Parsed parsed = Parse(packet, parser);
        EXPECT_EQ(parsed.result, 1);
        EXPECT_TRUE(parsed.video.empty() && parsed.audio.empty());
        EXPECT_EQ(log->Count("Parse Ps2Es"), 1u) << log->Dump();
    }
    Parsed parsed;
    unsigned char *video, *audio;
    unsigned int videoLen, audioLen;
    EXPECT_EQ(parser.ParsePSPack(nullptr, 100, video, videoLen, audio, audioLen, parsed.header), 1);
    EXPECT_EQ(videoLen + audioLen, 0u);
}

// A stream with a gap of zeros, private packets and no map gives the same wherever a buffer ends.
TEST(Ps2EsParse, ABufferMayEndAnywhere) {
    Bytes stream = PackHeader(3);
    Append(stream, Pes(0xE0, {0, 0, 0, 1, 0x67, 1}));
    Append(stream, Bytes(5, 0));
    Append(stream, PackHeader(0));
    Append(stream, kSystemHeader);
    Append(stream, Pes(0xBD, {9, 9, 9}));
    Append(stream, Pes(0xC0, {7, 7}));
    Append(stream, Pes(0xE0, {0, 0, 0, 1, 0x65, 2, 0, 0, 1, 3}, false));
    Append(stream, kStreamMap);
    Append(stream, Pes(0xE0, {4, 5}));
    for (std::size_t cut = 1; cut < stream.size(); ++cut) {
        CPs2EsParse parser;
        const auto at = stream.begin() + static_cast<std::ptrdiff_t>(cut);
        Parsed first = Parse(Bytes(stream.begin(), at), parser);
        const Parsed second = Parse(Bytes(at, stream.end()), parser);
        ASSERT_EQ(first.result + second.result, 0) << cut;
        Append(first.video, second.video);
        Append(first.audio, second.audio);
        ASSERT_EQ(first.video, (Bytes{0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x65, 2, 0, 0, 1, 3, 4, 5})) << cut;
        ASSERT_EQ(first.audio, (Bytes{7, 7})) << cut;
    }
    // What a cut packet still lacks is not waited for when a new pack comes.
    CPs2EsParse parser;
    EXPECT_EQ(Parse(Bytes(stream.begin(), stream.begin() + 33), parser).video, (Bytes{0, 0}));
    EXPECT_EQ(Parse(stream, parser).audio, (Bytes{7, 7}));
}

TEST(PesParse, ReadsTimesOf33BitsAndRefusesWrongHeads) {
    // Presentation time 2^33 - 1, decoding time 2^32, payload of two bytes.
    const Bytes good{0, 0, 1, 0xE0, 0, 15, 0x84, 0xC0, 10, 0x3F, 0xFF, 0xFF, 0xFF, 0xFF, 0x19, 0, 1, 0, 1, 8, 9};
    HstPESPacket packet;
    ASSERT_EQ(CHstPESParse().ParsePES(good.data(), static_cast<int>(good.size()), packet), 0);
    EXPECT_EQ(packet.ullPts, 0x1FFFFFFFFu);
    EXPECT_EQ(packet.ullDts, 0x100000000u);
    EXPECT_TRUE(packet.bHavePts && packet.bHaveDts && packet.bAligned);
    EXPECT_EQ(Bytes(packet.pPayload, packet.pPayload + packet.uiPayloadLen), (Bytes{8, 9}));
    ASSERT_EQ(CHstPESParse::Read(good.data(), good.size() - 1, packet), PES_OK);
    EXPECT_EQ(packet.uiPayloadLen, 1u);
    const Bytes padding{0, 0, 1, 0xBE, 0, 2, 0xFF, 0xFF};
    ASSERT_EQ(CHstPESParse::Read(padding.data(), padding.size(), packet), PES_OK);
    EXPECT_FALSE(packet.bHavePts);
    EXPECT_EQ(packet.uiPayloadLen, 2u);
    const auto changed = [&](std::size_t at, unsigned char value) {
        Bytes bytes = good;
        bytes[at] = value;
        return CHstPESParse::Read(bytes.data(), bytes.size(), packet);
    };
    EXPECT_EQ(changed(2, 2), PES_NO_START);
    EXPECT_EQ(changed(3, 0xB9), PES_NO_START);
    EXPECT_EQ(changed(6, 0x44), PES_WRONG_HEAD);
    EXPECT_EQ(changed(8, 200), PES_WRONG_LENGTH);
    EXPECT_EQ(CHstPESParse::Read(good.data(), 12, packet), PES_INCOMPLETE);
    ScopedRecordingLogger log;
    EXPECT_EQ(CHstPESParse().ParsePES(good.data(), 5, packet), 1);
    EXPECT_EQ(log->Count("Parse PES packet failed"), 1u);
}

TEST(Ps2EsParse, DamagedPacketsNeverLeadOutsideTheBuffer) {
    Bytes good = PackHeader(0);
    Append(good, kSystemHeader);
    Append(good, kStreamMap);
    Append(good, Pes(0xE0, Bytes(50, 0x11)));
    Append(good, Pes(0xC0, Bytes(20, 0x22)));
    CPs2EsParse parser;
    std::mt19937 random(20260102);
    int accepted = 0;
    for (int i = 0; i < 20000; ++i) {
        Bytes packet = good;
        for (int change = 0; change < 3; ++change) {
            packet[random() % packet.size()] = static_cast<unsigned char>(random());
        }
        packet.resize(1 + random() % packet.size());
        const Parsed parsed = Parse(packet, parser);
        accepted += parsed.result == 0;
        ASSERT_LE(parsed.video.size() + parsed.audio.size(), packet.size() + good.size());
    }
    EXPECT_GT(accepted, 0);
}

}  // namespace
