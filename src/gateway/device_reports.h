#pragma once

#include <string>

#include "gvx_common/link/adapter_common_message.h"

namespace gvx {

class DeviceTable;

// Whose devices' queues the reports of plug-ins join; not owned, null takes it away. Reports are then lost, with a log
// line.
void SetReportDevices(DeviceTable* devices);

// A plug-in reports an exception of its device (chDevId). The report joins the device's command queue, so that it is
// handled in order with the commands and on the same thread. Any thread.
void OnPluginReport(ADAPTER_COMMON_MESSAGE& message);

// Queues a report for its device (chDevId), with text behind the record where there is one. False when it is refused or
// there is no such device. Any thread.
bool PushReport(const ADAPTER_COMMON_MESSAGE& message, const std::string& text);

// A platform link opened or closed. Runs on the link I/O thread.
void OnLinkReport(ADAPTER_COMMON_MESSAGE& message);

}  // namespace gvx
