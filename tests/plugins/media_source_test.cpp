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

MediaEntry Entry(const std::string& videoPath, gvx::Rational rate, bool loop = false) {
    MediaEntry entry;
    entry.name = "test";
    entry.videoPath = videoPath;
    entry.frameRate = rate;
    entry.loop = loop;
    return entry;
}

struct Piece {
    bool video;
    std::size_t length;
    std::uint32_t ticks;
    std::int64_t time;
};

// At most `limit` pieces of the entry's stream.
std::vector<Piece> Play(const MediaEntry& entry, std::size_t limit) {
    MediaSource source(entry);
    std::string error;
    EXPECT_TRUE(source.Open(true, error)) << error;
    std::vector<Piece> pieces;
    MediaPacket packet;
    while (pieces.size() < limit && source.Next(packet) == ReadResult::Ok) {
        pieces.push_back({packet.video, packet.length, packet.ticks, packet.timeMicroseconds});
    }
    EXPECT_EQ("", source.Error());
    return pieces;
}

std::string Order(const std::vector<Piece>& pieces) {
    std::string order;
    for (const Piece& piece : pieces) {
        order += piece.video ? 'V' : 'a';
    }
    return order;
}

std::uint64_t Ticks(const std::vector<Piece>& pieces, bool video) {
    std::uint64_t sum = 0;
    for (const Piece& piece : pieces) {
        sum += piece.video == video ? piece.ticks : 0;
    }
    return sum;
}

class MediaSourceTest : public testing::Test {
protected:
    MediaEntry Make(unsigned pictures, Rational rate, std::size_t audioBytes, bool loop) {
        MediaEntry entry = Entry(m_folder.Write("v.h264", H264Stream(pictures)), rate, loop);
        if (audioBytes > 0) {
            entry.audioPath = m_folder.Write("a.g711a", std::string(audioBytes, '\xD5'));
        }
        return entry;
    }
    TempFolder m_folder;
};

}  // namespace

TEST_F(MediaSourceTest, TicksNeverDriftFromTheFrameRate) {
    struct Row {
        Rational rate;
        unsigned pictures;
        std::uint64_t ticks;
    };
    const Row rows[] = {{{25, 1}, 100, 360000}, {{30000, 1001}, 3000, 9009000}, {{29970, 1000}, 2997, 9000000}};
    for (const Row& row : rows) {
        const auto pieces = Play(Make(row.pictures, row.rate, 0, false), row.pictures + 10);
        EXPECT_EQ(row.pictures, pieces.size());
        EXPECT_EQ(row.ticks, Ticks(pieces, true)) << row.rate.numerator << '/' << row.rate.denominator;
    }
}

TEST_F(MediaSourceTest, AudioAndVideoComeInTheOrderOfTheirTimes) {
    // 40 ms a picture, 20 ms a piece of audio; the audio is 70 ms longer than the video and is played out.
    const auto pieces = Play(Make(3, {25, 1}, 160 * 9 + 80, false), 100);
    EXPECT_EQ("VaaVaaVaaaaaa", Order(pieces));
    EXPECT_EQ(80u, pieces.back().length);
    // The clocks start together: the first picture lasts 40 ms, which is 320 samples.
    EXPECT_EQ(3600u, pieces[0].ticks);
    EXPECT_EQ(320u, pieces[1].ticks);
    EXPECT_EQ(160u, pieces[2].ticks);
}

TEST_F(MediaSourceTest, LongerAudioIsCutWhereTheLoopBeginsAnew) {
    // 120 ms of video, 1 s of audio.
    const auto pieces = Play(Make(3, {25, 1}, 8000, true), 18);
    EXPECT_EQ("VaaVaaVaaVaaVaaVaa", Order(pieces));
    EXPECT_EQ(120000, pieces[9].time);
    EXPECT_EQ(6u * 3600, Ticks(pieces, true));
    EXPECT_EQ(12u * 160 + 160, Ticks(pieces, false));
    // 10 ms a picture: 3 pictures are 240 samples, and the second piece of audio is shortened.
    std::size_t samples = 0;
    for (const Piece& piece : Play(Make(3, {100, 1}, 8000, true), 12)) {
        samples += !piece.video && piece.time < 30000 ? piece.length : 0;
    }
    EXPECT_EQ(240u, samples);
}

TEST_F(MediaSourceTest, ShorterAudioIsFollowedBySilenceThatItsClockCounts) {
    // 120 ms of video, 30 ms of audio: the third piece of audio belongs to the second pass, 120 ms after the first.
    const auto pieces = Play(Make(3, {25, 1}, 240, true), 10);
    EXPECT_EQ("VaaVVVaaVV", Order(pieces));
    EXPECT_EQ(80u, pieces[2].length);
    EXPECT_EQ(120000, pieces[6].time);
    EXPECT_EQ(320u + 160 + 800 + 160, Ticks(pieces, false));
}

TEST_F(MediaSourceTest, AKeyFrameRequestBringsParameterSetsAndSkipsNothing) {
    const std::string head = Nal(H264Sps(320, 240)) + Nal(H264Pps());
    const std::string key = Nal(H264Slice(true, true));
    const std::string other = Nal(H264Slice(false, true));
    const MediaEntry entry = Entry(m_folder.Write("v.h264", head + key + other + other + key + other + key), {25, 1});
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
    const MediaEntry entry = Make(3, {25, 1}, 0, true);
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
