#pragma once

#include "gvxctl/frame.h"

#include <json/value.h>

#include <string>
#include <vector>

// Alarm frames taken apart by the offsets of their wire records; docs/gvxctl.md lists the fields. Any thread.
namespace gvxctl {

struct AlarmField {
    const char* name;
    Json::Value value;  // text, or a number
};

// One alarm as it arrived.
struct Alarm {
    const char* target = "";  // "SCU", "OMU" or "KSP": whom the frame is for
    std::vector<AlarmField> fields;

    // Value of a field as text; empty when the record has no such field.
    std::string Text(const std::string& name) const;
    // "began" or "ended": from the action where the record carries one, else from the ending of the alarm's type, else
    // empty.
    std::string Action() const;
};

bool IsAlarmFrame(const Frame& frame);

// False, with the reason, when the frame is no alarm or its body does not hold the whole record. A length inside the
// body that leads beyond its end is such a fault.
bool DecodeAlarm(const Frame& frame, Alarm& alarm, std::string& error);

// "SCU  began  ALARM_...  from <code>, 20260102030405: <description>"
std::string AlarmLine(const Alarm& alarm);
// Every field on a line of its own, each behind `indent`; empty ones are left out.
std::string AlarmFields(const Alarm& alarm, const std::string& indent);
Json::Value AlarmToJson(const Alarm& alarm);

}  // namespace gvxctl
