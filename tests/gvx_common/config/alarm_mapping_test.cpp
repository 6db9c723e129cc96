#include "base/log.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "support/settings_folder.h"

#include <gtest/gtest.h>

namespace {

std::string Row(const std::string& content) {
    return "<AlarmInfo>" + content + "</AlarmInfo>";
}
std::string List(const std::string& rows) {
    return "<AlarmInfoList>" + rows + "</AlarmInfoList>";
}
std::string Description(const std::string& type, const std::string& mode, const std::string& text,
                        const std::string& ext = "") {
    return Row("<AlarmType>" + type + "</AlarmType><AlarmMode>" + mode + "</AlarmMode><AlarmDetailEn>" + text +
               "</AlarmDetailEn><ExtParam>" + ext + "</ExtParam>");
}

ZVS_ALARM_REPORT Report(const std::string& type, unsigned int action) {
    ZVS_ALARM_REPORT report{};
    type.copy(report.cAlarmType, sizeof(report.cAlarmType) - 1);
    report.bAction = action;
    return report;
}

class AlarmMappingTest : public testing::Test {
protected:
    ~AlarmMappingTest() override { CGvxConfigMgr::ClearAlarmMappings(m_map); }

    int LoadDescriptions(const std::string& xml) {
        m_folder.Write("d.xml", xml);
        return m_mgr.LoadAlarmDescriptionConfig(m_folder.Path("d.xml").c_str());
    }
    int LoadMappings(const std::string& xml) {
        m_folder.Write("m.xml", xml);
        return m_mgr.LoadAlarmMappingsConfig(m_folder.Path("m.xml").c_str(), m_map);
    }

    SettingsFolder m_folder;
    CGvxConfigMgr m_mgr;
    DEVICE_ALARM_INFO_MAPPINGS_MAP m_map;
};

TEST_F(AlarmMappingTest, TypeTakesFormAndDirection) {
    ASSERT_EQ(
        0, LoadDescriptions(List(
               Description("ALARM_SD_CARD_FAULT", "Device", "Card.", "x=1") +
               Description("ALARM_DISK_FAULT", "Device", "Disk.") + Description("ALARM_MOTION", "Business", "Motion.") +
               Description("ALARM_SHIELD", "Business", "Covered.") +
               Description("ALARM_DEVICE_REMOVE", "Device", "Gone.") + Description("PLAIN", "Device", "Plain."))));
    const std::tuple<const char*, _PU_DEV_FORM_TYPE, unsigned int, const char*, const char*> cases[] = {
        {"ALARM_DISK_FAULT", PU_IPC, 1, "ALARM_IPC_SD_CARD_FAULT_ON", "Card."},
        {"ALARM_DISK_FAULT", PU_EXT_SYS, 0, "ALARM_IPC_SD_CARD_FAULT_OFF", "Card."},
        {"ALARM_DISK_FAULT", PU_DVR, 0, "ALARM_DVR_DISK_FAULT_OFF", "Disk."},
        {"ALARM_MOTION", PU_DVR, 1, "ALARM_MOTION", "Motion."},
        {"ALARM_SHIELD", PU_eNVR, 1, "ALARM_eNVR_SHIELD_ON", "Covered."},
        {"ALARM_DEVICE_REMOVE", PU_DVS, 1, "ALARM_DEVICE_REMOVE", "Gone."},
        {"PLAIN", PU_DVS, 1, "PLAIN_ON", "Plain."},
    };
    for (const auto& [type, form, action, built, text] : cases) {
        ZVS_ALARM_REPORT report = Report(type, action);
        EXPECT_EQ(0, m_mgr.BuildAlarmInfoForNVT(report, form)) << type;
        EXPECT_STREQ(built, report.cAlarmType);
        EXPECT_STREQ(text, report.cAlarmDesc);
        EXPECT_EQ(1u, report.uiOccurNumber);
    }
    ZVS_ALARM_REPORT own = Report("ALARM_DISK_FAULT", 1);
    own.cExtParam[0] = 'o';
    EXPECT_EQ(0, m_mgr.BuildAlarmInfoForNVT(own, PU_IPC));
    EXPECT_STREQ("o", own.cExtParam);
    ZVS_ALARM_REPORT unknown = Report("ALARM_UNKNOWN", 1);
    EXPECT_EQ(1, m_mgr.BuildAlarmInfoForNVT(unknown, PU_IPC));
    EXPECT_STREQ("ALARM_UNKNOWN", unknown.cAlarmType);
}

TEST_F(AlarmMappingTest, ActionWordsMatchByPrefixForOneAndExactlyForTheOther) {
    ASSERT_EQ(0, LoadMappings(List(Row("<AlarmCode>door</AlarmCode><AlarmType>ALARM_DOOR</AlarmType>"
                                       "<AlarmDetailEn>A door.</AlarmDetailEn><ExtParam>e</ExtParam>"
                                       "<ACTION><ACTIVE>Opened</ACTIVE><INACTIVE>Closed</INACTIVE></ACTION>"))));
    const std::tuple<const char*, unsigned int, unsigned int> cases[] = {
        // 7 stands for untouched
        {"Opened", 1, 1}, {"opened", 1, 7}, {"op", 1, 7}, {"", 1, 7},      {"TRUE", 1, 7},
        {"t", 1, 7},      {"Closed", 0, 0}, {"f", 0, 7},  {"open!", 7, 7}, {"GVX_ALARM_ACTION_DEFAULT", 7, 7},
    };
    for (const auto& [action, matched, exact] : cases) {
        ZVS_ALARM_REPORT report = Report("", 7);
        EXPECT_EQ(0, m_mgr.MatchAlarmTypeAndAction("door", action, report, m_map));
        EXPECT_EQ(matched, report.bAction) << action;
        EXPECT_STREQ("ALARM_DOOR", report.cAlarmType);
        report = Report("", 7);
        EXPECT_EQ(0, m_mgr.BuildAlarmInfoForEAS("door", action, report, m_map));
        EXPECT_EQ(exact, report.bAction) << action;
        EXPECT_STREQ("A door.", report.cAlarmDesc);
        EXPECT_STREQ("e", report.cExtParam);
    }
    ZVS_ALARM_REPORT report{};
    EXPECT_EQ(1, m_mgr.MatchAlarmTypeAndAction("window", "t", report, m_map));
    EXPECT_EQ(1, m_mgr.BuildAlarmInfoForEAS("window", "t", report, m_map));
    m_map.bind("null", nullptr);
    EXPECT_EQ(1, m_mgr.MatchAlarmTypeAndAction("null", "t", report, m_map));
    EXPECT_EQ(ZVS_NULL_POINTER, m_mgr.BuildAlarmInfoForEAS("null", "t", report, m_map));
    m_map.unbind("null");
}

TEST_F(AlarmMappingTest, FaultyRowsEndTheLoadAndGoodOnesBeforeStay) {
    const long counted = g_bp_memstat;
    const std::string good = Row("<AlarmCode>a</AlarmCode><AlarmType>A</AlarmType>");
    EXPECT_EQ(1, LoadMappings(List(good + Row("<AlarmType>no code: that of the row before</AlarmType>") +
                                   Row("<AlarmCode>later</AlarmCode>"))));
    EXPECT_EQ(1u, m_map.current_size());
    EXPECT_EQ(counted + 1, g_bp_memstat);
    EXPECT_EQ(1, LoadMappings(List(Row("<AlarmCode>b</AlarmCode><AlarmSubDevType>12345678</AlarmSubDevType>"))));
    EXPECT_EQ(1, LoadMappings(List(
                     Row("<AlarmCode>b</AlarmCode><ACTION><ACTIVE>" + std::string(33, 'x') + "</ACTIVE></ACTION>"))));
    EXPECT_EQ(counted + 1, g_bp_memstat);
    EXPECT_EQ(0, LoadMappings(List(Row("<AlarmCode></AlarmCode><AlarmType>B</AlarmType>") +
                                   Row("<AlarmCode>b</AlarmCode><AlarmType>B</AlarmType>"))));
    EXPECT_EQ(2u, m_map.current_size()) << "a row with an empty code is passed over";
    EXPECT_EQ(0, LoadDescriptions(List(Row("<AlarmType>D</AlarmType><AlarmSubDevType>12345678</AlarmSubDevType>"))));
    EXPECT_EQ(1, LoadDescriptions(List(Row("<AlarmType>D</AlarmType>"))));
    EXPECT_EQ(1, LoadDescriptions(List(Row("<AlarmType>" + std::string(65, 'x') + "</AlarmType>"))));
    m_mgr.ClearAlarmInfoDesccription();
    CGvxConfigMgr::ClearAlarmMappings(m_map);
    EXPECT_EQ(counted, g_bp_memstat);
    EXPECT_EQ(ZVS_NULL_POINTER, m_mgr.LoadAlarmDescriptionConfig(nullptr));
    EXPECT_EQ(ZVS_NULL_POINTER, m_mgr.LoadAlarmMappingsConfig(nullptr, m_map));
    // Files of another structure are refused and raise the alarm.
    for (const std::string& xml : {std::string("<broken"), std::string("<Other/>"), std::string("<AlarmInfoList/>"),
                                   List("<Other/>"), List("<AlarmInfo/>")}) {
        EXPECT_EQ(1, LoadMappings(xml)) << xml;
        EXPECT_EQ(1, LoadDescriptions(xml)) << xml;
    }
    EXPECT_EQ(0, CEmergencyProtection::Instance()->IsAlarmStatusItemExist(ALARM_GVX_CONFIG_READ_FAIL, ""));
}

}  // namespace
