#include "gvxctl/alarm_records.h"

#include "gvxctl/frame_text.h"
#include "nss/nss_msg_type.h"

#include <gtest/gtest.h>

namespace gvxctl {
namespace {

void Put(std::string& body, std::size_t offset, const std::string& bytes) {
    body.replace(offset, bytes.size(), bytes);
}

std::string Pair(std::uint16_t tag, const std::string& text) {
    const auto length = static_cast<std::uint32_t>(text.size());
    return std::string{'\0', static_cast<char>(tag),         '\0',
                       '\0', static_cast<char>(length >> 8), static_cast<char>(length & 0xFF)} +
           text;
}

Frame AlarmFrame(std::uint16_t type, const std::string& body) {
    Frame frame;
    frame.head.usiMsgType = type;
    frame.body = body;
    return frame;
}

std::string DeviceBody() {
    std::string body(272, '\0');
    Put(body, 0, "CAM001_0");
    Put(body, 96, "IPC_ALARM_TYPE_MOTION");
    Put(body, 160, "20260102030405");
    Put(body, 200, std::string("\0\0\0\1", 4));
    Put(body, 204, "77");
    Put(body, 236, std::string("\0\0\1\2", 4));
    Put(body, 240, std::string(32, 'n'));  // fills its field, no terminator
    return body + Pair(4, "something moves") + Pair(5, "<x/>");
}

TEST(AlarmRecords, DeviceAlarmIsDecodedByItsOffsets) {
    Alarm alarm;
    std::string error;
    ASSERT_TRUE(DecodeAlarm(AlarmFrame(NSS_ALARM_REPORT_REQ, DeviceBody()), alarm, error)) << error;
    EXPECT_STREQ(alarm.target, "SCU");
    EXPECT_EQ(alarm.Text("bAction"), "1");
    EXPECT_EQ(alarm.Text("uiOccurNumber"), "258");
    EXPECT_EQ(alarm.Text("cNvrCode"), std::string(32, 'n'));
    EXPECT_EQ(alarm.Text("cExtParam"), "<x/>");
    EXPECT_EQ(AlarmLine(alarm), "SCU  began  IPC_ALARM_TYPE_MOTION  from CAM001_0 at 20260102030405: something moves");
}

TEST(AlarmRecords, GatewayAlarmAndCloudReportHaveTheirOwnByteOrders) {
    std::string gateway(864, '\0');
    Put(gateway, 0, std::string("\0\0\0\0\0\0\1\0", 8));
    Put(gateway, 520, "ALARM_GVX_LOG_RECORD_FAIL_OFF");
    Put(gateway, 608, "HostIP=1.2.3.4");
    Alarm alarm;
    std::string error;
    ASSERT_TRUE(DecodeAlarm(AlarmFrame(NSS_DEV_ALARM_REPORT_REQ, gateway + Pair(4, "d") + Pair(5, "")), alarm, error))
        << error;
    EXPECT_EQ(alarm.Text("iAlarmEventID"), "256");
    EXPECT_EQ(alarm.Action(), "ended");

    std::string cloud(4544, '\0');
    Put(cloud, 32, std::string("\x0B\xA6\x63\x12\0\0\0\0", 8));
    Put(cloud, 1064, "ALARM_GVX_LOG_RECORD_FAIL_ON");
    Put(cloud, 1388, "text");
    ASSERT_TRUE(DecodeAlarm(AlarmFrame(NSS_GVX_PLUGIN_ALARM_REPORT_REQ, cloud), alarm, error)) << error;
    EXPECT_EQ(alarm.Text("ulAlarmID"), std::to_string(0x1263A60B));
    EXPECT_EQ(alarm.Action(), "began");
    EXPECT_EQ(AlarmToJson(alarm)["fields"]["cAlarmDesc"].asString(), "text");
}

TEST(AlarmRecords, AnyCutAndALengthBeyondTheEndAreFaults) {
    const std::string whole = DeviceBody();
    Alarm alarm;
    std::string error;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(DecodeAlarm(AlarmFrame(NSS_ALARM_REPORT_REQ, whole.substr(0, length)), alarm, error)) << length;
    }
    std::string beyond = whole;
    Put(beyond, 274, std::string("\xFF\xFF\xFF\xFF", 4));
    EXPECT_FALSE(DecodeAlarm(AlarmFrame(NSS_ALARM_REPORT_REQ, beyond), alarm, error));
    EXPECT_NE(error.find("4294967295"), std::string::npos) << error;
    EXPECT_EQ(BodyText(AlarmFrame(NSS_ALARM_REPORT_REQ, beyond)).find("bad alarm"), 0u) << "a watch goes on";
}

}  // namespace
}  // namespace gvxctl
