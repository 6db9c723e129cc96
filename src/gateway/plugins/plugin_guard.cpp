#include "gateway/plugins/plugin_guard.h"

#include "base/clock.h"
#include "base/log.h"
#include "gateway/alarms/plugin_troubles.h"
#include "gvx_common/adapter/gvx_device_state.h"

#include <chrono>
#include <cstring>
#include <new>
#include <system_error>

#include <pthread.h>

namespace gvx {

namespace {

constexpr std::chrono::milliseconds kWatchPeriod(500);

struct KeptList {
    std::mutex mutex;
    std::list<std::shared_ptr<void>> objects;  // Guarded by mutex.
};

// Never destroyed: a thread that runs on may outlive every static object.
KeptList& KeptObjects() {
    static auto* const keep = new KeptList;
    return *keep;
}

// Of the process; empty while none is told.
std::optional<sigset_t> g_callMask;

void NameCall(const PluginCallWatch::Call& call, std::int64_t nowMs) {
    GVX_LOG_ERR("Plug-in does not return", "plug-in %s: %s of device %s has not returned for %lld s",
                call.plugin.c_str(), call.operation, call.device.c_str(),
                static_cast<long long>((nowMs - call.sinceMs) / 1000));
}

}  // namespace

PluginCallWatch& PluginCallWatch::Instance() {
    static PluginCallWatch instance;
    return instance;
}

void PluginCallWatch::Start(std::int64_t limitMs) {
    m_limitMs = limitMs;
    try {
        m_thread.Start("PluginWatch", kWatchPeriod, [this, limitMs] { NameOverdue(limitMs); });
    } catch (const std::system_error& fault) {
        GVX_LOG_ERR("Plug-in watch", "There is no thread for it: calls that do not return are not told. %s.",
                    fault.what());
    }
}

void PluginCallWatch::Stop() {
    m_thread.Stop();
}

std::list<PluginCallWatch::Call>::iterator PluginCallWatch::Enter(const std::string& plugin, const char* operation,
                                                                  const std::string& device) {
    Call call{plugin, operation, device.empty() ? "-" : device, MonotonicMilliseconds()};
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls.insert(m_calls.end(), std::move(call));
}

void PluginCallWatch::Leave(std::list<Call>::iterator call) {
    Call returned;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        returned = std::move(*call);
        m_calls.erase(call);
    }
    if (returned.named) {
        PluginTroubles::Instance().Returned(returned.plugin, returned.operation, returned.device);
    }
}

std::size_t PluginCallWatch::NameOverdue(std::int64_t limitMs) {
    const std::int64_t nowMs = MonotonicMilliseconds();
    std::vector<Call> overdue;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (Call& call : m_calls) {
            if (call.named || nowMs - call.sinceMs < limitMs) {
                continue;
            }
            try {
                overdue.push_back(call);
                // Under the lock: the call may return at any moment, and ends the episode then.
                PluginTroubles::Instance().Note(PluginTrouble::Kind::DoesNotReturn, call.plugin, call.operation,
                                                call.device);
                call.named = true;
            } catch (const std::bad_alloc&) {
                break;  // the next turn names it
            }
        }
    }
    for (const Call& call : overdue) {
        NameCall(call, nowMs);
    }
    return overdue.size();
}

void PluginCallScope::SetMask(const sigset_t& mask) {
    g_callMask = mask;
}

PluginCallScope::PluginCallScope(const std::string& plugin, const char* operation, const std::string& device) noexcept {
    if (g_callMask.has_value()) {
        pthread_sigmask(SIG_SETMASK, &*g_callMask, &m_formerMask);
    }
    try {
        m_call = PluginCallWatch::Instance().Enter(plugin, operation, device);
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE("Plug-in watch", ZVS_ALLOC_MEMORY_ERROR, "There is no memory to watch %s of plug-in %s.",
                         operation, plugin.c_str());
    }
}

PluginCallScope::~PluginCallScope() {
    if (g_callMask.has_value()) {
        pthread_sigmask(SIG_SETMASK, &m_formerMask, nullptr);
    }
    if (m_call.has_value()) {
        PluginCallWatch::Instance().Leave(*m_call);
    }
}

std::size_t PluginCallWatch::NameOpen() {
    const std::vector<Call> open = OpenCalls();
    for (const Call& call : open) {
        NameCall(call, MonotonicMilliseconds());
    }
    return open.size();
}

std::vector<PluginCallWatch::Call> PluginCallWatch::OpenCalls() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_calls.begin(), m_calls.end()};
}

void LogPluginException(const std::string& plugin, const char* operation, const std::string& device,
                        const char* what) noexcept {
    const char* const text = what == nullptr ? "not a std::exception" : what;
    constexpr std::size_t kKeptBytes = 511;  // of a text that the plug-in chose
    try {
        const std::string kept(text, strnlen(text, kKeptBytes));
        NoteDeviceError(device, std::string(operation) + " threw: " + kept);
        if (!PluginTroubles::Instance().Note(PluginTrouble::Kind::Throws, plugin, operation, device,
                                             ZVS_GVX_PLUGIN_EXCEPTION, kept)) {
            return;
        }
    } catch (const std::exception&) {
        // No memory for the note: the line is written all the same.
    }
    GVX_LOG_ERR_CODE("Plug-in exception", ZVS_GVX_PLUGIN_EXCEPTION, "plug-in %s: %s of device %s threw: %s",
                     plugin.c_str(), operation, device.empty() ? "-" : device.c_str(), text);
}

void LogPluginError(const std::string& plugin, const char* operation, const std::string& device, int code,
                    const std::string& reason) {
    if (code != ZVS_GVX_DEV_UN_SUPPORT) {
        NoteDeviceError(device, std::string(operation) + " failed with " + ZvsErrorName(code) +
                                    (reason.empty() ? "." : ". " + reason));
    }
    // What a plug-in does not support is no trouble of it.
    if (code != ZVS_GVX_DEV_UN_SUPPORT &&
        !PluginTroubles::Instance().Note(PluginTrouble::Kind::Fails, plugin, operation, device, code, reason)) {
        return;
    }
    GVX_LOG_ERR_CODE("Plug-in error", code, "plug-in %s: %s of device %s failed.%s%s", plugin.c_str(), operation,
                     device.empty() ? "-" : device.c_str(), reason.empty() ? "" : " ", reason.c_str());
}

void NoteSuccess(const std::string& plugin, const char* operation, const std::string& device) {
    PluginTroubles::Instance().Succeeded(plugin, operation, device);
}

void NoteResult(const std::string& plugin, const char* operation, const std::string& device, int code,
                std::string* reason) noexcept {
    try {
        if (code == ZVS_SUCCEED) {
            NoteSuccess(plugin, operation, device);
            return;
        }
        std::string said = GvxTakeReason();
        LogPluginError(plugin, operation, device, code, said);
        if (reason != nullptr) {
            *reason = std::move(said);
        }
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE("Plug-in error", code, "plug-in %s: %s ended, and there is no memory for more of it.",
                         plugin.c_str(), operation);
    }
}

void NoteLeftBehind(const std::string& plugin, const char* what, const std::string& device) noexcept {
    try {
        PluginTroubles::Instance().Note(PluginTrouble::Kind::LeftBehind, plugin, what, device);
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE("Plug-in trouble", ZVS_ALLOC_MEMORY_ERROR, "plug-in %s: %s of device %s is left behind.",
                         plugin.c_str(), what, device.c_str());
    }
}

void LeaveRoom::Keep(std::shared_ptr<void> object) noexcept {
    KeptList& keep = KeptObjects();
    const std::lock_guard<std::mutex> lock(keep.mutex);
    if (object != nullptr && !m_room.empty()) {
        m_room.front() = std::move(object);
        keep.objects.splice(keep.objects.end(), m_room);
    }
}

std::size_t LeftBehindCount() {
    KeptList& keep = KeptObjects();
    const std::lock_guard<std::mutex> lock(keep.mutex);
    return keep.objects.size();
}

}  // namespace gvx
