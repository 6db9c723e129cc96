#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/config/cloud_config_mgr.h"
#include "gvx_common/config/gvx_config.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/config/unified_config_table.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "support/recording_logger.h"
#include "support/settings_folder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace {

// A start removes side files, so the tests work on a copy.
class ShippedConfiguration : public testing::Test {
protected:
    void SetUp() override {
        const std::filesystem::path shipped = SourceTree() / "conf";
        const auto recursive = std::filesystem::copy_options::recursive;
        std::filesystem::copy(shipped, m_folder.Path("conf"), recursive);
        std::filesystem::copy(shipped / "root", m_folder.Path("root"), recursive);
    }

    ScopedRecordingLogger m_log;
    SettingsFolder m_folder;
    const ScopedEnvironment m_shipped{"GVX_CONFIG_DIR", m_folder.Path("conf")};
    CGvxConfigMgr m_mgr;
};

TEST_F(ShippedConfiguration, LoadsWithoutAlarmOrComplaintAndStaysAsItIs) {
    CCloudConfigMgr::Instance()->SetCloudConfigInited(true);
    const std::size_t former = CEmergencyProtection::Instance()->GetHeldAlarms().size();
    const std::string before = m_folder.Read("conf/zvs_gvx.conf");
    ASSERT_EQ(0, m_mgr.Init()) << m_log->Dump();
    EXPECT_EQ(former, CEmergencyProtection::Instance()->GetHeldAlarms().size());
    EXPECT_EQ(0u, m_log->CountLevel(OM_LOG_ERR) + m_log->CountLevel(OM_LOG_WARNING)) << m_log->Dump();
    EXPECT_EQ("GVX#001", m_mgr.GetGvxNetElementID());
    EXPECT_EQ(before, m_folder.Read("conf/zvs_gvx.conf"));
    ZVS_ALARM_REPORT report{};
    std::string("ALARM_DISK_FULL").copy(report.cAlarmType, sizeof(report.cAlarmType) - 1);
    report.bAction = 1;
    EXPECT_EQ(0, m_mgr.BuildAlarmInfoForNVT(report, PU_eNVR));
    EXPECT_STREQ("ALARM_eNVR_DISK_FULL_ON", report.cAlarmType);
    EXPECT_STRNE("", report.cAlarmDesc);
    DEVICE_ABILITY_MAP abilities;
    EXPECT_EQ(0, m_mgr.LoadDeviceAbility(abilities));
    DEVICE_ABILITY dvr{};
    ASSERT_EQ(0, abilities.find("DVR", dvr));
    EXPECT_EQ(8, dvr.HardDiskNum);
}

TEST_F(ShippedConfiguration, HoldsWhatMayBeReadOrEditedInItsSection) {
    GVX_Config file(m_folder.Path("conf/zvs_gvx.conf").c_str());
    char value[128];
    for (const auto& row : gvx::g_omuUnifiedConfigRelationTable) {
        EXPECT_EQ(0, file.get(row.section, row.key, value, sizeof(value))) << row.section << " " << row.key;
    }
    ASSERT_EQ(0, m_mgr.Init());
    for (const char* key :
         {"ARTIFICIAL_VIDEO_ALARM_SWITCH", "DI_ALARM_SWITCH", "T28181_DIGEST_ALGORITHM", "GVX_MEDIA_SEND_TCP",
          "GVX_MEDIA_SEND_UDP", "TV_INIT_FORBID_RSA_SWITCH", "GB35114_KEYLABEL", "HTTPS_CHECK_HOST_NAME"}) {
        EXPECT_NE("absent", m_mgr.GetConfValue(key, "absent")) << key;
    }
    EXPECT_EQ(0, m_mgr.SetGVXConfigValue("SUBNET_NAT", "SUBNET_NAT_IP_LIST", "10.0.0.0/255.0.0.0")) << m_log->Dump();
    EXPECT_EQ(0, m_mgr.SetGVXConfigValue("LOG_CFG", "GVX_PLUGIN_DEBUG_LOG_SWITCH", "1")) << m_log->Dump();
    EXPECT_EQ(0, m_mgr.SetLocalIP("10.0.0.9")) << m_log->Dump();
    EXPECT_EQ(0, m_mgr.EditZvsGvxConfPort({{"GVX_LISTEN_PORT", std::uint16_t{9601}},
                                           {"GVX_SIP_SERVER_PORT", std::uint16_t{5081}},
                                           {"SCU_SIP_PORT", std::uint16_t{5061}},
                                           {"ONVIF_ALARM_LISTENER_PORT", std::uint16_t{8089}}}))
        << m_log->Dump();
}

// The comment above each key, as one line, by the key.
std::map<std::string, std::string> Comments(const std::string& conf) {
    std::map<std::string, std::string> comments;
    std::istringstream lines(conf);
    std::string comment;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        if (!line.empty() && line[0] == ';') {
            comment += line.substr(1);
            continue;
        }
        if (equals != std::string::npos) {
            comments[line.substr(0, equals)] = comment + " ";
        }
        comment.clear();
    }
    return comments;
}

// Every source of a room in one text.
std::string SourcesOf(const std::string& room) {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator(SourceTree() / "src" / room)) {
        if (entry.path().extension() == ".cpp") {
            std::ifstream file(entry.path());
            all.append(std::istreambuf_iterator<char>(file), {});
        }
    }
    return all;
}

TEST(SettingTable, AgreesWithTheFilesCommentsTheCodeAndThePage) {
    const std::filesystem::path tree = SourceTree();
    std::ifstream confFile(tree / "conf/zvs_gvx.conf");
    const std::map<std::string, std::string> comments =
        Comments({std::istreambuf_iterator<char>(confFile), std::istreambuf_iterator<char>()});
    std::size_t inFile = 0;
    for (const gvx::SettingRow& row : gvx::AllSettings()) {
        const std::string key = row.key;
        std::istringstream rooms(row.readers == nullptr ? "" : row.readers);
        for (std::string room; rooms >> room;) {
            const std::string code = SourcesOf(room);
            EXPECT_TRUE(code.find("Setting::" + key) != std::string::npos ||
                        code.find('"' + key + '"') != std::string::npos)
                << key << " is not read in " << room;
        }
        if (row.file != std::string("zvs_gvx.conf")) {
            continue;
        }
        ++inFile;
        ASSERT_EQ(1u, comments.count(key)) << key << " does not ship";
        const std::string& comment = comments.at(key);
        const auto says = [&comment](const std::string& words) { return comment.find(words) != std::string::npos; };
        const std::string fallback = row.fallback;
        const std::size_t stated = comment.find("Default " + fallback);
        EXPECT_TRUE(fallback.empty() ? says("No default") || says("Default empty")
                    : fallback.size() > 32
                        ? says("Default as below.")
                        : stated != std::string::npos &&
                              std::string(" .,;").find(comment[stated + 8 + fallback.size()]) != std::string::npos)
            << key << ": the default is [" << fallback << "], not as in:" << comment;
        EXPECT_EQ(row.readers == nullptr, says("Not read by gvxd.")) << key;
        if (row.rule.kind == gvx::SettingKind::Number && row.rule.most > 1) {
            EXPECT_TRUE(says(gvx::SettingValues(row))) << key << ": " << gvx::SettingValues(row);
        }
    }
    EXPECT_EQ(inFile, comments.size()) << "zvs_gvx.conf has a key that is not in the table";
    std::ifstream page(tree / "docs/settings.md");
    EXPECT_TRUE(gvx::SettingsPage() == std::string(std::istreambuf_iterator<char>(page), {}))
        << "docs/settings.md is not what gvxd --list-settings prints";
}

}  // namespace
