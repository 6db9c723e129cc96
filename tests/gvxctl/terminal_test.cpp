#include "gvxctl/terminal.h"

#include "base/json_io.h"
#include "gvxctl/status_commands.h"

#include <gtest/gtest.h>

namespace gvxctl {
namespace {

TEST(Terminal, GetsNoCommandsFromTextsOfOthers) {
    const struct {
        const char* text;
        const char* shown;
    } rows[] = {
        {"Tür 4\tHof\n日本 😀", "Tür 4\tHof\n日本 😀"},
        {"\x1b]0;owned\x07 \x1b[2J", "\\x1b]0;owned\\x07 \\x1b[2J"},
        {"\xC2\x9B"
         "31m \x7F \r",
         "\\x9b31m \\x7f \\x0d"},  // U+009B begins a command as well
        {"gate\u202E4.tset", "gate\\u202e4.tset"},
        {"\x9B \xC0\x80 \xED\xA0\x80 \xE2\x82", "\\x9b \\xc0\\x80 \\xed\\xa0\\x80 \\xe2\\x82"},  // no UTF-8
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Printable(row.text), row.shown);
        EXPECT_EQ(Printable(Printable(row.text)), row.shown);
    }
    EXPECT_EQ(PrintableLine("a\nb\tc"), "a\\nb\\tc");
    EXPECT_EQ(Printable("abcdef", 3), "abc ... (6 bytes)");
}

TEST(StatusTables, TellTheLastErrorOfADeviceBelowItsRow) {
    const std::string text = R"({"devices":[
        {"code":"CAM1","plugin":"rtsp","state":"online","last_error":"said \u001b[31mno","last_error_age_ms":61000},
        {"code":"CAM2","plugin":"rtsp","state":"offline","reason":"It is gone.","last_error":"It is gone."}]})";
    Json::Value answer;
    ASSERT_TRUE(gvx::ParseJson(text.data(), text.size(), answer, nullptr));
    const std::string table = StatusTable("devices", answer);
    EXPECT_NE(table.find("1 min       -\n    last error: said \\x1b[31mno\nCAM2 "), std::string::npos) << table;
    EXPECT_NE(table.find("It is gone.\n"), std::string::npos) << table;
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 4) << table;
}

}  // namespace
}  // namespace gvxctl
