#pragma once

#include <string>

class CAdapterDevBase;

namespace gvx {

// Sends an alarm that a plug-in has reported (ADAPTER_ALARM_CALLBACK says what json holds), unless the device does not
// allow it: to the SCU and, where the type is in the alarm dictionary, to the cloud platform. For the device's own
// thread. 0, or ZVS_PARA_INVALID for a report that cannot be read.
int SendDeviceAlarm(const std::string& plugin, const std::string& device, CAdapterDevBase& adapter,
                    const std::string& json);

}  // namespace gvx
