#include "base/log_fault.h"

#include "base/log.h"

#include <chrono>
#include <exception>

namespace gvx {

namespace {

constexpr std::chrono::milliseconds kPeriod(250);

}  // namespace

bool LogFaultWatch::Start() {
    try {
        m_thread.Start("LogWatch", kPeriod, [this] { Look(); });
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Log watch", "The thread cannot be made: %s", fault.what());
        return false;
    }
    return true;
}

void LogFaultWatch::Look() {
    IOMLogger* const debugLog = OMAdapter::getInstance()->getLogger();
    IOMLogger* const operationLog = OMAdapter::getInstance()->getOperationLogger();
    if (debugLog != nullptr) {
        Look(*debugLog);
    }
    if (operationLog != nullptr && operationLog != debugLog) {
        Look(*operationLog);
    }
}

void LogFaultWatch::Look(IOMLogger& logger) {
    LogFileState state;
    if (logger.CheckFile(state)) {
        Tell(m_told[&logger], state);
    }
}

// A fault that came and went between two looks is told with its end, so that none is passed over.
void LogFaultWatch::Tell(Told& told, const LogFileState& state) const {
    const bool first = !told.any;
    told.any = true;
    for (const LogFault fault : kLogFaults) {
        bool raised = told.open.Has(fault);
        if (!raised && (state.occurred.Has(fault) || state.open.Has(fault))) {
            m_callback(fault, state.folder.c_str(), state.name.c_str());
            raised = true;
        }
        if (!state.open.Has(fault) && (raised || first)) {
            m_callback(fault + kLogFaultEnded, state.folder.c_str(), state.name.c_str());
        }
    }
    told.open = state.open;
}

}  // namespace gvx
