// Files of real encoders, made by ffmpeg: what is read is held against what ffprobe counts.
#include "file/media_entry.h"
#include "gvx_common/codec/access_unit_reader.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

using gvx::Codec;

namespace {

std::string Output(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen((command + " 2>/dev/null").c_str(), "r"), &pclose);
    std::string text;
    char piece[256];
    while (pipe != nullptr && fgets(piece, sizeof(piece), pipe.get()) != nullptr) {
        text += piece;
    }
    return text;
}

using Counts = std::pair<unsigned, unsigned>;  // pictures, key pictures

Counts CountByReader(Codec codec, const std::string& path) {
    Counts counts;
    gvx::AccessUnitReader reader(codec);
    std::string error;
    EXPECT_TRUE(reader.Open(path, error)) << error;
    for (gvx::AccessUnit unit; reader.Next(unit) == gvx::ReadResult::Ok; ++counts.first) {
        counts.second += unit.key ? 1 : 0;
    }
    EXPECT_EQ("", reader.Error());
    return counts;
}

Counts CountByDecoder(const std::string& path) {
    Counts counts;
    std::istringstream lines(
        Output("ffprobe -v error -select_streams v -show_entries frame=key_frame -of csv=p=0 " + path));
    for (std::string line; std::getline(lines, line);) {  // side data stands in lines of its own
        counts.first += line[0] == '0' || line[0] == '1' ? 1 : 0;
        counts.second += line[0] == '1' ? 1 : 0;
    }
    return counts;
}

constexpr struct {
    Codec codec;
    const char* source;  // lavfi source
    const char* encoder;
    unsigned width;
    unsigned height;
    double frameRate;
} kRows[] = {
    {Codec::H264, "testsrc2=size=1918x1078:rate=30000/1001:duration=1",
     "-c:v libx264 -preset ultrafast -x264-params aud=1:slices=2:keyint=10 -f h264", 1918, 1078, 30000.0 / 1001},
    {Codec::H264, "testsrc2=size=720x576:rate=25:duration=1",
     "-c:v libx264 -preset veryfast -pix_fmt yuv444p -flags +ildct+ilme -x264-params cqm=jvt -f h264", 720, 576, 25},
    {Codec::H265, "testsrc2=size=1278x718:rate=25:duration=2",
     "-c:v libx265 -preset ultrafast -x265-params log-level=none:aud=1:keyint=12:scaling-list=default -f hevc", 1278,
     718, 25},
};

}  // namespace

TEST(EncoderFiles, AreReadPictureByPicture) {
    if (Output("ffmpeg -hide_banner -encoders").find("libx265") == std::string::npos) {
        GTEST_SKIP() << "ffmpeg with x264 and x265 is not installed";
    }
    const TempFolder folder;
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.encoder);
        gvxfile::MediaEntry entry;
        entry.videoPath = folder.Path("video");
        entry.codec = row.codec;
        const std::string command = std::string("ffmpeg -v error -y -f lavfi -i ") + row.source + " " + row.encoder +
                                    " " + entry.videoPath + " </dev/null";
        ASSERT_EQ(0, std::system(command.c_str()));
        const Counts decoded = CountByDecoder(entry.videoPath);
        EXPECT_LT(0u, decoded.second);
        EXPECT_EQ(decoded, CountByReader(row.codec, entry.videoPath));

        std::string error;
        ASSERT_TRUE(ProbeMedia(entry, error)) << error;
        EXPECT_EQ(row.width, entry.width);
        EXPECT_EQ(row.height, entry.height);
        EXPECT_DOUBLE_EQ(row.frameRate, entry.frameRate.Value());
    }
}
