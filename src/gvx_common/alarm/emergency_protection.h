#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

// The alarm-input type that all alarms of the gateway itself carry.
constexpr const char* GVX_ALARM_DEV_TYPE = "12";

// Identifiers under which open alarms are remembered.
constexpr const char* ALARM_GVX_CONFIG_READ_FAIL = "308521805";
constexpr const char* ALARM_GVX_FLOW_CONTROL = "308521806";

using SCU_STR_STR_MULTIMAP = std::multimap<std::string, std::string>;

namespace gvx {

// An alarm that waits for its delivery.
struct HeldAlarm {
    std::string type;         // at most 63 characters, such as "ALARM_GVX_CONFIG_READ_FAIL"
    std::string inType;       // at most 3 characters
    std::string location;     // at most 255 characters
    std::string description;  // at most 255 characters, may be empty
};

}  // namespace gvx

// The open alarms of the gateway itself. Every operation may be called from any thread.
class CEmergencyProtection {
public:
    // The singleton; never null, alive until the process ends.
    static CEmergencyProtection* Instance();

    CEmergencyProtection() = default;
    virtual ~CEmergencyProtection() = default;
    CEmergencyProtection(const CEmergencyProtection&) = delete;
    CEmergencyProtection& operator=(const CEmergencyProtection&) = delete;

    // A configuration value was illegal or a configuration file could not be read: raises the alarm and remembers it
    // under its location.
    void OnConfigReadAlarm(const std::string& location, const std::string& description);

    // A bounded queue sheds load, or does so no longer: sends the alarm each time, repeats too, with queue and protocol
    // in its text. A warning is remembered; as the two texts differ by a blank, the resume leaves it remembered.
    void OnFluxControlWarn(const std::string& protocol, const std::string& queue, const std::string& code);
    void OnFluxControlResume(const std::string& protocol, const std::string& queue, const std::string& code);

    // Raises one alarm. It is logged and held until it can be delivered; the last argument concerns delivery alone.
    void SetGvxBPAlarmRepMsg(const std::string& type, const std::string& inType, const std::string& location,
                             const std::string& description, bool flag);

    // Holds an alarm. 0; 2 when type, inType or location is empty; 1 when a text is too long, and the alarm is then
    // dropped with a log line that names the field.
    int CachePluginAlarm(const std::string& type, const std::string& inType, const std::string& location,
                         const std::string& description);

    // Remembers an open alarm by identifier (at most 9 characters) and information text (at most 255). 0, or 1 when
    // one is too long. An equal pair is not refused: ask IsAlarmStatusItemExist first.
    int AddAlarmStatusItem(const std::string& id, const std::string& info);

    // Forgets all equal pairs. 0, also when there is none; 2 with a log line when a text is empty.
    int DelAlarmStatusItem(const std::string& id, const std::string& info);

    // 0 when exactly this pair is remembered, 1 when it is not.
    int IsAlarmStatusItemExist(const std::string& id, const std::string& info) const;

    // The alarms that wait for delivery, oldest first.
    std::vector<gvx::HeldAlarm> GetHeldAlarms() const;

private:
    mutable std::mutex m_Mutex;
    SCU_STR_STR_MULTIMAP m_alarmStatusMap;  // Guarded by m_Mutex.
    mutable std::mutex m_alarmCacheMutex;
    std::vector<gvx::HeldAlarm> m_alarmCacheVect;  // Guarded by m_alarmCacheMutex.
};
