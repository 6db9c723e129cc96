#include "gateway/log_faults.h"

#include "base/log_fault.h"
#include "gvx_common/alarm/emergency_protection.h"

#include <memory>

namespace gvx {

namespace {

// Of the thread that starts and stops the gateway.
std::unique_ptr<LogFaultWatch> g_watch;

void Alarm(unsigned int code, const char* folder, const char* name) {
    CEmergencyProtection::Instance()->OnLogWarn(code, folder, name);
}

}  // namespace

void StartLogFaults() {
    g_watch = std::make_unique<LogFaultWatch>(&Alarm);
    g_watch->Start();
}

void StopLogFaults() {
    g_watch.reset();
}

}  // namespace gvx
