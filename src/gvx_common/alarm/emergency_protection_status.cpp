#include "gvx_common/alarm/emergency_protection.h"

#include "base/alarm_store.h"
#include "base/bounded_string.h"
#include "base/log.h"

#include <iterator>
#include <memory>
#include <new>

// The table of open alarms, and its restoring from the store.

namespace {

bool PutType(const char* title, Alarm_Item& alarmItem, const std::string& id) {
    if (strncpy_s(alarmItem.AlarmType, sizeof(alarmItem.AlarmType), id.c_str(), id.size()) != 0) {
        GVX_LOG_ERR(title, "strncpy_s alarmItem.AlarmType failed!");
        return false;
    }
    return true;
}

bool PutInfo(const char* title, Alarm_Item& alarmItem, const std::string& info) {
    if (strncpy_s(alarmItem.AlarmInfo, sizeof(alarmItem.AlarmInfo), info.c_str(), info.size()) != 0) {
        GVX_LOG_ERR(title, "strncpy_s alarmItem.AlarmInfo failed!");
        return false;
    }
    return true;
}

int LoadingFailed() {
    GVX_LOG_ERR("[LOADING]alarm status init!", "failed");
    return ZVS_FAIL;
}

}  // namespace

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
