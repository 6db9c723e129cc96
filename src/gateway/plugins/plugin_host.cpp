#include "gateway/plugins/plugin_host.h"

#include "base/json_io.h"
#include "base/log.h"
#include "base/shortage.h"
#include "gateway/alarms/device_reports.h"
#include "gateway/plugins/discovery_reports.h"
#include "gateway/plugins/plugin_guard.h"
#include "gvx_common/link/gvx_connection_mgr.h"

#include <algorithm>
#include <exception>
#include <new>

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

StartResult Missing(const std::string& name, const std::string& path, const std::string& why) {
    FindsDescriptor();
    return StartFailure(ExitCode::PluginMissing, "plug-in " + name + " (" + path + "): " + why);
}

std::string LastError(const std::string& plugin, GvxPluginLastErrorFunc lastError) {
    const char* text = lastError == nullptr
                           ? nullptr
                           : GuardPluginCall<const char*>(plugin, GVX_PLUGIN_LAST_ERROR_SYMBOL, "", nullptr, lastError);
    return text == nullptr || *text == '\0' ? "it gives no reason" : text;
}

}  // namespace

std::unique_ptr<LoadedPlugin> LoadedPlugin::Load(const std::string& name, const std::string& path,
                                                 const std::string& configFile, StartResult& failure) {
    std::unique_ptr<LoadedPlugin> plugin(new LoadedPlugin);
    failure = plugin->Open(name, path);
    if (!failure.Failed()) {
        failure = plugin->Start(configFile);
    }
    if (failure.Failed()) {
        return nullptr;
    }
    return plugin;
}

StartResult LoadedPlugin::Open(const std::string& name, const std::string& path) {
    m_info.m_strName = name;
    m_info.m_strPath = path;
    const PluginCallScope loading(name, "loading", "");  // a constructor of the object may take its time
    std::string fault;
    const std::optional<PluginLibrary> library = PluginLibrary::Open(path, fault);
    if (!library.has_value()) {
        return Missing(name, path, fault);
    }
    if (library->name != name) {
        return Missing(name, path, "it calls itself " + library->name);
    }
    m_library = *library;
    m_info.m_strVersion = library->version;
    m_info.m_strMaker = library->maker;
    return {};
}

StartResult LoadedPlugin::Start(const std::string& configFile) {
    m_sdk = GuardPluginCall<CAdapterSdkBase*>(Name(), GVX_PLUGIN_CREATE_SYMBOL, "", nullptr, m_library.create);
    if (m_sdk == nullptr) {
        return StartFailure(ExitCode::PluginRefused, "plug-in " + Name() + ": it made no adapter");
    }
    bool threw = true;
    const bool started = GuardPluginCall<bool>(Name(), "Init", "", false, [&] {
        const bool result = m_sdk->Init(configFile.c_str());
        threw = false;
        return result;
    });
    if (!started) {
        FindsDescriptor();
        return StartFailure(ExitCode::PluginRefused, "plug-in " + Name() + " refuses to start: " +
                                                         (threw ? std::string("it threw an exception")
                                                                : LastError(Name(), m_library.lastError)));
    }
    CallPlugin(Name(), "SetCommonMessageCallback", "", [&] {
        m_sdk->SetCommonMessageCallback(&OnPluginReport);
        return 0;
    });
    CallPlugin(Name(), "SetDiscoveryDeviceCallback", "", [&] {
        m_sdk->SetDiscoveryDeviceCallback(&OnDiscoveryReport);
        return 0;
    });
    CallPlugin(Name(), "SetAlarmMessageCallback", "", [&] {
        m_sdk->SetAlarmMessageCallback(&OnPluginAlarm);
        return 0;
    });
    GVX_LOG_INFO("Plug-in", "plug-in %s %s of %s started from %s", Name().c_str(), m_info.m_strVersion.c_str(),
                 m_info.m_strMaker.c_str(), m_info.m_strPath.c_str());
    return {};
}

int LoadedPlugin::TakeIntakeBlock(const GvxIntakeBlock& block) const {
    return CallPlugin(Name(), GVX_PLUGIN_TAKE_INTAKE_BLOCK_SYMBOL, "",
                      [&] { return m_library.takeIntake(m_sdk, &block); });
}

LoadedPlugin::~LoadedPlugin() {
    if (m_sdk == nullptr) {
        return;
    }
    CallPlugin(Name(), GVX_PLUGIN_DESTROY_SYMBOL, "", [&] {
        m_library.destroy(m_sdk);
        return 0;
    });
}

StartResult PluginHost::LoadAll(const std::string& dir, const std::vector<std::string>& names,
                                const std::string& configDir) {
    for (const std::string& name : names) {
        const std::string path = dir + "/gvx_plugin_" + name + ".so";
        if (!PluginLibrary::IsName(name)) {
            return Missing(name, dir, "a plug-in's name has 1 to 32 of a-z, 0-9, '_' and '-'");
        }
        if (Find(name) != nullptr) {
            continue;  // named twice
        }
        StartResult failure;
        auto plugin = LoadedPlugin::Load(name, path, configDir + "/plugins/" + name + ".json", failure);
        if (plugin == nullptr) {
            return failure;
        }
        m_plugins.push_back(std::move(plugin));
    }
    return {};
}

bool PluginHost::StopSearches(std::chrono::milliseconds limit) {
    for (const auto& plugin : m_plugins) {
        CallPlugin(plugin->Name(), "StopSearchDevice", "", [&plugin] {
            plugin->Sdk().StopSearchDevice();
            return 0;
        });
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    bool ended = true;
    for (const auto& plugin : m_plugins) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (!plugin->Sdk().WaitSearchEnd(static_cast<unsigned int>(std::max<std::int64_t>(left.count(), 0)))) {
            GVX_LOG_ERR("Stop", "plug-in %s still searches for devices.", plugin->Name().c_str());
            ended = false;
        }
    }
    return ended;
}

void PluginHost::UnloadAll() {
    while (!m_plugins.empty()) {
        m_plugins.pop_back();
    }
}

LoadedPlugin* PluginHost::Find(const std::string& name) const {
    for (const auto& plugin : m_plugins) {
        if (plugin->Name() == name) {
            return plugin.get();
        }
    }
    return nullptr;
}

std::vector<const LoadedPlugin*> PluginHost::All() const {
    std::vector<const LoadedPlugin*> all;
    for (const auto& plugin : m_plugins) {
        all.push_back(plugin.get());
    }
    return all;
}

std::vector<const LoadedPlugin*> PluginHost::TakersOfIntake() const {
    std::vector<const LoadedPlugin*> takers;
    for (const auto& plugin : m_plugins) {
        if (plugin->TakesIntake()) {
            takers.push_back(plugin.get());
        }
    }
    return takers;
}

std::string PluginHost::NameList() const {
    std::string text;
    for (const auto& plugin : m_plugins) {
        text += (text.empty() ? "" : ", ") + plugin->Name();
    }
    return text.empty() ? "none" : text;
}

int PluginHost::TellPlugins() const {
    Json::Value body(Json::objectValue);
    Json::Value& list = body["PluginList"] = Json::Value(Json::arrayValue);
    for (const auto& plugin : m_plugins) {
        Json::Value row(Json::objectValue);
        row["PluginName"] = plugin->Name();
        row["Version"] = plugin->Info().m_strVersion;
        row["Maker"] = plugin->Info().m_strMaker;
        list.append(row);
    }
    return CGvxConnectionMgr::Instance()->SendRetMsgWithJson(NSS_PROTOCOL_PLUGIN_INSTALL_NOTIFY_REQ, WriteJson(body),
                                                             kElementGVX, std::string(), std::string());
}

// Frames wait for the registration: they are let in whatever has become of it.
int PluginHost::RegisterPlugin() {
    int result = ZVS_ALLOC_MEMORY_ERROR;
    try {
        result = TellPlugins();
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE("Plug-ins", result, "Their list is not told to the platform.");
    }
    try {
        if (m_onRegistered) {
            m_onRegistered();
        }
    } catch (const std::exception& fault) {  // what is left of the opening must not go with it
        GVX_LOG_ERR("Plug-ins", "What follows upon their registration ended early: %s", fault.what());
    }
    return result;
}

bool PluginHost::FindPlugin(const std::string& name, BP::CPluginInfo& info) {
    const LoadedPlugin* plugin = Find(name);
    if (plugin == nullptr) {
        return false;
    }
    info = plugin->Info();
    return true;
}

// All plug-ins are loaded at start, so that none is loaded here.
bool PluginHost::InstallPlugin(int protocol, BP::CPluginInfo& info) {
    for (const ProtocolRow& row : kProtocols) {
        LoadedPlugin* const plugin = row.protocol == protocol ? Find(row.plugin) : nullptr;
        if (plugin == nullptr) {
            continue;
        }
        info = plugin->Info();
        info.m_sdkLogSwitch = [this, plugin](std::uint32_t on) {
            return m_caller(plugin->Name(), [plugin, on] {
                return CallPlugin(plugin->Name(), "SetSDKLogSwitch", "",
                                  [&] { return plugin->Sdk().SetSDKLogSwitch(on); });
            });
        };
        info.m_sipStackLogSwitch = [this, plugin](std::uint32_t on) {
            return m_caller(plugin->Name(), [plugin, on] {
                return CallPlugin(plugin->Name(), "setSipStackLogSwitch", "",
                                  [&] { return plugin->Sdk().setSipStackLogSwitch(on); });
            });
        };
        return true;
    }
    return false;
}

std::vector<std::string> SplitNames(const std::string& list) {
    std::vector<std::string> names;
    std::string name;
    for (const char c : list + ",") {
        if (c != ',' && c != ' ' && c != '\t') {
            name += c;
        } else if (!name.empty()) {
            names.push_back(std::exchange(name, std::string()));
        }
    }
    return names;
}

}  // namespace gvx
