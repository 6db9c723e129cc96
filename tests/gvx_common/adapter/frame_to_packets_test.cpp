#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/rtp/media_channel.h"
#include "support/failing_allocator.h"
#include "support/recording_logger.h"
#include "support/sent_packets.h"
#include "support/test_lens.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

namespace {

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
        for (const int channel : {0, 1, 11}) {
            m_on.lens.Prepare(channel, &SentPackets::Take);
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

    SentPackets m_sent;
    std::vector<SentPacket>& sentPackets = m_sent.all;
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
        EXPECT_EQ(static_cast<int>(sentPackets[i].media.eTransProtocol), RTP_OVER_UDP);
        EXPECT_EQ(std::size_t{sentPackets[i].media.nVideoSize}, sentPackets[i].bytes.size());
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
        {VIDEO_DEC_H264, 0xE5, 3000, 1, {{0xFC, 0x85}, {0xFC, 0x05}, {0xFC, 0x45}}},  // F, a damaged unit
        {VIDEO_DEC_H265, 0x26, 1391, 2, {{0x62, 1, 0x80 | 19}, {0x62, 1, 0x40 | 19}}},
        {VIDEO_DEC_H265, 0x4E, 1391, 2, {{0x62, 1, 0x80 | 39}, {0x62, 1, 0x40 | 39}}},  // SEI
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
    void* const user = sentPackets[0].media.pUserInfo;
    EXPECT_EQ(user, this);
    EXPECT_EQ(std::size_t{media.nVideoSize}, sentPackets[1].bytes.size());
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
    EXPECT_EQ(SendVideo({0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x68}), 0);
    EXPECT_TRUE(sentPackets.empty());
    EXPECT_EQ(SendVideo({0, 0, 1}), 0);
    // Bytes ahead are dropped, three zeros more belong to the unit before, an empty unit leaves as a bare head.
    ASSERT_EQ(SendVideo({9, 9, 0, 0, 0, 1, 0x67, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0x68, 0, 0, 0, 1}), 0);
    ASSERT_EQ(sentPackets.size(), 3u);
    EXPECT_EQ(sentPackets[0].Payload(), (Bytes{0x67, 0, 0, 1, 0, 0}));
    EXPECT_EQ(sentPackets[1].Payload(), (Bytes{0x68}));
    EXPECT_EQ(sentPackets[2].bytes.size(), 12u);
}

TEST_F(FrameToPackets, SequenceNumbersWrap) {
    const std::vector<Bytes> units(4, Nal(0x41, 10));
    MEDIA_DATA audio = Audio(1500, GVX_AUDIO_FORMAT_G711A);  // two packets
    for (const unsigned short number : {0xFFFF, 0xFFFD}) {
        Channel(0).m_usVideoSeqNo = Channel(0).m_usAudioSeqNo = number;
        SendVideo(Frame(units));
        Send(Bytes(1500, 0xD5), audio);
        audio = Audio(1500, GVX_AUDIO_FORMAT_G711A);
    }
    std::vector<unsigned int> numbers;
    for (const SentPacket& packet : sentPackets) {
        numbers.push_back(packet.SeqNo());
    }
    EXPECT_EQ(numbers, (std::vector<unsigned int>{1, 2, 3, 4, 1, 2, 0xFFFE, 0xFFFF, 0, 1, 0xFFFE, 0xFFFF}));
}

TEST_F(FrameToPackets, Audio) {
    MEDIA_DATA audio = Audio(160, GVX_AUDIO_FORMAT_G711A);
    ASSERT_EQ(Send(Bytes(160, 0xD5), audio), 0);
    audio = Audio(1500, GVX_AUDIO_FORMAT_G711U);
    ASSERT_EQ(Send(Bytes(1500, 0x11), audio), 0);
    ASSERT_EQ(sentPackets.size(), 3u);
    EXPECT_EQ(sentPackets[0].PayloadType(), 8u);
    EXPECT_EQ(sentPackets[0].TimeStamp(), 160u);
    EXPECT_EQ(std::uint32_t{sentPackets[0].media.nAudioSize}, 172u);
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

TEST_F(FrameToPackets, TheFormatTellsThePayloadType) {
    for (const auto& [format, type] : {std::pair<ZVS_VIDEO_DEC_TYPE, unsigned int>{VIDEO_DEC_H264, 99},
                                       {VIDEO_DEC_H265, 108},
                                       {VIDEO_DEC_MJPEG, 26},
                                       {VIDEO_DEC_HIK, 109},
                                       {VIDEO_DEC_SVAC, 0}}) {
        MEDIA_DATA media = Video(13, format);
        ASSERT_EQ(Send(Frame({Nal(0x67, 9)}), media), 0);
        EXPECT_EQ(sentPackets.back().PayloadType(), type);
    }
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
    // What is neither video nor audio by its record stays on the list, to be released with the lens.
    media = MEDIA_DATA{};
    EXPECT_EQ(Send(video, media, false, false, true), 1);
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
    EXPECT_EQ(Channel(0).m_NaluList.size(), 1u);
    EXPECT_EQ(Send(frame, video), 1);  // behind the unit that waits
    EXPECT_TRUE(Channel(0).m_NaluList.empty());
    errno = 0;
    EXPECT_EQ(m_on.lens.SendHikStream(frame.data(), 3000, video, 0, false, false, 0, 0), 1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(sentPackets.empty());
    EXPECT_TRUE(Channel(0).m_NaluList.empty());
    EXPECT_TRUE(log->Lines().empty()) << log->Dump();
}

TEST_F(FrameToPackets, AClosedSocketEndsTheFrame) {
    m_sent.result = ZVS_GVX_OPEN_SOCKET_ERROR;
    m_sent.failFrom = 1;
    EXPECT_EQ(SendVideo(Frame({Nal(0x67, 9), Nal(0x68, 9), Nal(0x65, 5000)})), ZVS_GVX_OPEN_SOCKET_ERROR);
    EXPECT_EQ(sentPackets.size(), 2u);
    EXPECT_TRUE(Channel(0).m_NaluList.empty());
    // So it does for units that wait on the list, which is emptied.
    Bytes frame = Frame({Nal(0x67, 9), Nal(0x68, 9)});
    MEDIA_DATA media = Video(frame.size());
    ASSERT_EQ(m_on.lens.SplitFrame2Nalu(frame.data(), static_cast<unsigned int>(frame.size()), 0), 0);
    EXPECT_EQ(m_on.lens.SendFrame(media, 0, false, false, 0, 0), ZVS_GVX_OPEN_SOCKET_ERROR);
    EXPECT_TRUE(Channel(0).m_NaluList.empty());
    m_sent.result = 1;  // any other result is nobody's concern
    EXPECT_EQ(SendVideo(frame), 0);
    EXPECT_EQ(sentPackets.size(), 5u);
}

TEST_F(FrameToPackets, BadArgumentsAndBuffersSendNothing) {
    Bytes frame = Frame({Nal(0x67, 9)});
    MEDIA_DATA media = Video(frame.size());
    auto& lens = m_on.lens;
    const int size = static_cast<int>(frame.size());
    EXPECT_EQ(lens.H264ToRtp(nullptr, size, media, 0, false, false, 0, 0, false), 1);
    EXPECT_EQ(lens.H264ToRtp(frame.data(), 0, media, 0, false, false, 0, 0, false), 1);
    for (const int channel : {2, 22, -1}) {  // one without a buffer, two that are none
        EXPECT_EQ(lens.H264ToRtp(frame.data(), size, media, channel, false, false, 0, 0, false), 1);
    }
    EXPECT_EQ(lens.SendFrame(media, -1, false, false, 0, 0), 1);
    EXPECT_EQ(lens.SendFrame(media, 0, false, false, 0, 0), 0);  // nothing to send
    // A size beyond the frame is cut at its end.
    media = Video(1000000);
    EXPECT_EQ(Send(frame, media), 0);
    ASSERT_EQ(sentPackets.size(), 1u);
    EXPECT_EQ(sentPackets[0].Payload().size(), 9u);
    // Units for which there is no buffer, or too small a one, are skipped.
    Bytes unit = Nal(0x11, 2000);
    media = Video(2000, VIDEO_DEC_HIK);
    lens.DropBuffer(0);
    EXPECT_EQ(lens.SendHikStream(unit.data(), 2000, media, 0, false, false, 0, 0), 0);
    lens.Prepare(0, &SentPackets::Take, 100);
    EXPECT_EQ(lens.SendHikStream(unit.data(), 2000, media, 0, false, false, 0, 0), 0);
    EXPECT_EQ(sentPackets.size(), 1u);
    EXPECT_TRUE(Channel(0).m_NaluList.empty());
}

}  // namespace
