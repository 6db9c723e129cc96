#pragma once

#include <cstddef>

// What the platform's alarm numbers and codes stand for: fixed tables, read on any thread.

// One alarm type and its identifier. The types of one fault's begin and end share an identifier.
struct GVX_ALARM_TYPE_ID {
    const char* strAlarmType;
    const char* strALarmID;
};

// One fault of an external server: the code that comes as an alarm's description, and its text.
struct GB3514_ALARM_ID_DESC {
    const char* strALarmDescCode;
    const char* strAlarmDesc;
};

constexpr std::size_t kGvxAlarmTypes = 84;
constexpr std::size_t kGB35114AlarmTexts = 26;
constexpr std::size_t kLocationAlarms = 39;

extern const GVX_ALARM_TYPE_ID gvxAlarmTypeAndID[kGvxAlarmTypes];
extern const GB3514_ALARM_ID_DESC gvxGB35114AlarmIDAndDesc[kGB35114AlarmTexts];
// Identifiers of the alarms whose location text is rewritten for the cloud platform.
extern const char* const vecAlarmIDForModLocInfo[kLocationAlarms];
