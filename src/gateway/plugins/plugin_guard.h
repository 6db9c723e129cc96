#pragma once

#include "base/periodic_thread.h"
#include "base/zvs_error.h"
#include "gvx_common/adapter/gvx_reason.h"

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace gvx {

// Every call into a plug-in that has not returned yet. A thread of its own looks through them and names each call
// that takes too long, once; it is then among the PluginTroubles until it returns. Any thread.
class PluginCallWatch {
public:
    struct Call {
        std::string plugin;
        const char* operation = "";  // static text
        std::string device;          // "-" where the call concerns no device
        std::int64_t sinceMs = 0;    // monotonic
        bool named = false;
    };

    static PluginCallWatch& Instance();

    // Starts the thread "PluginWatch"; a call is named when it has not returned for limitMs. Stop ends it. Without a
    // thread to be had a line says so, and calls are named by a stop alone.
    void Start(std::int64_t limitMs);
    void Stop();
    // The limit of the last start.
    std::int64_t LimitMs() const { return m_limitMs; }

    std::list<Call>::iterator Enter(const std::string& plugin, const char* operation, const std::string& device);
    void Leave(std::list<Call>::iterator call);

    // Names every call that is older than the limit and was not named before; returns how many.
    std::size_t NameOverdue(std::int64_t limitMs);
    // Names every open call whatever its age, for a stop that leaves them behind; returns how many.
    std::size_t NameOpen();
    std::vector<Call> OpenCalls() const;

private:
    mutable std::mutex m_mutex;
    std::list<Call> m_calls;  // Guarded by m_mutex.
    std::atomic<std::int64_t> m_limitMs{10000};
    PeriodicThread m_thread;
};

// An open call for as long as it lives. Without memory it is not watched. The thread meanwhile has the signal mask that
// SetMask has told: what the plug-in starts, threads and programs, inherits it.
class PluginCallScope {
public:
    // The mask that the process was started with; before the first call. Unless told, threads keep the one they have.
    static void SetMask(const sigset_t& mask);

    PluginCallScope(const std::string& plugin, const char* operation, const std::string& device) noexcept;
    ~PluginCallScope();
    PluginCallScope(const PluginCallScope&) = delete;
    PluginCallScope& operator=(const PluginCallScope&) = delete;

private:
    std::optional<std::list<PluginCallWatch::Call>::iterator> m_call;
    sigset_t m_formerMask{};
};

// The line about an exception that left a plug-in, one for an episode (PluginTroubles); what may be null.
void LogPluginException(const std::string& plugin, const char* operation, const std::string& device,
                        const char* what) noexcept;
// The same about an error that a plug-in answers, with the reason that it gives, which may be empty.
void LogPluginError(const std::string& plugin, const char* operation, const std::string& device, int code,
                    const std::string& reason = std::string());

// The operation has succeeded: ends its failures and exceptions.
void NoteSuccess(const std::string& plugin, const char* operation, const std::string& device);

// What a call has answered: a log line and an episode for a failure, the end of one for a success. reason, which may be
// null, gets the plug-in's words of a failure. Without memory the words are lost.
void NoteResult(const std::string& plugin, const char* operation, const std::string& device, int code,
                std::string* reason) noexcept;

// Calls into a plug-in. An exception becomes the failure value and a log line; so the caller sees results only.
template <typename Result, typename Function>
Result GuardPluginCall(const std::string& plugin, const char* operation, const std::string& device, Result failure,
                       Function&& function) {
    const PluginCallScope scope(plugin, operation, device);
    try {
        return std::forward<Function>(function)();
    } catch (const std::exception& error) {
        LogPluginException(plugin, operation, device, error.what());
    } catch (...) {
        LogPluginException(plugin, operation, device, nullptr);
    }
    return failure;
}

// The same for operations that answer 0 or an error code: an exception is ZVS_GVX_PLUGIN_EXCEPTION, and an error is
// logged with the plug-in's name. reason, which may be null, gets the plug-in's own words for a failure; empty when it
// gives none.
template <typename Function>
int CallPlugin(const std::string& plugin, const char* operation, const std::string& device, Function&& function,
               std::string* reason = nullptr) {
    GvxSetReason("%s", "");  // forgets what an earlier call has left behind
    if (reason != nullptr) {
        reason->clear();
    }
    bool returned = false;
    const int code = GuardPluginCall<int>(plugin, operation, device, ZVS_GVX_PLUGIN_EXCEPTION, [&] {
        const int result = function();
        returned = true;
        return result;
    });
    if (returned) {
        NoteResult(plugin, operation, device, code, reason);
    }
    return code;
}

// What of the plug-in is left behind, for the status. Without memory the status does not show it.
void NoteLeftBehind(const std::string& plugin, const char* what, const std::string& device) noexcept;

// Room for an object that a misbehaving plug-in may still use when its time is over: a thread of it may run on. Made
// with the object, since leaving it behind must not fail for want of memory.
class LeaveRoom {
public:
    LeaveRoom() : m_room(1) {}

    // Keeps the object for the life of the process rather than have it pulled from under the plug-in. Once; null is
    // nothing. Any thread.
    void Keep(std::shared_ptr<void> object) noexcept;
    // The same for one that nobody deletes any more.
    void Keep(void* object) noexcept { Keep(std::shared_ptr<void>(std::shared_ptr<void>(), object)); }

private:
    std::list<std::shared_ptr<void>> m_room;
};
// Number of objects kept; non-zero means that the process must not end through destructors. Any thread.
std::size_t LeftBehindCount();

}  // namespace gvx
