#include "base/json_io.h"

#include "base/text_member.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <string>
#include <vector>

namespace {

bool Parse(const std::string& text, Json::Value& value, std::string* error = nullptr) {
    return gvx::ParseJson(text.data(), text.size(), value, error);
}

TEST(JsonIo, RefusesHostileTextWithAReason) {
    const std::string tooDeep = std::string(gvx::kMaxJsonDepth + 1, '[') + std::string(gvx::kMaxJsonDepth + 1, ']');
    for (const std::string& text :
         std::vector<std::string>{"", "{", "{\"a\":1} x", "{\"a\":1,\"a\":2}", "{'a':1}", "{\"a\":1,}", "[NaN]",
                                  tooDeep, std::string(100000, '['), std::string(gvx::kMaxJsonBytes + 1, ' ')}) {
        Json::Value value(1);
        std::string error;
        EXPECT_FALSE(Parse(text, value, &error)) << text.substr(0, 20);
        EXPECT_FALSE(error.empty()) << text.substr(0, 20);
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
        EXPECT_TRUE(value.isNull()) << "nothing half-read must stay";
    }
    Json::Value value;
    EXPECT_FALSE(gvx::ParseJson(nullptr, 3, value, nullptr));
    EXPECT_TRUE(Parse(std::string(gvx::kMaxJsonDepth - 1, '[') + std::string(gvx::kMaxJsonDepth - 1, ']'), value));
}

TEST(JsonIo, WritesOneLineAndReadsMembersWithTheirFallbacks) {
    Json::Value value;
    ASSERT_TRUE(Parse("{\"b\": [1, 2.5, null],\n \"a\": \"x\\ny\"}", value));
    EXPECT_EQ(gvx::WriteJson(value), "{\"a\":\"x\\ny\",\"b\":[1,2.5,null]}\n");
    ASSERT_TRUE(
        Parse(R"({"text":"7","number":42,"flag":true,"list":[],"big":1e300,"odd":"7x","huge":"99999999999999999999"})",
              value));
    EXPECT_EQ(gvx::JsonText(value, "text"), "7");
    EXPECT_EQ(gvx::JsonText(value, "number"), "42");
    EXPECT_EQ(gvx::JsonText(value, "list", "none"), "none");
    EXPECT_EQ(gvx::JsonText(value, "absent", "none"), "none");
    EXPECT_EQ(gvx::JsonInt(value, "number"), 42);
    EXPECT_EQ(gvx::JsonInt(value, "text"), 7);
    for (const char* name : {"odd", "big", "huge", "flag", "absent"}) {
        EXPECT_EQ(gvx::JsonInt(value, name, -5), -5) << name;
    }
    EXPECT_TRUE(gvx::JsonBool(value, "flag"));
    EXPECT_TRUE(gvx::JsonBool(value, "number", true));
    EXPECT_FALSE(gvx::JsonBool(value, "number", false));
    EXPECT_EQ(gvx::JsonInt(Json::Value("text"), "a", 3), 3);
}

TEST(JsonMember, IsFoundAlongTheWayAndWhatIsNoObjectIsRefused) {
    using State = gvx::TextMember::State;
    const std::tuple<std::string, State, const char*> rows[] = {
        {R"({"a":{"D":"x"},"b":["D","y"],"D":"C\u0041M"})", State::Found, "CAM"},
        {R"({"D":""})", State::Found, ""},
        {R"({"E":"D"})", State::Absent, ""},
        {R"({"D":7})", State::NoText, ""},
        {R"({"D":{"D":"x"}})", State::NoText, ""},
        {R"({"D":"1","D":"2"})", State::Malformed, ""},
        {R"(["D"])", State::Malformed, ""},
        {R"({"D":"x"} 1)", State::Malformed, ""},
        {"{\"D\":\"\xC3\"}", State::Malformed, ""},
        {std::string("{}\0", 3), State::Malformed, ""},
        {"{\"a\":" + std::string(65, '[') + std::string(65, ']') + "}", State::Malformed, ""},
        {"{\"a\":[0" + std::string(40000, ',') + "]}", State::Malformed, ""},
    };
    for (const auto& [text, state, value] : rows) {
        const gvx::TextMember member = gvx::FindJsonMember(text.data(), text.size(), "D");
        EXPECT_EQ(member.state, state) << text.substr(0, 80) << " " << member.fault;
        EXPECT_EQ(member.text, value) << text.substr(0, 80);
        EXPECT_EQ(member.fault.empty(), state != State::Malformed) << text.substr(0, 80);
    }
    Json::Value value;
    const std::string many = "[0" + std::string(100000, ',') + "]";
    std::string fault;
    EXPECT_FALSE(gvx::ParseJson(many.data(), many.size(), value, &fault));
    EXPECT_EQ(fault, "more than 100000 values");
}

}  // namespace
