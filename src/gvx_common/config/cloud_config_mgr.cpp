#include "gvx_common/config/cloud_config_mgr.h"

#include "base/cbb_xml.h"
#include "base/file_watcher.h"
#include "base/log.h"
#include "base/paths.h"
#include "gvx_common/config/gvx_config_mgr.h"

#include <cstring>
#include <new>
#include <utility>

#include <unistd.h>

CCloudConfigMgr::CCloudConfigMgr() = default;
CCloudConfigMgr::~CCloudConfigMgr() = default;

CCloudConfigMgr* CCloudConfigMgr::Instance() {
    // Never deleted: alarms ask for the flag while static objects end.
    static CCloudConfigMgr* const instance = new CCloudConfigMgr;
    return instance;
}

int CCloudConfigMgr::Init() {
    UnInit();
    // A file that is not there yet is watched for, too: the cloud side may take the gateway over at any time.
    ReadFlag();
    if (!m_inited) {
        GVX_LOG_WARN("Cloud configuration",
                     "No alarm leaves until [%s] says that the cloud side has taken this gateway over.",
                     gvx::RootedPath(GVX_CLOUD_CONFIG_PATH).c_str());
    }
    m_pInotifyWatcher.reset(new (std::nothrow) bpInotifyEventWatcher);
    if (m_pInotifyWatcher == nullptr) {
        GVX_LOG_ERR("CCloudConfigMgr::Init", "CCloudConfigMgr create InotifyEventWatcher Object fail");
        return ZVS_FAIL;
    }
    m_notifyCloudConfigHandler.reset(new (std::nothrow) InotifyConfigHandler);
    if (m_notifyCloudConfigHandler == nullptr) {
        GVX_LOG_ERR("CCloudConfigMgr::Init", "CCloudConfigMgr create m_notifyCloudConfigHandler Object fail");
        m_pInotifyWatcher.reset();
        return ZVS_FAIL;
    }
    g_bp_memstat += 2;
    m_notifyCloudConfigHandler->SetFullFilePath(gvx::RootedPath(GVX_CLOUD_CONFIG_PATH));
    m_notifyCloudConfigHandler->SetCallback(&CCloudConfigMgr::CloudConfigFileCallBack);
    if (m_pInotifyWatcher->AddHandler(*m_notifyCloudConfigHandler) != 0) {
        return ZVS_FAIL;
    }
    // What changed before the watching began.
    return CloudConfigFileCallBack();
}

void CCloudConfigMgr::UnInit() {
    if (m_pInotifyWatcher != nullptr) {
        g_bp_memstat -= 2;
    }
    m_pInotifyWatcher.reset();
    m_notifyCloudConfigHandler.reset();
}

int CCloudConfigMgr::CloudConfigFileCallBack() {
    CCloudConfigMgr* const mgr = Instance();
    const bool before = mgr->m_inited;
    const int result = mgr->ReadFlag();
    if (const std::string path = gvx::RootedPath(GVX_CLOUD_CONFIG_PATH);
        result != ZVS_SUCCEED && access(path.c_str(), F_OK) == 0) {
        GVX_LOG_WARN("Cloud configuration", "[%s] cannot be used, and what it said before holds.", path.c_str());
    }
    if (mgr->m_inited != before) {
        GVX_LOG_INFO("Cloud configuration", "The cloud side has %s this gateway.", before ? "let go of" : "taken over");
    }
    return result;
}

int CCloudConfigMgr::ReadFlag() {
    const std::lock_guard<std::mutex> guard(m_mutexRead);
    const std::string path = gvx::RootedPath(GVX_CLOUD_CONFIG_PATH);
    CBB::CXml xml;
    if (!xml.Load(path.c_str())) {
        const int level = std::exchange(m_toldMissing, true) ? OM_LOG_DEBUG : OM_LOG_INFO;  // Init reads twice
        GVX_LOG(level, "CCloudConfigMgr::Init", "xmlCloudConfig load failed:[%s].", path.c_str());
        return ZVS_FAIL;
    }
    m_toldMissing = false;
    if (!xml.FindElem("CloudConfig/inited")) {
        m_inited = false;
        return ZVS_SUCCEED;
    }
    const char* value = xml.GetElemValue();
    if (value == nullptr || *value == '\0') {
        return ZVS_FAIL;
    }
    m_inited = std::strcmp(value, "true") == 0;
    return ZVS_SUCCEED;
}
