#include "file/media_list.h"

#include "support/stream_bytes.h"
#include "support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

using gvx::Codec;
using gvxfile::MediaList;
using gvxfile::MediaPtr;
using testing::HasSubstr;

namespace {

class MediaListTest : public testing::Test {
protected:
    MediaListTest() {
        m_folder.Write("v.h264", stream_bytes::H264Stream(3));
        m_folder.Write("raw.bin", stream_bytes::H264Stream(3));
        m_folder.Write("a.alaw", std::string(800, '\xD5'));
        m_folder.Write("empty.ulaw", "");
    }

    // Loads a configuration of one medium "demo" with these members: the error, or an empty text.
    std::string Load(const std::string& members) { return LoadText(R"({"media": {"demo": {)" + members + "}}}"); }
    std::string LoadText(const std::string& text) {
        std::string error;
        const bool loaded = m_list.Load(m_folder.Write("file.json", text), error);
        EXPECT_EQ(loaded, error.empty()) << error;
        return error;
    }
    MediaPtr Demo() {
        std::vector<MediaPtr> lenses;
        std::string error;
        return m_list.Resolve(R"({"media": "demo"})", lenses, error) ? lenses[0] : nullptr;
    }

    TempFolder m_folder;
    MediaList m_list;
};

}  // namespace

TEST_F(MediaListTest, ReadsAMediumWithItsDefaultsAndEveryMember) {
    ASSERT_EQ("", Load(R"("video": "v.h264")"));
    MediaPtr demo = Demo();
    ASSERT_NE(nullptr, demo);
    EXPECT_EQ(m_folder.Path("v.h264"), demo->videoPath);
    EXPECT_EQ(240u, demo->height);
    EXPECT_EQ(25.0, demo->frameRate.Value());
    EXPECT_TRUE(demo->loop && !demo->speed.unlimited && demo->speed.factor == 1.0 && !demo->HasAudio());
    ASSERT_EQ("", Load(R"("video": ")" + m_folder.Path("raw.bin") +
                       R"(", "codec": "h264", "audio": "a.alaw", "fps": "30000/1001", "loop": false, "speed": "max")"));
    demo = Demo();
    ASSERT_NE(nullptr, demo);
    EXPECT_TRUE(demo->frameRate.numerator == 30000 && demo->frameRate.denominator == 1001);
    EXPECT_EQ(GVX_AUDIO_FORMAT_G711A, demo->audioFormat);
    EXPECT_TRUE(!demo->loop && demo->speed.unlimited);
    ASSERT_EQ("", Load(R"("video": "v.h264", "audio": "a.alaw", "audio_format": "G711U", "fps": 12.5, "speed": 2.5)"));
    demo = Demo();
    EXPECT_EQ(GVX_AUDIO_FORMAT_G711U, demo->audioFormat);
    EXPECT_TRUE(demo->frameRate.Value() == 12.5 && demo->speed.factor == 2.5);
}

TEST_F(MediaListTest, SaysWhatIsAtFault) {
    const std::pair<const char*, std::string> rows[] = {
        {R"("video": "none.h264")",
         "Medium 'demo': " + m_folder.Path("none.h264") + " cannot be opened: No such file or directory."},
        {R"("video": "v.h264", "audio": "empty.ulaw")", m_folder.Path("empty.ulaw") + " is empty."},
        {R"("video": "v.h264", "codec": "h265")", "no H.265 sequence parameter set"},
        {R"("audio": "a.alaw")", "names no video file"},
        {R"("video": "raw.bin")", "codec 'bin' of"},
        {R"("video": "v.h264", "audio": "v.h264")", "audio_format 'h264' of"},
        {R"("video": "v.h264", "fps": "25/0")", "fps is not a rate"},
        {R"("video": "v.h264", "fps": 1e9)", "fps is not a rate"},
        {R"("video": "v.h264", "speed": -1)", "speed is neither"},
        {R"("video": "v.h264", "loop": "yes")", "loop is neither"},
        {R"("video": "v.h264", "sped": "max")", "member 'sped' is not known"},
    };
    for (const auto& [members, fault] : rows) {
        EXPECT_THAT(Load(members), HasSubstr(fault));
    }
    EXPECT_THAT(LoadText("{"), HasSubstr(m_folder.Path("file.json") + " is not valid JSON"));
    EXPECT_THAT(LoadText(R"({"media": {"demo": 3}})"),
                HasSubstr(m_folder.Path("file.json") + ": Medium 'demo' is not an object"));
    EXPECT_THAT(LoadText(R"({"media": {}, "discvery": {}})"), HasSubstr("member 'discvery' is not known"));
    std::string error;
    EXPECT_TRUE(m_list.Load(m_folder.Path("absent.json"), error)) << "the file may be absent";
}

TEST_F(MediaListTest, ExtendTextGivesOneLensForEachMedium) {
    ASSERT_EQ("", LoadText(R"({"media": {"a": {"video": "v.h264"}, "b": {"video": "v.h264", "fps": 10}}})"));
    std::vector<MediaPtr> lenses;
    std::string error;
    ASSERT_TRUE(m_list.Resolve(
        R"({"media": ["a", "b"], "lenses": [{"video": "raw.bin", "codec": "H264"}], "speed": "max", "loop": false})",
        lenses, error))
        << error;
    ASSERT_EQ(3u, lenses.size());
    EXPECT_EQ(25.0, lenses[0]->frameRate.Value());
    EXPECT_EQ(10.0, lenses[1]->frameRate.Value());
    EXPECT_EQ(m_folder.Path("raw.bin"), lenses[2]->videoPath);
    for (const MediaPtr& lens : lenses) {
        EXPECT_TRUE(lens->speed.unlimited);
        EXPECT_FALSE(lens->loop);
    }
    // The overrides belong to that device alone.
    ASSERT_TRUE(m_list.Resolve(R"({"media": "a"})", lenses, error));
    EXPECT_FALSE(lenses[0]->speed.unlimited);
    EXPECT_TRUE(lenses[0]->loop);
}

TEST_F(MediaListTest, ExtendTextThatNamesNothingPlayableIsRefused) {
    std::string many = R"({"media": ["demo")";
    for (int i = 0; i < 64; ++i) {
        many += ",\"demo\"";
    }
    std::filesystem::create_directory(m_folder.Path("below"));
    std::filesystem::create_symlink(m_folder.Path("v.h264"), m_folder.Path("below/link.h264"));
    std::filesystem::create_symlink("nowhere", m_folder.Path("below/dangling"));
    std::filesystem::copy(m_folder.Path("v.h264"), m_folder.Path("below/v.h264"));
    ASSERT_EQ("", LoadText(R"({"device_folder": "below", "media": {"demo": {"video": "v.h264"}}})"));
    const std::pair<std::string, const char*> rows[] = {
        {R"({"media": "demo", "sped": "max"})", "member 'sped' is not known"},
        {R"({"lenses": [{"video": "../v.h264"}]})", "../v.h264 cannot be opened: It is not below"},
        {R"({"lenses": [{"video": ")" + m_folder.Path("v.h264") + R"("}]})", "It is not below"},
        {R"({"lenses": [{"video": "link.h264"}]})", "It is not below"},
        {R"({"lenses": [{"video": "v.h264", "talk": "../said"}]})", "It is not below"},
        {R"({"lenses": [{"video": "v.h264", "talk": "dangling"}]})", "It is not below"},
        {R"({"lenses": [{"video": "v.h264", "picture": "/etc/hostname"}]})", "It is not below"},
        {R"({"lenses": [{"video": "."}]})", "Is a directory"},
        {"[]", "The extend text is not a JSON object"},
        {"{}", "names neither"},
        {R"({"media": "other"})", "There is no medium 'other'."},
        {R"({"media": [1]})", "not a text"},
        {R"({"lenses": [{"video": "none.h264"}]})", "none.h264 cannot be opened"},
        {R"({"media": "demo", "speed": "fast"})", "speed is neither"},
        {many + "]}", "A device has at most 64 lenses."},
    };
    for (const auto& [extend, fault] : rows) {
        std::vector<MediaPtr> lenses;
        std::string error;
        EXPECT_FALSE(m_list.Resolve(extend, lenses, error));
        EXPECT_THAT(error, HasSubstr(fault)) << extend;
    }
    std::vector<MediaPtr> lenses;
    std::string error;
    const std::string below = m_folder.Path("below/");
    EXPECT_TRUE(m_list.Resolve(R"({"lenses": [{"video": ")" + below + R"(v.h264", "talk": "said"}]})", lenses, error))
        << error;
    EXPECT_EQ(lenses[0]->talkPath, below + "said");
}
