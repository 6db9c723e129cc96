#include "gvx_common/config/gvx_config_mgr.h"

#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/config/cloud_config_mgr.h"
#include "support/recording_logger.h"
#include "support/settings_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

class ConfigMgrTest : public testing::Test {
protected:
    void SetUp() override { CCloudConfigMgr::Instance()->SetCloudConfigInited(true); }
    void TearDown() override { CCloudConfigMgr::Instance()->SetCloudConfigInited(false); }
    // The alarms about this test's files, the illegal values last: they wait for OMU.
    std::vector<gvx::HeldAlarm> Alarms() const {
        std::vector<gvx::HeldAlarm> all = CEmergencyProtection::Instance()->GetHeldAlarms();
        all.erase(std::remove_if(all.begin(), all.end(),
                                 [this](const gvx::HeldAlarm& alarm) {
                                     return alarm.location.find(m_folder.Path()) == std::string::npos;
                                 }),
                  all.end());
        return all;
    }
    int InitWith(const std::string& settings) {
        m_folder.WriteConf(settings);
        return m_mgr.Init();
    }
    std::string Value(const std::string& key) const { return m_mgr.GetConfValue(key, "absent"); }

    SettingsFolder m_folder;
    CGvxConfigMgr m_mgr;
};

TEST_F(ConfigMgrTest, ReadsSettingsByItsOwnRules) {
    ASSERT_EQ(0, InitWith("[S]\nMAX_CAPS=64 ; limit\r\n\t a b \t=  x = y \t\r\nempty=\nNODE_CODE=\n"
                          "two=first\ntwo=second\n[head=er]\n;off=1\nno equals\nlast=end"));
    EXPECT_EQ("64", Value("MAX_CAPS"));
    EXPECT_EQ("x = y", Value("a b"));
    EXPECT_EQ("", Value("empty"));
    EXPECT_EQ("first", Value("two"));
    EXPECT_EQ("er]", Value("[head"));
    EXPECT_EQ("absent", Value("off"));
    EXPECT_EQ("end", Value("last"));
    EXPECT_EQ(7u, m_mgr.GetMapCfgKeyValue().size());
    EXPECT_TRUE(Alarms().empty());
    EXPECT_FALSE(m_mgr.HasConfigError());
    EXPECT_TRUE(m_mgr.GetBoolConfValue("empty", false));
    EXPECT_FALSE(m_mgr.GetBoolConfValue("none", false));
    // The first byte of the file is consumed.
    m_folder.Write("zvs_gvx.conf", "GVX_MEDIA_IP=1.2.3.4\nk=v\n");
    ASSERT_EQ(0, m_mgr.Init());
    EXPECT_EQ("1.2.3.4", Value("VX_MEDIA_IP"));
    EXPECT_EQ("v", Value("k"));
    for (const std::string& odd : {"long=" + std::string(20000, 'x') + "\n", std::string(5000, 'k') + "=1\n",
                                   std::string("\x01\xff\0=\0\n", 6)}) {
        ASSERT_EQ(0, InitWith(odd + "k=v\nlast=end"));
        EXPECT_EQ("v", Value("k"));
        EXPECT_EQ("end", Value("last"));
    }
}

TEST_F(ConfigMgrTest, IllegalValueRaisesAnAlarmAndStaysInForce) {
    ASSERT_EQ(0, InitWith("MAX_CAPS=500\nLogLevel=abc\nGVX_MESSAGE_IP=01.2.3.4\nMAX_CAPS=0\n"
                          "GVX_SDK_SYNC_TIME_INTERVAL=100\n"));
    const std::string where = "Location=" + m_folder.Path("zvs_gvx.conf") + ",ParaName=";
    const std::vector<gvx::HeldAlarm> alarms = Alarms();
    const std::pair<const char*, const char*> expected[] = {
        {"MAX_CAPS", "CurrentValue=500,DefaultValue=128"},
        {"LogLevel", "CurrentValue=abc,DefaultValue="},
        {"GVX_MESSAGE_IP", "CurrentValue=01.2.3.4,DefaultValue=01.2.3.4"},
        {"MAX_CAPS", "CurrentValue=0,DefaultValue=128"},
        {"GVX_SDK_SYNC_TIME_INTERVAL", "CurrentValue=100,DefaultValue=3600"},
    };
    ASSERT_EQ(std::size(expected), alarms.size());
    for (std::size_t i = 0; i < alarms.size(); ++i) {
        EXPECT_EQ("ALARM_GVX_CONFIG_READ_FAIL12", alarms[i].type + alarms[i].inType);
        EXPECT_EQ(where + expected[i].first, alarms[i].location);
        EXPECT_EQ(expected[i].second, alarms[i].description);
    }
    EXPECT_EQ("500", Value("MAX_CAPS"));
    EXPECT_EQ("01.2.3.4", m_mgr.GetLocalIP());
    EXPECT_EQ("100", Value("GVX_SDK_SYNC_TIME_INTERVAL"));
    EXPECT_EQ(3600u, m_mgr.GetSdkSyncTimeInterval());
    EXPECT_TRUE(m_mgr.HasConfigError());
    EXPECT_EQ("GVX_SDK_SYNC_TIME_INTERVAL", m_mgr.GetErrorConfigName());
}

TEST_F(ConfigMgrTest, NumbersAreClamped) {
    ASSERT_EQ(0, InitWith("low=-1\nmid=7200\nhigh=86401\nempty=\nGVX_SDK_SYNC_TIME_SWITCH=1\n"
                          "GVX_SDK_SYNC_TIME_INTERVAL=86401\n"));
    EXPECT_EQ(86400u, m_mgr.GetSdkSyncTimeInterval());
    EXPECT_EQ(1u, m_mgr.GetSdkSyncTimeSwitch());
    for (const auto& [key, number] :
         {std::pair<const char*, int>{"low", 3600}, {"mid", 7200}, {"high", 86400}, {"empty", 3600}, {"none", 5000}}) {
        EXPECT_EQ(number, m_mgr.GetConfNumber(key, 5000, 3600, 86400)) << key;
    }
    EXPECT_EQ(-1, m_mgr.GetConfNumber("low", 0));
}

TEST_F(ConfigMgrTest, MainFileMissingEmptyOrZeroFails) {
    std::filesystem::remove(m_folder.Path("zvs_gvx.conf"));
    EXPECT_EQ(1, m_mgr.Init());
    m_folder.Write("zvs_gvx.conf", "");
    EXPECT_EQ(1, m_mgr.Init());
    ASSERT_EQ(2u, Alarms().size());
    EXPECT_EQ("Location=" + m_folder.Path("zvs_gvx.conf") + ",ParaName=###", Alarms()[0].location);
    EXPECT_EQ("", Alarms()[1].description);
    m_folder.Write("zvs_gvx.conf", std::string("\0k=v\n", 5));
    EXPECT_EQ(1, m_mgr.Init());
    EXPECT_EQ(2u, Alarms().size());
}

TEST_F(ConfigMgrTest, AMissingPartFailsTheStart) {
    const ScopedEnvironment none("GVX_CONFIG_DIR", m_folder.Path("none"));
    EXPECT_EQ(1, m_mgr.Init());
    const ScopedEnvironment folder("GVX_CONFIG_DIR", m_folder.Path());
    std::filesystem::remove(m_folder.Path("zvs_gvx_nat.conf"));
    EXPECT_EQ(1, InitWith("k=v\n"));
    ASSERT_EQ(1u, Alarms().size());
    EXPECT_EQ("Location=" + m_folder.Path("zvs_gvx_nat.conf"), Alarms()[0].location);
    std::filesystem::remove(m_folder.Path("alarm/gvx_nvt_alarm_description.xml"));
    EXPECT_EQ(1, m_mgr.Init());
    EXPECT_EQ("absent", Value("k")) << "before any setting is read";
}

TEST_F(ConfigMgrTest, SecondInitRebuildsAndAStaleSideFileIsDeletedUnread) {
    ASSERT_EQ(0, InitWith("a=1\nGVX_MESSAGE_IP=10.1.1.1\n"));
    const std::string& former = m_mgr.GetLocalIP();
    m_folder.Write("zvs_gvx.conf.bak", "; x\nb=from side file\n");
    m_folder.Write("log.xml.bak", "<Log>");
    ASSERT_EQ(0, InitWith("b=2\n"));
    EXPECT_FALSE(std::filesystem::exists(m_folder.Path("zvs_gvx.conf.bak")));
    EXPECT_FALSE(std::filesystem::exists(m_folder.Path("log.xml.bak")));
    EXPECT_EQ("absent", Value("a"));
    EXPECT_EQ("2", Value("b"));
    EXPECT_EQ("127.0.0.1", m_mgr.GetLocalIP());
    EXPECT_EQ("10.1.1.1", former);
}

TEST_F(ConfigMgrTest, AReloadActsLiveWaitsForARestartOrChangesNothing) {
    ASSERT_EQ(0, InitWith("GVX_MESSAGE_IP=10.1.1.1\nMAX_CAPS=64\nMAX_DEVICE_NUM=5\nhere=1\n"));
    const ScopedRecordingLogger logger;
    m_folder.WriteConf("GVX_MESSAGE_IP=10.2.2.2\nMAX_DEVICE_NUM=6\nGVX_LISTEN_PORT=1\n");
    m_folder.Write("zvs_gvx_nat.conf", "SUBNET_NAT_IP_LIST=10.0.0.0/255.0.0.0;\n");
    m_folder.Write("net.xml", SettingsFolder::NetXml("GVX#008"));
    for (int time = 0; time < 2; ++time) {
        ASSERT_EQ(0, m_mgr.Reload());
        EXPECT_EQ("10.2.2.2", m_mgr.GetLocalIP());
        EXPECT_EQ("absent absent 5", Value("MAX_CAPS") + " " + Value("here") + " " + Value("MAX_DEVICE_NUM"));
        EXPECT_EQ(1u, m_mgr.GetPrivateIpList().size());
        EXPECT_EQ("GVX#007", m_mgr.GetGvxNetElementID());
    }
    EXPECT_EQ(1u, logger->Count("act with the next start: GVX_LISTEN_PORT, MAX_DEVICE_NUM, NetElementID of net.xml"));
    const std::string good = "GVX_MESSAGE_IP=10.3.3.3\n";
    const auto spoil = [this, &good](const std::string& conf, const std::string& nat, const std::string& net) {
        m_folder.WriteConf(good + conf);
        m_folder.Write("zvs_gvx_nat.conf", nat);
        m_folder.Write("net.xml", net);
        EXPECT_EQ(1, m_mgr.Reload());
        EXPECT_EQ("10.2.2.2", m_mgr.GetLocalIP());
        EXPECT_EQ(1u, m_mgr.GetPrivateIpList().size());
    };
    const std::string net = SettingsFolder::NetXml("GVX#007");
    spoil("MAX_CAPS=lots\n", "", net);
    EXPECT_EQ(1u, logger->Count("zvs_gvx.conf:3: MAX_CAPS=[lots] can not be used, allowed: 1 to 300"));
    spoil("", "\nSUBNET_NAT_IP_LIST=11.0.0.0/255.0.0.0;12/8\n", net);
    EXPECT_EQ(1u, logger->Count("zvs_gvx_nat.conf:2: [12/8] is no <ip>/<mask>"));
    spoil("", "", "<Net>");
    m_folder.WriteRooted(GVXCONFIG_OMU_COMMON_CONFIG_PATH,
                         "<Content><IpConfig><IpConfigInfo>\n<SignalIpAddress>10.4.4</SignalIpAddress></IpConfigInfo>"
                         "</IpConfig></Content>");
    spoil("", "", net);
    EXPECT_EQ(1u, logger->Count("common.xml:2: [10.4.4] is no IPv4 address"));
    m_folder.WriteRooted(GVXCONFIG_OMU_COMMON_CONFIG_PATH, "<Content/>");
    m_folder.WriteRooted(GVX_CLOUD_CONFIG_PATH, "<CloudConfig>\n<inited>");
    spoil("", "", net);
    EXPECT_EQ(1u, logger->Count("cloudconfig.xml:2: "));
    std::filesystem::remove(m_folder.Path("root") + GVX_CLOUD_CONFIG_PATH);
    m_folder.Write("zvs_gvx.conf", "; \n{\n");
    EXPECT_EQ(1, m_mgr.Reload());
    EXPECT_EQ(1u, logger->Count("zvs_gvx.conf: not one setting that is known stands in it"));
    EXPECT_EQ(6u, m_mgr.CountRefusedReloads());
    EXPECT_EQ(2u, m_mgr.CountReloads());
}

TEST_F(ConfigMgrTest, ElementIdComesFromServerThenClient) {
    ASSERT_EQ(0, m_mgr.LoadLocalIPFromXml());
    EXPECT_EQ("GVX#007", m_mgr.GetGvxNetElementID());
    m_folder.Write("net.xml",
                   "<Net><NetElements><NetElement><ClientList><Client><NetElementID>GVX#008</NetElementID></Client>"
                   "</ClientList></NetElement></NetElements></Net>");
    ASSERT_EQ(0, m_mgr.LoadLocalIPFromXml());
    EXPECT_EQ("GVX#008", m_mgr.GetGvxNetElementID());
    m_folder.Write("net.xml", "<Net/>");
    EXPECT_EQ(1, m_mgr.LoadLocalIPFromXml());
    EXPECT_EQ("GVX#008", m_mgr.GetGvxNetElementID());
}

// A process in which no configuration alarm is open yet: the test's own program, begun anew.
TEST_F(ConfigMgrTest, BadNetXmlRaisesOneAlarmAndDoesNotStopInit) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto raisesOnce = [this] {
        m_folder.Write("net.xml", SettingsFolder::NetXml(""));
        if (InitWith("k=v\n") != 0 || m_mgr.GetGvxNetElementID() != "GVX#001" || Alarms().size() != 1 ||
            Alarms()[0].location != "Location=" + m_folder.Path("net.xml") + ",ParaName=NetElementID" ||
            Alarms()[0].description != "CurrentValue=,DefaultValue=GVX#001") {
            return false;
        }
        m_folder.Write("net.xml", "<Net><broken>");
        return m_mgr.Init() == 0 && Alarms().size() == 1;
    };
    const auto runAndClean = [&] {
        const bool good = raisesOnce();
        std::filesystem::remove_all(m_folder.Path(""));  // the end of a process destroys no local object
        std::exit(good ? 0 : 1);
    };
    EXPECT_EXIT(runAndClean(), testing::ExitedWithCode(0), "");
}

TEST(ConfigRules, OfTheFileAndOfEdits) {
    using Values = std::vector<const char*>;
    struct Row {
        const char* key;
        const char* offered;  // instead of an illegal one; null: the value itself
        Values legal;
        Values fileOnly;
        Values illegal;
    };
    const Row rows[] = {
        {"no such key", nullptr, {}, {"anything"}, {}},
        {"GVX_MEDIA_IP", nullptr, {"1.2.3.4"}, {}, {"", "1.2.3", "01.2.3.4"}},
        {"CONGWEN_LIMIT", "", {}, {"", "7"}, {"-1"}},
        {"SIP_QUEUE_SIZE", "", {"1000", "65535"}, {"1", "65536"}, {"x"}},
        {"MAX_CAPS", "128", {"1", "150"}, {"151", "300"}, {"0", "301", "x"}},
        {"BAND_WIDTH", "256", {"100", "300"}, {"301", "600"}, {"99", "601"}},
        {"GVX_SIP_SERVER_PORT", "5080", {"1", "65535"}, {}, {"0", "65536", "99999999999999999999"}},
        {"ALARM_KEEP_TIME", "1800", {"60", "3600"}, {}, {"59", "3601"}},
        {"GVX_SDK_SYNC_TIME_INTERVAL", "3600", {"3600", "86400"}, {}, {"3599", "86401"}},
        {"GB35114_DATE_INTERNAL", "600", {"5", "3600"}, {}, {"4", "3601"}},
        {"SUPPORT_AREA_TYPE", "0", {"", "0", "3"}, {}, {"-1", "4"}},
        {"T28181_VIDEO_FORMAT_ABILITY", "0", {"0", "2", "5"}, {}, {"1", "3", "6"}},
        {"IS_SUPPORT_VSP", "0", {"0", "1"}, {}, {"2", "-1"}},
        {"EXTSYSTEM_BOSCH_ENABLE", "0", {}, {"0", "1"}, {"", "2", "00"}},
        {"T28181_DIGEST_ALGORITHM", nullptr, {""}, {}, {}},
        {"GB35114_SECURITY_LEVEL", nullptr, {"A", "C"}, {}, {"D", "AB", ""}},
        {"GB35114_KEYLABEL", nullptr, {"abc", "ab3"}, {}, {"ab", "a_c"}},
        {"GVX_SIP_SERVER_ID", nullptr, {"12345678901234567890"}, {}, {"1234567890123456789", "x2345678901234567890"}},
    };
    const auto check = [](const Row& row, const Values& values, bool inFile, bool asEdit) {
        for (const char* value : values) {
            std::string checked = value;
            EXPECT_EQ(inFile, GvxConfigMgr()->CheckConfValue(row.key, checked)) << row.key << "=" << value;
            EXPECT_EQ(inFile || row.offered == nullptr ? value : row.offered, checked) << row.key;
            CONFIG_INFO edit{};
            std::string(row.key).copy(edit.chConfigName, sizeof(edit.chConfigName) - 1);
            std::string(value).copy(edit.chConfigValue, sizeof(edit.chConfigValue) - 1);
            EXPECT_EQ(asEdit, GvxConfigMgr()->CheckSetValue(edit)) << row.key << "=" << value;
        }
    };
    for (const Row& row : rows) {
        check(row, row.legal, true, true);
        check(row, row.fileOnly, true, false);
        check(row, row.illegal, false, false);
    }
}

}  // namespace
