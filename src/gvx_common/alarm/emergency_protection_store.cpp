#include "gvx_common/alarm/emergency_protection.h"

#include "base/alarm_store.h"
#include "base/log.h"
#include "base/net_interface.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"

// The store's operations, with an eye on its health.

namespace {

constexpr std::size_t kAddressBytes = 16;

std::string HostLocation() {
    const int runMode = GvxConfigMgr()->GetRunMode();
    if (runMode != RunMode_CLOUD && runMode != RunMode_CLOUDEDGE) {
        return "HostIP=" + GvxConfigMgr()->GetLocalIP();
    }
    char address[kAddressBytes] = {};
    ZVS_GetIpByNetworkface("EXTERNAL_API", address);
    return std::string("HostIP=") + address;
}

}  // namespace

int CEmergencyProtection::TellStoreHealth(int result) {
    if (result == 0) {
        GvxConnectionMgr()->SetGvxAlarmRepMsg("ALARM_GVX_ALARM_RECORD_FAIL_OFF", GVX_ALARM_DEV_TYPE, HostLocation(),
                                              "");
        GVX_DEBUG("send alarm record fail off msg.");
        m_bAlarmReport = true;
    } else if (m_bAlarmReport.exchange(false)) {
        GvxConnectionMgr()->SetGvxAlarmRepMsg("ALARM_GVX_ALARM_RECORD_FAIL_ON", GVX_ALARM_DEV_TYPE, HostLocation(), "");
        GVX_LOG_INFO("Alarm store health", "send alarm record fail on msg.");
    }
    return result;
}

int CEmergencyProtection::Gvx_AlarmInit(const char* path) {
    return TellStoreHealth(ZVS_AlarmInit(path));
}

int CEmergencyProtection::Gvx_AddAlarmItem(const Alarm_Item* item) {
    const int result = ZVS_AddAlarmItem(item);
    if (result == 0) {
        GVX_DEBUG("zvs add alarm item ok.");
    } else {
        GVX_LOG_ERR("Gvx_AddAlarmItem", "zvs add alarm item failed.");
    }
    return TellStoreHealth(result);
}

int CEmergencyProtection::Gvx_DelAlarmItem(const Alarm_Item* item) {
    const int result = ZVS_DelAlarmItem(item);
    if (result == 0) {
        GVX_DEBUG("zvs delete alarm item ok.");
    } else {
        GVX_LOG_ERR("Gvx_DelAlarmItem", "zvs delete alarm item failed.");
    }
    return TellStoreHealth(result);
}

int CEmergencyProtection::Gvx_GetAllAlarmItem(Alarm_Item* items, int* count) {
    return TellStoreHealth(ZVS_GetAllAlarmItem(items, count));
}
