#pragma once

#include "gvx_common/records/conf_item_mask.h"
#include "gvx_common/records/gvx_adapter_records.h"

#include <cstdint>
#include <string>
#include <vector>

// Argument records about what a device watches for: its alarm inputs and outputs, motion, tampering, sound. Areas of
// the picture (picture_records.h) and guard times go beside the record.

// A span of a weekday in which a device watches, or records.
struct _PU_Guard_Time {
    std::uint32_t uiWeekDay = 0;  // 0 Sunday to 6 Saturday
    std::string strStartTime;     // local, "hhmmss"
    std::string strEndTime;       // "hhmmss"; "240000" is the end of the day
};
struct _MOTION_DETECTION_ALARM_GUARD_TIME {
    std::uint32_t uiWeekDay = 0;
    std::string strStartTime;
    std::string strEndTime;
};

// An alarm input or output of a device.
enum PU_ALARM_CONTACT : std::int32_t {
    PU_ALARM_NORMALLY_OPEN = 0,
    PU_ALARM_NORMALLY_CLOSED = 1,
};
struct PU_ALARM_SWITCH_INFO {
    CONF_ITEM_MASK_STRU stMask{};  // ALARM_TYPE_INDEX, ALARM_NUM_INDEX
    std::uint32_t uiChannel = 0;   // of the input or output, from 0
    std::string strName;           // at most 127
    bool bEnable = true;           // an input is watched, an output may be switched
    PU_ALARM_CONTACT eContact = PU_ALARM_NORMALLY_OPEN;
    bool bActive = false;          // the input has fired, the output is on
    std::uint32_t uiDuration = 0;  // seconds that an output stays on, 0 to 86400; 0: until it is switched off
    std::vector<_PU_Guard_Time> guardTimes;
};

// What a device does by itself upon an alarm.
enum PU_LINKAGE_ACTION : std::int32_t {
    PU_LINKAGE_RECORD = 0,
    PU_LINKAGE_SNAPSHOT = 1,
    PU_LINKAGE_ALARM_OUT = 2,
    PU_LINKAGE_PRESET = 3,
    PU_LINKAGE_CRUISE = 4,
};
struct PU_ALARM_LINKAGE_INFO_STRU {
    std::string strAlarmType;  // the platform's, at most 63
    PU_LINKAGE_ACTION eAction = PU_LINKAGE_RECORD;
    std::string strTargetCode;     // the lens or output that acts, at most 32
    std::uint32_t uiIndex = 0;     // of the preset or track
    std::uint32_t uiDuration = 0;  // seconds, 0 to 86400
};

// Motion in the picture.
struct MSG_SET_MOTION_DETECTION_ALARM_REQ {
    CONF_ITEM_MASK_STRU stMask{};  // MOTION_*
    bool bEnable = false;
    std::uint32_t uiDetectType = 0;    // 0 in the areas, 1 in the blocks of strBlockMask
    std::uint32_t uiSensitivity = 50;  // 0 to 100
    std::uint32_t uiStartBlocks = 1;   // blocks with motion at which an alarm begins, 0 to 65535
    std::uint32_t uiStopBlocks = 0;    // at which it ends
    std::string strBlockMask;          // hexadecimal digits, a bit for each block, row by row; at most 1024
    std::uint32_t uiInterval = 5;      // seconds between two alarms, 0 to 86400
};
struct MSG_GET_MOTION_DETECTION_ALARM_REQ {
    bool bEnable = false;
    std::uint32_t uiDetectType = 0;
    std::uint32_t uiSensitivity = 0;
    std::uint32_t uiStartBlocks = 0;
    std::uint32_t uiStopBlocks = 0;
    std::string strBlockMask;
    std::uint32_t uiInterval = 0;
};

// A lens that somebody covers.
struct PU_HIDE_ALARM_CONF_STRU {
    bool bEnable = false;
    std::uint32_t uiSensitivity = 50;  // 0 to 100
    std::uint32_t uiDuration = 5;      // seconds that it must be covered, 0 to 3600
};

// Loud or missing sound.
struct MSG_SET_AUDIO_ALARM_INFO {
    bool bEnable = false;
    std::int32_t nAlarmType = 0;       // 0 louder than the threshold, 1 a sudden rise, 2 no sound at all
    std::uint32_t uiThreshold = 50;    // 0 to 100
    std::uint32_t uiSensitivity = 50;  // 0 to 100
    std::vector<_PU_Guard_Time> guardTimes;
};
struct MSG_GET_AUDIO_ALARM_INFO {
    bool bEnable = false;
    std::int32_t nAlarmType = 0;
    std::uint32_t uiThreshold = 0;
    std::uint32_t uiSensitivity = 0;
    std::uint32_t uiCurrentLevel = 0;  // that the lens hears now, 0 to 100
    std::vector<_PU_Guard_Time> guardTimes;
};
