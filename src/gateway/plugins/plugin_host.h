#pragma once

#include "bp/service.h"
#include "gateway/settings/exit_codes.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"
#include "gvx_common/adapter/plugin_library.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace gvx {

// One plug-in that is loaded and has started. Its shared object stays loaded until the process ends: a thread that the
// plug-in left behind must still find its code.
class LoadedPlugin {
public:
    // Loads <path>, checks it against the name and starts it; failure tells why not, and gives null.
    static std::unique_ptr<LoadedPlugin> Load(const std::string& name, const std::string& path,
                                              const std::string& configFile, StartResult& failure);
    // Destroys the plug-in's adapter, on the thread that loaded it.
    ~LoadedPlugin();
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    const BP::CPluginInfo& Info() const { return m_info; }
    const std::string& Name() const { return m_info.m_strName; }
    CAdapterSdkBase& Sdk() const { return *m_sdk; }
    // Whether it asks for what devices push, and its answer to a block. Any thread.
    bool TakesIntake() const { return m_library.takeIntake != nullptr; }
    int TakeIntakeBlock(const GvxIntakeBlock& block) const;

private:
    LoadedPlugin() = default;

    StartResult Open(const std::string& name, const std::string& path);
    StartResult Start(const std::string& configFile);

    BP::CPluginInfo m_info;
    PluginLibrary m_library;
    CAdapterSdkBase* m_sdk = nullptr;  // made and destroyed by the plug-in's own functions
};

// The plug-ins of this process. They are loaded at start, before any other thread asks, and stay until the end;
// lookups need no lock.
class PluginHost : public BP::IPluginRegistry {
public:
    // Loads <dir>/gvx_plugin_<name>.so for each name, in order, and ends at the first failure. A plug-in's own
    // configuration file is <configDir>/plugins/<name>.json.
    StartResult LoadAll(const std::string& dir, const std::vector<std::string>& names, const std::string& configDir);
    // Ends the searches of all plug-ins. False when the probes of one have not returned within the limit; its adapter
    // must then not be destroyed.
    bool StopSearches(std::chrono::milliseconds limit);
    // Destroys every adapter, last one first. Not before the last device of each is gone.
    void UnloadAll();

    LoadedPlugin* Find(const std::string& name) const;  // null when there is none
    std::vector<const LoadedPlugin*> All() const;
    // Those that ask for what devices push, in the order of their loading.
    std::vector<const LoadedPlugin*> TakersOfIntake() const;
    // The names, parted by ", "; "none" without one.
    std::string NameList() const;

    // Sends NSS_PROTOCOL_PLUGIN_INSTALL_NOTIFY_REQ with the list of plug-ins to the main service.
    int RegisterPlugin() override;
    // What follows upon each RegisterPlugin, on its thread. To be set before the first.
    void OnRegistered(std::function<void()> followUp) { m_onRegistered = std::move(followUp); }
    // Who makes a call of a plug-in on the plug-in's own thread, and gives its result. To be set before the first edit.
    using Caller = std::function<int(const std::string& plugin, std::function<int()> call)>;
    void SetCaller(Caller caller) { m_caller = std::move(caller); }
    bool FindPlugin(const std::string& name, BP::CPluginInfo& info) override;
    // By the name that a protocol's plug-in has, such as "onvif".
    bool InstallPlugin(int protocol, BP::CPluginInfo& info) override;

private:
    int TellPlugins() const;

    std::vector<std::unique_ptr<LoadedPlugin>> m_plugins;
    std::function<void()> m_onRegistered;
    Caller m_caller;
};

// Cuts a list at commas and blanks; empty parts are left out.
std::vector<std::string> SplitNames(const std::string& list);

}  // namespace gvx
