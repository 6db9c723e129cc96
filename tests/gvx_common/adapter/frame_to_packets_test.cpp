#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/rtp/gvx_rtp_packet.h"
#include "gvx_common/rtp/media_channel.h"
#include "support/failing_allocator.h"
#include "support/recording_logger.h"
#include "support/test_lens.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

struct Packet {
    Bytes bytes;
    std::uint32_t videoSize;
    std::uint16_t audioSize;
    std::uint16_t metaSize;
    TRANS_PROTOCOL protocol;
    STREAM_TYPE_EX streamType;
    void* userInfo;

    std::size_t HeadAt() const { return protocol == RTP_OVER_TCP ? 4 : 0; }
    unsigned int SeqNo() const { return bytes[HeadAt() + 2] * 256u + bytes[HeadAt() + 3]; }
    unsigned int TimeStamp() const {
        unsigned int value = 0;
        for (std::size_t i = 4; i < 8; ++i) {
            value = value << 8 | bytes[HeadAt() + i];
        }
        return value;
    }
    bool Marked() const { return (bytes[HeadAt() + 1] & 0x80) != 0; }
    unsigned int PayloadType() const { return bytes[HeadAt() + 1] & 0x7Fu; }
    Bytes Payload() const {
        const std::size_t head = HeadAt() + ((bytes[HeadAt()] & 0x10) != 0 ? 36 : 12);
        return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(head), bytes.end());
    }
};

// What came out of the send function of the running test; it answers sendResult from packet failFrom on.
std::vector<Packet> sentPackets;
int sendResult = 0;
std::size_t failFrom = 0;

int TakePacket(MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    Packet packet;
    const std::size_t size = data->nVideoSize != 0   ? data->nVideoSize
                             : data->nAudioSize != 0 ? data->nAudioSize
                                                     : data->nMetaDataSize;
    const auto* begin = static_cast<const unsigned char*>(data->pDataBuf);
    packet.bytes.assign(begin, begin + size);
    packet.videoSize = data->nVideoSize;
    packet.audioSize = data->nAudioSize;
    packet.metaSize = data->nMetaDataSize;
    packet.protocol = data->eTransProtocol;
    packet.streamType = *streamType;
    packet.userInfo = data->pUserInfo;
    sentPackets.push_back(packet);
    return sentPackets.size() > failFrom ? sendResult : 0;
}

Bytes Nal(unsigned char head, std::size_t size) {
    Bytes nal(size);
    for (std::size_t i = 0; i < size; ++i) {
        nal[i] = static_cast<unsigned char>(2 + i % 251);  // no start code inside
    }
    nal[0] = head;
    return nal;
}

Bytes Frame(const std::vector<Bytes>& nals) {
    Bytes frame;
    for (const Bytes& nal : nals) {
        frame.insert(frame.end(), {0, 0, 0, 1});
        frame.insert(frame.end(), nal.begin(), nal.end());
    }
    return frame;
}

Bytes Slice(const Bytes& bytes, std::size_t from, std::size_t to) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to));
}

Bytes Joined(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class FrameToPackets : public ::testing::Test {
protected:
    void SetUp() override {
        sentPackets.clear();
        sendResult = 0;
        failFrom = 0;
        for (const int channel : {0, 1, 11}) {
            m_on.lens.Prepare(channel, &TakePacket);
        }
    }

    static MEDIA_DATA Video(std::size_t size, ZVS_VIDEO_DEC_TYPE format = VIDEO_DEC_H264) {
        MEDIA_DATA media{};
        media.nVideoSize = static_cast<std::uint32_t>(size);
        media.eVideoFormatType = format;
        media.nTimeTick = 3600;
        return media;
    }
    static MEDIA_DATA Audio(std::size_t size, AUDIO_FORMAT_TYPE format) {
        MEDIA_DATA media{};
        media.nAudioSize = static_cast<std::uint16_t>(size);
        media.eAudioFormatType = format;
        media.nTimeTick = 160;
        return media;
    }
    // Over UDP through channel 0, over TCP through channel 11.
    int Send(const Bytes& frame, MEDIA_DATA& media, bool overTcp = false, bool extension = false, bool ps = false) {
        std::unique_ptr<unsigned char[]> exact(new unsigned char[frame.size()]);
        std::copy(frame.begin(), frame.end(), exact.get());
        return m_on.lens.H264ToRtp(exact.get(), static_cast<int>(frame.size()), media, overTcp ? 11 : 0, overTcp,
                                   extension, 0x0102, 0x03040506, ps);
    }
    int SendVideo(const Bytes& frame, bool overTcp = false) {
        MEDIA_DATA media = Video(frame.size());
        return Send(frame, media, overTcp);
    }
    CMediaChannel& Channel(int index) { return m_on.lens.Channel(index); }

    TestLensOnDevice m_on;
};

TEST_F(FrameToPackets, AnIdrFrameBehindItsParameterSets) {
    const Bytes sps = Nal(0x67, 20);
    const Bytes pps = Nal(0x68, 5);
    ASSERT_EQ(SendVideo(Frame({sps, pps, Nal(0x65, 3000)})), 0);
    ASSERT_EQ(SendVideo(Frame({pps})), 0);  // the next frame goes on from there
    ASSERT_EQ(sentPackets.size(), 6u);
    const std::vector<bool> marked{true, true, false, false, true, true};
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(sentPackets[i].SeqNo(), i + 1);
        EXPECT_EQ(sentPackets[i].TimeStamp(), i < 5 ? 3600u : 7200u);
        EXPECT_EQ(sentPackets[i].Marked(), marked[i]);
        EXPECT_EQ(sentPackets[i].protocol, RTP_OVER_UDP);
        EXPECT_EQ(sentPackets[i].videoSize, sentPackets[i].bytes.size());
    }
    EXPECT_EQ(Slice(sentPackets[0].bytes, 0, 12), (Bytes{0x80, 0x80 | 99, 0, 1, 0, 0, 0x0E, 0x10, 0, 0, 0, 0}));
    EXPECT_EQ(sentPackets[0].Payload(), sps);
    EXPECT_EQ(sentPackets[1].Payload(), pps);
    EXPECT_TRUE(Channel(0).m_NaluList.empty());
}

TEST_F(FrameToPackets, UnitsAreCutAt1390Bytes) {
    struct Row {
        ZVS_VIDEO_DEC_TYPE format;
        unsigned char head;
        std::size_t size;
        std::size_t taken;         // of the first packet's bytes, into the bytes ahead
        std::vector<Bytes> ahead;  // of each packet
    };
    const std::vector<Row> rows = {
        {VIDEO_DEC_H264, 0x41, 1390, 0, {{}}},
        {VIDEO_DEC_H264, 0x41, 1391, 1, {{0x5C, 0x81}, {0x5C, 0x41}}},
        {VIDEO_DEC_H264, 0x65, 3000, 1, {{0x7C, 0x85}, {0x7C, 0x05}, {0x7C, 0x45}}},
        {VIDEO_DEC_H265, 0x26, 1391, 2, {{0x62, 1, 0x80 | 19}, {0x62, 1, 0x40 | 19}}},
        {VIDEO_DEC_H265, 0x26, 2880, 2, {{0x62, 1, 0x80 | 19}, {0x62, 1, 19}, {0x62, 1, 0x40 | 19}}},
    };
    for (const Row& row : rows) {
        sentPackets.clear();
        const Bytes nal = Nal(row.head, row.size);
        MEDIA_DATA media = Video(row.size + 4, row.format);
        ASSERT_EQ(Send(Frame({nal}), media), 0);
        ASSERT_EQ(sentPackets.size(), row.ahead.size());
        for (std::size_t i = 0; i < row.ahead.size(); ++i) {
            const Bytes part = Slice(nal, i == 0 ? row.taken : i * 1390, std::min(row.size, (i + 1) * 1390));
            EXPECT_EQ(sentPackets[i].Payload(), Joined(row.ahead[i], part)) << row.size;
            EXPECT_EQ(sentPackets[i].PayloadType(), row.format == VIDEO_DEC_H265 ? 108u : 99u);
            EXPECT_EQ(sentPackets[i].Marked(), i + 1 == row.ahead.size());
        }
    }
}

TEST_F(FrameToPackets, InterleaveOverTcpAndTheHeaderExtension) {
    MEDIA_DATA media = Video(2004);
    media.pUserInfo = this;
    ASSERT_EQ(Send(Frame({Nal(0x65, 2000)}), media, true), 0);
    ASSERT_EQ(sentPackets.size(), 2u);
    EXPECT_EQ(Slice(sentPackets[0].bytes, 0, 6), (Bytes{'$', 0, 0x05, 0x7B, 0x80, 99}));  // 12 + 1391
    EXPECT_EQ(sentPackets[0].bytes.size(), 4u + 12u + 1391u);
    EXPECT_EQ(sentPackets[0].streamType, STREAM_TYPE_REAL_MAIN);
    EXPECT_EQ(sentPackets[0].userInfo, this);
    EXPECT_EQ(media.nVideoSize, sentPackets[1].bytes.size());
    MEDIA_DATA audio = Audio(160, GVX_AUDIO_FORMAT_G711A);
    ASSERT_EQ(Send(Bytes(160, 0xD5), audio, true), 0);
    EXPECT_EQ(Slice(sentPackets[2].bytes, 0, 4), (Bytes{'$', 2, 0, 172}));
    EXPECT_EQ(audio.nAudioSize, 176u);

    const Bytes nal = Nal(0x67, 9);
    Bytes expected{0x90, 0x80 | 99, 0, 1, 0, 0, 0x0E, 0x10, 0, 0, 0, 0, 'T', 'V', 0, 5};
    expected.resize(30, 0);
    expected = Joined(Joined(expected, {1, 2, 3, 4, 5, 6}), nal);
    for (const bool overTcp : {false, true}) {
        sentPackets.clear();
        Channel(11).m_usVideoSeqNo = 0;
        Channel(11).m_ulVideoTimestamp = 0;
        media = Video(13);
        ASSERT_EQ(Send(Frame({nal}), media, overTcp, true), 0);
        ASSERT_EQ(sentPackets.size(), 1u);
        EXPECT_EQ(sentPackets[0].bytes, overTcp ? Joined({'$', 0, 0, 36 + 9}, expected) : expected);
    }
}

TEST_F(FrameToPackets, OnlyFourByteStartCodesCount) {
    ScopedRecordingLogger log;
    EXPECT_EQ(SendVideo({0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x68}), 0);
    EXPECT_TRUE(sentPackets.empty());
    EXPECT_TRUE(log->Contains("NaluBegin Is NULL Can not found Nalu Head 00 00 00 01"));
    EXPECT_EQ(SendVideo({0, 0, 1}), 0);
    // Bytes ahead are dropped, three zeros more belong to the unit before, an empty unit leaves as a bare head.
    ASSERT_EQ(SendVideo({9, 9, 0, 0, 0, 1, 0x67, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0x68, 0, 0, 0, 1}), 0);
    ASSERT_EQ(sentPackets.size(), 3u);
    EXPECT_EQ(sentPackets[0].Payload(), (Bytes{0x67, 0, 0, 1, 0, 0}));
    EXPECT_EQ(sentPackets[1].Payload(), (Bytes{0x68}));
    EXPECT_EQ(sentPackets[2].bytes.size(), 12u);
}

// The rule in its plainest form: step byte by byte, a unit from each start code to the next.
std::vector<Bytes> PlainSplit(const Bytes& frame) {
    std::vector<Bytes> units;
    std::size_t at = 0;
    while (at + 3 < frame.size()) {
        if (frame[at] == 0 && frame[at + 1] == 0 && frame[at + 2] == 0 && frame[at + 3] == 1) {
            units.emplace_back();
            at += 4;
        } else {
            if (!units.empty()) {
                units.back().push_back(frame[at]);
            }
            ++at;
        }
    }
    for (; at < frame.size() && !units.empty(); ++at) {
        units.back().push_back(frame[at]);
    }
    return units;
}

TEST_F(FrameToPackets, StartCodesAreFoundWhereverTheyStand) {
    std::mt19937 random(7);
    std::size_t found = 0;
    for (int round = 0; round < 3000; ++round) {
        Bytes frame(1 + random() % 700);
        const unsigned int zerosInEight = random() % 8;
        for (unsigned char& byte : frame) {
            byte = static_cast<unsigned char>(random() % 8 < zerosInEight ? 0 : 1 + random() % 3);
        }
        std::unique_ptr<unsigned char[]> exact(new unsigned char[frame.size()]);
        std::copy(frame.begin(), frame.end(), exact.get());
        ASSERT_EQ(m_on.lens.SplitFrame2Nalu(exact.get(), static_cast<unsigned int>(frame.size()), 0), 0);
        std::vector<Bytes> units;
        for (const ACE_Message_Block* unit : Channel(0).m_NaluList) {
            units.emplace_back(unit->rd_ptr(), unit->wr_ptr());
        }
        Channel(0).clearNaluList();
        ASSERT_EQ(units, PlainSplit(frame));
        found += units.size();
    }
    EXPECT_GT(found, 3000u);
}

TEST_F(FrameToPackets, SequenceNumbersWrap) {
    const auto sendVideo = [this](std::size_t units) { SendVideo(Frame(std::vector<Bytes>(units, Nal(0x41, 10)))); };
    const auto sendAudio = [this](std::size_t size) {
        MEDIA_DATA audio = Audio(size, GVX_AUDIO_FORMAT_G711A);
        Send(Bytes(size, 0xD5), audio);
    };
    Channel(0).m_usVideoSeqNo = 0xFFFF;
    sendVideo(1);
    Channel(0).m_usVideoSeqNo = 0xFFFD;
    sendVideo(4);
    Channel(0).m_usAudioSeqNo = 0xFFFF;
    sendAudio(160);
    Channel(0).m_usAudioSeqNo = 0xFFFE;
    sendAudio(1500);
    std::vector<unsigned int> numbers;
    for (const Packet& packet : sentPackets) {
        numbers.push_back(packet.SeqNo());
    }
    EXPECT_EQ(numbers, (std::vector<unsigned int>{1, 0xFFFE, 0xFFFF, 0, 1, 1, 0xFFFF, 0}));
}

TEST_F(FrameToPackets, Audio) {
    MEDIA_DATA audio = Audio(160, GVX_AUDIO_FORMAT_G711A);
    ASSERT_EQ(Send(Bytes(160, 0xD5), audio), 0);
    audio = Audio(1500, GVX_AUDIO_FORMAT_G711U);
    ASSERT_EQ(Send(Bytes(1500, 0x11), audio), 0);
    ASSERT_EQ(sentPackets.size(), 3u);
    EXPECT_EQ(sentPackets[0].PayloadType(), 8u);
    EXPECT_EQ(sentPackets[0].SeqNo(), 1u);
    EXPECT_EQ(sentPackets[0].TimeStamp(), 160u);
    EXPECT_EQ(sentPackets[0].audioSize, 172u);
    EXPECT_EQ(sentPackets[0].Payload(), Bytes(160, 0xD5));
    EXPECT_EQ(sentPackets[1].PayloadType(), 0u);
    EXPECT_EQ(sentPackets[1].Payload(), Joined({0x1C, 0x91}, Bytes(1389, 0x11)));
    EXPECT_EQ(sentPackets[2].TimeStamp(), 320u);
    EXPECT_EQ(Channel(0).m_usVideoSeqNo, 0);
    // A call that carries both: the audio takes the way of video.
    const Bytes frame = Frame({Nal(0x67, 6)});
    MEDIA_DATA both = Video(frame.size());
    both.nAudioSize = 4;
    both.eAudioFormatType = GVX_AUDIO_FORMAT_G711A;
    ASSERT_EQ(Send(frame, both), 0);
    ASSERT_EQ(sentPackets.size(), 5u);
    EXPECT_EQ(sentPackets[4].PayloadType(), 99u);
    EXPECT_EQ(sentPackets[4].SeqNo(), 2u);
    EXPECT_EQ(sentPackets[4].TimeStamp(), 7200u);
    EXPECT_EQ(sentPackets[4].Payload(), (Bytes{0, 0, 0, 1}));
}

TEST_F(FrameToPackets, ThePrivateFormatTravelsBehindAMadeUpHead) {
    Bytes frame = Nal(0x99, 1400);
    MEDIA_DATA media = Video(frame.size(), VIDEO_DEC_HIK);
    media.FrameType = FRAME_I;
    ASSERT_EQ(m_on.lens.SendHikStream(frame.data(), 1400, media, 0, false, false, 0, 0), 0);
    media = Video(3, VIDEO_DEC_HIK);
    ASSERT_EQ(m_on.lens.SendHikStream(frame.data(), 3, media, 0, false, false, 0, 0), 0);
    MEDIA_DATA audio = Audio(3, AUDIO_FORMAT_G726);
    ASSERT_EQ(m_on.lens.SendHikStream(frame.data(), 3, audio, 0, false, false, 0, 0), 0);
    ASSERT_EQ(sentPackets.size(), 4u);
    EXPECT_EQ(sentPackets[0].PayloadType(), 109u);
    EXPECT_EQ(sentPackets[0].Payload(), Joined({0x7C, 0x85}, Slice(frame, 0, 1389)));
    EXPECT_EQ(sentPackets[1].Payload(), Joined({0x7C, 0x45}, Slice(frame, 1389, 1400)));
    EXPECT_EQ(sentPackets[2].Payload(), Joined({0x61}, Slice(frame, 0, 3)));
    EXPECT_EQ(sentPackets[3].Payload(), Slice(frame, 0, 3));
    EXPECT_EQ(sentPackets[3].PayloadType(), 0u);
}

TEST_F(FrameToPackets, AProgramStreamPacketIsTakenApart) {
    ScopedRecordingLogger log;
    // A PES of video with one NAL unit and a PES of audio, both without time stamp.
    const Bytes video{0, 0, 1, 0xE0, 0, 9, 0x80, 0, 0, 0, 0, 0, 1, 0x65, 7};
    const Bytes audio{0, 0, 1, 0xC0, 0, 5, 0x80, 0, 0, 0xD5, 0xD5};
    MEDIA_DATA media = Video(video.size());
    ASSERT_EQ(Send(Joined(video, audio), media, false, false, true), 0);
    ASSERT_EQ(sentPackets.size(), 2u);
    EXPECT_EQ(sentPackets[0].Payload(), (Bytes{0x65, 7}));
    EXPECT_EQ(sentPackets[1].Payload(), (Bytes{0xD5, 0xD5}));
    media = Video(4);
    EXPECT_EQ(Send({1, 2, 3, 4}, media, false, false, true), 1);
    EXPECT_TRUE(log->Contains("Call Ps2Es Analytic error."));
    // What is neither video nor audio by its record stays on the list, to be released with the lens.
    media = MEDIA_DATA{};
    EXPECT_EQ(Send(video, media, false, false, true), 1);
    EXPECT_TRUE(log->Contains("SendFrame error, video len[6], audio len[0]"));
    EXPECT_EQ(Channel(0).m_NaluList.size(), 1u);
    EXPECT_EQ(sentPackets.size(), 2u);
}

TEST_F(FrameToPackets, WithoutMemoryNothingIsSentOrKept) {
    ScopedRecordingLogger log;
    Bytes frame = Frame({Nal(0x67, 20), Nal(0x65, 3000)});
    MEDIA_DATA video = Video(frame.size());
    const ScopedFailingAllocator noMemory(3000);
    errno = 0;
    EXPECT_EQ(m_on.lens.SplitFrame2Nalu(frame.data(), static_cast<unsigned int>(frame.size()), 0), 1);
    EXPECT_EQ(errno, ENOMEM);
    Channel(0).clearNaluList();
    errno = 0;
    EXPECT_EQ(m_on.lens.SendHikStream(frame.data(), 3000, video, 0, false, false, 0, 0), 1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(sentPackets.empty());
    EXPECT_TRUE(Channel(0).m_NaluList.empty());
    EXPECT_TRUE(log->Lines().empty()) << log->Dump();
}

TEST_F(FrameToPackets, AClosedSocketEndsTheFrame) {
    ScopedRecordingLogger log;
    sendResult = ZVS_GVX_OPEN_SOCKET_ERROR;
    failFrom = 1;
    EXPECT_EQ(SendVideo(Frame({Nal(0x67, 9), Nal(0x68, 9), Nal(0x65, 5000)})), ZVS_GVX_OPEN_SOCKET_ERROR);
    EXPECT_EQ(sentPackets.size(), 2u);
    EXPECT_TRUE(Channel(0).m_NaluList.empty());
    EXPECT_TRUE(log->Contains("Return ErrorCode[189115004]", "m_pSendStreamFunc(SendMediaOverSocket)"));
    sendResult = 1;  // any other result is nobody's concern
    EXPECT_EQ(SendVideo(Frame({Nal(0x67, 9), Nal(0x68, 9)})), 0);
    EXPECT_EQ(sentPackets.size(), 4u);
}

TEST_F(FrameToPackets, BadArguments) {
    ScopedRecordingLogger log;
    Bytes frame = Frame({Nal(0x67, 9)});
    MEDIA_DATA media = Video(frame.size());
    auto& lens = m_on.lens;
    const int size = static_cast<int>(frame.size());
    EXPECT_EQ(lens.H264ToRtp(nullptr, size, media, 0, false, false, 0, 0, false), 1);
    EXPECT_EQ(lens.H264ToRtp(frame.data(), 0, media, 0, false, false, 0, 0, false), 1);
    EXPECT_EQ(lens.H264ToRtp(frame.data(), size, media, 2, false, false, 0, 0, false), 1);  // no buffer
    EXPECT_EQ(log->Count("Pointer is null.", "H264 to rtp."), 3u);
    EXPECT_EQ(lens.H264ToRtp(frame.data(), size, media, 22, false, false, 0, 0, false), 1);
    EXPECT_TRUE(log->Contains("m_iChannelID[22]"));
    EXPECT_EQ(lens.SendFrame(media, -1, false, false, 0, 0), 1);
    EXPECT_TRUE(log->Contains("H264ToRtp ChannelID Is Invalid "));
    EXPECT_EQ(lens.SendFrame(media, 0, false, false, 0, 0), 0);  // nothing to send
    // A size beyond the frame is cut at its end.
    media = Video(1000000);
    EXPECT_EQ(Send(frame, media), 0);
    ASSERT_EQ(sentPackets.size(), 1u);
    EXPECT_EQ(sentPackets[0].Payload().size(), 9u);
}

TEST_F(FrameToPackets, WithoutABufferUnitsAreSkipped) {
    ScopedRecordingLogger log;
    Bytes frame = Nal(0x11, 2000);
    MEDIA_DATA media = Video(2000, VIDEO_DEC_HIK);
    m_on.lens.DropBuffer(0);
    EXPECT_EQ(m_on.lens.SendHikStream(frame.data(), 2000, media, 0, false, false, 0, 0), 0);
    EXPECT_TRUE(log->Contains("m_pMediaBufWithRTP is invalid! StreamType[0].", "SendFrame:"));
    m_on.lens.Prepare(0, &TakePacket, 100);
    EXPECT_EQ(m_on.lens.SendHikStream(frame.data(), 2000, media, 0, false, false, 0, 0), 0);
    EXPECT_TRUE(sentPackets.empty());
    EXPECT_TRUE(Channel(0).m_NaluList.empty());
}

TEST_F(FrameToPackets, DoSendVideoFramePassesThePacketOn) {
    char bytes[] = "packet";
    MEDIA_DATA media = Video(6);
    media.pDataBuf = bytes;
    media.eTransProtocol = RTP_OVER_TCP;
    sendResult = ZVS_GVX_OPEN_SOCKET_ERROR;
    EXPECT_TRUE(m_on.lens.DoSendVideoFrame(media, STREAM_TYPE_REAL_MAIN));
    EXPECT_FALSE(m_on.lens.DoSendVideoFrame(media, STREAM_TYPE_BUTT));
    media.eTransProtocol = RTP_OVER_UDP;
    EXPECT_TRUE(m_on.lens.DoSendVideoFrame(media, STREAM_TYPE_REAL_SUB1));
    ASSERT_EQ(sentPackets.size(), 2u);
    EXPECT_EQ(sentPackets[0].bytes, (Bytes{'p', 'a', 'c', 'k', 'e', 't'}));
    EXPECT_EQ(sentPackets[1].streamType, STREAM_TYPE_REAL_SUB1);
}

TEST_F(FrameToPackets, MetadataPackets) {
    ScopedRecordingLogger log;
    auto& lens = m_on.lens;
    lens.Prepare(20, &TakePacket);
    ACE_Message_Block* buffer = Channel(20).m_pMediaBufWithRTP;
    lens.PackRtpHead(true, true, 20, 0x1122334455ull);
    buffer->copy("tlv", 3);
    lens.SetTcpInter(htons(static_cast<unsigned short>(buffer->length() - 4)), 20);
    ASSERT_EQ(lens.SendMediaData(METADATE_TYPE_PLATE, this, true, 20), 0);
    ASSERT_EQ(sentPackets.size(), 1u);
    EXPECT_EQ(sentPackets[0].bytes,
              (Bytes{'$', 4, 0, 16, 0x80, 0x80 | 107, 0, 1, 0x22, 0x33, 0x44, 0x55, 0, 0, 0, 0, 0xAA, 't', 'l', 'v'}));
    EXPECT_EQ(sentPackets[0].metaSize, 20u);
    sendResult = 1;
    EXPECT_EQ(lens.SendMediaData(METADATE_TYPE_PLATE, this, false, 20), 0);  // nobody's concern
    lens.PackRtpHead(true, true, 12, 1);                                     // has no buffer
    EXPECT_TRUE(log->Contains("m_pMediaBufWithRTP is invalid! StreamType[1].", "PackRtpHead"));
    EXPECT_EQ(lens.GetPts(METADATE_TYPE_FACE, nullptr), 0u);
    EXPECT_EQ(lens.GetPts(METADATE_TYPE_PLATE, nullptr), 1u);
    EXPECT_EQ(log->Count("Make sure there is something wrong", "Point metaData is null."), 2u);
    ACE_Message_Block* heartBeat = lens.CreateMediaHeartBeatPkt();
    ASSERT_NE(heartBeat, nullptr);
    EXPECT_EQ(heartBeat->msg_type(), ACE_Message_Block::MB_PROTO);
    EXPECT_EQ(heartBeat->length(), 0u);
    heartBeat->release();
}

}  // namespace
