#include "gvx_common/rtp/ps2es_parse.h"

#include "gvx_common/rtp/pes_parse.h"

#include "support/recording_logger.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

// Clock reference base 0x1_2345_6789, mux rate 0x1234, three stuffing bytes.
const Bytes kPackHeader{0, 0, 1, 0xBA, 0x64, 0x68, 0xAC, 0xCF, 0x4C, 1, 0, 0x48, 0xD3, 0xFB, 0xFF, 0xFF, 0xFF};
const Bytes kSystemHeader{0, 0, 1, 0xBB, 0, 6, 0x80, 0x00, 0x09, 0, 0, 0};
const Bytes kStreamMap{0, 0, 1, 0xBC, 0, 18, 0xE0, 0xFF, 0, 0, 0, 8, 0x1B, 0xE0, 0, 0, 0x90, 0xC0, 0, 0, 1, 2, 3, 4};

// With time 1.
Bytes Pes(unsigned char id, const Bytes& payload, bool withLength = true) {
    const std::size_t length = withLength ? 3 + 5 + payload.size() : 0;
    const auto high = static_cast<unsigned char>(length >> 8);
    return Join({{0, 0, 1, id, high, static_cast<unsigned char>(length), 0x80, 0x80, 5, 0x21, 0, 1, 0, 3}, payload});
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
    CPs2EsParse parser;
    Parsed parsed = Parse(Join({kPackHeader,
                                kSystemHeader,
                                kStreamMap,
                                Pes(0xE0, {0, 0, 0, 1, 0x67, 1}),
                                Pes(0xBD, {9, 9, 9}),  // private stream: passed over
                                Pes(0xC0, {0xD5, 0xD5}),
                                Pes(0xE0, {2, 3}),
                                {0, 0, 1, 0xB9}}),
                          parser);
    ASSERT_EQ(parsed.result, 0);
    EXPECT_EQ(parsed.video, (Bytes{0, 0, 0, 1, 0x67, 1, 2, 3}));
    EXPECT_EQ(parsed.audio, (Bytes{0xD5, 0xD5}));
    EXPECT_EQ(parsed.header.uiMuxRate, 0x1234u);
    EXPECT_EQ(parsed.header.uiRateBound, 4u);
    EXPECT_TRUE(parsed.header.bHaveMap);
    EXPECT_EQ(parsed.header.ucVideoStreamType, 0x1B);
    EXPECT_EQ(parsed.header.ucAudioStreamType, 0x90);
    EXPECT_EQ(parsed.header.ullVideoPts, 1u);
    EXPECT_EQ(Parse(Pes(0xC0, {1}), parser).video, Bytes()) << "a second packet starts afresh";

    // A packet without length ends at the next start code of the pack layer.
    const Bytes picture{0, 0, 0, 1, 0x65, 0xAA, 0, 0, 1, 0x41};
    parsed = Parse(Join({Pes(0xE0, picture, false), Pes(0xC0, {7})}), parser);
    ASSERT_EQ(parsed.result, 0);
    EXPECT_EQ(parsed.video, picture);
    EXPECT_EQ(parsed.audio, (Bytes{7}));
    // A length beyond the buffer is cut at its end.
    Bytes packet = Pes(0xE0, {1, 2, 3});
    packet[4] = packet[5] = 0xFF;
    CPs2EsParse other;
    parsed = Parse(packet, other);
    EXPECT_EQ(parsed.result, 0);
    EXPECT_EQ(parsed.video, (Bytes{1, 2, 3}));
}

TEST(Ps2EsParse, RefusesWhatIsNoProgramStream) {
    CPs2EsParse parser;
    Bytes longHead = Pes(0xE0, {1, 2});
    longHead[8] = 200;
    Bytes longInfo = kStreamMap;
    longInfo[8] = 0x10;
    for (const Bytes& packet : {Bytes{1}, Bytes{1, 2, 3, 4, 5, 6}, Bytes{0, 0, 1, 0xBA, 0x24},
                                Bytes{0, 0, 1, 0x65, 1, 2, 3}, Bytes{0, 0, 1, 0xE0, 0, 1, 0x80}, longHead, longInfo}) {
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
    Bytes secondPack(kPackHeader.begin(), kPackHeader.end() - 3);
    secondPack.back() = 0xF8;
    const Bytes stream = Join({kPackHeader, Pes(0xE0, {0, 0, 0, 1, 0x67, 1}), Bytes(5, 0), secondPack, kSystemHeader,
                               Pes(0xBD, {9, 9, 9}), Pes(0xC0, {7, 7}),
                               Pes(0xE0, {0, 0, 0, 1, 0x65, 2, 0, 0, 1, 3}, false), kStreamMap, Pes(0xE0, {4, 5})});
    for (std::size_t cut = 1; cut < stream.size(); ++cut) {
        CPs2EsParse parser;
        const auto at = stream.begin() + static_cast<std::ptrdiff_t>(cut);
        const Parsed first = Parse(Bytes(stream.begin(), at), parser);
        const Parsed second = Parse(Bytes(at, stream.end()), parser);
        ASSERT_EQ(first.result + second.result, 0) << cut;
        ASSERT_EQ(Join({first.video, second.video}),
                  (Bytes{0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x65, 2, 0, 0, 1, 3, 4, 5}))
            << cut;
        ASSERT_EQ(Join({first.audio, second.audio}), (Bytes{7, 7})) << cut;
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
    EXPECT_EQ(CHstPESParse().ParsePES(good.data(), 5, packet), 1);
}

}  // namespace
