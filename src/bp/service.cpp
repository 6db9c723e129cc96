#include "bp/service.h"

#include <atomic>

namespace BP {

namespace {

std::atomic<IDeviceMgr*> g_deviceMgr{nullptr};

std::atomic<IPluginRegistry*> g_pluginRegistry{nullptr};

}  // namespace

void CDeviceMgr::SetImplementation(IDeviceMgr* implementation) {
    g_deviceMgr = implementation;
}

int CDeviceMgr::ProcessSdkException(const ACE_Message_Block* block) {
    IDeviceMgr* const deviceMgr = g_deviceMgr;
    return deviceMgr != nullptr ? deviceMgr->ProcessSdkException(block) : 1;
}

std::string CDeviceMgr::GetReqDevID(std::uint32_t seqID) {
    IDeviceMgr* const deviceMgr = g_deviceMgr;
    return deviceMgr != nullptr ? deviceMgr->GetReqDevID(seqID) : std::string();
}

int CDeviceMgr::HandleClusterTaskShiftIn(int reason, const std::string& nodeCode) {
    IDeviceMgr* const deviceMgr = g_deviceMgr;
    return deviceMgr != nullptr ? deviceMgr->HandleClusterTaskShiftIn(reason, nodeCode) : 1;
}

bool CDeviceMgr::FindMainDevice(const std::string& devCode, std::string& address) {
    IDeviceMgr* const deviceMgr = g_deviceMgr;
    return deviceMgr != nullptr && deviceMgr->FindMainDevice(devCode, address);
}

bool CDeviceMgr::FindOwner(const std::string& code, std::string& devCode) {
    IDeviceMgr* const deviceMgr = g_deviceMgr;
    return deviceMgr != nullptr && deviceMgr->FindOwner(code, devCode);
}

void CPluginMgr::SetImplementation(IPluginRegistry* implementation) {
    g_pluginRegistry = implementation;
}

int CPluginMgr::RegisterPlugin() {
    IPluginRegistry* const registry = g_pluginRegistry;
    return registry != nullptr ? registry->RegisterPlugin() : 1;
}

bool CPluginMgr::FindPlugin(const std::string& name, CPluginInfo& info) {
    IPluginRegistry* const registry = g_pluginRegistry;
    return registry != nullptr && registry->FindPlugin(name, info);
}

bool CPluginMgr::InstallPlugin(int protocol, CPluginInfo& info) {
    IPluginRegistry* const registry = g_pluginRegistry;
    return registry != nullptr && registry->InstallPlugin(protocol, info);
}

int CPluginMgr::SendRebootPluginMsg() {
    IPluginRegistry* const registry = g_pluginRegistry;
    return registry != nullptr ? registry->SendRebootPluginMsg() : 1;
}

}  // namespace BP
