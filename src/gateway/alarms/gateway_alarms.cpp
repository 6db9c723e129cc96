#include "gateway/alarms/gateway_alarms.h"

#include "base/alarm_store.h"
#include "base/log.h"
#include "base/log_fault.h"
#include "base/om_adapter.h"
#include "base/paths.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/alarm/gvx_error_mgr.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/utility/gvx_utility.h"

#include <memory>
#include <string>

namespace gvx {

namespace {

constexpr const char* kDefaultDataDir = "/var/lib/gvx";
constexpr const char* kStoreName = "/alarms.db";

// Of the thread that starts and stops the gateway.
std::unique_ptr<LogFaultWatch> g_watch;

}  // namespace

void StartAlarmStore() {
    std::string dir = SettingText(Setting::GVX_DATA_DIR);
    if (dir.empty()) {
        dir = RootedPath(kDefaultDataDir);
    }
    // The store says why when there is no folder after all.
    CGvxUtility::dirCreate(dir);
    const int result = CEmergencyProtection::Instance()->LoadAlarmStatus(dir + kStoreName);
    GVX_LOG_INFO("Alarm store", "%s%s, %s", dir.c_str(), kStoreName,
                 result == ZVS_SUCCEED ? "open alarms restored" : "nothing restored");
}

void StopAlarmStore() {
    ZVS_AlarmClose();
}

void StartLogFaultAlarms() {
    g_watch = std::make_unique<LogFaultWatch>([](unsigned int code, const char* folder, const char* name) {
        CEmergencyProtection::Instance()->OnLogWarn(code, folder, name);
    });
    g_watch->Start();
}

void StopLogFaultAlarms() {
    g_watch.reset();
}

void StartErrorReports() {
    GVXErrorMgr::getInstance();
}

void StopErrorReports() {
    GVXErrorMgr::release();
}

}  // namespace gvx
