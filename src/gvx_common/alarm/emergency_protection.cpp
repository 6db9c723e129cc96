#include "gvx_common/alarm/emergency_protection.h"

#include "base/alarm_store.h"
#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "base/net_interface.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/link/gvx_connection_mgr.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>

// The table of open alarms, and the store's operations with an eye on its health. What raises and clears alarms stands
// in emergency_protection_faults.cpp.

namespace {

constexpr std::int64_t kReopenMs = 60000;

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

void NoteOperation(const char* title, const char* what, int result) {
    if (result == 0) {
        GVX_DEBUG("zvs %s alarm item ok.", what);
    } else {
        GVX_LOG_ERR(title, "zvs %s alarm item failed.", what);
    }
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

CEmergencyProtection::CEmergencyProtection()
    : m_outbox([this](const std::vector<gvx::OutboundAlarm>& clears) { ForgetEnded(clears); }) {}

void CEmergencyProtection::SetGvxBPAlarmRepMsg(const std::string& type, const std::string& inType,
                                               const std::string& location, const std::string& description,
                                               bool /*flag*/) {
    m_outbox.Add({{type, inType, location, description}});
}

int CEmergencyProtection::CachePluginAlarm(const std::string& type, const std::string& inType,
                                           const std::string& location, const std::string& description) {
    return m_outbox.Hold({{type, inType, location, description}});
}

int CEmergencyProtection::SendAlarmCacheToGvx() {
    m_outbox.Send();
    return ZVS_SUCCEED;
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
    {
        const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
        m_storePath = path;
    }
    m_reopenAtMs = gvx::MonotonicMilliseconds() + kReopenMs;
    int count = 0;
    if (Gvx_AlarmInit(path.c_str()) != 0 || Gvx_GetAllAlarmItem(nullptr, &count) != 0) {
        return LoadingFailed();
    }
    GVX_LOG(OM_LOG_DEBUG, "LoadAlarmStatus", "[getAllAlarmItem] The count of Alarm Item is %d\n", count);
    std::vector<Pair> flows;
    const int result = count > 0 ? RestoreItems(count, flows) : ZVS_FAIL;
    if ((count > 0 && result != ZVS_SUCCEED) || !StoreRemembered()) {
        return result;
    }
    m_reopenAtMs = 0;
    DeleteLeftRows();
    if (result == ZVS_SUCCEED) {
        SendResumes("ALARM_GVX_FLOW_CONTROL_ERROR_OFF", "", flows, true);
        GVX_LOG_INFO("DelAlarmStatusItemAndSendResume", "Clear alarm Status map ok.");
    }
    return result;
}

void CEmergencyProtection::CloseStore() {
    const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
    m_storePath.clear();
    m_reopenAtMs = m_deleteAtMs = 0;
    ZVS_AlarmClose();
}

bool CEmergencyProtection::KeepStore() {
    const auto isDue = [](std::int64_t atMs) { return atMs != 0 && gvx::MonotonicMilliseconds() >= atMs; };
    if (isDue(m_deleteAtMs)) {
        DeleteLeftRows();
    }
    if (!isDue(m_reopenAtMs)) {
        return false;
    }
    std::string path;
    {
        const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
        path = m_storePath;
    }
    LoadAlarmStatus(path);
    return m_reopenAtMs == 0;
}

// Pairs of flow control that this process has not raised itself go into flows and not into the table.
int CEmergencyProtection::RestoreItems(int count, std::vector<Pair>& flows) {
    count = std::min(count, kMostRestored);
    const std::unique_ptr<Alarm_Item[]> items(new (std::nothrow) Alarm_Item[static_cast<std::size_t>(count)]);
    if (items == nullptr) {
        GVX_LOG_ERR_CODE("LoadAlarmStatus", ZVS_ALLOC_MEMORY_ERROR, "%d alarm items", count);
        return ZVS_ALLOC_MEMORY_ERROR;
    }
    if (TellStoreHealth(gvx::ReadDistinctAlarmItems(items.get(), &count)) != 0) {
        return LoadingFailed();
    }
    if (count == kMostRestored) {
        GVX_LOG_WARN("LoadAlarmStatus", "More than %d alarms are stored, the rest waits for the next start", count - 1);
    }
    const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
    for (int at = 0; at < count; ++at) {
        const Alarm_Item& item = items[static_cast<std::size_t>(at)];
        Pair pair(item.AlarmType, item.AlarmInfo);
        const auto open = m_openAlarms.find(pair);
        if (open != m_openAlarms.end()) {
            open->second.rows = std::max<std::size_t>(open->second.rows, 1);
        } else if (m_endings.count(pair) != 0) {
            continue;  // cleared by this process
        } else if (pair.first == ALARM_GVX_FLOW_CONTROL) {
            flows.push_back(std::move(pair));
        } else {
            m_openAlarms.emplace(std::move(pair), OpenAlarm{++m_lastNumber, 1});
        }
    }
    return ZVS_SUCCEED;
}

// What was remembered while there was no store goes into it.
bool CEmergencyProtection::StoreRemembered() {
    const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
    std::vector<Alarm_Item> items;
    for (const auto& [pair, open] : m_openAlarms) {
        Alarm_Item item{};
        if (open.rows == 0 && gvx::PutText(item.AlarmType, pair.first) && gvx::PutText(item.AlarmInfo, pair.second)) {
            items.push_back(item);
        }
    }
    if (!items.empty() && gvx::AddAlarmItems(items) != 0) {
        return false;
    }
    for (auto& entry : m_openAlarms) {
        entry.second.rows = std::max<std::size_t>(entry.second.rows, 1);
    }
    return true;
}

// Rows whose clear had left while the store failed. A failure here goes on with what a line has told.
void CEmergencyProtection::DeleteLeftRows() {
    const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
    std::vector<Alarm_Item> items;
    for (const auto& [pair, ending] : m_endings) {
        Alarm_Item item{};
        if (ending.clear == kLeft && gvx::PutText(item.AlarmType, pair.first) &&
            gvx::PutText(item.AlarmInfo, pair.second)) {
            items.push_back(item);
        }
    }
    const bool isKnown = m_deleteAtMs != 0;
    if (!items.empty() && gvx::DeleteAlarmItems(items, isKnown) != 0) {
        m_deleteAtMs = gvx::MonotonicMilliseconds() + kReopenMs;
        return;
    }
    m_deleteAtMs = 0;
    if (isKnown && !items.empty()) {
        GVX_LOG_INFO("Alarm store", "The rows of %zu cleared alarms, which could not be deleted, are gone",
                     items.size());
    }
    for (auto ending = m_endings.begin(); ending != m_endings.end();) {
        ending = ending->second.clear == kLeft ? m_endings.erase(ending) : std::next(ending);
    }
}

int CEmergencyProtection::AddAlarmStatusItem(const std::string& id, const std::string& info) {
    Alarm_Item alarmItem{};
    if (!PutType("AddAlarmStatusItem", alarmItem, id) || !PutInfo("AddAlarmStatusItem", alarmItem, info)) {
        return ZVS_FAIL;
    }
    bool touchesStore = false;
    int result = 0;
    {
        const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
        const auto [entry, isNew] = m_openAlarms.emplace(Pair(id, info), OpenAlarm{});
        OpenAlarm& open = entry->second;
        if (isNew) {
            open.since = ++m_lastNumber;
            open.sinceMs = gvx::MonotonicMilliseconds();
        }
        // Rows whose clear still waits serve the new alarm; they are not deleted with that clear any more.
        if (const auto ending = m_endings.find(entry->first); ending != m_endings.end()) {
            open.rows = ending->second.was.rows;
            m_endings.erase(ending);
        }
        // Ahead of the first opening memory has it until then.
        touchesStore = !m_storePath.empty() && open.rows < kMostEqualRows && !(isNew && open.rows != 0);
        if (touchesStore) {
            result = ZVS_AddAlarmItem(&alarmItem);
            open.rows += result == 0 ? 1 : 0;
        }
    }
    if (touchesStore) {
        NoteOperation("Gvx_AddAlarmItem", "add", result);
        if (TellStoreHealth(result) != 0) {
            GVX_LOG_ERR("ZVS Add Alarm Item", "Failed!");
        }
    }
    return ZVS_SUCCEED;
}

int CEmergencyProtection::DelAlarmStatusItem(const std::string& id, const std::string& info) {
    if (id.empty() || info.empty()) {
        GVX_LOG_WARN("DelAlarmStatusItem", "alarmid = %s, alarmDesc = %s.", id.c_str(), info.c_str());
        return ZVS_PARA_INVALID;
    }
    Alarm_Item alarmItem{};
    if (!PutType("DelAlarmStatusItem", alarmItem, id) || !PutInfo("DelAlarmStatusItem", alarmItem, info)) {
        return ZVS_FAIL;
    }
    int result = 0;
    {
        const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
        const auto open = m_openAlarms.find(Pair(id, info));
        if (open == m_openAlarms.end()) {
            return ZVS_SUCCEED;
        }
        result = ZVS_DelAlarmItem(&alarmItem);
        if (result == 0 || !gvx::AlarmStoreIsOpen()) {
            m_openAlarms.erase(open);
        }
    }
    NoteOperation("Gvx_DelAlarmItem", "delete", result);
    TellStoreHealth(result);
    return ZVS_SUCCEED;
}

std::vector<CEmergencyProtection::Remembered> CEmergencyProtection::OpenAlarms() const {
    std::vector<Remembered> alarms;
    const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
    alarms.reserve(m_openAlarms.size());
    for (const auto& [pair, open] : m_openAlarms) {
        alarms.push_back({pair.first, pair.second, open.sinceMs});
    }
    return alarms;
}

int CEmergencyProtection::IsAlarmStatusItemExist(const std::string& id, const std::string& info) const {
    const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
    return m_openAlarms.count(Pair(id, info)) != 0 ? ZVS_SUCCEED : ZVS_FAIL;
}

int CEmergencyProtection::DelAlarmStatusItemAndSendResume(const std::string& id, const std::string& resumeType,
                                                          const std::string& info) {
    Alarm_Item alarmItem{};
    if (!PutType("DelAlarmStatusItemAndSendResume", alarmItem, id)) {
        return ZVS_FAIL;
    }
    std::vector<std::pair<std::uint64_t, Pair>> byAge;
    {
        const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
        for (auto open = m_openAlarms.lower_bound(Pair(id, "")); open != m_openAlarms.end() && open->first.first == id;
             ++open) {
            byAge.emplace_back(open->second.since, open->first);
        }
    }
    std::sort(byAge.begin(), byAge.end());
    std::vector<Pair> pairs;
    for (auto& entry : byAge) {
        pairs.push_back(std::move(entry.second));
    }
    SendResumes(resumeType, info, pairs, false);
    GVX_LOG_INFO("DelAlarmStatusItemAndSendResume", "Clear alarm Status map ok.");
    return ZVS_SUCCEED;
}

// Of an earlier process' alarms none is cleared that this process has raised meanwhile: its rows serve that one.
void CEmergencyProtection::SendResumes(const std::string& resumeType, const std::string& info,
                                       const std::vector<Pair>& pairs, bool ofEarlier) {
    std::vector<gvx::OutboundAlarm> resumes;
    resumes.reserve(pairs.size());
    {
        const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
        for (const Pair& pair : pairs) {
            if (ofEarlier && m_openAlarms.count(pair) != 0) {
                continue;
            }
            const std::string& text = info.empty() ? pair.second : info;
            gvx::OutboundAlarm resume{{resumeType, GVX_ALARM_DEV_TYPE, text, text}};
            resume.tellsStore = false;
            resume.forBoth = true;
            EndByLocked(resume, pair);
            resumes.push_back(std::move(resume));
        }
    }
    for (gvx::OutboundAlarm& resume : resumes) {
        m_outbox.Add(std::move(resume));
    }
}

void CEmergencyProtection::EndByLocked(gvx::OutboundAlarm& alarm, const Pair& pair) {
    const auto open = m_openAlarms.find(pair);
    const OpenAlarm was = open != m_openAlarms.end() ? open->second : OpenAlarm{++m_lastNumber, 1};
    alarm.endedId = pair.first;
    alarm.endedInfo = pair.second;
    alarm.ending = ++m_lastNumber;
    m_endings[pair] = {alarm.ending, was};
    if (open != m_openAlarms.end()) {
        m_openAlarms.erase(open);
    }
}

// The rows of clears that have left. Rows that an equal alarm needs again by now stay. Where they cannot be deleted the
// pair is remembered again, so that the next end of its fault clears it again; of one that has no such end, and of a
// store that has failed as a whole, they are deleted later.
void CEmergencyProtection::ForgetEnded(const std::vector<gvx::OutboundAlarm>& clears) {
    bool tells = false;
    bool isKnown = false;
    int result = 0;
    {
        const std::lock_guard<BP_Thread_Mutex> guard(m_Mutex);
        std::vector<Alarm_Item> items;
        std::vector<Pair> left;
        items.reserve(clears.size());  // what was counted below is not counted again
        left.reserve(clears.size());
        for (const gvx::OutboundAlarm& clear : clears) {
            const auto ending = m_endings.find(Pair(clear.endedId, clear.endedInfo));
            if (ending == m_endings.end() || ending->second.clear != clear.ending) {
                continue;
            }
            Pair pair = ending->first;
            Alarm_Item item{};
            if (++ending->second.partsGone < clear.parts || !PutType("Alarm cleared", item, pair.first) ||
                !PutInfo("Alarm cleared", item, pair.second)) {
                continue;
            }
            ending->second.clear = kLeft;
            items.push_back(item);
            left.push_back(std::move(pair));
            tells = tells || clear.tellsStore;
        }
        if (items.empty() || m_storePath.empty()) {
            return;
        }
        isKnown = m_deleteAtMs != 0;
        result = gvx::DeleteAlarmItems(items, isKnown);
        const bool isOpen = gvx::AlarmStoreIsOpen();
        for (Pair& pair : left) {
            const auto ending = m_endings.find(pair);
            if (result == 0) {
                m_endings.erase(ending);
            } else if (isOpen && pair.first != ALARM_GVX_FLOW_CONTROL) {
                m_openAlarms.emplace(std::move(pair), ending->second.was);
                m_endings.erase(ending);
            } else if (isOpen && !isKnown) {
                m_deleteAtMs = gvx::MonotonicMilliseconds() + kReopenMs;
            }
        }
    }
    if (result == 0 || !isKnown) {
        NoteOperation("Gvx_DelAlarmItem", "delete", result);
    }
    if (tells) {
        TellStoreHealth(result);
    }
}

int CEmergencyProtection::TellStoreHealth(int result) {
    if (result == 0) {
        gvx::OutboundAlarm works{{"ALARM_GVX_ALARM_RECORD_FAIL_OFF", GVX_ALARM_DEV_TYPE, HostLocation(), ""}};
        works.repeats = m_bAlarmReport.exchange(true);
        RaiseBehindOmu(std::move(works));
        GVX_DEBUG("send alarm record fail off msg.");
    } else if (m_bAlarmReport.exchange(false)) {
        SetGvxAlarmRepMsg("ALARM_GVX_ALARM_RECORD_FAIL_ON", GVX_ALARM_DEV_TYPE, HostLocation(), "");
        GVX_LOG_INFO("Alarm store health", "send alarm record fail on msg.");
    }
    return result;
}

int CEmergencyProtection::Gvx_AlarmInit(const char* path) {
    return TellStoreHealth(ZVS_AlarmInit(path));
}

int CEmergencyProtection::Gvx_AddAlarmItem(const Alarm_Item* item) {
    const int result = ZVS_AddAlarmItem(item);
    NoteOperation("Gvx_AddAlarmItem", "add", result);
    return TellStoreHealth(result);
}

int CEmergencyProtection::Gvx_DelAlarmItem(const Alarm_Item* item) {
    const int result = ZVS_DelAlarmItem(item);
    NoteOperation("Gvx_DelAlarmItem", "delete", result);
    return TellStoreHealth(result);
}

int CEmergencyProtection::Gvx_GetAllAlarmItem(Alarm_Item* items, int* count) {
    return TellStoreHealth(ZVS_GetAllAlarmItem(items, count));
}
