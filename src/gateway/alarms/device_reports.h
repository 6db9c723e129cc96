#pragma once

#include "gvx_common/records/adapter_common_message.h"

#include <functional>
#include <string>

class CGvxReactor;

namespace gvx {

// Finds the reactor of a device, null when nobody knows it; an empty function takes it away. Reports of plug-ins are
// then lost, with a log line. The function is called under this module's lock.
void SetReportReactors(std::function<CGvxReactor*(const std::string& device)> reactorOf);

// A plug-in reports an exception of its device (chDevId). The report joins the device's command queue, so that it is
// handled in order with the commands and on the same thread. Any thread.
void OnPluginReport(ADAPTER_COMMON_MESSAGE& message);

// The callback by which plug-ins report an alarm of a device; ADAPTER_ALARM_CALLBACK says what json holds. The alarm
// joins the device's command queue, so that it is sent in order with the commands and on the thread on which the
// device's operations may be called. Any thread; never waits. What cannot be queued is lost, with a log line.
void OnPluginAlarm(const char* devID, const char* json);

// Queues a report for its device (chDevId), with text behind the record where there is one. False when it is refused or
// there is no such device. Any thread.
bool PushReport(const ADAPTER_COMMON_MESSAGE& message, const std::string& text);

// A platform link opened or closed. Runs on the link I/O thread.
void OnLinkReport(ADAPTER_COMMON_MESSAGE& message);

}  // namespace gvx
