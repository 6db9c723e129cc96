#include "base/clock.h"
#include "base/default_logger.h"
#include "base/log.h"
#include "base/om_adapter.h"
#include "base/paths.h"
#include "base/shortage.h"
#include "gateway/admin/admin.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/process/allocator.h"
#include "gateway/process/config_check.h"
#include "gateway/process/gateway.h"
#include "gateway/process/overdue_watch.h"
#include "gateway/process/process_signals.h"
#include "gateway/process/reload_thread.h"
#include "gateway/process/service_manager.h"
#include "gateway/process/startup_log.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/config/settings_check.h"

#include <ace/Log_Msg.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>

#include <unistd.h>

namespace gvx {

namespace {

// A stop is over within 2 s; the tenths between are for the last lines of the log.
constexpr std::chrono::milliseconds kStopLimit(1800);
// A start that is stopped gets the greater part of them.
constexpr std::chrono::milliseconds kStartLimit(1500);
constexpr std::chrono::milliseconds kSignalWait(1000);

std::size_t MebiBytes(Setting setting) {
    constexpr std::size_t kMebiByte = 1024u * 1024u;
    return static_cast<std::size_t>(SettingNumber(setting)) * kMebiByte;
}

int Number(ExitCode code) {
    return static_cast<int>(code);
}

void FlushLog() {
    if (IOMLogger* logger = OMAdapter::getInstance()->getLogger()) {
        logger->Flush();
    }
}

// Whatever could not be done for want of a resource, it is the resource that the operator must see to.
StartResult WithShortage(StartResult result) {
    const std::string shortage = LastShortage();
    if (!shortage.empty() && result.code != ExitCode::StartAbandoned) {
        result.code = ExitCode::OutOfResources;
        result.reason += ": " + shortage;
    } else if (result.code == ExitCode::OutOfResources) {
        result.reason += ": whether a thread, a descriptor or memory was missing is not known";
    }
    return result;
}

int RefuseStart(const StartResult& found, const char* verdict = "does not start") {
    const StartResult result = WithShortage(found);
    GVX_LOG_ERR("gvxd", "gvxd %s, exit code %d: %s", verdict, Number(result.code), result.reason.c_str());
    FlushLog();
    std::fprintf(stderr, "gvxd: %s\n", result.reason.c_str());
    return Number(result.code);
}

// Ends the process as it stands: a thread that a plug-in holds up cannot be joined.
[[noreturn]] void LeaveBehindAndExit(ExitCode code) {
    GVX_LOG_WARN("gvxd", "gvxd stops and leaves behind what does not return");
    FlushLog();
    _exit(Number(code));
}

// The same for a start that a signal has ended; the thread that starts is still at it.
[[noreturn]] void AbandonStart(int signal) try {
    std::string reason = "stopped by signal " + std::to_string(signal) + " during its start";
    for (const PluginCallWatch::Call& call : PluginCallWatch::Instance().OpenCalls()) {
        reason += ", plug-in " + call.plugin + ": " + call.operation + " does not return";
    }
    _exit(RefuseStart(StartFailure(ExitCode::StartAbandoned, std::move(reason))));
} catch (const std::exception&) {
    std::fputs("gvxd: stopped by a signal during its start\n", stderr);
    _exit(Number(ExitCode::StartAbandoned));
}

// The command line's, else what is configured now.
int LogLevel(const GatewayOptions& options) {
    return options.logLevel.value_or(
        static_cast<int>(std::min(SettingNumber(Setting::GVX_LOG_LEVEL), SettingNumber(Setting::LogLevel))));
}

// With a log file the log goes there as soon as the file is known. Without one, and with one that cannot be opened, it
// goes to standard error, but not before the start has succeeded: a failed start writes its one line and nothing else.
class StartLogging {
public:
    StartLogging() { OMAdapter::getInstance()->setLogger(m_startup); }

    // The file of the command line, once nobody else can be writing to it. What is logged until the configuration is
    // loaded has its form already.
    void Begin(const GatewayOptions& options) {
        std::string directory;
        std::string format;
        m_options.json = get_config_directory(directory) == 0 &&
                         PeekSetting(directory, Setting::GVX_LOG_FORMAT, format) && format == "json";
        m_options.file = options.logFile;
        m_options.level = options.logLevel.value_or(OM_LOG_INFO);
        InstallFile();
    }

    // The configuration stands behind the command line.
    void Configured(const GatewayOptions& options) {
        m_options.level = LogLevel(options);
        m_options.maxFileBytes = MebiBytes(Setting::LogFileSize);
        m_options.maxFiles = static_cast<std::size_t>(SettingNumber(Setting::LogBackupCount));
        m_options.json = SettingText(Setting::GVX_LOG_FORMAT) == "json";
        m_options.repeatLimit = static_cast<std::size_t>(SettingNumber(Setting::GVX_LOG_REPEAT_LIMIT));
        if (m_options.file.empty()) {
            m_options.file = SettingText(Setting::GVX_LOG_FILE);
        }
        InstallFile();
    }

    // The log fault alarm tells of a file that is missing, and the log goes there, too, when it can be opened.
    void Succeeded() {
        if (m_installed) {
            return;
        }
        m_options.console = true;
        m_options.triesAgain = true;
        m_startup->HandOver(MakeDefaultLogger(m_options, nullptr));
        if (!m_fault.empty()) {
            GVX_LOG_ERR("Log file", "%s; the log goes to standard error", m_fault.c_str());
        }
    }

private:
    void InstallFile() {
        if (m_options.file.empty() || (m_installed && SameAsInstalled())) {
            return;
        }
        m_options.console = false;
        if (auto logger = MakeDefaultLogger(m_options, &m_fault)) {
            m_startup->HandOver(std::move(logger));
            m_installed = true;
            m_installedOptions = m_options;
        }
    }

    bool SameAsInstalled() const {
        return m_installedOptions.level == m_options.level && m_installedOptions.maxFiles == m_options.maxFiles &&
               m_installedOptions.maxFileBytes == m_options.maxFileBytes && m_installedOptions.json == m_options.json &&
               m_installedOptions.repeatLimit == m_options.repeatLimit;
    }

    OMLoggerOptions m_options;
    const std::shared_ptr<StartupLog> m_startup = std::make_shared<StartupLog>(OM_LOG_DEBUG);
    bool m_installed = false;
    std::string m_fault;  // why the file could not be opened
    OMLoggerOptions m_installedOptions;
};

// Opens the files of the logs by their names, which somebody may have given to other files.
void OpenLogsAnew() {
    IOMLogger* const debugLog = OMAdapter::getInstance()->getLogger();
    IOMLogger* const operationLog = OMAdapter::getInstance()->getOperationLogger();
    if (debugLog != nullptr) {
        debugLog->OpenAnew();
    }
    if (operationLog != nullptr && operationLog != debugLog) {
        operationLog->OpenAnew();
    }
}

// Begins the operation log in the file of GVX_OPERATION_LOG_FILE, if there is one; where that cannot be opened, its
// lines go to standard error, too, and to the file as soon as it can be.
void StartOperationLog() {
    OMLoggerOptions options;
    options.console = false;
    options.file = SettingText(Setting::GVX_OPERATION_LOG_FILE);
    options.level = static_cast<int>(SettingNumber(Setting::operationLogLevel));
    options.maxFileBytes = MebiBytes(Setting::operationLogFileSize);
    options.maxFiles = static_cast<std::size_t>(SettingNumber(Setting::operationLogBackupCount));
    options.json = SettingText(Setting::GVX_LOG_FORMAT) == "json";
    if (options.file.empty()) {
        return;
    }
    std::string error;
    auto logger = MakeDefaultLogger(options, &error);
    if (logger == nullptr) {
        GVX_LOG_ERR("Operation log file", "%s; its lines go to standard error", error.c_str());
        options.console = options.triesAgain = true;
        logger = MakeDefaultLogger(options, nullptr);
    }
    OMAdapter::getInstance()->setOperationLogger(std::move(logger));
}

// What throws ends the process as it stands: what has been started cannot be stopped in order without memory. what
// says what came to its end by it.
[[noreturn]] void EndEarly(const char* what, const std::exception& fault) noexcept {
    NoteShortage(fault);
    try {
        _exit(RefuseStart(StartFailure(ExitCode::StartFailed, std::string(what) + " ended early: " + fault.what()),
                          "ends"));
    } catch (const std::exception&) {
        std::fprintf(stderr, "gvxd: %s ended early: no memory to be had\n", what);
        _exit(Number(ExitCode::OutOfResources));
    }
}

StartResult StartAll(Gateway& gateway, StartLogging& logging, const GatewayOptions& options) try {
    RaiseDescriptorLimit();
    StartResult result = gateway.TakeFolders(options);
    if (result.Failed()) {
        return result;
    }
    logging.Begin(options);
    result = gateway.LoadConfiguration();
    if (result.Failed()) {
        return result;
    }
    logging.Configured(options);
    StartOperationLog();
    return gateway.Start(options);
} catch (const std::exception& fault) {
    EndEarly("the start", fault);
}

// Comes back only when nothing is left behind.
void StopInTime(Gateway& gateway, ReloadThread& reload, OverdueWatch& watch, std::chrono::milliseconds limit,
                ExitCode code) {
    watch.Begin([] { return true; }, limit,
                [code] {
                    try {
                        PluginCallWatch::Instance().NameOpen();
                    } catch (const std::exception& fault) {
                        GVX_LOG_ERR("Stop", "What is left behind cannot be named: %s", fault.what());
                    }
                    LeaveBehindAndExit(code);
                });
    bool stopped = false;
    try {
        gateway.StopWaiting();
        reload.Wait();  // it may be at the plug-ins
        stopped = gateway.Stop();
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Stop", "The stop ended early: %s", fault.what());
    }
    if (!stopped) {
        LeaveBehindAndExit(code);
    }
    watch.End();
}

// What SIGHUP asks for.
void Reload(const GatewayOptions& options, const ServiceManager& manager) {
    try {
        manager.Reloading();
        OpenLogsAnew();
        CGvxConfigMgr::Instance()->Reload();  // says in the log what it has found
        if (IOMLogger* const logger = OMAdapter::getInstance()->getLogger()) {
            logger->SetLevel(LogLevel(options));
        }
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("gvxd", "The reload ended early: %s", fault.what());
    }
    manager.Ready();
}

// What an operator asks for by a signal. No signal ends the gateway but those that ask for its stop.
void ServeSignal(ProcessSignals::Event event, ReloadThread& reload) {
    if (event == ProcessSignals::Event::Reload) {
        reload.Ask();
    } else if (event == ProcessSignals::Event::Status) {
        WriteStatusToLog();
    }
}

// Serves until a signal asks for the stop; gives its number. A service manager that watches hears nothing while event
// threads do not answer, and begins the gateway anew.
int ServeUntilStop(ProcessSignals& signals, ReloadThread& reload, const ServiceManager& manager) {
    const bool watched = manager.WatchdogTime().count() != 0;
    const std::chrono::milliseconds period = watched ? manager.WatchdogTime() / 3 : kSignalWait;
    std::int64_t nextSignMs = MonotonicMilliseconds();
    SpareMemory spareMemory;
    manager.Ready();
    for (;;) {
        const ProcessSignals::Event event = signals.Wait(period);
        if (event == ProcessSignals::Event::Stop) {
            manager.Stopping();
            return signals.First();
        }
        try {
            ServeSignal(event, reload);
            spareMemory.Look(MonotonicMilliseconds());
            if (watched && MonotonicMilliseconds() >= nextSignMs && EventThreadsAlive()) {
                manager.Alive();
                nextSignMs = MonotonicMilliseconds() + period.count();
            }
        } catch (const std::exception& fault) {
            GVX_LOG_ERR("gvxd", "What was to be done beside serving could not be: %s", fault.what());
        }
    }
}

// The whole of gvxd: reads the command line, starts, waits for a stop signal, stops. The result is the exit code.
int Run(int argc, const char* const* argv) {
    GatewayOptions options;
    if (const auto end = ParseOptions(argc, argv, options)) {
        return Number(*end);
    }
    if (options.checkConfig) {
        OMAdapter::getInstance()->setLogger(std::make_shared<StartupLog>(OM_LOG_ERR));  // findings alone are shown
        return CheckConfiguration(options);
    }
    const ServiceManager manager;
    ReloadThread reload([&options, &manager] { Reload(options, manager); });
    ProcessSignals signals;
    OverdueWatch watch;
    StartLogging logging;
    if (!signals.Ok()) {
        return RefuseStart(StartFailure(ExitCode::StartFailed, "the signals could not be taken over"));
    }
    if (!watch.Start(&ProcessSignals::TakeHere)) {
        return RefuseStart(
            StartFailure(ExitCode::OutOfResources, "the thread that takes the signals could not be started"));
    }
    watch.Begin([&signals] { return signals.First() != 0; }, kStartLimit,
                [&signals] { AbandonStart(signals.First()); });
    TuneAllocator();
    Gateway gateway;
    const StartResult result = StartAll(gateway, logging, options);
    watch.End();
    const std::chrono::milliseconds stopLimit = kStopLimit - std::min(watch.SinceBegun(), kStartLimit);
    if (result.Failed()) {
        return RefuseStart(result);
    }
    logging.Succeeded();
    const int signal = ServeUntilStop(signals, reload, manager);
    GVX_LOG_INFO("gvxd", "gvxd stops on signal %d (%s)", signal, strsignal(signal));
    StopInTime(gateway, reload, watch, stopLimit, ExitCode::Ok);
    GVX_LOG_INFO("gvxd", "gvxd stopped");
    FlushLog();
    return Number(ExitCode::Ok);
}

}  // namespace

}  // namespace gvx

int main(int argc, char** argv) {
    // Threads that nobody waits for may still be on their way out behind the end of main: the cryptographic library
    // must not take what it keeps for them away.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    // What ACE says of a failed call it would say on standard error, beside the one line of a failed start. Whoever
    // made the call says it in the log.
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
    try {
        return gvx::Run(argc, argv);
    } catch (const std::exception& fault) {
        gvx::EndEarly("the process", fault);
    }
}
