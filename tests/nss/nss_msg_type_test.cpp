#include "nss/nss_msg_type.h"

#include "nss/nss_msg_header.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <set>
#include <string>

namespace {

constexpr std::size_t kRequests = 1515;      // listed without "!"
constexpr std::size_t kStandAlone = 60;      // listed with "!"
constexpr std::size_t kListedResponses = 2;  // responses that do not stand 0x9000 above their requests

bool EndsWith(const std::string& text, const std::string& ending) {
    return text.size() >= ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

class NssMsgTypeTable : public testing::Test {
protected:
    NssMsgTypeTable() {
        std::size_t count = 0;
        const NssMsgTypeRow* rows = NssMsgTypeRows(count);
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_TRUE(m_values.emplace(rows[i].name, rows[i].value).second) << rows[i].name << " stands twice";
            m_names[rows[i].value].insert(rows[i].name);
        }
    }
    std::map<std::string, std::uint16_t> m_values;
    std::map<std::uint16_t, std::set<std::string>> m_names;
};

TEST_F(NssMsgTypeTable, HoldsEveryRequestItsResponseAndTheNamesThatStandAlone) {
    EXPECT_EQ(m_values.size(), 2 * kRequests + kStandAlone - kListedResponses);
    std::size_t shared = 0;
    for (const auto& [value, names] : m_names) {
        shared += value < kNssResponseOffset && names.size() > 1 ? 1 : 0;
        EXPECT_LE(names.size(), 2u) << value;
    }
    EXPECT_EQ(shared, 15u);
}

TEST_F(NssMsgTypeTable, PutsAResponse0x9000AboveItsRequestUnlessItIsListedElsewhere) {
    std::set<std::string> elsewhere;
    for (const auto& [name, value] : m_values) {
        if (!EndsWith(name, "_REQ")) {
            continue;
        }
        EXPECT_LT(value, kNssResponseOffset) << name;
        const std::string response = name.substr(0, name.size() - 4) + "_RSP";
        ASSERT_EQ(m_values.count(response), 1u) << response;
        if (m_values[response] != value + kNssResponseOffset) {
            elsewhere.insert(response);
        }
    }
    EXPECT_EQ(elsewhere, (std::set<std::string>{"NSS_BA_STOP_AREA_COVERAGE_LEARNING_RSP", "NSS_DEL_MAP_INFO_RSP"}));
    EXPECT_EQ(NSS_BA_STOP_AREA_COVERAGE_LEARNING_RSP, 0x9904);
    EXPECT_EQ(NSS_DEL_MAP_INFO_RSP, 0x9D94);
}

TEST(NssMsgType, FindsNamesAndValues) {
    std::uint16_t value = 0;
    const std::pair<const char*, int> rows[] = {{"NSS_BP_REGISTER_REQ", 0x0000},
                                                {"NSS_ADD_MAIN_DEV_REQ", 0x0109},
                                                {"START_STREAM_REQ", 0x0501},
                                                {"NSS_START_STREAM_RSP", 0x9501},
                                                {"NSS_DEV_ALARM_REPORT_REQ", 0x1008},
                                                {"NSS_IMGU_LINK_CLOSE", 0xDC01},
                                                {"NSS_GET_COLLECTION_DEVICE_INFO_REQ", 0x0BAA},
                                                {"NSS_PLUGIN_SEND_PORTLIST_DATA_REQ", 0x0BAA},
                                                {"NSS_CLUSTER_NOTIFY_CMU_SHIFTIN_NOT_IN_RECORD", 0x0FBD}};
    for (const auto& [name, number] : rows) {
        EXPECT_TRUE(NssMsgTypeFromName(name, value)) << name;
        EXPECT_EQ(value, number) << name;
    }
    value = 7;
    for (const char* wrong : {"", "NSS_", "NSS_START_STREAM", "start_stream_req", "NSS_NSS_START_STREAM_REQ", "ZZZ"}) {
        EXPECT_FALSE(NssMsgTypeFromName(wrong, value)) << wrong;
    }
    EXPECT_EQ(value, 7);
    EXPECT_STREQ(NssMsgTypeName(0x0BAA), "NSS_GET_COLLECTION_DEVICE_INFO_REQ") << "the first of a shared value";
    EXPECT_STREQ(NssMsgTypeName(0x9AAD), "NSS_LOGIN_RSP_V2");
    // 0x9FBD and 0x9502 would answer names that stand alone.
    for (const std::uint32_t unknown : {0x0003u, 0x9FBDu, 0x9502u, 0x10501u, 0xFFFFFFFFu}) {
        EXPECT_STREQ(NssMsgTypeName(unknown), "NSS_UNKNOWN") << unknown;
    }
}

struct ListCase {
    const char* text;
    bool accepted;
};

TEST(NssMsgTypeGenerator, RefusesAListThatIsNotInOrder) {
    const TempFolder folder;
    const std::string script = (SourceTree() / "src/nss/generate_msg_types.py").string();
    const ListCase cases[] = {
        {"# a comment\n0x0001: A, B = C,\n    D!\n0x9001: A_RSP!\n", true},
        {"0x0001: A, A\n", false},
        {"0x0001: A\n0x0005: A\n", false},
        {"0x0001: A\n0x0005: A_REQ!\n", false},
        {"0x0001: A, B\n0x0002: C\n", false},
        {"0x9000: A\n", false},
        {"0xFFFF: A!, B!\n", false},
        {"0x0001: A,, B\n", false},
        {"0x0001: A = \n", false},
        {"0x0001: A B\n", false},
        {"1: A\n", false},
        {"A, B\n", false},
        {"", false},
    };
    for (const ListCase& row : cases) {
        const std::string list = folder.Write("list", row.text);
        const std::string command =
            "python3 -B '" + script + "' '" + list + "' '" + folder.Path("out") + "' 2>'" + folder.Path("err") + "'";
        EXPECT_EQ(std::system(command.c_str()) == 0, row.accepted) << row.text << folder.Read("err");
    }
    EXPECT_EQ(folder.Read("out/nss_msg_type_enumerators.inc"),
              "NSS_A_REQ = 0x0001,\nNSS_B_REQ = 0x0002,\nNSS_B_RSP = 0x9002,\nNSS_C_REQ = 0x0002,\n"
              "NSS_C_RSP = 0x9002,\nNSS_D = 0x0003,\nNSS_A_RSP = 0x9001,\n");
}

}  // namespace
