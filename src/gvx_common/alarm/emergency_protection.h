#pragma once

#include "gvx_common/alarm/alarm_outbox.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
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

using BP_Thread_Mutex = std::mutex;

// The open alarms of the gateway itself: a table in memory and a store on disk, so that a process that dies with an
// alarm open can clear it when it comes back. A row of the store stays until the alarm that clears it has left by a
// link's socket. The gateway's alarms leave by an outbox, which keeps their order and holds them while a link is
// missing.
//
// Every operation may be called from any thread. Operations that touch the store wait for the disk, and all of them
// write log lines: none may be called with a lock held that a log line or a link event takes. While there is a keeper,
// its thread sends; otherwise the caller does, and may hold no lock that a send takes. m_Mutex is held around the
// store, never while an alarm is sent.
class CEmergencyProtection {
public:
    // The singleton; never null, alive until the process ends.
    static CEmergencyProtection* Instance();

    CEmergencyProtection();
    virtual ~CEmergencyProtection() = default;
    CEmergencyProtection(const CEmergencyProtection&) = delete;
    CEmergencyProtection& operator=(const CEmergencyProtection&) = delete;

    // Opens the store (made when it is missing) and takes its alarms into the table, equal ones once and kMostRestored
    // at most; those of flow control, which cannot outlive a process, are cleared at once, the others by the event that
    // shows their fault gone. What this process has remembered before goes into the store. At start, and by KeepStore.
    // 0; 1 when nothing was there to restore, which is no fault, or when the store fails; ZVS_ALLOC_MEMORY_ERROR.
    int LoadAlarmStatus(const std::string& path);
    static constexpr int kMostRestored = static_cast<int>(gvx::AlarmOutbox::kMostHeld);

    // Opens a store that could not be opened, once a minute, and deletes rows of cleared alarms that could not be
    // deleted. True when a store has just been opened.
    bool KeepStore();

    // Closes the store. What is raised from now on is in memory alone.
    void CloseStore();

    // Who sends the alarms from now on: gvx::AlarmOutbox::SetKeeper, its Send being SendAlarmCacheToGvx.
    void SetKeeper(std::function<void()> wake) { m_outbox.SetKeeper(std::move(wake)); }

    // Remembers an open alarm by identifier (at most 9 characters) and information text (at most 255). 0, also when
    // the store fails and memory alone has it; 1 when a text is too long. An equal pair is not refused: ask
    // IsAlarmStatusItemExist first. The store has at most kMostEqualRows of one pair.
    int AddAlarmStatusItem(const std::string& id, const std::string& info);
    static constexpr std::size_t kMostEqualRows = 16;

    // Forgets all equal pairs at once; one whose deletion from an open store fails stays. 0, also when there is none; 2
    // with a log line when a text is empty.
    int DelAlarmStatusItem(const std::string& id, const std::string& info);

    // 0 when exactly this pair is remembered, 1 when it is not.
    int IsAlarmStatusItemExist(const std::string& id, const std::string& info) const;

    // Sends the clearing alarm for each entry of the identifier, with info as its texts or, where that is empty, the
    // entry's own, as SetGvxBPAlarmRepMsg does, and forgets them all. A part for OMU waits for the first link to OMU;
    // each row goes when its alarm has left to both. 0, or 1 when a text is too long.
    int DelAlarmStatusItemAndSendResume(const std::string& id, const std::string& resumeType, const std::string& info);

    // A configuration value was illegal or a configuration file could not be read: raises the alarm and remembers it
    // under its location. It has no clearing alarm; its presence stops repeats.
    void OnConfigReadAlarm(const std::string& location, const std::string& description);

    // The logger reports a fault by number, or its end: a raise code plus 50. 500, 502, 504 lines that cannot be
    // written; 503, 505, 506 a backup that cannot be made; any other code is ignored. One raise and one clear go out
    // for each fault, however often it is reported. Null texts count as empty. Calls are served one after another, and
    // write log lines themselves: never call it from inside the writing of one.
    void OnLogWarn(unsigned int errorCode, const char* filePath, const char* fileName);

    // A thread of the command layer entered or left flow control. The record is the caller's; null is logged. Each of
    // these four is one step beside the others, the alarm and its remembering together.
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

    // An alarm of the gateway that waits, as it was raised, until the link to OMU has opened for the first time; the
    // body of CGvxConnectionMgr::SetGvxAlarmRepMsg.
    void SetGvxAlarmRepMsg(const std::string& type, const std::string& inType, const std::string& location,
                           const std::string& description) {
        RaiseBehindOmu({{type, inType, location, description}});
    }
    // The link to OMU has opened: what waited for the first one leaves in its order.
    void SendAlarmsBehindOmu() { m_outbox.OmuIsKnown(); }

    // Holds an alarm until the next sending; in memory, as many as gvx::AlarmOutbox says. 0; 2 when type, inType or
    // location is empty; 1 when a text is too long, and the alarm is then dropped with a log line that names the field.
    int CachePluginAlarm(const std::string& type, const std::string& inType, const std::string& location,
                         const std::string& description);

    // Sends what is held, oldest first, as fast as the links take it; what they do not take now stays, in its order,
    // for the next call. 0.
    int SendAlarmCacheToGvx();
    // A main service opens: nothing is sent until it has the list of plug-ins, and then by the thread of that event,
    // as by SendAlarmCacheToGvx, since the ports are reported behind it. Likewise while the links end, one by one: what
    // waits then is left to the next start.
    void HoldAlarmsBack() { m_outbox.HoldBack(); }
    void LetAlarmsGo() { m_outbox.LetGo(); }

    // What is remembered, by identifier and text.
    struct Remembered {
        std::string id;
        std::string info;
        std::int64_t sinceMs = 0;  // monotonic; kBeforeStart for one that an earlier process has raised
    };
    static constexpr std::int64_t kBeforeStart = -1;
    std::vector<Remembered> OpenAlarms() const;

    // The alarms that wait for a link, oldest first, those for the first link to OMU last; how many they are, and how
    // many were lost because too many waited.
    std::vector<gvx::HeldAlarm> GetHeldAlarms() const { return m_outbox.Waiting(); }
    std::size_t CountHeldAlarms() const { return m_outbox.CountWaiting(); }
    std::uint64_t CountLostAlarms() const { return m_outbox.CountLost(); }

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
    using Pair = std::pair<std::string, std::string>;  // identifier, information text
    struct OpenAlarm {
        std::uint64_t since = 0;  // numbers rise with time
        std::size_t rows = 0;     // in the store, as far as this process knows; 0 where it has none
        std::int64_t sinceMs = kBeforeStart;
    };
    struct Ending {
        std::uint64_t clear = 0;  // its number; kLeft when it has left and the rows could not be deleted
        OpenAlarm was{};
        int partsGone = 0;  // parts of the clear that have left
    };
    static constexpr std::uint64_t kLeft = 0;

    void RaiseLogAlarm(const char* type, const char* id, unsigned int errorCode, const std::string& text);
    void ClearLogAlarm(const char* type, const char* id, unsigned int errorCode, const std::string& text);
    void WarnFlow(const std::string& text);
    void ResumeFlow(const std::string& text);
    void RaiseBehindOmu(gvx::OutboundAlarm alarm);
    // Forgets the pair and marks the alarm as the one that clears it. The caller sends the alarm; nothing is marked
    // when the pair is not remembered.
    void EndByLocked(gvx::OutboundAlarm& alarm, const Pair& pair);
    void ForgetEnded(const std::vector<gvx::OutboundAlarm>& clears);
    void SendResumes(const std::string& resumeType, const std::string& info, const std::vector<Pair>& pairs,
                     bool ofEarlier);
    int RestoreItems(int count, std::vector<Pair>& flows);
    bool StoreRemembered();
    void DeleteLeftRows();
    // Gives the result of a store operation back, and sends the alarm about the store's health. Without m_Mutex.
    int TellStoreHealth(int result);

    // Guards the four below, and is held around the store, so that table and store agree. Taken inside m_faultMutex.
    mutable BP_Thread_Mutex m_Mutex;
    std::map<Pair, OpenAlarm> m_openAlarms;
    std::map<Pair, Ending> m_endings;  // what is open no more and may have rows yet; no pair stands in both
    std::uint64_t m_lastNumber = 0;    // of open alarms and of clears
    std::string m_storePath;           // of the last opening; empty before the first and behind the end

    std::atomic<bool> m_bAlarmReport{true};     // the store worked last time
    std::atomic<std::int64_t> m_reopenAtMs{0};  // monotonic; 0 when the store need not be opened again
    std::atomic<std::int64_t> m_deleteAtMs{0};  // the same for rows that could not be deleted
    gvx::AlarmOutbox m_outbox;
    // Makes each step of the log's faults and of flow control one, from the look to the raise or clear; outermost.
    BP_Thread_Mutex m_faultMutex;
};
