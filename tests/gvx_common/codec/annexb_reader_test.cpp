#include "gvx_common/codec/annexb_reader.h"

#include "support/stream_bytes.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <sys/stat.h>

using gvx::AnnexBReader;
using gvx::NalSpan;
using gvx::ReadResult;

namespace {

// All NAL units of a file; "failed" as the last when it could not be read to its end.
std::vector<std::string> Units(AnnexBReader& reader) {
    std::vector<std::string> units;
    NalSpan nal;
    ReadResult result = ReadResult::Ok;
    while ((result = reader.Next(nal)) == ReadResult::Ok) {
        units.emplace_back(reinterpret_cast<const char*>(nal.data), nal.length);
    }
    if (result == ReadResult::Failed) {
        units.emplace_back("failed");
    }
    return units;
}

std::vector<std::string> UnitsOf(const std::string& stream) {
    const TempFolder folder;
    AnnexBReader reader;
    std::string error;
    EXPECT_TRUE(reader.Open(folder.Write("stream", stream), error)) << error;
    return Units(reader);
}

std::string Zeroes(std::size_t count) {
    return std::string(count, '\0');
}

}  // namespace

TEST(AnnexBReader, TakesShortAndLongStartCodes) {
    using Expected = std::vector<std::string>;
    const std::string one("\0\0\1", 3);
    EXPECT_EQ((Expected{"abc", "d", "ef"}), UnitsOf(one + "abc" + Zeroes(1) + one + "d" + one + "ef"));
    EXPECT_EQ((Expected{"abc"}), UnitsOf("junk" + Zeroes(3) + one + "abc" + Zeroes(9)));
    EXPECT_EQ((Expected{"a"}), UnitsOf(one + one + Zeroes(4) + one + "a" + one));
    EXPECT_EQ((Expected{}), UnitsOf(""));
    EXPECT_EQ((Expected{}), UnitsOf("no code" + Zeroes(2)));
    EXPECT_EQ((Expected{}), UnitsOf(one));
    // Two zeroes and a byte above 1 belong to the unit.
    EXPECT_EQ((Expected{"a" + Zeroes(2) + "\3\1"}), UnitsOf(one + "a" + Zeroes(2) + "\3\1"));
}

TEST(AnnexBReader, FindsAStartCodeWhereverAPieceOfTheFileEnds) {
    constexpr std::size_t kPiece = 256 * 1024;
    for (std::size_t cut = 0; cut < 8; ++cut) {
        const std::string first(kPiece - cut, 'x');
        const std::vector<std::string> units = UnitsOf(stream_bytes::Nal(first) + stream_bytes::Nal("second"));
        ASSERT_EQ(2u, units.size()) << cut;
        EXPECT_EQ(first, units[0]) << cut;
        EXPECT_EQ("second", units[1]) << cut;
    }
}

TEST(AnnexBReader, RefusesAUnitBeyondItsBound) {
    const TempFolder folder;
    AnnexBReader reader(1000);
    std::string error;
    ASSERT_TRUE(reader.Open(folder.Write("stream", stream_bytes::Nal(std::string(3 * 1024 * 1024, 'x'))), error));
    EXPECT_EQ(std::vector<std::string>{"failed"}, Units(reader));
    EXPECT_EQ("a NAL unit is longer than 1000 bytes", reader.Error());

    AnnexBReader other(1000);
    ASSERT_TRUE(other.Open(folder.Write("stream", std::string(1100, 'x') + stream_bytes::Nal("late")), error));
    EXPECT_EQ(std::vector<std::string>{"late"}, Units(other));
    ASSERT_TRUE(other.Open(folder.Write("stream", std::string(3 * 1024 * 1024, 'x')), error));
    other.Rewind();
    EXPECT_EQ(std::vector<std::string>{"failed"}, Units(other));
    EXPECT_EQ("there is no start code in the first 1000 bytes", other.Error());
}

TEST(AnnexBReader, BeginsAnewAndSeesAFileThatWasCut) {
    const TempFolder folder;
    const std::string path = folder.Write("stream", stream_bytes::Nal("one") + stream_bytes::Nal("two"));
    AnnexBReader reader;
    std::string error;
    ASSERT_TRUE(reader.Open(path, error));
    EXPECT_EQ(2u, Units(reader).size());
    reader.Rewind();
    EXPECT_EQ(2u, Units(reader).size());
    std::filesystem::resize_file(path, 7);
    reader.Rewind();
    EXPECT_EQ(std::vector<std::string>{"one"}, Units(reader));
    // Regular files alone are opened.
    EXPECT_FALSE(reader.Open(folder.Path("missing"), error));
    EXPECT_EQ("No such file or directory", error);
    EXPECT_FALSE(reader.Open(folder.Path(), error));
    EXPECT_EQ("Is a directory", error);
    ASSERT_EQ(0, mkfifo(folder.Path("pipe").c_str(), 0600));
    EXPECT_FALSE(reader.Open(folder.Path("pipe"), error));
    EXPECT_EQ("Not a regular file", error);
}
