#pragma once

#include "base/zvs_error.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <list>
#include <mutex>
#include <string>
#include <vector>

namespace gvx {

// What is wrong with one operation of a plug-in for one device, from the first time that it went wrong on.
struct PluginTrouble {
    enum class Kind {
        DoesNotReturn,  // a call has taken longer than GVX_PLUGIN_CALL_LIMIT
        Fails,          // an error was answered
        Throws,         // an exception left the operation
        CallsLate,      // it calls back for a stream or a device that is gone
        LeftBehind,     // it may still use objects whose time is over; they are kept
    };

    std::string plugin;  // "-" where the plug-in is not known
    std::string operation;
    std::string device;  // "-" where the call concerns no device
    Kind kind = Kind::Fails;
    std::time_t since = 0;     // wall time, seconds since 1970
    std::int64_t sinceMs = 0;  // the same by the monotonic clock
    std::uint64_t count = 0;   // how often it has gone wrong since
    int code = 0;              // of the last failure; 0 where there is none
    std::string text;          // what the plug-in said of it; may be empty
};

// The troubles that plug-ins make now, for the log and for whoever shows a status. An episode begins with a line of the
// log and is counted until it ends: by a call that succeeds or returns, or with the device. At most kMost are kept; the
// oldest goes first. Any thread.
class PluginTroubles {
public:
    static constexpr std::size_t kMost = 1000;

    static PluginTroubles& Instance();

    // True when an episode begins, or goes on with another code or text: the caller then writes its line.
    bool Note(PluginTrouble::Kind kind, const std::string& plugin, const std::string& operation,
              const std::string& device, int code = ZVS_SUCCEED, const std::string& text = std::string());
    // The operation has succeeded. Ends its failures and exceptions, with a line.
    void Succeeded(const std::string& plugin, const std::string& operation, const std::string& device);
    // The call that did not return has returned after all. Ends that episode, with a line.
    void Returned(const std::string& plugin, const std::string& operation, const std::string& device);
    // A device of that code is there from now on: late calls for it are over.
    void DeviceAdded(const std::string& device);
    // The device was deleted: what it was about is over, except for what is left behind and for late calls.
    void DeviceDeleted(const std::string& device);
    // A gateway starts anew.
    void Clear();

    std::vector<PluginTrouble> List() const;

    // A word for a kind, such as "does not return".
    static const char* Text(PluginTrouble::Kind kind);

private:
    using Troubles = std::list<PluginTrouble>;

    template <typename Matches>
    void End(const Matches& matches, bool tells);

    mutable std::mutex m_mutex;
    Troubles m_troubles;                 // Guarded by m_mutex; oldest first.
    std::atomic<std::size_t> m_open{0};  // Their number, so that a success need not look.
};

}  // namespace gvx
