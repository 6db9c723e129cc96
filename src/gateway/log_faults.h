#pragma once

namespace gvx {

// Has the faults of the log files raise and clear their alarms. Begun when the open alarms are restored, so that one
// whose fault has gone meanwhile is cleared; without its thread the gateway runs all the same.
void StartLogFaults();
void StopLogFaults();

}  // namespace gvx
