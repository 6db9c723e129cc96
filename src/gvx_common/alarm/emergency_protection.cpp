#include "gvx_common/alarm/emergency_protection.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <endian.h>

// Building and holding one alarm. What is open stands in emergency_protection_status.cpp, the store's health in
// emergency_protection_store.cpp, what raises alarms in emergency_protection_events.cpp.

namespace {

constexpr const char* kMakerName = "TARVEL";
constexpr const char* kGatewayPrefix = "GVX#";
constexpr const char* kGatewayName = "CloudKSP_GVX";
constexpr std::size_t kLinkPrefixLength = 4;  // "OMU#"
constexpr const char* kOccurTimeForm = "YYYYMMDDhhmmss";

template <std::size_t N>
bool PutText(char (&field)[N], const std::string& text, const char* message) {
    if (strncpy_s(field, N, text.c_str(), text.size()) != 0) {
        GVX_LOG_ERR("SetGvxBPAlarmRepMsg", "%s", message);
        return false;
    }
    return true;
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
    return PutText(report.cFac, kMakerName, "memcpy_s cFac failed!") &&
           PutText(report.cNetEleID, element, "memcpy_s cNetEleID failed!") &&
           PutText(report.cAlarmInCode, kGatewayPrefix + element, "memcpy_s cAlarmInCode failed!") &&
           PutText(report.cAlarmInName, kGatewayName, "memcpy_s cAlarmInName failed!") &&
           PutText(report.cAlarmType, type, "strncpy_s stGvxAlarmReport.cAlarmType failed!") &&
           PutText(report.cAlarmInType, inType, "strncpy_s stGvxAlarmReport.cAlarmInType failed!") &&
           PutText(report.cOccurTime, occurTime, "strncpy_s stGvxAlarmReport.cOccurTime failed!") &&
           PutText(report.cLocationInfo, location.empty() ? GvxConfigMgr()->GetLocalIP() : location,
                   "strncpy_s stGvxAlarmReport.cLocationInfo failed!") &&
           PutText(report.cAlarmDesc, description, "strncpy_s stGvxAlarmReport.cAlarmDesc failed!");
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
    _ZVS_REPORT_LIST gvxAlarmReport;
    if (memset_s(&gvxAlarmReport, sizeof(gvxAlarmReport), 0, sizeof(gvxAlarmReport)) != 0) {
        GVX_LOG_ERR("CachePluginAlarm", "gvxAlarmReport memset_s failed");
        return ZVS_FAIL;
    }
    if (sprintf_s(gvxAlarmReport.cAlarmType, sizeof(gvxAlarmReport.cAlarmType), "%s", type.c_str()) < 0) {
        GVX_LOG_ERR("CachePluginAlarm", "alarmType snprintf failed");
        return ZVS_FAIL;
    }
    if (sprintf_s(gvxAlarmReport.cAlarmInType, sizeof(gvxAlarmReport.cAlarmInType), "%s", inType.c_str()) < 0) {
        GVX_LOG_ERR("CachePluginAlarm", "alarmInType snprintf failed");
        return ZVS_FAIL;
    }
    if (strncpy_s(gvxAlarmReport.cLocationInfo, sizeof(gvxAlarmReport.cLocationInfo), location.c_str(),
                  location.size()) != 0) {
        GVX_LOG_ERR("CachePluginAlarm", "localInfo strncpy_s failed");
        return ZVS_FAIL;
    }
    if (sprintf_s(gvxAlarmReport.cAlarmDesc, sizeof(gvxAlarmReport.cAlarmDesc), "%s", description.c_str()) < 0) {
        GVX_LOG_ERR("CachePluginAlarm", "alarmDesc[%s] snprintf failed", description.c_str());
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
