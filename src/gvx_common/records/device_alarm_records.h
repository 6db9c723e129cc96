#pragma once

#include "base/zvs_types.h"

#include <ace/Functor_String.h>
#include <ace/Hash_Map_Manager_T.h>
#include <ace/Recursive_Thread_Mutex.h>

#include <cstddef>
#include <cstdint>
#include <string>

// The records that turn a device's own alarm words into platform alarms. Texts are terminated; numbers in host order.

enum AlarmMode : int {
    enAlarmMode_Defalut = 0,
    enAlarmMode_Business = 1,
    enAlarmMode_Device = 2,
    enAlarmMode_Buts = 3,  // the bound
};

// One row of the description table; the neutral type is its key.
struct _GVX_DEVICE_ALARM_INFO_DESCRIPTION {
    char chAlarmType[65];
    char chAlarmDesc[1025];
    char chExtParam[2049];  // what a report without extension text gets
    char chAlarmSubDevType[9];
    AlarmMode enAlarmMode;
};
using GVX_DEVICE_ALARM_INFO_DESCRIPTION = _GVX_DEVICE_ALARM_INFO_DESCRIPTION;

// A device's words for the start and the end of an alarm.
struct _GVX_DEVICE_ALARM_ACTION {
    char chActive[33];
    char chInactive[33];
};
using GVX_DEVICE_ALARM_ACTION = _GVX_DEVICE_ALARM_ACTION;

// One row of a mapping table; the device's raw alarm code is its key.
struct _GVX_DEVICE_ALARM_INFO_MAPPINGS {
    char chAlarmType[65];
    char chAlarmDesc[1024];
    char chExtParam[2048];
    char chAlarmSubDevType[8];
    GVX_DEVICE_ALARM_ACTION stAlarmAction;
};
using GVX_DEVICE_ALARM_INFO_MAPPINGS = _GVX_DEVICE_ALARM_INFO_MAPPINGS;

// How many parts of each kind a device of a model has.
struct _DEVICE_ABILITY {
    std::uint16_t VideoInputChannelNum;
    std::uint16_t AudioInputChannelNum;
    std::uint16_t AlarmDINum;
    std::uint16_t AlarmDONum;
    std::uint16_t TalkbackInputNum;
    std::uint16_t TalkbackOutputNum;
    std::uint16_t SerialPortNum;
    std::uint16_t NetworkCardNum;
    std::uint16_t HardDiskNum;
    std::uint16_t PTZNum;
};
using DEVICE_ABILITY = _DEVICE_ABILITY;

// A map guards itself with its mutex. Rows belong to whoever owns the map, count in g_bp_memstat and do not change once
// they are bound.
template <typename Value>
using DeviceAlarmMap = ACE_Hash_Map_Manager<std::string, Value, ACE_Recursive_Thread_Mutex>;
using DEVICE_ALARM_INFO_DESC_MAP = DeviceAlarmMap<GVX_DEVICE_ALARM_INFO_DESCRIPTION*>;
using DEVICE_ALARM_INFO_MAPPINGS_MAP = DeviceAlarmMap<GVX_DEVICE_ALARM_INFO_MAPPINGS*>;
using DEVICE_ABILITY_MAP = DeviceAlarmMap<DEVICE_ABILITY>;

// As an action: leave the direction as the caller set it.
constexpr const char* GVX_ALARM_ACTION_DEFAULT = "GVX_ALARM_ACTION_DEFAULT";

// A device alarm as the platform gets it.
struct ZVS_ALARM_REPORT {
    char cAlarmInCode[64];  // the camera or device that the alarm comes from
    char cDevDomainCode[32];
    char cAlarmType[64];
    char cOccurTime[20];
    char cReportTime[20];
    ZVS_BOOL bAction;  // 1: the alarm began, 0: it ended
    char cAlarmID[32];
    ZVS_UINT32 uiOccurNumber;
    char cNvrCode[32];
    char cReserve[32];
    char cAlarmDesc[1024];
    char cExtParam[2048];
};
static_assert(offsetof(ZVS_ALARM_REPORT, cAlarmID) == 204 && offsetof(ZVS_ALARM_REPORT, cReserve) == 272,
              "what stands before cReserve goes on the wire as it is");
