#include "gvx_common/config/config_alarm.h"

#include "gvx_common/alarm/emergency_protection.h"
#include "base/zvs_error.h"

namespace gvx {

bool RaiseConfigAlarmOnce(const std::string& location, const std::string& description) {
    CEmergencyProtection* alarms = CEmergencyProtection::Instance();
    if (alarms->IsAlarmStatusItemExist(ALARM_GVX_CONFIG_READ_FAIL, "") == ZVS_SUCCEED) {
        return false;
    }
    alarms->OnConfigReadAlarm(location, description);
    alarms->AddAlarmStatusItem(ALARM_GVX_CONFIG_READ_FAIL, "");
    return true;
}

}  // namespace gvx
