#pragma once

#include <cstddef>
#include <string>

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

// The texts that alarms get on their way out. Any thread.

// The text of an external server's fault. 0; 1 for a code that is not known, and description is then unchanged.
int getGB35114AlarmDesc(const std::string& code, std::string& description);

// The site's node code, from log.xml of the configuration folder; the file is read anew each time. 0; 1 with a log
// line when there is none, and code is then unchanged.
int getNodeCodeFromLogXml(std::string& code);

// The location text of an alarm: the gateway's address and the text, behind them in brackets the address of the device
// of that code where there is such a device. An identifier whose location is not rewritten leaves location unchanged.
// 0; 1 with a log line when the gateway has no address.
int setLocationInfo(const std::string& id, const std::string& devCode, const std::string& text, std::string& location);
