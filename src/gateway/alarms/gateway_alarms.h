#pragma once

#include "base/unique_fd.h"

#include <string>

namespace gvx {

// The alarms of the gateway itself, begun and ended with the process, on the thread that starts and stops it.

// The folder of GVX_DATA_DIR, which belongs to one gateway at a time. Released with the object, and when the process
// ends in any way.
class DataFolder {
public:
    // Makes the folder when it is missing and takes it, before anything is written anywhere; setting is the value of
    // GVX_DATA_DIR. False, with the reason, when another process has it. A folder that cannot be had is no reason not
    // to start: the store says why.
    bool Take(const std::string& setting, std::string& reason);
    void Release() { m_folder.Reset(); }

private:
    UniqueFd m_folder;
};

// Where that folder is by the settings in force. Any thread.
std::string DataFolderPath();

// Opens the store of open alarms in that folder, takes what was open at the last end into the table, and begins the
// thread that hands held alarms to the links and opens a store that could not be opened. A store that fails is no
// reason not to start: it raises its own alarm. Once, behind everything that can refuse the start, so that what is
// cleared can leave; the faults of the log files raise and clear their alarms from then on.
void StartAlarms();
// Leaves the alarms that wait to the next start; ahead of the links' end. StopAlarms follows.
void HoldAlarms();
// Ends the above and closes the store; alarms that come later are kept in memory alone.
void StopAlarms();

// The device error reporter of this process, deleted when nothing can report any more.
void StartErrorReports();
void StopErrorReports();

}  // namespace gvx
