#pragma once

#include <string>
#include <vector>

namespace gvx {

// Something wrong in a file of the configuration.
struct ConfigFinding {
    enum class Weight { Warning, Error, StopsStart };

    Weight weight;
    std::string file;  // its path; empty where the text names it
    int line;          // 0 where the fault belongs to none
    std::string text;  // what is wrong, and what holds instead

    // "<file>:<line>: <text>".
    std::string Line() const;
};

// Writes the finding to the log, as a warning or an error, and gives it to the keeper. Any thread.
void TellFinding(ConfigFinding finding);

// Keeps what is told while it lives; one at a time. Any thread may tell; the owner's thread alone reads.
class FindingsKeeper {
public:
    FindingsKeeper();
    ~FindingsKeeper();
    FindingsKeeper(const FindingsKeeper&) = delete;
    FindingsKeeper& operator=(const FindingsKeeper&) = delete;

    std::vector<ConfigFinding> All() const;
    // The first finding that stops a start, as a line; empty when there is none.
    std::string WhyNoStart() const;
};

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
