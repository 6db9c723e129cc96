#include "gvx_common/alarm/emergency_protection.h"

#include "base/alarm_store.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "base/net_interface.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <iterator>
#include <memory>
#include <new>

#include <endian.h>

// Building and holding one alarm, the table of open alarms, and the store's operations with an eye on its health. What
// raises and clears alarms stands in emergency_protection_faults.cpp.

namespace {

constexpr const char* kMakerName = "TARVEL";
constexpr const char* kGatewayPrefix = "GVX#";
constexpr const char* kGatewayName = "CloudKSP_GVX";
constexpr std::size_t kLinkPrefixLength = 4;  // "OMU#"
constexpr const char* kOccurTimeForm = "YYYYMMDDhhmmss";

template <std::size_t N>
bool Put(const char* title, char (&field)[N], const std::string& text, const char* message) {
    if (!gvx::PutText(field, text)) {
        GVX_LOG_ERR(title, "%s", message);
        return false;
    }
    return true;
}

bool PutType(const char* title, Alarm_Item& alarmItem, const std::string& id) {
    return Put(title, alarmItem.AlarmType, id, "strncpy_s alarmItem.AlarmType failed!");
}

bool PutInfo(const char* title, Alarm_Item& alarmItem, const std::string& info) {
    return Put(title, alarmItem.AlarmInfo, info, "strncpy_s alarmItem.AlarmInfo failed!");
}

int LoadingFailed() {
    GVX_LOG_ERR("[LOADING]alarm status init!", "failed");
    return ZVS_FAIL;
}

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

CEmergencyProtection* CEmergencyProtection::Instance() {
    // Never deleted: detached threads may raise an alarm while static objects end.
    static CEmergencyProtection* const instance = new CEmergencyProtection;
    return instance;
}

bool CEmergencyProtection::FillAlarm(GVX_ALARM_REPORT& report, const std::string& type, const std::string& inType,
                                     const std::string& location, const std::string& description) const {
    const std::string omuLink = GvxConnectionMgr()->GetOmuLinkId();
    const std::string element = omuLink.size() > kLinkPrefixLength ? omuLink.substr(kLinkPrefixLength) : std::string();
    std::string occurTime;
    CGvxUtility::GetCurrentUtcTime(occurTime, kOccurTimeForm);
    constexpr const char* kTitle = "SetGvxBPAlarmRepMsg";
    return Put(kTitle, report.cFac, kMakerName, "memcpy_s cFac failed!") &&
           Put(kTitle, report.cNetEleID, element, "memcpy_s cNetEleID failed!") &&
           Put(kTitle, report.cAlarmInCode, kGatewayPrefix + element, "memcpy_s cAlarmInCode failed!") &&
           Put(kTitle, report.cAlarmInName, kGatewayName, "memcpy_s cAlarmInName failed!") &&
           Put(kTitle, report.cAlarmType, type, "strncpy_s stGvxAlarmReport.cAlarmType failed!") &&
           Put(kTitle, report.cAlarmInType, inType, "strncpy_s stGvxAlarmReport.cAlarmInType failed!") &&
           Put(kTitle, report.cOccurTime, occurTime, "strncpy_s stGvxAlarmReport.cOccurTime failed!") &&
           Put(kTitle, report.cLocationInfo, location.empty() ? GvxConfigMgr()->GetLocalIP() : location,
               "strncpy_s stGvxAlarmReport.cLocationInfo failed!") &&
           Put(kTitle, report.cAlarmDesc, description, "strncpy_s stGvxAlarmReport.cAlarmDesc failed!");
}

void CEmergencyProtection::SetGvxBPAlarmRepMsg(const std::string& type, const std::string& inType,
                                               const std::string& location, const std::string& description, bool flag) {
    GVX_LOG_INFO("SetGvxBPAlarmRepMsg", "Emergency Protection set gvx alarm reponse message is called.");
    GVX_LOG_INFO("Gateway alarm", "type[%s], input type[%s], location[%s], description[%s]", type.c_str(),
                 inType.c_str(), location.c_str(), description.c_str());
    GVX_ALARM_REPORT stGvxAlarmReport{};
    stGvxAlarmReport.iAlarmEventID = static_cast<std::int64_t>(htobe64(m_GvxAlarmEventID++));
    unsigned int elementType = 0;
    std::string linkId;
    if (!GvxConnectionMgr()->GetLinkInfoByType(BP::SUBSYS_GVX, elementType, linkId)) {
        GVX_LOG_ERR("SetGvxBPAlarmRepMsg", "Get PeerNetLinkID Error [%d]", static_cast<int>(BP::SUBSYS_GVX));
        CachePluginAlarm(type, inType, location, description);
        return;
    }
    if (!FillAlarm(stGvxAlarmReport, type, inType, location, description)) {
        return;
    }
    GvxConnectionMgr()->sendGVXAlarmReportToKSP(stGvxAlarmReport);
    GvxConnectionMgr()->SendGvxAlarmReqMsgToOMU(stGvxAlarmReport, flag, false);
}

int CEmergencyProtection::CachePluginAlarm(const std::string& type, const std::string& inType,
                                           const std::string& location, const std::string& description) {
    if (type.empty() || inType.empty() || location.empty()) {
        return ZVS_PARA_INVALID;
    }
    constexpr const char* kTitle = "CachePluginAlarm";
    _ZVS_REPORT_LIST gvxAlarmReport{};
    if (!Put(kTitle, gvxAlarmReport.cAlarmType, type, "alarmType snprintf failed") ||
        !Put(kTitle, gvxAlarmReport.cAlarmInType, inType, "alarmInType snprintf failed") ||
        !Put(kTitle, gvxAlarmReport.cLocationInfo, location, "localInfo strncpy_s failed") ||
        !Put(kTitle, gvxAlarmReport.cAlarmDesc, description,
             ("alarmDesc[" + description + "] snprintf failed").c_str())) {
        return ZVS_FAIL;
    }
    const std::lock_guard<std::recursive_mutex> guard(m_alarmCacheMutex);
    m_alarmCacheVect.push_back(gvxAlarmReport);
    GVX_LOG_INFO("Cache alarm success,", "alarm type[%s]", type.c_str());
    return ZVS_SUCCEED;
}

int CEmergencyProtection::SendAlarmCacheToGvx() {
    const std::lock_guard<std::recursive_mutex> guard(m_alarmCacheMutex);
    // By place and by copy: an alarm that cannot leave is put behind these while they are walked.
    for (std::size_t at = 0, count = m_alarmCacheVect.size(); at < count; ++at) {
        const _ZVS_REPORT_LIST alarm = m_alarmCacheVect[at];
        GVX_LOG_INFO("SendAlarmCacheToGvx", "Send alarm[%s] to GVX.", alarm.cAlarmType);
        SetGvxBPAlarmRepMsg(alarm.cAlarmType, alarm.cAlarmInType, alarm.cLocationInfo, alarm.cAlarmDesc, false);
    }
    m_alarmCacheVect.clear();
    return ZVS_SUCCEED;
}

std::vector<gvx::HeldAlarm> CEmergencyProtection::GetHeldAlarms() const {
    const std::lock_guard<std::recursive_mutex> guard(m_alarmCacheMutex);
    std::vector<gvx::HeldAlarm> held;
    for (const _ZVS_REPORT_LIST& alarm : m_alarmCacheVect) {
        held.push_back({alarm.cAlarmType, alarm.cAlarmInType, alarm.cLocationInfo, alarm.cAlarmDesc});
    }
    return held;
}

void CEmergencyProtection::OnSMULinkOpened() {
    GVX_DEBUG("The link to SMU has opened.");
}

void CEmergencyProtection::OnSMULinkClosed() {
    GVX_DEBUG("The link to SMU has closed.");
}

void CEmergencyProtection::OnGVXLinkOpened() {
    GVX_DEBUG("The link to GVX has opened.");
}

void CEmergencyProtection::OnGVXLinkClosed() {
    GVX_DEBUG("The link to GVX has closed.");
}

int CEmergencyProtection::LoadAlarmStatus(const std::string& path) {
    if (Gvx_AlarmInit(path.c_str()) != 0) {
        return LoadingFailed();
    }
    int count = 0;
    if (Gvx_GetAllAlarmItem(nullptr, &count) != 0) {
        return LoadingFailed();
    }
    GVX_LOG_INFO("LoadAlarmStatus", "[getAllAlarmItem] The count of Alarm Item is %d\n", count);
    if (count <= 0) {
        return ZVS_FAIL;
    }
    const int result = RestoreItems(count);
    if (result != ZVS_SUCCEED) {
        return result;
    }
    DelAlarmStatusItemAndSendResume(ALARM_GVX_FLOW_CONTROL, "ALARM_GVX_FLOW_CONTROL_ERROR_OFF", "");
    return ZVS_SUCCEED;
}

int CEmergencyProtection::RestoreItems(int count) {
    const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
    const std::unique_ptr<Alarm_Item[]> items(new (std::nothrow) Alarm_Item[static_cast<std::size_t>(count)]);
    if (items == nullptr) {
        GVX_LOG_ERR_CODE("LoadAlarmStatus", ZVS_ALLOC_MEMORY_ERROR, "%d alarm items", count);
        return ZVS_ALLOC_MEMORY_ERROR;
    }
    if (Gvx_GetAllAlarmItem(items.get(), &count) != 0) {
        return LoadingFailed();
    }
    for (int at = 0; at < count; ++at) {
        m_alarmStatusMap.emplace(items[static_cast<std::size_t>(at)].AlarmType,
                                 items[static_cast<std::size_t>(at)].AlarmInfo);
    }
    return ZVS_SUCCEED;
}

int CEmergencyProtection::AddAlarmStatusItem(const std::string& id, const std::string& info) {
    Alarm_Item alarmItem{};
    if (!PutType("AddAlarmStatusItem", alarmItem, id) || !PutInfo("AddAlarmStatusItem", alarmItem, info)) {
        return ZVS_FAIL;
    }
    if (Gvx_AddAlarmItem(&alarmItem) != 0) {
        GVX_LOG_ERR("ZVS Add Alarm Item", "Failed!");
    }
    const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
    m_alarmStatusMap.emplace(id, info);
    return ZVS_SUCCEED;
}

int CEmergencyProtection::DelAlarmStatusItem(const std::string& id, const std::string& info) {
    if (id.empty() || info.empty()) {
        GVX_LOG_WARN("DelAlarmStatusItem", "alarmid = %s, alarmDesc = %s.", id.c_str(), info.c_str());
        return ZVS_PARA_INVALID;
    }
    Alarm_Item alarmItem{};
    if (!PutType("DelAlarmStatusItem", alarmItem, id)) {
        return ZVS_FAIL;
    }
    const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
    const auto range = m_alarmStatusMap.equal_range(id);
    for (auto item = range.first; item != range.second;) {
        const bool isGone = item->second == info && PutInfo("DelAlarmStatusItem", alarmItem, item->second) &&
                            Gvx_DelAlarmItem(&alarmItem) == 0;
        item = isGone ? m_alarmStatusMap.erase(item) : std::next(item);
    }
    return ZVS_SUCCEED;
}

int CEmergencyProtection::IsAlarmStatusItemExist(const std::string& id, const std::string& info) const {
    const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
    const auto range = m_alarmStatusMap.equal_range(id);
    for (auto item = range.first; item != range.second; ++item) {
        if (item->second == info) {
            return ZVS_SUCCEED;
        }
    }
    return ZVS_FAIL;
}

int CEmergencyProtection::DelAlarmStatusItemAndSendResume(const std::string& id, const std::string& resumeType,
                                                          const std::string& info) {
    Alarm_Item alarmItem{};
    if (!PutType("DelAlarmStatusItemAndSendResume", alarmItem, id)) {
        return ZVS_FAIL;
    }
    const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
    const auto range = m_alarmStatusMap.equal_range(id);
    for (auto item = range.first; item != range.second; ++item) {
        if (!PutInfo("DelAlarmStatusItemAndSendResume", alarmItem, item->second)) {
            return ZVS_FAIL;
        }
        const std::string& text = info.empty() ? item->second : info;
        SetGvxBPAlarmRepMsg(resumeType, GVX_ALARM_DEV_TYPE, text, text, false);
        ZVS_DelAlarmItem(&alarmItem);
    }
    m_alarmStatusMap.erase(range.first, range.second);
    GVX_LOG_INFO("DelAlarmStatusItemAndSendResume", "Clear alarm Status map ok.");
    return ZVS_SUCCEED;
}

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
