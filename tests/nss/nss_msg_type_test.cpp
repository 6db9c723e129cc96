#include "nss/nss_msg_type.h"

#include "nss/nss_msg_header.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

namespace {

constexpr std::size_t kRequests = 1515;      // listed without "!"
constexpr std::size_t kStandAlone = 60;      // listed with "!"
constexpr std::size_t kListedResponses = 2;  // responses that do not stand 0x9000 above their requests

TEST(NssMsgType, TableHoldsEveryRequestItsResponseAndTheNamesThatStandAlone) {
    std::map<std::string, int> values;
    std::map<int, int> names;  // how many share a value
    std::size_t count = 0;
    const NssMsgTypeRow* rows = NssMsgTypeRows(count);
    for (std::size_t i = 0; i < count; ++i) {
        EXPECT_TRUE(values.emplace(rows[i].name, rows[i].value).second) << rows[i].name << " stands twice";
        EXPECT_LE(++names[rows[i].value], 2) << rows[i].name;
    }
    EXPECT_EQ(values.size(), 2 * kRequests + kStandAlone - kListedResponses);
    EXPECT_EQ(std::count_if(names.begin(), names.end(),
                            [](const auto& row) { return row.first < kNssResponseOffset && row.second > 1; }),
              15);
    std::set<std::string> elsewhere;
    for (const auto& [name, value] : values) {
        if (name.size() < 4 || name.substr(name.size() - 4) != "_REQ") {
            continue;
        }
        EXPECT_LT(value, kNssResponseOffset) << name;
        const std::string response = name.substr(0, name.size() - 4) + "_RSP";
        ASSERT_EQ(values.count(response), 1u) << response;
        if (values[response] != value + kNssResponseOffset) {
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

}  // namespace
