#include "gateway/plugins/plugin_host.h"

#include "gateway/plugins/plugin_guard.h"

namespace gvx {

namespace {

struct ProtocolRow {
    int protocol;
    const char* plugin;
};
constexpr ProtocolRow kProtocols[] = {
    {BP::DEV_PROTOCOL_TYPE_ONVIF, "onvif"},   {BP::DEV_PROTOCOL_TYPE_T28181, "t28181"},
    {BP::DEV_PROTOCOL_TYPE_HIKSDK, "hiksdk"}, {BP::DEV_PROTOCOL_TYPE_TEYES, "teyes"},
    {BP::DEV_PROTOCOL_TYPE_DHSDK, "dhsdk"},
};

}  // namespace

// All plug-ins are loaded at start, so that none is loaded here.
bool PluginHost::InstallPlugin(int protocol, BP::CPluginInfo& info) {
    for (const ProtocolRow& row : kProtocols) {
        LoadedPlugin* const plugin = row.protocol == protocol ? Find(row.plugin) : nullptr;
        if (plugin == nullptr) {
            continue;
        }
        info = plugin->Info();
        info.m_sdkLogSwitch = [plugin](std::uint32_t on) {
            return CallPlugin(plugin->Name(), "SetSDKLogSwitch", "", [&] { return plugin->Sdk().SetSDKLogSwitch(on); });
        };
        info.m_sipStackLogSwitch = [plugin](std::uint32_t on) {
            return CallPlugin(plugin->Name(), "setSipStackLogSwitch", "",
                              [&] { return plugin->Sdk().setSipStackLogSwitch(on); });
        };
        return true;
    }
    return false;
}

}  // namespace gvx
