#pragma once

#include <vector>

// The store of open alarms, which outlives the process, kill -9 included: what an operation answered with 0 is on
// disk. One store a process. Any thread; the operations are serialised.

struct Alarm_Item {
    char AlarmType[10];   // numeric identifier, at most 9 characters, terminated
    char AlarmInfo[256];  // information text, at most 255 bytes, terminated
};
static_assert(sizeof(Alarm_Item) == 266, "the record's layout is fixed");

// Opens the store at a file path, made when it is missing; its folder must exist. A store that is open already is
// closed first. A file that is corrupt, or no data base, is set aside as "<path>.corrupt-<UTC date and time>" and a
// fresh store is begun, with one error line. 0 for success, else 1 with a log line: the folder is missing or cannot be
// written to, the disk is full, a page cannot be read, or another process holds the store for 2 s.
int ZVS_AlarmInit(const char* path);

// Adds one item; equal items may stand in the store more than once. 0 for success; 1 for a null or unterminated
// item, a store that is not open, or a failure of the disk.
int ZVS_AddAlarmItem(const Alarm_Item* item);

// Deletes every item of that type and information. 0 for success, also when there was none; 1 as above.
int ZVS_DelAlarmItem(const Alarm_Item* item);

// Without items: the number of items in *count. With items: reads at most *count of them, oldest first, and sets
// *count to the number read. 0 for success; 1 for a null count, a store that is not open, or a failure.
int ZVS_GetAllAlarmItem(Alarm_Item* items, int* count);

// Closes the store; the operations fail until it is opened again.
void ZVS_AlarmClose();

namespace gvx {

bool AlarmStoreIsOpen();

// Several items in one write, all or none: added, or deleted as by ZVS_DelAlarmItem. 0 for success; 1 as above, where
// the line is of the debug log alone when the failure is known.
int AddAlarmItems(const std::vector<Alarm_Item>& items);
int DeleteAlarmItems(const std::vector<Alarm_Item>& items, bool isKnown = false);

// As ZVS_GetAllAlarmItem with items, equal ones once.
int ReadDistinctAlarmItems(Alarm_Item* items, int* count);

}  // namespace gvx
