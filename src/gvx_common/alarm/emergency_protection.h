#pragma once

#include "gvx_common/records/gvx_alarm_records.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

struct Alarm_Item;
namespace BP {
struct fluxControlWarnInfo;
}

// The alarm-input type that all alarms of the gateway itself carry.
constexpr const char* GVX_ALARM_DEV_TYPE = "12";

// Identifiers under which open alarms are remembered; that of the store's own fault alone is not.
constexpr const char* ALARM_GVX_LOG_BACK_FAIL = "308521802";
constexpr const char* ALARM_GVX_LOG_RECORD_FAIL = "308521803";
constexpr const char* ALARM_GVX_ALARM_RECORD_FAIL = "308521804";
constexpr const char* ALARM_GVX_CONFIG_READ_FAIL = "308521805";
constexpr const char* ALARM_GVX_FLOW_CONTROL = "308521806";
constexpr const char* ALARM_GVX_SYS_PORT_CONFLICT = "308521807";
constexpr const char* ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL = "308521809";

using SCU_STR_STR_MULTIMAP = std::multimap<std::string, std::string>;
using BP_Thread_Mutex = std::mutex;

namespace gvx {

// An alarm that waits for the gateway's link.
struct HeldAlarm {
    std::string type;
    std::string inType;
    std::string location;
    std::string description;
};

}  // namespace gvx

// The open alarms of the gateway itself: a table in memory and a store on disk, so that a process that dies with an
// alarm open can clear it when it comes back. Builds the gateway's alarms and holds them back while its main-service
// link is down.
//
// Every operation may be called from any thread. Operations that touch the store wait for the disk, and all of them
// write log lines: none may be called with a lock held that a log line, a send or a link event takes. m_Mutex is held
// while remembered alarms are restored, deleted and resumed, alarms that this sends included, so nothing on the way of
// an alarm may ask this class.
class CEmergencyProtection {
public:
    // The singleton; never null, alive until the process ends.
    static CEmergencyProtection* Instance();

    CEmergencyProtection() = default;
    virtual ~CEmergencyProtection() = default;
    CEmergencyProtection(const CEmergencyProtection&) = delete;
    CEmergencyProtection& operator=(const CEmergencyProtection&) = delete;

    // Opens the store (made when it is missing) and takes its alarms into the table; those of flow control, which
    // cannot outlive a process, are cleared at once, the others by the event that shows their fault gone. Once, at
    // start. 0; 1 when nothing was there to restore, which is no fault, or when the store fails;
    // ZVS_ALLOC_MEMORY_ERROR.
    int LoadAlarmStatus(const std::string& path);

    // Remembers an open alarm by identifier (at most 9 characters) and information text (at most 255). 0, also when
    // the store fails and memory alone has it; 1 when a text is too long. An equal pair is not refused: ask
    // IsAlarmStatusItemExist first.
    int AddAlarmStatusItem(const std::string& id, const std::string& info);

    // Forgets all equal pairs; one whose deletion from the store fails stays. 0, also when there is none; 2 with a log
    // line when a text is empty.
    int DelAlarmStatusItem(const std::string& id, const std::string& info);

    // 0 when exactly this pair is remembered, 1 when it is not.
    int IsAlarmStatusItemExist(const std::string& id, const std::string& info) const;

    // Sends the clearing alarm for each entry of the identifier, with info as its texts or, where that is empty, the
    // entry's own, and forgets them all. 0, or 1 when a text is too long.
    int DelAlarmStatusItemAndSendResume(const std::string& id, const std::string& resumeType, const std::string& info);

    // A configuration value was illegal or a configuration file could not be read: raises the alarm and remembers it
    // under its location. It has no clearing alarm; its presence stops repeats.
    void OnConfigReadAlarm(const std::string& location, const std::string& description);

    // The logger reports a fault by number, or its end: a raise code plus 50. 500, 502, 504 lines that cannot be
    // written; 503, 505, 506 a backup that cannot be made; any other code is ignored. One raise and one clear go out
    // for each fault, however often it is reported. Null texts count as empty. Calls are served one after another, and
    // write log lines themselves: never call it from inside the writing of one.
    void OnLogWarn(unsigned int errorCode, const char* filePath, const char* fileName);

    // A thread of the command layer entered or left flow control. The record is the caller's; null is logged.
    void OnFluxControlWarn(BP::fluxControlWarnInfo* pInfo);
    void OnFluxControlResume(BP::fluxControlWarnInfo* pInfo);

    // A bounded queue sheds load, or does so no longer: sends the alarm each time, repeats too, with queue and protocol
    // in its text. A warning is remembered; as the two texts differ by a blank, the resume leaves it remembered.
    void OnFluxControlWarn(const std::string& protocol, const std::string& queue, const std::string& code);
    void OnFluxControlResume(const std::string& protocol, const std::string& queue, const std::string& code);

    // Builds one alarm and sends it to KSP and OMU; while the main-service link is down it is held. A text that does
    // not fit its field drops it with a log line. type: at most 63 characters; inType: 3; location (empty: the local
    // address) and description: 255. The last argument goes to the send to OMU as it stands.
    void SetGvxBPAlarmRepMsg(const std::string& type, const std::string& inType, const std::string& location,
                             const std::string& description, bool flag);

    // Holds an alarm until SendAlarmCacheToGvx; in memory, without a limit. 0; 2 when type, inType or location is
    // empty; 1 when a text is too long, and the alarm is then dropped with a log line that names the field.
    int CachePluginAlarm(const std::string& type, const std::string& inType, const std::string& location,
                         const std::string& description);

    // Sends what is held, oldest first, and empties the cache. Only to be called with the main-service link up: what
    // cannot leave then is lost. 0.
    int SendAlarmCacheToGvx();

    // The alarms that wait for the main-service link, oldest first.
    std::vector<gvx::HeldAlarm> GetHeldAlarms() const;

    // The store's operations, see base/alarm_store.h, with a look at its health: each success sends
    // ALARM_GVX_ALARM_RECORD_FAIL_OFF, the first failure after one ALARM_GVX_ALARM_RECORD_FAIL_ON. The store's result.
    int Gvx_AlarmInit(const char* path);
    int Gvx_AddAlarmItem(const Alarm_Item* item);
    int Gvx_DelAlarmItem(const Alarm_Item* item);
    int Gvx_GetAllAlarmItem(Alarm_Item* items, int* count);

    // Link events that concern no alarm; noted in the debug log.
    void OnSMULinkOpened();
    void OnSMULinkClosed();
    void OnGVXLinkOpened();
    void OnGVXLinkClosed();

private:
    void RaiseLogAlarm(const char* type, const char* id, unsigned int errorCode, const std::string& text);
    void ClearLogAlarm(const char* type, const char* id, unsigned int errorCode, const std::string& text);
    int RestoreItems(int count);
    bool FillAlarm(GVX_ALARM_REPORT& report, const std::string& type, const std::string& inType,
                   const std::string& location, const std::string& description) const;
    // Gives the result of a store operation back, and sends the alarm about the store's health.
    int TellStoreHealth(int result);

    std::atomic<std::uint64_t> m_GvxAlarmEventID{0};  // the next alarm's event number
    SCU_STR_STR_MULTIMAP m_alarmStatusMap;            // Guarded by m_Mutex.
    // An addition is stored ahead of it; reading and deletion hold it around the store. Taken inside m_logWarnMutex.
    mutable BP_Thread_Mutex m_Mutex;
    std::atomic<bool> m_bAlarmReport{true};  // the store worked last time
    // Recursive: an alarm that SendAlarmCacheToGvx sends may come back into the cache. Taken inside m_Mutex.
    mutable std::recursive_mutex m_alarmCacheMutex;
    std::vector<_ZVS_REPORT_LIST> m_alarmCacheVect;  // Guarded by m_alarmCacheMutex.
    BP_Thread_Mutex m_logWarnMutex;  // Makes the look and the raise or clear of OnLogWarn one step; outermost.
};
