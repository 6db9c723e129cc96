#include "gvx_common/config/gvx_config_mgr.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "base/net_interface.h"
#include "base/paths.h"
#include "bp/registration.h"
#include "gvx_common/config/config_findings.h"
#include "gvx_common/config/gvx_config.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include <unistd.h>

namespace {

using Weight = gvx::ConfigFinding::Weight;
using NatGuard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

constexpr const char* kServerElementID = "Net/NetElements/NetElement/Server/NetElementID";
constexpr const char* kClientElementID = "Net/NetElements/NetElement/ClientList/Client/NetElementID";
constexpr const char* kNetElements = "Net/NetElements";
constexpr const char* kLocalIPName = "LocalIP";
constexpr const char* kDefaultElementID = "GVX#001";

// The path of net.xml; false, with the message, without a configuration folder.
bool FindNetXml(const char* title, std::string& path) {
    std::string directory;
    if (get_config_directory(directory) != 0) {
        GVX_LOG_ERR(title, "CGvxConfigMgr get config directory failed");
        return false;
    }
    path = directory + "/net.xml";
    return true;
}

constexpr const char* GVXCONFIG_OMU_LOCALIP_XPATH = "Content/IpConfig/IpConfigInfo/SignalIpAddress";
constexpr const char* GVXCONFIG_OMU_MEDIAIP_XPATH = "Content/IpConfig/IpConfigInfo/MediaIpAddress";
constexpr std::size_t kNetworkModeBytes = 64;
constexpr int kCompatibleMode = 3;

struct NetworkModeRow {
    const char* name;
    int mode;
};
// In the order of comparison.
constexpr NetworkModeRow kNetworkModes[] = {{"compatible", kCompatibleMode}, {"standard", 1}, {"simplify", 2}};

struct PortRow {
    const char* key;
    const char* section;
};
constexpr PortRow kPortKeys[] = {
    {"GVX_LISTEN_PORT", "GATEWAY"},
    {"GVX_SIP_SERVER_PORT", "SIF_CFG"},
    {"SCU_SIP_PORT", "SIF_CFG"},
    {"ONVIF_ALARM_LISTENER_PORT", "ONVIF_CFG"},
};

// The text at a path from the root; false when there is none.
bool ReadText(CBB::CXml& xml, const char* path, std::string& text) {
    xml.Rewind();
    const char* value = xml.FindElem(path) ? xml.GetElemValue() : nullptr;
    text = value == nullptr ? "" : value;
    return !text.empty();
}

bool RefuseAddress(const char* title, const std::string& ip) {
    if (CGvxUtility::IsIPv4(ip.c_str())) {
        return false;
    }
    GVX_LOG_ERR_CODE(title, ZVS_IP_INVALID, "Invalid ip address, ip=%s", ip.c_str());
    return true;
}

// The path of zvs_gvx.conf; false, with the message, without a configuration folder.
bool FindMainFile(const char* title, std::string& path) {
    std::string directory;
    if (get_config_directory(directory) != 0) {
        GVX_LOG_ERR(title, "CGvxConfigMgr get config directory failed");
        return false;
    }
    path = directory + "/zvs_gvx.conf";
    return true;
}

// What a start serves with all the same.
void TellOfElementID(const std::string& file, int line, const std::string& id) {
    if (id.empty()) {
        gvx::TellFinding(
            {Weight::Error, file, line, std::string("NetElementID is empty; [") + kDefaultElementID + "] holds"});
    } else if (BP::ElementTypeOf(id) != BP::ElementTypeOf(kDefaultElementID)) {
        gvx::TellFinding(
            {Weight::Warning, file, line,
             "NetElementID [" + id + "] is that of another kind of element: peers tell a gateway by GVX#"});
    } else if (id.back() == '#') {
        gvx::TellFinding({Weight::Warning, file, line, "NetElementID [" + id + "] has no number of a node"});
    }
}

}  // namespace

int CGvxConfigMgr::LoadLocalIPFromXml() {
    const EditGuard editing(m_mutexEdit);
    std::string path;
    if (!FindNetXml("LoadLocalIPFromXml", path)) {
        return ZVS_FAIL;
    }
    CBB::CXml xml;
    if (!xml.Load(path.c_str())) {
        gvx::TellFinding({Weight::StopsStart, path, xml.FaultLine(), xml.FaultText()});
        if (gvx::ConfigAlarms().OnSideFileFault("Location=" + path + ",ParaName=###", "")) {
            GVX_LOG_ERR("LoadLocalIPFromXml", "can not load net.xml");
        } else {
            GVX_LOG_ERR("LoadLocalIPFromXml", "Can not load net.xml.");
        }
        return ZVS_FAIL;
    }
    if (!xml.FindElem(kServerElementID) && !xml.FindElem(kClientElementID)) {
        GVX_LOG_ERR("LoadLocalIPFromXml", "can not find NetElementID from net.xml");
        gvx::TellFinding({Weight::StopsStart, path, 1, std::string("there is no ") + kServerElementID});
        return ZVS_FAIL;
    }
    const char* pNetElementID = xml.GetElemValue();
    GVX_CHECK_NULL_RETURN(pNetElementID, ZVS_FAIL);
    TellOfElementID(path, xml.GetElemLine(), pNetElementID);
    ApplyNetElementID(path, pNetElementID);
    return ZVS_SUCCEED;
}

// The identifier that net.xml gives now; false, with a finding, when it gives none.
bool CGvxConfigMgr::ReadElementID(const std::string& netXml, std::string& id) {
    CBB::CXml xml;
    if (!xml.Load(netXml.c_str())) {
        gvx::TellFinding({Weight::Error, netXml, xml.FaultLine(), xml.FaultText()});
        return false;
    }
    const char* const value =
        xml.FindElem(kServerElementID) || xml.FindElem(kClientElementID) ? xml.GetElemValue() : nullptr;
    if (value == nullptr) {
        gvx::TellFinding({Weight::Error, netXml, 1, std::string("there is no ") + kServerElementID});
        return false;
    }
    TellOfElementID(netXml, xml.GetElemLine(), value);
    id = *value == '\0' ? kDefaultElementID : value;
    return true;
}

void CGvxConfigMgr::ApplyNetElementID(const std::string& path, const std::string& value) {
    if (!value.empty()) {
        m_strNetElementID.Set(value);
        return;
    }
    m_strNetElementID.Set(kDefaultElementID);
    gvx::ConfigAlarms().OnSideFileFault("Location=" + path + ",ParaName=NetElementID",
                                        std::string("CurrentValue=,DefaultValue=") + kDefaultElementID);
}

int CGvxConfigMgr::SetLocalIP(const char* ip) {
    const EditGuard editing(m_mutexEdit);
    if (!CGvxUtility::IsIPv4(ip)) {
        GVX_LOG_ERR_CODE("SetLocalIP", ZVS_IP_INVALID, "Invalid ip address, ip=%s", ip == nullptr ? "" : ip);
        return ZVS_FAIL;
    }
    std::string path;
    if (!FindNetXml("SetLocalIP", path)) {
        return ZVS_FAIL;
    }
    CBB::CXml xml;
    if (!xml.Load(path.c_str())) {
        gvx::ConfigAlarms().OnSideFileFault("Location=" + path + ",ParaName=###", "");
        GVX_LOG_ERR("SetLocalIP", "Can not load net.xml.");
        return ZVS_FAIL;
    }
    if (!xml.FindElem(kNetElements)) {
        gvx::ConfigAlarms().OnSideFileFault("Location=" + path + ",ParaName=NetElements", "");
        GVX_LOG_ERR("SetLocalIP", "Can not find NetElements node");
        return ZVS_FAIL;
    }
    xml.Rewind();
    if (xml.NextElem()) {
        TraversingXMLToSetLocalIP(xml, ip, 0);
    }
    if (!xml.Save(path.c_str())) {
        gvx::ConfigAlarms().OnSideFileFault("Location=" + path + ",ParaName=LocalIP", "");
        GVX_LOG_ERR("SetLocalIP", "Save net config xml to net.xml fail.");
        return ZVS_FAIL;
    }
    m_strLocalIP.Set(ip);
    return ZVS_SUCCEED;
}

void CGvxConfigMgr::TraversingXMLToSetLocalIP(CBB::CXml& xml, const char* ip, int depth) {
    for (;;) {
        const char* name = xml.GetElemName();
        if (name != nullptr && std::strcmp(name, kLocalIPName) == 0) {
            xml.SetElemValue(ip);
        }
        if (xml.IntoElem() && xml.NextElem()) {
            ++depth;
            continue;
        }
        while (!xml.NextElem()) {
            if (depth == 0 || !xml.OutOfElem()) {
                return;
            }
            --depth;
        }
    }
}

int CGvxConfigMgr::SetGVXLocalIP(const std::string& ip) {
    const EditGuard editing(m_mutexEdit);
    if (RefuseAddress("SetGVXLocalIP", ip)) {
        return ZVS_IP_INVALID;
    }
    const int result = SetGVXConfigValue("MESSAGE", "GVX_MESSAGE_IP", ip);
    if (GVX_Config::Stands(result)) {
        m_strLocalIP.Set(ip);
    }
    return result;
}

int CGvxConfigMgr::SetGVXMediaIP(const std::string& ip) {
    if (RefuseAddress("SetGVXMediaIP", ip)) {
        return ZVS_IP_INVALID;
    }
    return SetGVXConfigValue("MEDIA", "GVX_MEDIA_IP", ip);
}

void CGvxConfigMgr::UpdateIPAddressFromOmuConfig(const std::string& path) {
    const EditGuard editing(m_mutexEdit);
    CBB::CXml xml;
    errno = 0;
    if (!xml.Load(path.c_str())) {
        GVX_LOG_ERR_CODE("UpdateIPAddressFromOmuConfig", ZVS_OPEN_FILE_ERROR, "filename=%s, errdesc=%d", path.c_str(),
                         errno);
        return;
    }
    std::string ip;
    if (!ReadText(xml, GVXCONFIG_OMU_LOCALIP_XPATH, ip)) {
        GVX_LOG_INFO("UpdateIPAddressFromOmuConfig", "The tag of local ip address is not found or empty");
    } else if (!GVX_Config::Stands(SetGVXLocalIP(ip))) {
        GVX_LOG_ERR("UpdateIPAddressFromOmuConfig", "ipaddr=%s", ip.c_str());
        return;
    }
    if (!ReadText(xml, GVXCONFIG_OMU_MEDIAIP_XPATH, ip)) {
        GVX_LOG_INFO("UpdateIPAddressFromOmuConfig", "The tag of media ip address is not found or empty");
    } else if (!GVX_Config::Stands(SetGVXMediaIP(ip))) {
        GVX_LOG_ERR("UpdateIPAddressFromOmuConfig", "ipaddr=%s", ip.c_str());
    }
}

bool CGvxConfigMgr::PlatformFilesAreUsable(std::string& runMode) {
    const auto isThere = [](const std::string& path, CBB::CXml& xml, bool& usable) {
        if (access(path.c_str(), F_OK) != 0) {
            return false;
        }
        if (!xml.Load(path.c_str())) {
            gvx::TellFinding({Weight::Error, path, xml.FaultLine(), xml.FaultText()});
            usable = false;
        }
        return usable;
    };
    bool cloudUsable = true;
    CBB::CXml cloud;
    if (isThere(gvx::RootedPath(GVX_CLOUD_CONFIG_PATH), cloud, cloudUsable)) {
        ReadText(cloud, "CloudConfig/RunMode", runMode);
    }
    bool unitUsable = true;
    CBB::CXml unit;
    const std::string unitFile = gvx::RootedPath(GVXCONFIG_OMU_COMMON_CONFIG_PATH);
    if (isThere(unitFile, unit, unitUsable)) {
        for (const char* path : {GVXCONFIG_OMU_LOCALIP_XPATH, GVXCONFIG_OMU_MEDIAIP_XPATH}) {
            std::string ip;
            if (ReadText(unit, path, ip) && !CGvxUtility::IsIPv4(ip.c_str())) {
                gvx::TellFinding({Weight::Error, unitFile, unit.GetElemLine(), "[" + ip + "] is no IPv4 address"});
                unitUsable = false;
            }
        }
    }
    return cloudUsable && unitUsable;
}

int CGvxConfigMgr::EditZvsGvxConfIP(const char*& localIP, const char*& mediaIP) {
    const EditGuard editing(m_mutexEdit);
    if (localIP == nullptr || mediaIP == nullptr) {
        GVX_LOG_ERR("EditZvsGvxConfIP", "LocalIP is NULL or MediaIP is NULL.");
        return ZVS_FAIL;
    }
    std::string path;
    if (!FindMainFile("EditZvsGvxConfIP", path)) {
        return ZVS_FAIL;
    }
    GVX_Config file(path.c_str());
    const int media = file.set("MEDIA", "GVX_MEDIA_IP", mediaIP);
    if (!GVX_Config::Stands(media)) {
        GVX_LOG_ERR("EditZvsGvxConfIP", "Set media ip error medieip:%s", mediaIP);
        return ZVS_FAIL;
    }
    const int message = file.set("MESSAGE", "GVX_MESSAGE_IP", localIP);
    if (!GVX_Config::Stands(message)) {
        GVX_LOG_ERR("EditZvsGvxConfIP", "Set local ip error medieip:%s", localIP);
        return ZVS_FAIL;
    }
    return message;  // the file was saved whole behind both
}

int CGvxConfigMgr::EditZvsGvxConfPort(const std::vector<std::pair<std::string, std::uint16_t>>& ports) {
    const EditGuard editing(m_mutexEdit);
    std::string path;
    if (!FindMainFile("EditZvsGvxConfPort", path)) {
        return ZVS_FAIL;
    }
    GVX_Config file(path.c_str());
    std::string done;
    int result = ZVS_SUCCEED;
    for (const auto& [key, port] : ports) {
        const std::string& wanted = key;
        const auto* row = std::find_if(std::begin(kPortKeys), std::end(kPortKeys),
                                       [&wanted](const PortRow& candidate) { return wanted == candidate.key; });
        if (row != std::end(kPortKeys)) {
            result = file.set(row->section, row->key, CGvxUtility::toStr(port).c_str());
        }
        if (row == std::end(kPortKeys) || !GVX_Config::Stands(result)) {
            GVX_LOG_ERR("EditZvsGvxConfPort", "Set [%s] failed", key.c_str());
            return ZVS_FAIL;
        }
        done += (done.empty() ? "" : ",") + key;
    }
    GVX_LOG_INFO("EditZvsGvxConfPort", "set all [%s] success", done.c_str());
    return result;
}

void CGvxConfigMgr::LoadCloudConf() {
    GVX_LOG(OM_LOG_DEBUG, "LoadCloudConf", "[CloudConfig] ---Begin init CCloudConfig");
    const std::string path = gvx::RootedPath(GVX_CLOUD_CONFIG_PATH);
    CBB::CXml xml;
    if (!xml.Load(path.c_str())) {
        GVX_LOG_ERR("LoadCloudConf", "file(%s) is not exist", path.c_str());
        return;
    }
    std::string text;
    ReadText(xml, "CloudConfig/RunMode", text);
    m_iRunMode = CGvxUtility::toInt(text);
    GVX_LOG_INFO("LoadCloudConf", "run mode is %s", text.c_str());
}

int CGvxConfigMgr::GetNetWorkMode() const {
    char text[kNetworkModeBytes] = {};
    if (ZVS_GetNetworkMode(text, sizeof(text)) == 0) {
        // Over the length of what was read: a prefix of a word counts.
        for (const NetworkModeRow& row : kNetworkModes) {
            if (std::strncmp(text, row.name, std::strlen(text)) == 0) {
                return row.mode;
            }
        }
    }
    GVX_LOG_ERR("GetNetWorkMode", "unKnown Network mode");
    return 0;
}

std::string CGvxConfigMgr::GetIPToLisetenWhenNoFloatIP() const {
    if (m_iRunMode == RunMode_CLOUDEDGE && GetNetWorkMode() != kCompatibleMode) {
        return std::string();
    }
    return GetConfValue("GVX_MESSAGE_IP", "127.0.0.1");
}

int CGvxConfigMgr::ParsePrivateIpList(std::string& list) {
    const EditGuard editing(m_mutexEdit);
    {
        NatGuard guard(mutexToList);
        if (!guard.locked()) {
            return ZVS_FAIL;
        }
        m_ListPrivateNatIP.clear();
    }
    std::size_t begin = 0;
    while (begin < list.size()) {
        const std::size_t end = std::min(list.find(';', begin), list.size());
        const std::string entry = list.substr(begin, end - begin);
        GVX_LOG_INFO("ParsePrivateIpList", "IpString:%s", entry.c_str());
        if (!CheckIpAvailable(entry)) {
            GVX_LOG_ERR("ParsePrivateIpList", "Not an <ip>/<mask> entry[%s]", entry.c_str());
            list.erase(0, begin);
            return ZVS_FAIL;
        }
        NatGuard guard(mutexToList);
        if (!guard.locked()) {
            list.erase(0, begin);
            return ZVS_FAIL;
        }
        m_ListPrivateNatIP.push_back(entry);
        begin = end + 1;
    }
    list.clear();
    const std::list<std::string> all = GetPrivateIpList();
    for (const std::string& entry : all) {
        GVX_LOG(OM_LOG_DEBUG, "ParsePrivateIpList", "ip:%s", entry.c_str());
    }
    GVX_LOG(OM_LOG_DEBUG, "ParsePrivateIpList", "ipNum:%lu", static_cast<unsigned long>(all.size()));
    return ZVS_SUCCEED;
}

bool CGvxConfigMgr::CheckIpAvailable(std::string entry) {
    const std::size_t slash = entry.find('/');
    if (slash == std::string::npos || slash == 0 || slash + 1 == entry.size()) {
        return false;
    }
    return CGvxUtility::IsIPv4(entry.substr(0, slash).c_str()) &&
           CGvxUtility::IsNetMask(entry.substr(slash + 1).c_str());
}

std::list<std::string> CGvxConfigMgr::GetPrivateIpList() {
    NatGuard guard(mutexToList);
    return guard.locked() ? m_ListPrivateNatIP : std::list<std::string>();
}

std::string CGvxConfigMgr::SubnetNatText() const {
    const std::lock_guard<std::mutex> guard(m_mutexConf);
    return m_strSubnetNatIPList;
}

void CGvxConfigMgr::KeepSubnetNatText(const std::string& text) {
    const std::lock_guard<std::mutex> guard(m_mutexConf);
    m_strSubnetNatIPList = text;
}

// The parser consumes the stored text: what is left of it is nothing after a list without faults.
void CGvxConfigMgr::RestoreNatList() {
    std::string text = SubnetNatText();
    ParsePrivateIpList(text);
    KeepSubnetNatText(text);
}

// After a refusal the list in force may be another than the file's: a second refusal finds no text to restore.
void CGvxConfigMgr::TellNatList() {
    std::string all;
    for (const std::string& entry : GetPrivateIpList()) {
        all += (all.empty() ? "" : ";") + entry;
    }
    GVX_LOG_WARN("Set gvx Subnet Nat IP List Failed", "In force until an edit succeeds or gvxd starts anew: [%s]",
                 all.c_str());
}

int CGvxConfigMgr::SetNatList(const std::string& file, const std::string& section, const std::string& key,
                              const std::string& value) {
    const std::string oldValue = SubnetNatText();
    GVX_LOG_INFO("SetGVXConfigValue", "oldValue is [%s]", oldValue.c_str());
    if (oldValue == value) {
        return ZVS_SUCCEED;
    }
    std::string list = value;
    if (ParsePrivateIpList(list) != ZVS_SUCCEED) {
        RestoreNatList();
        TellNatList();
        GVX_LOG_ERR("Set gvx Subnet Nat IP List Failed", "section=%s, key=%s, value=%s", section.c_str(), key.c_str(),
                    value.c_str());
        return ZVS_FAIL;
    }
    const int written = GVX_Config(file.c_str()).set(section.c_str(), key.c_str(), value.c_str());
    if (!GVX_Config::Stands(written)) {
        RestoreNatList();
        TellNatList();
        GVX_LOG_ERR("Set gvx config value Failed", "section=%s, key=%s, value=%s", section.c_str(), key.c_str(),
                    value.c_str());
        return ZVS_FAIL;
    }
    KeepSubnetNatText(value);
    return written;
}
