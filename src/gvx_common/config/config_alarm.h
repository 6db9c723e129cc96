#pragma once

#include <string>

namespace gvx {

// Where the configuration's faults go to become alarms. The alarm state stands above this room, so it registers itself
// when the library is loaded, ahead of the first loading of settings. Any thread.
class ConfigAlarmSink {
public:
    virtual ~ConfigAlarmSink() = default;

    // A configuration file cannot be read or breaks its rules: raised, and remembered under its location.
    virtual void OnFileFault(const std::string& location, const std::string& description) = 0;
    // One alarm for all faults of the files that are not the settings themselves, remembered under an empty text. False
    // when it is open already; nothing is done then.
    virtual bool OnSideFileFault(const std::string& location, const std::string& description) = 0;
    // A setting has a value that is not allowed: raised, not remembered.
    virtual void OnIllegalSetting(const std::string& location, const std::string& description) = 0;
};

// The sink, which is not owned and lives until the process ends.
void SetConfigAlarmSink(ConfigAlarmSink* sink);
// Never null: without a sink the faults are lines of the log.
ConfigAlarmSink& ConfigAlarms();

}  // namespace gvx
