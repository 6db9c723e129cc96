#pragma once

#include "gvxctl/commands.h"

#include <string>

namespace gvxctl {

struct AlarmsOptions {
    int seconds = 0;    // end after that time; 0: go on
    int count = 0;      // end after so many alarms; 0: go on
    bool full = false;  // every field of the records
    bool json = false;  // one JSON object a line
};
// Links as main service and OMU and prints the alarms that arrive. Exit code 1 when fewer than `count` have come, or
// when a record could not be decoded.
int RunAlarms(const CommonOptions& common, const AlarmsOptions& options);

struct TriggerOptions {
    Endpoint intake;
    std::string device = "CAM001";
    std::string code;
    std::string action;
    int channel = -1;  // below 0: the device itself
    std::string description;
};
// Tells the gateway's intake of an event at a device, as the device itself would.
int RunAlarmTrigger(const TriggerOptions& options);

// The line that goes to the intake, with its line feed.
std::string TriggerLine(const TriggerOptions& options);

}  // namespace gvxctl
