#include "gvx_common/alarm/emergency_protection.h"

#include "support/recording_logger.h"

#include <thread>

#include <gtest/gtest.h>

namespace {

TEST(EmergencyProtection, ConfigAlarmIsLoggedHeldAndRemembered) {
    ScopedRecordingLogger log;
    CEmergencyProtection alarms;
    alarms.OnConfigReadAlarm("Location=/etc/x,ParaName=###", "why");
    ASSERT_EQ(1u, log->CountLevel(OM_LOG_ERR));
    EXPECT_TRUE(log->Contains("Location=/etc/x,ParaName=###, description[why]", "Configuration alarm"));
    EXPECT_TRUE(log->Contains("Congfig file alarm Location=/etc/x,ParaName=###"));
    ASSERT_EQ(1u, alarms.GetHeldAlarms().size());
    EXPECT_EQ("12", alarms.GetHeldAlarms()[0].inType);
    EXPECT_EQ(0, alarms.IsAlarmStatusItemExist(ALARM_GVX_CONFIG_READ_FAIL, "Location=/etc/x,ParaName=###"));
    EXPECT_EQ(1, alarms.IsAlarmStatusItemExist(ALARM_GVX_CONFIG_READ_FAIL, ""));
}

TEST(EmergencyProtection, TextsThatDoNotFitAreDroppedWithTheirMessage) {
    ScopedRecordingLogger log;
    CEmergencyProtection alarms;
    const std::string full(255, 'x');
    EXPECT_EQ(0, alarms.CachePluginAlarm(std::string(63, 't'), "123", full, full));
    EXPECT_EQ(0, alarms.CachePluginAlarm("t", "1", "l", ""));
    EXPECT_EQ(2, alarms.CachePluginAlarm("t", "1", "", "d"));
    EXPECT_EQ(1, alarms.CachePluginAlarm(std::string(64, 't'), "1", "l", "d"));
    EXPECT_EQ(1, alarms.CachePluginAlarm("t", "1234", "l", "d"));
    EXPECT_EQ(1, alarms.CachePluginAlarm("t", "1", full + "x", "d"));
    EXPECT_EQ(1, alarms.CachePluginAlarm("t", "1", "l", full + "x"));
    for (const char* message : {"alarmType snprintf failed", "alarmInType snprintf failed",
                                "localInfo strncpy_s failed", "] snprintf failed"}) {
        EXPECT_EQ(1u, log->Count(message)) << message;
    }
    EXPECT_EQ(2u, alarms.GetHeldAlarms().size());
    EXPECT_EQ(1, alarms.AddAlarmStatusItem("1234567890", "x"));
    EXPECT_EQ(1, alarms.AddAlarmStatusItem("1", full + "x"));
    EXPECT_EQ(1, alarms.IsAlarmStatusItemExist("1", full + "x"));
}

TEST(EmergencyProtection, FlowControlIsSentEachTimeAndStaysRemembered) {
    ScopedRecordingLogger log;
    CEmergencyProtection alarms;
    alarms.OnFluxControlWarn("ONVIF", "events", "queue full");
    alarms.OnFluxControlResume("ONVIF", "events", "queue full");
    const auto held = alarms.GetHeldAlarms();
    ASSERT_EQ(2u, held.size());
    const std::string raised = "Protocal=ONVIF,Msg Queue=events,FlowControlCode=[queue full]";
    EXPECT_EQ("ALARM_GVX_FLOW_CONTROL_ERROR_ON", held[0].type);
    EXPECT_EQ(raised, held[0].location);
    EXPECT_EQ("ALARM_GVX_FLOW_CONTROL_ERROR_OFF", held[1].type);
    EXPECT_EQ("Protocal=ONVIF,MsgQueue=events,FlowControlCode=[queue full]", held[1].description);
    EXPECT_EQ(0, alarms.IsAlarmStatusItemExist(ALARM_GVX_FLOW_CONTROL, raised));
    EXPECT_EQ(2, alarms.DelAlarmStatusItem(ALARM_GVX_FLOW_CONTROL, ""));
    EXPECT_EQ(0, alarms.DelAlarmStatusItem(ALARM_GVX_FLOW_CONTROL, raised));
    EXPECT_EQ(1, alarms.IsAlarmStatusItemExist(ALARM_GVX_FLOW_CONTROL, raised));
}

TEST(EmergencyProtection, KeepsOrderOfEachThread) {
    CEmergencyProtection alarms;
    constexpr int kPerThread = 200;
    std::vector<std::thread> threads;
    for (const char* name : {"a", "b", "c", "d"}) {
        threads.emplace_back([&alarms, name] {
            for (int i = 0; i < kPerThread; ++i) {
                alarms.SetGvxBPAlarmRepMsg(name, GVX_ALARM_DEV_TYPE, std::to_string(i), "", false);
                alarms.AddAlarmStatusItem(name, std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::map<std::string, int> next;
    for (const gvx::HeldAlarm& alarm : alarms.GetHeldAlarms()) {
        EXPECT_EQ(std::to_string(next[alarm.type]++), alarm.location);
    }
    EXPECT_EQ(kPerThread, next["d"]);
    EXPECT_EQ(0, alarms.IsAlarmStatusItemExist("c", "199"));
}

}  // namespace
