#include "gateway/requests/plugin_reactors.h"

#include "base/log.h"
#include "gvx_common/event/gvx_reactor.h"

#include <new>
#include <utility>

namespace gvx {

namespace {

constexpr unsigned long kStackBytes = 1048576;  // what a plug-in finds on the reactor of a device, too

}  // namespace

PluginReactors::PluginReactors() = default;

PluginReactors::~PluginReactors() {
    End();
}

CGvxReactor* PluginReactors::Of(const std::string& plugin) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (const auto found = m_reactors.find(plugin); found != m_reactors.end()) {
            return found->second.get();
        }
    }
    // Made without the lock, since it waits for its thread; one that comes second goes again.
    try {
        auto reactor = std::make_unique<CGvxReactor>(kStackBytes, "Plugin");
        if (!reactor->IsRunning()) {
            GVX_LOG_ERR("Plug-in reactor", "There is no thread or no descriptor for the requests of plug-in %s.",
                        plugin.c_str());
            return nullptr;
        }
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_reactors.try_emplace(plugin, std::move(reactor)).first->second.get();
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE("Plug-in reactor", ZVS_ALLOC_MEMORY_ERROR,
                         "There is no memory for the requests of plug-in %s.", plugin.c_str());
        return nullptr;
    }
}

void PluginReactors::End() {
    std::map<std::string, std::unique_ptr<CGvxReactor>> ended;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ended.swap(m_reactors);
    }
}

}  // namespace gvx
