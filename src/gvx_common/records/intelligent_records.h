#pragma once

#include "gvx_common/records/guard_records.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "gvx_common/records/picture_records.h"

#include <cstdint>
#include <string>
#include <vector>

// Argument records about what devices find in pictures, and about cameras that work together: an overview camera, the
// master, shows where a dome, the slave, is to look. Places are in ten-thousandths of the picture (picture_records.h).

// A rule of a lens's analysis. RULE_ALARM_PARAM is one rule; the common part holds for all of them.
enum RULE_TYPE : std::int32_t {
    RULE_LINE_CROSSING = 0,
    RULE_INTRUSION = 1,  // into an area
    RULE_ENTER_AREA = 2,
    RULE_LEAVE_AREA = 3,
    RULE_LOITERING = 4,
    RULE_LEFT_OBJECT = 5,
    RULE_REMOVED_OBJECT = 6,
    RULE_CROWD = 7,
    RULE_FACE = 8,
    RULE_PLATE = 9,
};
struct RULE_COMMON_PARAM_S {
    bool bEnable = false;
    std::uint32_t uiSensitivity = 50;  // 0 to 100
    bool bSendMetadata = false;        // what was found goes beside the stream
    bool bDrawRules = false;           // into the picture
    std::vector<_PU_Guard_Time> guardTimes;
};
struct RULE_ALARM_PARAM {
    std::uint32_t uiRuleID = 0;  // from 0
    std::string strRuleName;     // at most 127
    RULE_TYPE eRuleType = RULE_LINE_CROSSING;
    bool bEnable = true;
    std::int32_t nDirection = 0;  // of a line: 0 both ways, 1 left to right, 2 right to left
    std::uint32_t uiMinSize = 0;  // of an object, ten-thousandths of the picture's area
    std::uint32_t uiMaxSize = 10000;
    std::uint32_t uiDuration = 0;  // seconds that it must last, 0 to 86400
    std::uint32_t uiSensitivity = 50;
    std::vector<PU_POINT_INFO> points;  // two of a line, three to 32 of an area
};
// What a device does upon an alarm of its rules.
struct RULE_ALARM_PARAM_S {
    std::uint32_t uiAlarmInterval = 5;  // seconds between two alarms of a rule, 0 to 86400
    bool bSnapshot = false;
    bool bRecord = false;
};

// Analysis that the gateway switches on for a device.
struct IPCA_RULE {
    bool bEnable = false;
    std::string strLensCode;  // at most 32
    std::string strTaskID;    // at most 63
    std::string strRule;      // the rule in the device's own words, at most 4095
};

// A dome that follows what it sees.
struct AUTO_TRACE_PARAM_S {
    bool bEnable = false;
    std::uint32_t uiTraceTime = 30;  // seconds at most, 1 to 3600
    double dZoom = 1;                // times that the object is to be brought nearer, 1 to 100
    bool bReturn = true;             // to its guard position afterwards
};

// Whether a slave follows what its master sees, and whether it goes where a user points.
struct MASTER_SLAVE_TRACK_PARA {
    bool bEnable = false;
    std::string strSlaveCode;        // lens of the slave, at most 32
    std::uint32_t uiTraceTime = 30;  // seconds at an object, 1 to 3600
};
struct MASTER_SLAVE_LOCATE_CONFIG {
    bool bEnable = false;
    std::string strSlaveCode;
};

// What the slave is to look at: the object that the master knows by its number, or a part of the master's picture.
struct MASTER_SLAVE_MANUAL_TRACK_PARA {
    std::string strSlaveCode;
    std::uint32_t uiObjectID = 0;
    bool bStart = true;  // false: look away again
};
struct MASTER_SLAVE_LOCATE_PARA {
    std::string strSlaveCode;
    _AREA_INFO stArea;
};

// How far master and slave have learned each other's pictures.
struct MASTER_SLAVE_CALIBRATION_STATUS_PARA {
    std::int32_t nStatus = 0;     // 0 not begun, 1 under way, 2 done, 3 failed
    std::uint32_t uiPercent = 0;  // 0 to 100
};

// A user points at an object for the tracker of a device, at a rectangle or at a place; the device tells where it
// looks.
struct PU_NET_IN_CONTROL_INTELLITRACKER {
    std::uint32_t uiChannel = 0;  // from 0
    bool bStart = true;
    std::uint32_t uiObjectID = 0;  // 0: the object in the area
    _AREA_INFO stArea;
};
struct PU_NET_OUT_CONTROL_INTELLITRACKER {
    std::uint32_t uiObjectID = 0;  // that it follows
};
struct PU_NET_IN_MSGROUP_RECTLOCATE_INFO {
    std::uint32_t uiChannel = 0;
    std::string strSlaveCode;
    _AREA_INFO stArea;
};
struct PU_NET_OUT_MSGROUP_RECTLOCATE_INFO {
    double dPan = 0;  // degrees
    double dTilt = 0;
    double dZoom = 1;  // times
};
struct PU_NET_IN_MSGROUP_LOCATE_INFO {
    std::uint32_t uiChannel = 0;
    std::string strSlaveCode;
    PU_POINT_INFO stPoint;
};
struct PU_NET_OUT_MSGROUP_LOCATE_INTO {
    double dPan = 0;
    double dTilt = 0;
    double dZoom = 1;
};
