#include "base/json_io.h"

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

}  // namespace
