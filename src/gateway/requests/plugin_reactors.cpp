#include "gateway/requests/plugin_reactors.h"

#include "base/log.h"
#include "gvx_common/event/gvx_reactor.h"

#include <atomic>
#include <chrono>
#include <future>
#include <new>
#include <optional>
#include <utility>

namespace gvx {

namespace {

constexpr unsigned long kStackBytes = 1048576;  // what a plug-in finds on the reactor of a device, too
constexpr std::chrono::seconds kCallLimit(5);

int NotWaitedFor(const std::string& plugin) {
    GVX_LOG_WARN("Plug-in reactor", "A call of plug-in %s is not waited for: the gateway stops.", plugin.c_str());
    return ZVS_FAIL;
}

}  // namespace

// Gone without an end: the reactor has ended ahead of its turn.
struct PluginCall : BP::CmdAttachment {
    explicit PluginCall(std::function<int()> made) : call(std::move(made)) {}

    // With what it has come to; with nothing when nobody is to wait for that any more.
    void End(std::optional<int> result) {
        if (!ended.exchange(true)) {
            end.set_value(result);
        }
    }

    const std::function<int()> call;
    std::atomic<bool> ended{false};
    std::promise<std::optional<int>> end;
};

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

int PluginReactors::Call(const std::string& plugin, std::function<int()> call) {
    CGvxReactor* const reactor = Of(plugin);
    if (reactor == nullptr) {
        return ZVS_FAIL;
    }
    if (reactor->IsOwnThread()) {
        return call();
    }
    std::future<std::optional<int>> end;
    {
        const auto made = std::make_shared<PluginCall>(std::move(call));
        end = made->end.get_future();
        if (!NoteWaiting(made)) {
            return NotWaitedFor(plugin);
        }
        BP::CCmd cmd;
        cmd.SetReqID(GVX_INTERNAL_REQ_PLUGIN_CALL);
        cmd.SetAttachment(made);
        CGvxNssCmd entry;
        entry.m_pCmd = &cmd;  // the queue takes a clone
        if (reactor->PushMessage(entry) != 0) {
            return ZVS_FAIL;  // the reactor has said so
        }
    }
    if (end.wait_for(kCallLimit) != std::future_status::ready) {
        GVX_LOG_ERR("Plug-in reactor", "Plug-in %s has not returned within %lld s; its call goes on.", plugin.c_str(),
                    static_cast<long long>(kCallLimit.count()));
        return ZVS_FAIL;
    }
    try {
        const std::optional<int> result = end.get();
        return result ? *result : NotWaitedFor(plugin);
    } catch (const std::future_error&) {
        return ZVS_FAIL;
    }
}

int MakePluginCall(GatewayContext& /*context*/, BP::CGvxSessionBase& /*session*/, const BP::CCmd& cmd) {
    const auto made = std::dynamic_pointer_cast<PluginCall>(cmd.GetAttachment());
    if (made == nullptr) {
        return ZVS_PARA_INVALID;
    }
    const int result = made->call();
    made->End(result);
    return result;
}

void PluginReactors::StopWaiting() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stopWaiting = true;
    for (const std::weak_ptr<PluginCall>& waiting : m_waiting) {
        if (const std::shared_ptr<PluginCall> call = waiting.lock()) {
            call->End(std::nullopt);
        }
    }
}

// False when nobody is to wait any more.
bool PluginReactors::NoteWaiting(const std::shared_ptr<PluginCall>& call) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_waiting.remove_if([](const std::weak_ptr<PluginCall>& former) { return former.expired(); });
    if (!m_stopWaiting) {
        m_waiting.push_back(call);
    }
    return !m_stopWaiting;
}

void PluginReactors::End() {
    std::map<std::string, std::unique_ptr<CGvxReactor>> ended;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ended.swap(m_reactors);
    }
}

}  // namespace gvx
