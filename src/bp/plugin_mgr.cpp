#include "bp/service.h"

#include <atomic>

namespace BP {

namespace {

std::atomic<IPluginRegistry*> g_pluginRegistry{nullptr};

}  // namespace

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
