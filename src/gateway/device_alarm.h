#pragma once

#include <string>

class CAdapterDevBase;

namespace gvx {

// The callback by which plug-ins report an alarm of a device; ADAPTER_ALARM_CALLBACK says what json holds. The alarm
// joins the device's command queue, so that it is sent in order with the commands and on the thread on which the
// device's operations may be called. Any thread; never waits. What cannot be queued is lost, with a log line.
void OnPluginAlarm(const char* devID, const char* json);

// Sends such a report, unless the device does not allow it: to the SCU and, where the type is in the alarm dictionary,
// to the cloud platform. For the device's own thread. 0, or ZVS_PARA_INVALID for a report that cannot be read.
int SendDeviceAlarm(const std::string& plugin, const std::string& device, CAdapterDevBase& adapter,
                    const std::string& json);

}  // namespace gvx
