#include "file/media_source.h"

#include "support/stream_bytes.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

using gvx::Rational;
using gvx::ReadResult;
using gvxfile::MediaEntry;
using gvxfile::MediaPacket;
using gvxfile::MediaSource;
using namespace stream_bytes;

namespace {

struct Played {
    std::string order;
    std::vector<MediaPacket> pieces;  // without their bytes
    std::uint64_t videoTicks = 0;
    std::uint64_t audioTicks = 0;
};

class MediaSourceTest : public testing::Test {
protected:
    MediaEntry Make(const std::string& video, Rational rate, std::size_t audioBytes, bool loop) {
        MediaEntry entry;
        entry.videoPath = m_folder.Write("v.h264", video);
        entry.frameRate = rate;
        entry.loop = loop;
        if (audioBytes > 0) {
            entry.audioPath = m_folder.Write("a.g711a", std::string(audioBytes, '\xD5'));
        }
        return entry;
    }
    // At most `limit` pieces of a stream of that many pictures.
    Played Play(unsigned pictures, Rational rate, std::size_t audioBytes, bool loop, std::size_t limit) {
        const MediaEntry entry = Make(H264Stream(pictures), rate, audioBytes, loop);
        MediaSource source(entry);
        std::string error;
        EXPECT_TRUE(source.Open(true, error)) << error;
        Played played;
        MediaPacket packet;
        while (played.pieces.size() < limit && source.Next(packet) == ReadResult::Ok) {
            played.pieces.push_back(packet);
            played.order += packet.video ? 'V' : 'a';
            (packet.video ? played.videoTicks : played.audioTicks) += packet.ticks;
        }
        EXPECT_EQ("", source.Error());
        return played;
    }
    TempFolder m_folder;
};

}  // namespace

TEST_F(MediaSourceTest, TicksNeverDriftFromTheFrameRate) {
    const struct {
        Rational rate;
        unsigned pictures;
        std::uint64_t ticks;
    } rows[] = {{{25, 1}, 100, 360000}, {{30000, 1001}, 3000, 9009000}, {{29970, 1000}, 2997, 9000000}};
    for (const auto& row : rows) {
        const Played played = Play(row.pictures, row.rate, 0, false, row.pictures + 10);
        EXPECT_EQ(row.pictures, played.pieces.size());
        EXPECT_EQ(row.ticks, played.videoTicks) << row.rate.numerator << '/' << row.rate.denominator;
    }
}

TEST_F(MediaSourceTest, AudioAndVideoComeInTheOrderOfTheirTimes) {
    // 40 ms a picture, 20 ms a piece of audio; the audio is 70 ms longer than the video and is played out.
    const Played played = Play(3, {25, 1}, 160 * 9 + 80, false, 100);
    EXPECT_EQ("VaaVaaVaaaaaa", played.order);
    EXPECT_EQ(80u, played.pieces.back().length);
    // The clocks start together: the first picture lasts 40 ms, which is 320 samples.
    EXPECT_EQ(3600u, played.pieces[0].ticks);
    EXPECT_EQ(320u, played.pieces[1].ticks);
    EXPECT_EQ(160u, played.pieces[2].ticks);
}

TEST_F(MediaSourceTest, LongerAudioIsCutWhereTheLoopBeginsAnew) {
    // 120 ms of video, 1 s of audio.
    const Played played = Play(3, {25, 1}, 8000, true, 18);
    EXPECT_EQ("VaaVaaVaaVaaVaaVaa", played.order);
    EXPECT_EQ(120000, played.pieces[9].timeMicroseconds);
    EXPECT_EQ(6u * 3600, played.videoTicks);
    EXPECT_EQ(12u * 160 + 160, played.audioTicks);
    // 10 ms a picture: 3 pictures are 240 samples, and the second piece of audio is shortened.
    std::size_t samples = 0;
    for (const MediaPacket& piece : Play(3, {100, 1}, 8000, true, 12).pieces) {
        samples += !piece.video && piece.timeMicroseconds < 30000 ? piece.length : 0;
    }
    EXPECT_EQ(240u, samples);
}

TEST_F(MediaSourceTest, ShorterAudioIsFollowedBySilenceThatItsClockCounts) {
    // 120 ms of video, 30 ms of audio: the third piece of audio belongs to the second pass, 120 ms after the first.
    const Played played = Play(3, {25, 1}, 240, true, 10);
    EXPECT_EQ("VaaVVVaaVV", played.order);
    EXPECT_EQ(80u, played.pieces[2].length);
    EXPECT_EQ(120000, played.pieces[6].timeMicroseconds);
    EXPECT_EQ(320u + 160 + 800 + 160, played.audioTicks);
}

TEST_F(MediaSourceTest, AKeyFrameRequestBringsParameterSetsAndSkipsNothing) {
    const std::string head = Nal(H264Sps(320, 240)) + Nal(H264Pps());
    const std::string key = Nal(H264Slice(true, true));
    const std::string other = Nal(H264Slice(false, true));
    const MediaEntry entry = Make(head + key + other + other + key + other + key, {25, 1}, 0, false);
    MediaSource source(entry);
    std::string error;
    ASSERT_TRUE(source.Open(false, error));
    std::vector<std::string> pictures;
    MediaPacket packet;
    while (source.Next(packet) == ReadResult::Ok) {
        pictures.emplace_back(reinterpret_cast<const char*>(packet.data), packet.length);
        if (pictures.size() == 2) {
            source.RequestParameterSets();
        }
    }
    EXPECT_EQ((std::vector<std::string>{head + key, other, other, head + key, other, key}), pictures);
}

TEST_F(MediaSourceTest, AFileThatIsEmptiedWhileItLoopsEndsTheStream) {
    const MediaEntry entry = Make(H264Stream(3), {25, 1}, 0, true);
    MediaSource source(entry);
    std::string error;
    ASSERT_TRUE(source.Open(false, error));
    MediaPacket packet;
    ASSERT_EQ(ReadResult::Ok, source.Next(packet));
    std::filesystem::resize_file(entry.videoPath, 0);
    ReadResult result = ReadResult::Ok;
    for (int i = 0; i < 10 && result == ReadResult::Ok; ++i) {
        result = source.Next(packet);
    }
    EXPECT_EQ(ReadResult::Failed, result);
    EXPECT_EQ(entry.videoPath + " holds no picture any more.", source.Error());
}
