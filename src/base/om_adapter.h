#pragma once

#include <cstdarg>
#include <cstddef>
#include <memory>
#include <string>

namespace gvx {
struct LogFileState;
}

// Severity of a log line; the numbers are those of syslog (RFC 5424, section 6.2.1).
enum enOMLogLevel : int {
    OM_LOG_EMERG = 0,
    OM_LOG_ALERT = 1,
    OM_LOG_CRIT = 2,
    OM_LOG_ERR = 3,
    OM_LOG_WARNING = 4,
    OM_LOG_NOTICE = 5,
    OM_LOG_INFO = 6,
    OM_LOG_DEBUG = 7,
};

// Name of a level as it stands in a log line: "EMERG", "ALERT", "CRIT", "ERR", "WARNING",
// "NOTICE", "INFO", "DEBUG". Any other value gives "UNKNOWN".
const char* OMLogLevelName(int level);

// Where a line was written: compile-time constants of the call site.
struct OMLogPlace {
    const char* file;
    int line;
    const char* function;
};

// A sink of log lines. Every operation may be called from any thread at any time and does not throw.
class IOMLogger {
public:
    virtual ~IOMLogger() = default;

    // False when a line of this level would not be written, so that the caller need not format it.
    virtual bool IsEnabled(int level) const noexcept = 0;

    // Writes one line. The title says which activity the line belongs to, the format what was found;
    // format and arguments are those of printf. Nothing is kept of the arguments after the return.
    virtual void VLog(int level, const char* title, const OMLogPlace& place, const char* format, va_list args)
        __attribute__((format(printf, 5, 0))) = 0;

    // A line at debug level, without a title.
    virtual void VDebug(const OMLogPlace& place, const char* format, va_list args)
        __attribute__((format(printf, 3, 0))) = 0;

    // Pushes out what is buffered.
    virtual void Flush() {}

    // Opens the log's file by its name, which somebody may have given to another file. A fault shows with CheckFile.
    virtual void OpenAnew() {}

    // Lines above this number are not written. SetLevel is false for a logger whose level stays.
    virtual int Level() const noexcept { return OM_LOG_DEBUG; }
    virtual bool SetLevel(int /*level*/) noexcept { return false; }

    // Looks after the log's file: opens it anew where its name is gone, tries again what has failed, and tells how it
    // stands. False when the logger has no file.
    virtual bool CheckFile(gvx::LogFileState& /*state*/) { return false; }
};

// The process-wide place where the logger is found. Without setLogger there is none, and getLogger gives
// null: every caller tests it, most of them through the macros of base/log.h.
class OMAdapter {
public:
    static OMAdapter* getInstance();

    IOMLogger* getLogger() const noexcept;

    // The same with its ownership, so that it can be put back later. Takes a lock.
    std::shared_ptr<IOMLogger> getSharedLogger() const;

    // Installs a logger, null included. Loggers stay alive until the process ends, so a line that another
    // thread is writing at this moment is finished on the logger that it began on.
    void setLogger(std::shared_ptr<IOMLogger> logger);

    // The operation log, a logger of its own beside the debug log: what the gateway did for the platform, for
    // operators. Without one of its own its lines go to the debug log. Kept like the loggers above.
    IOMLogger* getOperationLogger() const noexcept;
    void setOperationLogger(std::shared_ptr<IOMLogger> logger);

private:
    OMAdapter() = default;
};
