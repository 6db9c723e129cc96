#pragma once

namespace gvx {

// Opens the store of open alarms in the folder of GVX_DATA_DIR, which is made when it is missing, and takes what was
// open at the last end into the table. A store that fails is no reason not to start: it raises its own alarm. Once,
// with the configuration loaded and ahead of everything that raises alarms of its own.
void StartAlarmStore();

// Closes the store; alarms that come later are kept in memory alone.
void StopAlarmStore();

}  // namespace gvx
