#include "base/zvs_error.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/utility/gvx_utility.h"
#include "support/settings_folder.h"

#include <gtest/gtest.h>

namespace {

std::string Cloud(const std::string& inited, const std::string& mode = "0") {
    return "<CloudConfig><inited>" + inited + "</inited><RunMode>" + mode + "</RunMode></CloudConfig>";
}
std::string Common(const std::string& inner) {
    return "<Content><IpConfig><IpConfigInfo>" + inner + "</IpConfigInfo></IpConfig></Content>";
}

class NetworkIdentityTest : public testing::Test {
protected:
    int Start() {
        m_folder.WriteConf("[MESSAGE]\nGVX_MESSAGE_IP=10.0.0.1\n[MEDIA]\nGVX_MEDIA_IP=10.0.0.2\n");
        return m_mgr.Init();
    }
    std::string Message() const { return m_mgr.GetConfValue("GVX_MESSAGE_IP", "absent"); }
    std::string Media() const { return m_mgr.GetConfValue("GVX_MEDIA_IP", "absent"); }

    SettingsFolder m_folder;
    CGvxConfigMgr m_mgr;
};

TEST_F(NetworkIdentityTest, UnitsAddressesOverrideTheFile) {
    m_folder.WriteRooted(
        GVXCONFIG_OMU_COMMON_CONFIG_PATH,
        Common("<SignalIpAddress>10.9.0.1</SignalIpAddress><MediaIpAddress>10.9.0.2</MediaIpAddress>"));
    ASSERT_EQ(0, Start());
    EXPECT_EQ("10.9.0.1", Message());
    EXPECT_EQ("10.9.0.1", m_mgr.GetLocalIP());
    EXPECT_EQ("10.9.0.2", Media());
    EXPECT_NE(std::string::npos, m_folder.Read("zvs_gvx.conf").find("GVX_MESSAGE_IP=10.9.0.1\n"));
    // Its faults leave the configured addresses.
    const std::pair<std::string, const char*> rows[] = {
        {"<broken", "10.0.0.2"},
        {Common("<MediaIpAddress>10.9.0.2</MediaIpAddress>"), "10.9.0.2"},
        {Common("<SignalIpAddress>10.0.0.1</SignalIpAddress>"), "10.0.0.2"},
        {Common("<SignalIpAddress>1.2.3</SignalIpAddress><MediaIpAddress>10.9.0.2</MediaIpAddress>"), "10.0.0.2"},
    };
    for (const auto& [content, media] : rows) {
        m_folder.WriteRooted(GVXCONFIG_OMU_COMMON_CONFIG_PATH, content);
        ASSERT_EQ(0, Start());
        EXPECT_EQ("10.0.0.1", Message()) << content;
        EXPECT_EQ(media, Media()) << content;
    }
    EXPECT_EQ(ZVS_IP_INVALID, m_mgr.SetGVXMediaIP("x"));
}

TEST_F(NetworkIdentityTest, EveryLocalIpOfNetXmlIsRewritten) {
    m_folder.Write(
        "net.xml",
        "<Net><LocalIP>a</LocalIP><NetElements><NetElement><Server><NetElementID>GVX#007</NetElementID>"
        "<LocalIP>b</LocalIP></Server></NetElement><NetElement><ClientList><Client><Deep><LocalIP>c"
        "</LocalIP></Deep></Client></ClientList></NetElement></NetElements><LocalIP/><Other>d</Other></Net>");
    EXPECT_EQ(0, m_mgr.SetLocalIP("10.1.2.3"));
    const std::string saved = m_folder.Read("net.xml");
    EXPECT_EQ(4u, CGvxUtility::split(saved, "<LocalIP>10.1.2.3<").size() - 1) << saved;
    EXPECT_NE(std::string::npos, saved.find("<Other>d</Other>"));
    EXPECT_EQ("10.1.2.3", m_mgr.GetLocalIP());
    EXPECT_EQ(1, m_mgr.SetLocalIP("10.1.2"));
    EXPECT_EQ(1, m_mgr.SetLocalIP(nullptr));
    m_folder.Write("net.xml", "<Net><LocalIP>a</LocalIP></Net>");
    EXPECT_EQ(1, m_mgr.SetLocalIP("10.1.2.4"));
    EXPECT_EQ("10.1.2.3", m_mgr.GetLocalIP());
}

TEST_F(NetworkIdentityTest, FileAloneIsEditedMediaFirst) {
    ASSERT_EQ(0, Start());
    const char* local = "10.5.0.1";
    const char* media = "10.5.0.2";
    EXPECT_EQ(0, m_mgr.EditZvsGvxConfIP(local, media));
    EXPECT_EQ("10.0.0.1", Message());
    EXPECT_NE(std::string::npos, m_folder.Read("zvs_gvx.conf")
                                     .find("GVX_MESSAGE_IP=10.5.0.1\n[MEDIA]\n"
                                           "GVX_MEDIA_IP=10.5.0.2\n"));
    m_folder.Write("zvs_gvx.conf", "[MEDIA]\nGVX_MEDIA_IP=1.1.1.1\n");
    EXPECT_EQ(1, m_mgr.EditZvsGvxConfIP(local, media));
    EXPECT_EQ("[MEDIA]\nGVX_MEDIA_IP=10.5.0.2\n", m_folder.Read("zvs_gvx.conf")) << "no undo";
    m_folder.Write("zvs_gvx.conf", "[GATEWAY]\nGVX_LISTEN_PORT=1\nMAX_CAPS=1\n");
    EXPECT_EQ(0, m_mgr.EditZvsGvxConfPort({{"GVX_LISTEN_PORT", std::uint16_t{9700}}}));
    EXPECT_EQ(1, m_mgr.EditZvsGvxConfPort({{"MAX_CAPS", std::uint16_t{2}}}));
    EXPECT_EQ("[GATEWAY]\nGVX_LISTEN_PORT=9700\nMAX_CAPS=1\n", m_folder.Read("zvs_gvx.conf"));
}

TEST_F(NetworkIdentityTest, NatListKeepsWhatStandsBeforeABadEntry) {
    std::string list = "10.0.0.0/255.0.0.0;192.168.0.0/255.255.0.0;";
    EXPECT_EQ(0, m_mgr.ParsePrivateIpList(list));
    EXPECT_EQ(2u, m_mgr.GetPrivateIpList().size());
    EXPECT_EQ("", list);
    list = "10.0.0.0/255.0.0.0;bad";
    EXPECT_EQ(1, m_mgr.ParsePrivateIpList(list));
    EXPECT_EQ(std::list<std::string>{"10.0.0.0/255.0.0.0"}, m_mgr.GetPrivateIpList());
    EXPECT_EQ("bad", list);
    for (const char* bad : {"", "/", "1.2.3.4", "1.2.3.4/", "/255.0.0.0", "1.2.3/255.0.0.0", "1.2.3.4/255.0.255.0",
                            "1.2.3.4/24", "1.2.3.4/255.0.0.0/8"}) {
        EXPECT_FALSE(m_mgr.CheckIpAvailable(bad)) << bad;
    }
    list = ";";
    EXPECT_EQ(1, m_mgr.ParsePrivateIpList(list)) << "an empty entry is a bad one";

    m_folder.Write("zvs_gvx_nat.conf", "SUBNET_NAT_IP_LIST = 10.0.0.0/255.0.0.0;11.0.0.0/255.0.0.0\n");
    ASSERT_EQ(0, Start());
    EXPECT_EQ(2u, m_mgr.GetPrivateIpList().size());
}

TEST_F(NetworkIdentityTest, RunModeAndNetworkModeChooseWhereToListen) {
    ASSERT_EQ(0, Start());
    EXPECT_EQ(0, m_mgr.GetRunMode());
    EXPECT_EQ("10.0.0.1", m_mgr.GetIPToLisetenWhenNoFloatIP());
    m_folder.WriteRooted(GVX_CLOUD_CONFIG_PATH, Cloud("true", "2"));
    m_mgr.LoadCloudConf();
    EXPECT_EQ(2, m_mgr.GetRunMode());
    const std::pair<const char*, int> modes[] = {
        {"standard", 1}, {"simplify", 2}, {"compatible", 3}, {"comp", 3},
        {"s", 1},        {"sim", 2},      {"other", 0},      {"standardx", 0},
    };
    for (const auto& [text, mode] : modes) {
        m_folder.Write("network.conf", std::string("NETWORK_MODE=") + text + "\n");
        EXPECT_EQ(mode, m_mgr.GetNetWorkMode()) << text;
        EXPECT_EQ(mode == 3 ? "10.0.0.1" : "", m_mgr.GetIPToLisetenWhenNoFloatIP()) << text;
    }
    m_folder.WriteRooted(GVX_CLOUD_CONFIG_PATH, "<CloudConfig/>");
    m_mgr.LoadCloudConf();
    EXPECT_EQ(0, m_mgr.GetRunMode());
}

}  // namespace
