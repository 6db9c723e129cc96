#pragma once

#include <string>

namespace gvxfile {

// A device's word that an alarm has begun or ended, in the device's own terms.
struct AlarmTrigger {
    static constexpr int kNoChannel = -1;

    std::string device;
    int channel = kNoChannel;  // none: the alarm is the device's own
    std::string code;          // of the mapping table
    bool hasAction = false;    // without one the alarm has begun
    std::string action;
    std::string description;  // empty: that of the tables
};

// Reads one line. False with one sentence in error.
bool ReadAlarmTrigger(const std::string& line, AlarmTrigger& trigger, std::string& error);

}  // namespace gvxfile
