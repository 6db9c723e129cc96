#pragma once

#include "plugin_support/alarm_table.h"

#include <string>

namespace gvxfile {

// A device's word that an alarm has begun or ended, in the device's own terms.
struct AlarmTrigger : gvxplugin::AlarmEvent {
    static constexpr int kNoChannel = -1;

    std::string device;
    int channel = kNoChannel;  // none: the alarm is the device's own
};

// Reads one line; any thread. False with one sentence in error.
bool ReadAlarmTrigger(const std::string& line, AlarmTrigger& trigger, std::string& error);

}  // namespace gvxfile
