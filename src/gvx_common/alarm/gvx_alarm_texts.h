#pragma once

#include <string>

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
