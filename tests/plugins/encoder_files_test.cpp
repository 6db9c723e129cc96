// Files of real encoders, made by ffmpeg: what is read is held against what ffprobe counts.
#include "file/media_entry.h"
#include "gvx_common/codec/access_unit_reader.h"
#include "support/stream_bytes.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

using gvx::AccessUnit;
using gvx::AccessUnitReader;
using gvx::Codec;
using gvx::ReadResult;
using gvxfile::MediaEntry;

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

struct Counts {
    unsigned pictures = 0;
    unsigned keys = 0;
};

Counts CountByReader(Codec codec, const std::string& path) {
    Counts counts;
    AccessUnitReader reader(codec);
    std::string error;
    EXPECT_TRUE(reader.Open(path, error)) << error;
    AccessUnit unit;
    while (reader.Next(unit) == ReadResult::Ok) {
        ++counts.pictures;
        counts.keys += unit.key ? 1 : 0;
    }
    EXPECT_EQ("", reader.Error());
    return counts;
}

Counts CountByDecoder(const std::string& path) {
    Counts counts;
    std::istringstream lines(
        Output("ffprobe -v error -select_streams v -show_entries frame=key_frame -of csv=p=0 " + path));
    for (std::string line; std::getline(lines, line);) {
        const bool key = line.compare(0, 1, "1") == 0;
        const bool frame = key || line.compare(0, 1, "0") == 0;  // side data stands in lines of its own
        counts.pictures += frame ? 1 : 0;
        counts.keys += key ? 1 : 0;
    }
    return counts;
}

struct Row {
    const char* name;
    Codec codec;
    const char* source;  // lavfi source
    const char* encoder;
    unsigned width;
    unsigned height;
    double frameRate;
};

constexpr Row kRows[] = {
    {"slices and B pictures", Codec::H264, "testsrc2=size=640x360:rate=25:duration=4",
     "-c:v libx264 -preset veryfast -bf 3 -slices 4 -g 25 -f h264", 640, 360, 25},
    {"cropped size with delimiters", Codec::H264, "testsrc2=size=1918x1078:rate=30000/1001:duration=1",
     "-c:v libx264 -preset ultrafast -x264-params aud=1:slices=2:keyint=10 -f h264", 1918, 1078, 30000.0 / 1001},
    {"interlaced, 4:4:4, scaling matrices", Codec::H264, "testsrc2=size=720x576:rate=25:duration=1",
     "-c:v libx264 -preset veryfast -pix_fmt yuv444p -flags +ildct+ilme -x264-params cqm=jvt -f h264", 720, 576, 25},
    {"H.265 with slices", Codec::H265, "testsrc2=size=640x360:rate=50:duration=2",
     "-c:v libx265 -preset ultrafast -x265-params log-level=none:slices=3:bframes=3:keyint=25:open-gop=0 -f hevc", 640,
     360, 50},
    {"H.265 cropped, open groups, delimiters", Codec::H265, "testsrc2=size=1278x718:rate=25:duration=2",
     "-c:v libx265 -preset ultrafast -x265-params log-level=none:aud=1:keyint=12:scaling-list=default -f hevc", 1278,
     718, 25},
};

}  // namespace

TEST(EncoderFiles, AreReadPictureByPicture) {
    if (Output("ffmpeg -hide_banner -encoders").find("libx265") == std::string::npos) {
        GTEST_SKIP() << "ffmpeg with x264 and x265 is not installed";
    }
    const TempFolder folder;
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        const std::string path = folder.Path(row.codec == Codec::H264 ? "v.h264" : "v.h265");
        const std::string command = std::string("ffmpeg -v error -y -f lavfi -i ") + row.source + " " + row.encoder +
                                    " " + path + " </dev/null";
        ASSERT_EQ(0, std::system(command.c_str()));
        const Counts decoded = CountByDecoder(path);
        const Counts read = CountByReader(row.codec, path);
        EXPECT_LT(0u, decoded.pictures);
        EXPECT_EQ(decoded.pictures, read.pictures);
        EXPECT_EQ(decoded.keys, read.keys);

        MediaEntry entry;
        entry.name = "test";
        entry.videoPath = path;
        entry.codec = row.codec;
        std::string error;
        ASSERT_TRUE(ProbeMedia(entry, error)) << error;
        EXPECT_EQ(row.width, entry.width);
        EXPECT_EQ(row.height, entry.height);
        EXPECT_DOUBLE_EQ(row.frameRate, entry.frameRate.Value());
    }
}
