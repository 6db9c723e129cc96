#include "file/metadata_script.h"

#include "support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using gvxfile::MetadataMessage;
using gvxfile::MetadataScript;
using gvxfile::ReadMetadataScript;
using testing::HasSubstr;

namespace {

class MetadataScriptTest : public testing::Test {
protected:
    MetadataScriptTest() {
        m_folder.Write("p.jpg", "\xFF\xD8plate");
        m_folder.Write("text.jpg", "no picture");
        m_folder.Write("large.jpg", "\xFF\xD8" + std::string(MetadataScript::kMaxPictureBytes, 'x'));
    }
    // The error, or an empty text.
    std::string Read(const std::string& text) {
        std::string error;
        m_script = ReadMetadataScript(m_folder.Write("s.json", text), error);
        EXPECT_EQ(m_script != nullptr, error.empty()) << error;
        return error;
    }

    TempFolder m_folder;
    std::shared_ptr<const MetadataScript> m_script;
};

}  // namespace

TEST_F(MetadataScriptTest, ReadsMembersAtTheirLimits) {
    ASSERT_EQ("", Read(R"({"messages": [
        {"time": 1.5, "repeat": 2, "kind": "plate", "form": "ex", "plate": "AB 123", "lane": 200, "speed": 80,
         "object_id": 5000000000, "plate_pos": [1, 2, 3, 65535], "plate_picture": "p.jpg", "panorama": "p.jpg"},
        {"kind": "face", "faces": [{"id": 7, "pos": [-1, 2, 3, 4], "score": 90, "angle": -30}, {}]}]})"));
    const MetadataMessage& plate = m_script->messages[0];
    EXPECT_TRUE(plate.timeMicroseconds == 1500000 && plate.repeatMicroseconds == 2000000 && plate.ex);
    EXPECT_STREQ("AB 123", plate.plates.vehicleInfo.stPlateInfo.szPlateNumber);
    EXPECT_EQ(65535, int{plate.plates.stPlatePos.height});
    EXPECT_EQ(plate.pictures[0], plate.pictures[1]) << "a picture that is named twice is held once";
    const MetadataMessage& face = m_script->messages[1];
    EXPECT_EQ(2, int{face.faces.count});
    EXPECT_TRUE(face.faces.faces[0].x == -1 && face.faces.faces[0].angle == -30);
}

TEST_F(MetadataScriptTest, SaysWhatIsWrong) {
    const std::string path = m_folder.Path("s.json");
    EXPECT_THAT(Read("{"), HasSubstr(path + ": it is not valid JSON"));
    const std::pair<const char*, const char*> rows[] = {
        {R"("kind": "dog")", "message 1: kind 'dog' is none of"},
        {R"("kind": "plate", "plate": "12345678901234567890123456789012")", "plate has 32 bytes, 31 are the most"},
        {R"("kind": "vehicle", "lane": 256)", "lane is not a whole number from 0 to 255"},
        {R"("kind": "vehicle", "panorama": "none.jpg")", "none.jpg cannot be opened: No such file or directory."},
        {R"("kind": "vehicle", "panorama": "text.jpg")", "text.jpg is not a JPEG file."},
        {R"("kind": "vehicle", "panorama": "large.jpg")", "large.jpg has more than 16777216 bytes."},
        {R"("kind": "face")", "\"faces\" is not a list of 1 to 16"},
        {R"("kind": "face", "faces": [{"pos": [0, 0, 1, 40000]}])", "whole numbers from -32768 to 32767"},
        {R"("kind": "heartbeat", "repeat": 0)", "repeat is not a number of seconds from 0.01"},
        {R"("kind": "heartbeat", "form": "long")", "form 'long' is neither plain nor ex"}};
    for (const auto& [members, error] : rows) {
        EXPECT_THAT(Read(std::string(R"({"messages": [{)") + members + "}]}"), HasSubstr(error));
    }
    std::string many = R"({"kind": "heartbeat"})";
    for (std::size_t i = 0; i < MetadataScript::kMaxMessages; ++i) {
        many += R"(,{"kind": "heartbeat"})";
    }
    EXPECT_THAT(Read("{\"messages\": [" + many + "]}"), HasSubstr("it has 1001 messages, 1000 are the most"));
}
