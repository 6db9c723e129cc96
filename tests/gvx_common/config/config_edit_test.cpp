#include "base/cbb_xml.h"
#include "base/log_sftp_conf.h"
#include "base/zvs_error.h"
#include "bp/service.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "nss/nss_msg.h"
#include "support/recording_logger.h"
#include "support/settings_folder.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include <sys/stat.h>

namespace {

// Plug-ins of some protocols, whose switches are recorded.
class FakeRegistry : public BP::IPluginRegistry {
public:
    FakeRegistry() { BP::CPluginMgr::SetImplementation(this); }
    ~FakeRegistry() override { BP::CPluginMgr::SetImplementation(nullptr); }

    int RegisterPlugin() override { return 0; }
    bool FindPlugin(const std::string&, BP::CPluginInfo&) override { return false; }
    bool InstallPlugin(int protocol, BP::CPluginInfo& info) override {
        if (protocol == missing) {
            return false;
        }
        info.m_sdkLogSwitch = [this, protocol](std::uint32_t on) { return Note("sdk", protocol, on); };
        info.m_sipStackLogSwitch = [this, protocol](std::uint32_t on) { return Note("sip", protocol, on); };
        return true;
    }
    int SendRebootPluginMsg() override {
        calls += "reboot ";
        return 0;
    }

    int missing = 0;
    int refused = 0;
    std::string calls;
    std::function<void()> meanwhile = [] {};  // in the next switch

private:
    int Note(const char* what, int protocol, std::uint32_t on) {
        std::exchange(meanwhile, [] {})();
        calls += std::string(what) + std::to_string(protocol) + "=" + std::to_string(on) + " ";
        return protocol == refused ? 1 : 0;
    }
};

class ConfigEditTest : public testing::Test {
protected:
    void SetUp() override {
        m_folder.Write("zvs_gvx.conf", kSettings);
        m_folder.Write("log.xml", "<Log><DebugLog><DebugLogSwitch>False</DebugLogSwitch></DebugLog></Log>");
        ASSERT_EQ(0, m_mgr.Init());
    }
    int Edit(const std::string& section, const std::string& key, const std::string& value) {
        CONFIG_INFO info{};
        key.copy(info.chConfigName, sizeof(info.chConfigName) - 1);
        section.copy(info.chConfigType, sizeof(info.chConfigType) - 1);
        value.copy(info.chConfigValue, sizeof(info.chConfigValue) - 1);
        return m_mgr.SetGvxConfigEdit(info);
    }
    std::string Document(const char* type) {
        CBB::CXml xml;
        EXPECT_EQ(0, m_mgr.GetGvxConfig(xml, type));
        return xml.ToString();
    }
    using Setter = int (CGvxConfigMgr::*)(ACE_Message_Block*);
    int SendFrame(const std::string& body, Setter setter = &CGvxConfigMgr::SetEditConfigFromFrame,
                  unsigned short tag = NSS_TAG_JSON_CONTENT) {
        CNssMsgBody message(0x0BD0, 1, "t", 0, 0, tag);
        message.SetValue(body.c_str(), static_cast<unsigned int>(body.size()));
        ACE_Message_Block block;
        EXPECT_EQ(0, message.encode(&block));
        return (m_mgr.*setter)(&block);
    }
    std::string Value(const std::string& key) const { return m_mgr.GetConfValue(key, "absent"); }

    static constexpr const char* kSettings =
        "; settings\n[SERVICE_CAPACITY]\nMAX_CAPS=128\n[SIF_CFG]\nGVX_SIP_LOG_SWITCH=0\n"
        "[TIME_SYNCHRONIZATION]\nGVX_SDK_SYNC_TIME_SWITCH=0\nGVX_SDK_SYNC_TIME_INTERVAL=3600\n"
        "[SECURITY_CFG]\nTV_INIT_FORBID_RSA_SWITCH=0\nDEVICE_VSP_ENABLE=0\n[LOG_CFG]\nGVX_HIKSDK_LOG_SWITCH=0\n"
        "[MESSAGE]\nGVX_MESSAGE_IP=10.0.0.1\n";

    ScopedRecordingLogger m_log;
    SettingsFolder m_folder;
    CGvxConfigMgr m_mgr;
    FakeRegistry m_plugins;
};

TEST_F(ConfigEditTest, AnEditReachesFileAndReadersOrChangesNothing) {
    const char* refused[][3] = {{"SERVICE_CAPACITY", "MAX_CAPS", "200"},
                                {"SECURITY_CFG", "DEVICE_VSP_ENABLE", "1"},
                                {"SIF_CFG", "SIP_QUEUE_SIZE", "1000"},  // not in the file
                                {"SIF_CFG", "MAX_CAPS", "100"},         // not in that section
                                {"MESSAGE", "GVX_MESSAGE_IP", "1.2.3"}};
    for (const auto& [section, key, value] : refused) {
        EXPECT_EQ(1, Edit(section, key, value)) << key;
    }
    // A value that is there already does not touch the file either, wherever it is said to stand.
    const auto before = std::filesystem::last_write_time(m_folder.Path("zvs_gvx.conf"));
    EXPECT_EQ(0, Edit("WRONG", "MAX_CAPS", "128"));
    EXPECT_EQ(before, std::filesystem::last_write_time(m_folder.Path("zvs_gvx.conf")));
    EXPECT_EQ(kSettings, m_folder.Read("zvs_gvx.conf"));
    EXPECT_EQ("128", Value("MAX_CAPS"));
    EXPECT_EQ(0, Edit("SERVICE_CAPACITY", "MAX_CAPS", "150"));
    EXPECT_EQ("150", Value("MAX_CAPS"));
    EXPECT_NE(std::string::npos, m_folder.Read("zvs_gvx.conf").find("; settings\n[SERVICE_CAPACITY]\nMAX_CAPS=150\n"));
    CGvxConfigMgr restarted;
    ASSERT_EQ(0, restarted.Init());
    EXPECT_EQ("150", restarted.GetConfValue("MAX_CAPS", ""));
}

TEST_F(ConfigEditTest, RunningComponentIsSwitchedFirstAndAPluginsFaultIsAnswered) {
    EXPECT_EQ(1, Edit("WRONG", "GVX_SDK_SYNC_TIME_INTERVAL", "7200"));
    EXPECT_EQ(7200u, m_mgr.GetSdkSyncTimeInterval());
    EXPECT_EQ("3600", Value("GVX_SDK_SYNC_TIME_INTERVAL"));
    EXPECT_EQ(0, Edit("TIME_SYNCHRONIZATION", "GVX_SDK_SYNC_TIME_SWITCH", "1"));
    EXPECT_EQ(1u, m_mgr.GetSdkSyncTimeSwitch());

    EXPECT_EQ(0, Edit("SIF_CFG", "GVX_SIP_LOG_SWITCH", "1"));
    EXPECT_EQ("sip2=1 sip4=1 ", m_plugins.calls);
    EXPECT_EQ("0", Value("GVX_SIP_LOG_SWITCH"));
    EXPECT_EQ(std::string::npos, m_folder.Read("zvs_gvx.conf").find("GVX_SIP_LOG_SWITCH=1"));
    EXPECT_EQ(std::string::npos, Document("SIF_CFG").find("<ConfigValue>1"));
    m_plugins.calls.clear();
    EXPECT_EQ(0, Edit("SECURITY_CFG", "TV_INIT_FORBID_RSA_SWITCH", "0"));
    EXPECT_EQ("", m_plugins.calls);
    EXPECT_EQ(0, Edit("SECURITY_CFG", "TV_INIT_FORBID_RSA_SWITCH", "1"));
    EXPECT_EQ("reboot ", m_plugins.calls);

    m_plugins.missing = BP::DEV_PROTOCOL_TYPE_TEYES;
    EXPECT_EQ(1, Edit("", "GVX_SIP_LOG_SWITCH", "1"));
    m_plugins.missing = 0;
    m_plugins.refused = BP::DEV_PROTOCOL_TYPE_TEYES;
    EXPECT_EQ(1, Edit("", "GVX_SIP_LOG_SWITCH", "0"));
    m_plugins.refused = BP::DEV_PROTOCOL_TYPE_HIKSDK;
    EXPECT_EQ(0, Edit("LOG_CFG", "GVX_HIKSDK_LOG_SWITCH", "1")) << "the file follows whatever the plug-in says";
    EXPECT_EQ("1", Value("GVX_HIKSDK_LOG_SWITCH"));
}

TEST_F(ConfigEditTest, APluginThatHoldsAnEditHoldsUpNoReloadAndNoOtherEdit) {
    m_plugins.meanwhile = [this] {
        m_folder.WriteConf(
            "[SERVICE_CAPACITY]\nMAX_CAPS=99\n[SIF_CFG]\nGVX_SIP_LOG_SWITCH=1\n[LOG_CFG]\n"
            "GVX_HIKSDK_LOG_SWITCH=0\n");
        std::thread([this] {
            EXPECT_EQ(0, m_mgr.Reload());
            EXPECT_EQ("99", Value("MAX_CAPS"));
            EXPECT_EQ(0, Edit("SERVICE_CAPACITY", "MAX_CAPS", "98"));
        }).join();
    };
    EXPECT_EQ(0, Edit("LOG_CFG", "GVX_HIKSDK_LOG_SWITCH", "1"));
    EXPECT_EQ("sip2=1 sip4=1 sdk3=1 ", m_plugins.calls) << "what is read again switches as an edit does";
    EXPECT_EQ("98 1", Value("MAX_CAPS") + " " + Value("GVX_HIKSDK_LOG_SWITCH"));
    EXPECT_NE(std::string::npos, m_folder.Read("zvs_gvx.conf").find("GVX_HIKSDK_LOG_SWITCH=1"));
}

TEST_F(ConfigEditTest, PluginDebugLogLivesInLogXml) {
    for (const auto& [value, word] : {std::pair<const char*, const char*>{"1", "True"}, {"0", "False"}}) {
        EXPECT_EQ(0, Edit("LOG_CFG", "GVX_PLUGIN_DEBUG_LOG_SWITCH", value));
        EXPECT_NE(std::string::npos, m_folder.Read("log.xml").find(std::string("<DebugLogSwitch>") + word + "<"));
    }
    std::filesystem::remove(m_folder.Path("log.xml"));
    EXPECT_EQ(1, Edit("LOG_CFG", "GVX_PLUGIN_DEBUG_LOG_SWITCH", "1"));
}

TEST_F(ConfigEditTest, NatListIsTakenWholeOrNotAtAll) {
    EXPECT_EQ(
        0, m_mgr.SetGVXConfigValue("SUBNET_NAT", "SUBNET_NAT_IP_LIST", "10.0.0.0/255.0.0.0;192.168.0.0/255.255.0.0;"));
    const std::list<std::string> both = {"10.0.0.0/255.0.0.0", "192.168.0.0/255.255.0.0"};
    EXPECT_EQ(both, m_mgr.GetPrivateIpList());
    EXPECT_EQ(1, m_mgr.SetGVXConfigValue("SUBNET_NAT", "SUBNET_NAT_IP_LIST", "11.0.0.0/255.0.0.0;bad"));
    EXPECT_EQ(both, m_mgr.GetPrivateIpList());
    const std::string saved = m_folder.Read("zvs_gvx_nat.conf");
    EXPECT_NE(std::string::npos, saved.find("SUBNET_NAT_IP_LIST=10.0.0.0/255.0.0.0;192.168.0.0/255.255.0.0;\n"));
    EXPECT_EQ(1, m_mgr.SetGVXConfigValue("WRONG", "SUBNET_NAT_IP_LIST", "12.0.0.0/255.0.0.0"));
    EXPECT_EQ(saved, m_folder.Read("zvs_gvx_nat.conf"));
    EXPECT_TRUE(m_mgr.GetPrivateIpList().empty()) << "the first refusal has used up what a second would restore";
    EXPECT_TRUE(m_log->Contains("In force until an edit succeeds or gvxd starts anew: []"));
}

TEST_F(ConfigEditTest, FrameCarriesOneEdit) {
    EXPECT_EQ(0, SendFrame(R"({"ConfigSection":"SERVICE_CAPACITY","ConfigName":"MAX_CAPS","ConfigValue":"99",)"
                           R"("ConfigValueType":1})"));
    EXPECT_EQ("99", Value("MAX_CAPS"));
    for (const std::string& json :
         {std::string(R"({"ConfigSection":"SERVICE_CAPACITY","ConfigName":"MAX_CAPS","ConfigValue":5})"),
          std::string("[1]"), std::string("{broken"), std::string(),
          R"({"ConfigName":")" + std::string(64, 'n') + "\"}", R"({"ConfigSection":")" + std::string(32, 's') + "\"}",
          R"({"ConfigValue":")" + std::string(32, 'v') + "\"}"}) {
        EXPECT_EQ(1, SendFrame(json)) << json;
    }
    EXPECT_EQ("99", Value("MAX_CAPS"));
    EXPECT_EQ(2, m_mgr.SetEditConfigFromFrame(nullptr));
    ACE_Message_Block half(50);
    half.wr_ptr(50);
    EXPECT_EQ(1, m_mgr.SetEditConfigFromFrame(&half));
}

TEST_F(ConfigEditTest, UnifiedDocumentHoldsTheReadableSettings) {
    const std::string one = Document("SERVICE_CAPACITY");
    EXPECT_NE(std::string::npos, one.find("<ConfigNumber>2</ConfigNumber><ModuleName>GVX</ModuleName><ConfigList>"
                                          "<ConfigInfo><ConfigName>MAX_CAPS</ConfigName><ConfigType>SERVICE_CAPACITY"
                                          "</ConfigType><ConfigValue>128</ConfigValue></ConfigInfo><ConfigInfo>"
                                          "<ConfigName>GVX_SIP_LOG_SWITCH</ConfigName><ConfigType>SIF_CFG"
                                          "</ConfigType><ConfigValue>0</ConfigValue></ConfigInfo></ConfigList>"))
        << one;
    EXPECT_EQ(std::string::npos, one.find("WorkSpace"));
    const std::string all = Document("");
    for (const char* name : {"WorkSpace", "Password", "GVX_MESSAGE_IP", "DEVICE_VSP_ENABLE"}) {
        EXPECT_NE(std::string::npos, all.find(name)) << name;
    }
    CBB::CXml xml;
    EXPECT_EQ(1, m_mgr.GetGvxConfig(xml, nullptr));
    std::filesystem::remove(m_folder.Path("zvs_gvx.conf"));
    EXPECT_EQ(ZVS_OPEN_FILE_ERROR, m_mgr.GetGvxConfig(xml, "")) << "no almost empty document";
    // What XML cannot carry is left out; the others are written.
    EXPECT_EQ(0, m_mgr.BuildUnifiedConfigXml({{"A", "BAD", "x\x01y"}, {"A", "GOOD", "v"}}, xml));
    EXPECT_NE(std::string::npos, xml.ToString().find("<ConfigNumber>2</ConfigNumber>"));
    EXPECT_NE(std::string::npos, xml.ToString().find("GOOD"));
    EXPECT_EQ(std::string::npos, xml.ToString().find("BAD"));
}

TEST_F(ConfigEditTest, EditsOfSeveralThreadsAllReachTheFileAndReadersSeeWholeValues) {
    const std::pair<const char*, const char*> keys[] = {
        {"SERVICE_CAPACITY", "MAX_CAPS"}, {"MESSAGE", "GVX_MESSAGE_IP"}, {"SECURITY_CFG", "DEVICE_VSP_ENABLE"}};
    std::atomic<bool> stop{false};
    std::atomic<int> reads{0};
    std::atomic<int> faults{0};
    std::vector<std::thread> readers(10);
    for (std::thread& reader : readers) {
        reader = std::thread([&] {
            for (; !stop; ++reads) {
                const std::string value = Value("MAX_CAPS");
                faults += value == "128" || (value.size() == 4 && value.compare(0, 2, "10") == 0) ? 0 : 1;
                faults += m_mgr.GetLocalIP() == "10.0.0.1" && m_mgr.GetPrivateIpList().size() <= 1 ? 0 : 1;
            }
        });
    }
    while (reads < 100) {
        std::this_thread::yield();
    }
    std::vector<std::thread> editors;
    for (const auto& [section, key] : keys) {
        editors.emplace_back([this, &faults, section = section, key = key] {
            for (int round = 0; round < 30; ++round) {
                faults += m_mgr.SetGVXConfigValue(section, key, std::to_string(1000 + round));
                faults += m_mgr.SetGVXConfigValue("SUBNET_NAT", "SUBNET_NAT_IP_LIST",
                                                  round % 2 != 0 ? "10.0.0.0/255.0.0.0" : "11.0.0.0/255.0.0.0");
            }
        });
    }
    for (std::thread& editor : editors) {
        editor.join();
    }
    stop = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(0, faults);
    CGvxConfigMgr restarted;
    ASSERT_EQ(0, restarted.Init());
    for (const auto& [section, key] : keys) {
        EXPECT_EQ("1029", Value(key));
        EXPECT_EQ("1029", restarted.GetConfValue(key, "")) << key;
    }
}

TEST_F(ConfigEditTest, LogUploadKeepsItsPasswordEncipheredAndOutOfEveryLog) {
    const std::string secret = "S3cr3t-pa55";
    EXPECT_EQ(0, m_mgr.SetLogSFTPConf("ServerPort", "2222"));
    EXPECT_EQ(0, m_mgr.SetLogSFTPConf("Password", secret.c_str()));
    LOG_SFTP_CONF conf{};
    ASSERT_EQ(0, read_log_sftp_conf(&conf));
    EXPECT_EQ(2222, conf.ServerPort);
    EXPECT_STREQ(secret.c_str(), conf.Password);
    EXPECT_NE(std::string::npos, Document("LOG_CFG").find("<ConfigValue>" + secret + "</ConfigValue>"));
    EXPECT_EQ(1, m_mgr.SetLogSFTPConf("Password", (secret + std::string(64, 'x')).c_str()));
    EXPECT_EQ(1, SendFrame(R"({"ConfigSection":"LOG_CFG","ConfigName":"Password","ConfigValue":")" + secret + "\"}"));
    EXPECT_EQ(1, Edit("LOG_CFG", "Password", secret));
    EXPECT_EQ(1, SendFrame(R"({"ConfigName":"Password","ConfigValue":")" + secret));
    EXPECT_EQ(1, SendFrame("[\"" + secret + "\"]"));
    EXPECT_EQ(1, m_mgr.SetGVXConfigValue("LOG_CFG", "Password", secret));

    EXPECT_EQ(std::string::npos, m_log->Dump().find(secret)) << m_log->Dump();
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path(""))) {
        if (entry.is_regular_file()) {
            EXPECT_EQ(std::string::npos, m_folder.Read(entry.path().filename()).find(secret)) << entry.path();
        }
    }
    for (const char* name : {"log_sftp.conf", "log_sftp.key"}) {
        struct stat status {};
        ASSERT_EQ(0, stat(m_folder.Path(name).c_str(), &status)) << name;
        EXPECT_EQ(0600u, status.st_mode & 07777u) << name;
    }

    EXPECT_EQ(2, m_mgr.SetLogSFTPConf("Password", nullptr));
    m_folder.Write("log_sftp.key", "another key, of other length");
    EXPECT_EQ(ZVS_GVX_GET_LOG_SFTP_CONF_ERROR, m_mgr.SetLogSFTPConf("Username", "x"));
}

// The settings of secure video links, which a frame changes together.
class SecureSettingsTest : public ConfigEditTest {
protected:
    void SetUp() override {
        m_folder.WriteConf(
            "[GB35114_CFG]\nGB35114_SECURITY_LEVEL=A\nGB35114_KEYLABEL=gvx001\n"
            "GB35114_SERVER_ID=34020000002000000001\nGB35114_DATE_INTERNAL=600\n");
        ASSERT_EQ(0, m_mgr.Init());
        m_mgr.Add35114Listener([this](const GVX_35114_CONFIG_INFO& info) { m_told += Text(info) + ";"; });
    }
    static std::string Text(const GVX_35114_CONFIG_INFO& info) {
        return std::string(info.chSecurityLevel) + " " + info.chKeyLabel + " " + info.chServerID + " " +
               std::to_string(info.uiDateInterval);
    }
    std::string Now(const CGvxConfigMgr& mgr) const {
        GVX_35114_CONFIG_INFO info;
        mgr.Get35114ConfigInfo(info);
        return Text(info);
    }
    int Send(const std::string& body, unsigned short tag = NSS_TAG_JSON_CONTENT) {
        return SendFrame(body, &CGvxConfigMgr::Set35114ChangeFromFrame, tag);
    }
    static std::string Json(const std::string& level, const std::string& label, const std::string& id,
                            const std::string& interval, const std::string& more = std::string()) {
        return R"({"GB35114_SECURITY_LEVEL":")" + level + R"(","GB35114_KEYLABEL":")" + label +
               R"(","GB35114_SERVER_ID":")" + id + R"(","GB35114_DATE_INTERNAL":)" + interval + more + "}";
    }

    static constexpr const char* kBefore = "A gvx001 34020000002000000001 600";
    static constexpr const char* kID = "34020000002000000002";
    std::string m_told;
};

TEST_F(SecureSettingsTest, AFrameSetsThemAllPersistsAndTells) {
    EXPECT_EQ(kBefore, Now(m_mgr));
    EXPECT_EQ(0, Send(Json("B", "gvx002", kID, "5", R"(,"ConfigType":"GB35114_CFG","NodeCode":"007")")))
        << m_log->Dump();
    const std::string after = "B gvx002 34020000002000000002 5";
    EXPECT_EQ(after, Now(m_mgr));
    EXPECT_EQ(after + ";", m_told);
    CGvxConfigMgr restarted;
    ASSERT_EQ(0, restarted.Init());
    EXPECT_EQ(after, Now(restarted));
    EXPECT_EQ(
        0, Send("<Content><GB35114_DATE_INTERNAL>3600</GB35114_DATE_INTERNAL><GB35114_KEYLABEL>abc</GB35114_KEYLABEL>"
                "<GB35114_SERVER_ID>34020000002000000002</GB35114_SERVER_ID><GB35114_SECURITY_LEVEL>C"
                "</GB35114_SECURITY_LEVEL></Content>",
                NSS_TAG_XML_CONTENT));
    EXPECT_EQ("C abc 34020000002000000002 3600", Now(m_mgr));
    m_told.clear();
    EXPECT_EQ(0, Send(Json("C", "abc", kID, "\"3600\"")));
    EXPECT_EQ("", m_told) << "nothing has changed";
    EXPECT_EQ(0, Edit("GB35114_CFG", "GB35114_KEYLABEL", "edited"));
    EXPECT_EQ("C edited 34020000002000000002 3600;", m_told);
    m_mgr.Remove35114Listener(1);
    EXPECT_EQ(0, Send(Json("A", "abc", kID, "60")));
    EXPECT_EQ("C edited 34020000002000000002 3600;", m_told);
}

TEST_F(SecureSettingsTest, AFrameThatIsNotWholeAndLegalSetsNone) {
    const std::string file = m_folder.Read("zvs_gvx.conf");
    const std::string bad[] = {
        Json("D", "gvx002", kID, "60"),
        Json("B", "g", kID, "60"),
        Json("B", "gvx002", "123", "60"),
        Json("B", "gvx002", kID, "4"),
        Json("B", "gvx002", kID, "\"60 s\""),
        Json("B", "gvx002", kID, "[]"),
        Json("B", "gvx002", kID, "60", R"(,"ConfigType":"LOG_CFG")"),
        Json("B", "gvx002", kID, "60", R"(,"NodeCode":"1")"),
        R"({"GB35114_SECURITY_LEVEL":"B"})",
        "[]",
        "",
        "{",
    };
    for (const std::string& body : bad) {
        EXPECT_EQ(1, Send(body)) << body;
    }
    EXPECT_EQ(1, Send("<Content/>", NSS_TAG_XML_CONTENT));
    EXPECT_EQ(2, m_mgr.Set35114ChangeFromFrame(nullptr));
    // A file that can not be written, or lacks one of the keys.
    std::filesystem::create_directories(m_folder.Path("zvs_gvx.conf.bak/x"));
    EXPECT_EQ(1, Send(Json("B", "gvx002", kID, "60")));
    std::filesystem::remove_all(m_folder.Path("zvs_gvx.conf.bak"));
    EXPECT_EQ(file, m_folder.Read("zvs_gvx.conf"));
    m_folder.Write("zvs_gvx.conf", "; settings\n[GB35114_CFG]\nGB35114_SECURITY_LEVEL=A\n");
    EXPECT_EQ(1, Send(Json("B", "gvx002", kID, "60")));
    EXPECT_EQ("; settings\n[GB35114_CFG]\nGB35114_SECURITY_LEVEL=A\n", m_folder.Read("zvs_gvx.conf"));
    EXPECT_EQ(kBefore, Now(m_mgr));
    EXPECT_EQ("", m_told);
}

}  // namespace
