#include "gvx_common/config/gvx_config_mgr.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "base/paths.h"
#include "gvx_common/config/config_alarm.h"
#include "gvx_common/utility/gvx_utility.h"

#include <cstring>

namespace {

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

}  // namespace

int CGvxConfigMgr::LoadLocalIPFromXml() {
    const EditGuard editing(m_mutexEdit);
    std::string path;
    if (!FindNetXml("LoadLocalIPFromXml", path)) {
        return ZVS_FAIL;
    }
    CBB::CXml xml;
    if (!xml.Load(path.c_str())) {
        if (gvx::ConfigAlarms().OnSideFileFault("Location=" + path + ",ParaName=###", "")) {
            GVX_LOG_ERR("LoadLocalIPFromXml", "can not load net.xml");
        } else {
            GVX_LOG_ERR("LoadLocalIPFromXml", "Can not load net.xml.");
        }
        return ZVS_FAIL;
    }
    if (!xml.FindElem(kServerElementID) && !xml.FindElem(kClientElementID)) {
        GVX_LOG_ERR("LoadLocalIPFromXml", "can not find NetElementID from net.xml");
        return ZVS_FAIL;
    }
    const char* pNetElementID = xml.GetElemValue();
    GVX_CHECK_NULL_RETURN(pNetElementID, ZVS_FAIL);
    ApplyNetElementID(path, pNetElementID);
    return ZVS_SUCCEED;
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
