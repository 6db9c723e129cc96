#include "nss/nss_msg_type.h"

#include "nss/nss_msg_header.h"

#include <gtest/gtest.h>

namespace {

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
