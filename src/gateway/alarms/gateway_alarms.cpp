#include "gateway/alarms/gateway_alarms.h"

#include "base/log.h"
#include "base/log_fault.h"
#include "base/om_adapter.h"
#include "base/paths.h"
#include "base/shortage.h"
#include "base/periodic_thread.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/alarm/gvx_error_mgr.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/utility/gvx_utility.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sys/file.h>

namespace gvx {

namespace {

constexpr const char* kDefaultDataDir = "/var/lib/gvx";
constexpr const char* kStoreName = "/alarms.db";
// How soon held alarms follow when a link has room again.
constexpr std::chrono::milliseconds kKeeperPeriod(100);

// Of the thread that starts and stops the gateway; the watch is begun anew by the keeper's thread while that runs.
std::unique_ptr<LogFaultWatch> g_watch;

// Never destroyed: whoever raises an alarm while the process ends may still wake it.
PeriodicThread& Keeper() {
    static PeriodicThread& keeper = *new PeriodicThread;
    return keeper;
}

std::string DataDir(const std::string& setting) {
    return setting.empty() ? RootedPath(kDefaultDataDir) : setting;
}

void StartLogFaultAlarms() {
    g_watch = std::make_unique<LogFaultWatch>([](unsigned int code, const char* folder, const char* name) {
        CEmergencyProtection::Instance()->OnLogWarn(code, folder, name);
    });
    g_watch->Start();
}

// What a store that opens late brings back is compared with the log files anew.
void KeepAlarms() {
    CEmergencyProtection* const alarms = CEmergencyProtection::Instance();
    if (alarms->KeepStore()) {
        StartLogFaultAlarms();
    }
    alarms->SendAlarmCacheToGvx();
}

}  // namespace

bool DataFolder::Take(const std::string& setting, std::string& reason) {
    const std::string dir = DataDir(setting);
    CGvxUtility::dirCreate(dir);
    m_folder.Reset(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_folder.Valid()) {
        const int error = errno;
        reason = "the data folder " + dir + " cannot be opened (GVX_DATA_DIR)";
        return !NoteShortage(error);  // one that is missing is waited for
    }
    if (flock(m_folder.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        m_folder.Reset();
        reason = "the data folder " + dir + " belongs to another gateway that runs (GVX_DATA_DIR)";
        return false;
    }
    return true;
}

std::string DataFolderPath() {
    return DataDir(SettingText(Setting::GVX_DATA_DIR));
}

void StartAlarms() {
    const std::string path = DataFolderPath() + kStoreName;
    const int result = CEmergencyProtection::Instance()->LoadAlarmStatus(path);
    GVX_LOG_INFO("Alarm store", "%s, %s", path.c_str(),
                 result == ZVS_SUCCEED ? "open alarms restored" : "nothing restored");
    StartLogFaultAlarms();
    try {
        Keeper().Start("AlarmKeeper", kKeeperPeriod, &KeepAlarms);
        CEmergencyProtection::Instance()->SetKeeper([] { Keeper().Wake(); });
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Alarm keeper", "The thread cannot be made, held alarms leave with the next one: %s", fault.what());
    }
}

void HoldAlarms() {
    CEmergencyProtection::Instance()->HoldAlarmsBack();
}

void StopAlarms() {
    CEmergencyProtection::Instance()->SetKeeper({});
    Keeper().Stop();
    g_watch.reset();
    CEmergencyProtection::Instance()->LetAlarmsGo();  // what has left until now needs its row no more
    CEmergencyProtection::Instance()->CloseStore();
}

void StartErrorReports() {
    GVXErrorMgr::getInstance();
}

void StopErrorReports() {
    GVXErrorMgr::release();
}

}  // namespace gvx
