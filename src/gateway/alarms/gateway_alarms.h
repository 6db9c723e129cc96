#pragma once

namespace gvx {

// The alarms of the gateway itself, begun and ended with the process, on the thread that starts and stops it.

// Opens the store of open alarms in the folder of GVX_DATA_DIR, which is made when it is missing, and takes what was
// open at the last end into the table. A store that fails is no reason not to start: it raises its own alarm. Once,
// with the configuration loaded and ahead of everything that raises alarms of its own.
void StartAlarmStore();
// Closes the store; alarms that come later are kept in memory alone.
void StopAlarmStore();

// Has the faults of the log files raise and clear their alarms. Begun when the open alarms are restored, so that one
// whose fault has gone meanwhile is cleared; without its thread the gateway runs all the same.
void StartLogFaultAlarms();
void StopLogFaultAlarms();

// The device error reporter of this process, deleted when nothing can report any more.
void StartErrorReports();
void StopErrorReports();

}  // namespace gvx
