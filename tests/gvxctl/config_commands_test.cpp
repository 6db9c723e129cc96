#include "gvxctl/config_commands.h"

#include <gtest/gtest.h>

TEST(ConfigCommands, DocumentIsShownASettingALineWithoutThePassword) {
    const std::string row =
        "<ConfigInfo><ConfigName>Password</ConfigName><ConfigType>LOG_CFG</ConfigType><ConfigValue>";
    const std::string end = "</ConfigValue></ConfigInfo>";
    const std::string shown =
        gvxctl::ShowUnifiedDocument("<Content><ConfigList>" + row + "secret" + end + "</ConfigList></Content>");
    EXPECT_EQ(shown.find("secret"), std::string::npos);
    EXPECT_NE(shown.find("\n    " + row + "***" + end + "\n"), std::string::npos) << shown;
    EXPECT_EQ(gvxctl::ShowUnifiedDocument(row), "\n    " + row) << "a text that is cut off stays as it is";
}
