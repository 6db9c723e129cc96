#include "gvx_common/alarm/emergency_protection.h"

#include "base/log.h"

#include <iterator>

namespace {

constexpr std::size_t kMaxTypeLength = 63;
constexpr std::size_t kMaxInTypeLength = 3;
constexpr std::size_t kMaxTextLength = 255;
constexpr std::size_t kMaxStatusIdLength = 9;

}  // namespace

CEmergencyProtection* CEmergencyProtection::Instance() {
    // Never deleted: detached threads may raise an alarm while static objects end.
    static CEmergencyProtection* const instance = new CEmergencyProtection;
    return instance;
}

void CEmergencyProtection::OnConfigReadAlarm(const std::string& location, const std::string& description) {
    GVX_LOG_INFO("OnConfigReadAlarm", "Congfig file alarm %s", location.c_str());
    GVX_LOG_ERR("Configuration alarm", "Configuration cannot be used: %s, description[%s]", location.c_str(),
                description.c_str());
    SetGvxBPAlarmRepMsg("ALARM_GVX_CONFIG_READ_FAIL", GVX_ALARM_DEV_TYPE, location, description, false);
    AddAlarmStatusItem(ALARM_GVX_CONFIG_READ_FAIL, location);
}

void CEmergencyProtection::OnFluxControlWarn(const std::string& protocol, const std::string& queue,
                                             const std::string& code) {
    const std::string text = "Protocal=" + protocol + ",Msg Queue=" + queue + ",FlowControlCode=[" + code + "]";
    GVX_LOG_INFO("OnFluxControlWarn", "On Flux Control Warn %s", text.c_str());
    SetGvxBPAlarmRepMsg("ALARM_GVX_FLOW_CONTROL_ERROR_ON", GVX_ALARM_DEV_TYPE, text, text, false);
    AddAlarmStatusItem(ALARM_GVX_FLOW_CONTROL, text);
}

void CEmergencyProtection::OnFluxControlResume(const std::string& protocol, const std::string& queue,
                                               const std::string& code) {
    const std::string text = "Protocal=" + protocol + ",MsgQueue=" + queue + ",FlowControlCode=[" + code + "]";
    GVX_LOG_INFO("OnFluxControlResume", "On Flux Control Resume %s", text.c_str());
    SetGvxBPAlarmRepMsg("ALARM_GVX_FLOW_CONTROL_ERROR_OFF", GVX_ALARM_DEV_TYPE, text, text, false);
    DelAlarmStatusItem(ALARM_GVX_FLOW_CONTROL, text);
}

void CEmergencyProtection::SetGvxBPAlarmRepMsg(const std::string& type, const std::string& inType,
                                               const std::string& location, const std::string& description, bool flag) {
    GVX_LOG_INFO("SetGvxBPAlarmRepMsg", "Emergency Protection set gvx alarm reponse message is called.");
    GVX_LOG_WARN("Gateway alarm", "type[%s], input type[%s], location[%s], description[%s], flag[%d]", type.c_str(),
                 inType.c_str(), location.c_str(), description.c_str(), flag ? 1 : 0);
    if (CachePluginAlarm(type, inType, location, description) == ZVS_PARA_INVALID) {
        GVX_LOG_ERR_CODE("Gateway alarm", ZVS_PARA_INVALID, "An alarm without type or location is dropped.");
    }
}

int CEmergencyProtection::CachePluginAlarm(const std::string& type, const std::string& inType,
                                           const std::string& location, const std::string& description) {
    if (type.empty() || inType.empty() || location.empty()) {
        return ZVS_PARA_INVALID;
    }
    if (type.size() > kMaxTypeLength) {
        GVX_LOG_ERR("CachePluginAlarm", "alarmType snprintf failed");
        return ZVS_FAIL;
    }
    if (inType.size() > kMaxInTypeLength) {
        GVX_LOG_ERR("CachePluginAlarm", "alarmInType snprintf failed");
        return ZVS_FAIL;
    }
    if (location.size() > kMaxTextLength) {
        GVX_LOG_ERR("CachePluginAlarm", "localInfo strncpy_s failed");
        return ZVS_FAIL;
    }
    if (description.size() > kMaxTextLength) {
        GVX_LOG_ERR("CachePluginAlarm", "alarmDesc[%s] snprintf failed", description.c_str());
        return ZVS_FAIL;
    }
    const std::lock_guard<std::mutex> guard(m_alarmCacheMutex);
    m_alarmCacheVect.push_back(gvx::HeldAlarm{type, inType, location, description});
    GVX_LOG_INFO("Cache alarm success,", "alarm type[%s]", type.c_str());
    return ZVS_SUCCEED;
}

int CEmergencyProtection::AddAlarmStatusItem(const std::string& id, const std::string& info) {
    if (id.size() > kMaxStatusIdLength) {
        GVX_LOG_ERR("AddAlarmStatusItem", "strncpy_s alarmItem.AlarmType failed!");
        return ZVS_FAIL;
    }
    if (info.size() > kMaxTextLength) {
        GVX_LOG_ERR("AddAlarmStatusItem", "strncpy_s alarmItem.AlarmInfo failed!");
        return ZVS_FAIL;
    }
    const std::lock_guard<std::mutex> guard(m_Mutex);
    m_alarmStatusMap.emplace(id, info);
    return ZVS_SUCCEED;
}

int CEmergencyProtection::DelAlarmStatusItem(const std::string& id, const std::string& info) {
    if (id.empty() || info.empty()) {
        GVX_LOG_WARN("DelAlarmStatusItem", "alarmid = %s, alarmDesc = %s.", id.c_str(), info.c_str());
        return ZVS_PARA_INVALID;
    }
    const std::lock_guard<std::mutex> guard(m_Mutex);
    const auto range = m_alarmStatusMap.equal_range(id);
    for (auto item = range.first; item != range.second;) {
        item = item->second == info ? m_alarmStatusMap.erase(item) : std::next(item);
    }
    return ZVS_SUCCEED;
}

int CEmergencyProtection::IsAlarmStatusItemExist(const std::string& id, const std::string& info) const {
    const std::lock_guard<std::mutex> guard(m_Mutex);
    const auto range = m_alarmStatusMap.equal_range(id);
    for (auto item = range.first; item != range.second; ++item) {
        if (item->second == info) {
            return ZVS_SUCCEED;
        }
    }
    return ZVS_FAIL;
}

std::vector<gvx::HeldAlarm> CEmergencyProtection::GetHeldAlarms() const {
    const std::lock_guard<std::mutex> guard(m_alarmCacheMutex);
    return m_alarmCacheVect;
}
