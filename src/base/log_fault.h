#pragma once

#include "base/periodic_thread.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>

class IOMLogger;

namespace gvx {

// What may be wrong with a log file, by the numbers under which it is told. A fault that has ended is told by the same
// number plus kLogFaultEnded. Path and name of the file are those of the log itself, also where a backup is at fault.
enum LogFault : unsigned int {
    // Lines cannot be recorded as they should be:
    LOG_FAULT_OPEN = 500,   // the folder is missing, no folder or not writable, or the file cannot be opened
    LOG_FAULT_WRITE = 502,  // writing failed or the file system is full; lines are lost
    LOG_FAULT_BOUND = 504,  // the file has outgrown its limit four times for want of a backup; lines are lost
    // Backups cannot be made; the log goes on in its file, beyond its limit:
    LOG_FAULT_BACKUP = 503,  // the file cannot take the name of its first backup
    LOG_FAULT_SHIFT = 505,   // an older backup cannot take the next name
    LOG_FAULT_REMOVE = 506,  // the oldest backup cannot be removed
};
constexpr unsigned int kLogFaultEnded = 50;
constexpr LogFault kLogFaults[] = {LOG_FAULT_OPEN,   LOG_FAULT_WRITE, LOG_FAULT_BOUND,
                                   LOG_FAULT_BACKUP, LOG_FAULT_SHIFT, LOG_FAULT_REMOVE};

// Some of the faults.
class LogFaultSet {
public:
    bool Has(LogFault fault) const { return (m_bits & Bit(fault)) != 0; }
    bool HasBackupFault() const { return Has(LOG_FAULT_BACKUP) || Has(LOG_FAULT_SHIFT) || Has(LOG_FAULT_REMOVE); }
    void Set(LogFault fault, bool on) { m_bits = on ? m_bits | Bit(fault) : m_bits & ~Bit(fault); }
    void Add(const LogFaultSet& other) { m_bits |= other.m_bits; }

private:
    static std::uint32_t Bit(LogFault fault) { return 1u << (static_cast<unsigned int>(fault) - LOG_FAULT_OPEN); }

    std::uint32_t m_bits = 0;
};

// How a log file stands after a look at it.
struct LogFileState {
    std::string folder;
    std::string name;
    LogFaultSet occurred;  // at any time since the last look
    LogFaultSet open;      // now
};

// Looks after the files of the debug log and the operation log, and tells each fault and each end of one, once. A look
// comes four times a second, so what happens while nothing is logged is seen, too. The first look at a file tells the
// end of every fault that it does not have: one may be remembered from before.
class LogFaultWatch {
public:
    // code is a LogFault, or one plus kLogFaultEnded. Called on the watch's thread, outside every lock of the loggers,
    // and may log.
    using Callback = std::function<void(unsigned int code, const char* folder, const char* name)>;

    explicit LogFaultWatch(Callback callback) : m_callback(std::move(callback)) {}
    ~LogFaultWatch() { Stop(); }
    LogFaultWatch(const LogFaultWatch&) = delete;
    LogFaultWatch& operator=(const LogFaultWatch&) = delete;

    // Makes the thread; false, with a log line, when that fails. Stop returns when no callback runs any more.
    bool Start();
    void Stop() { m_thread.Stop(); }

    // One look; for owners that make no thread.
    void Look();

private:
    struct Told {
        bool any = false;
        LogFaultSet open;
    };

    void Look(IOMLogger& logger);
    void Tell(Told& told, const LogFileState& state) const;

    const Callback m_callback;
    std::map<const IOMLogger*, Told> m_told;  // of the thread alone; loggers live until the process ends
    PeriodicThread m_thread;
};

}  // namespace gvx
