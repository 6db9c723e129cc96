#pragma once

#include "gvx_common/records/device_config_records.h"
#include "gvx_common/records/guard_records.h"
#include "gvx_common/records/intelligent_records.h"
#include "gvx_common/records/picture_records.h"
#include "gvx_common/records/ptz_records.h"
#include "gvx_common/records/recording_records.h"

#include <json/value.h>

#include <cstdint>
#include <list>
#include <string>
#include <vector>

// What requests and answers hold where that is no single record of the plug-in contract: several of them, or a plain
// argument of an operation.
namespace gvx {

struct NoArguments {};

// New address and credentials of a device. An empty text and port 0 leave what there is.
struct DeviceChange {
    std::string strIP;
    std::uint16_t usPort = 0;
    std::string strUserName;
    std::string strPassword;
};
struct RebootArguments {
    std::int32_t nKind = 0;
};
struct ListenAddress {
    std::string strIP;
};
struct SwitchArguments {
    bool bEnable = false;
};
struct ConfigText {
    std::string strConfig;
};
struct DeviceLog {
    std::list<std::string> lines;
};

enum AbilityKind : std::int32_t { ABILITY_OF_DEVICE = 0, ABILITY_OF_MASTER_SLAVE = 1, ABILITY_OWN_WORDS = 2 };
struct AbilityQuestion {
    AbilityKind eKind = ABILITY_OF_DEVICE;
    std::string strLensCode;  // empty: the whole device
};
struct AbilityAnswer {
    GVX_DEVICE_ABILITY_INFO ability;
    Json::Value ownWords;
};

enum GuardKind : std::int32_t { GUARD_ALARMS = 0, GUARD_LENS_STATE = 1 };
struct GuardArguments {
    bool bEnable = false;
    GuardKind eKind = GUARD_ALARMS;
    std::string strLensCode;  // empty: the whole device
};
struct LinkageArguments {
    std::string strAlarmInCode;
    std::list<PU_ALARM_LINKAGE_INFO_STRU> actions;
};

struct MaskArguments {
    PU_SET_VIDEO_MASK_STRU mask;
    std::list<_AREA_INFO> areas;
};
struct MaskAnswer {
    PU_GET_VIDEO_MASK_STRU mask;
    std::list<_AREA_INFO> areas;
};
struct MaskExArguments {
    PU_SET_VIDEO_MASK_STRU mask;
    std::list<_AREA_INFO_EX> areas;
};
struct MaskExAnswer {
    PU_GET_VIDEO_MASK_STRU mask;
    std::list<_AREA_INFO_EX> areas;
};
struct MotionArguments {
    MSG_SET_MOTION_DETECTION_ALARM_REQ alarm;
    std::list<_AREA_INFO> areas;
    std::list<_MOTION_DETECTION_ALARM_GUARD_TIME> guardTimes;
};
struct MotionAnswer {
    MSG_GET_MOTION_DETECTION_ALARM_REQ alarm;
    std::list<_AREA_INFO> areas;
    std::list<_MOTION_DETECTION_ALARM_GUARD_TIME> guardTimes;
};
struct TamperArguments {
    PU_HIDE_ALARM_CONF_STRU alarm;
    std::list<_AREA_INFO> areas;
    std::list<_PU_Guard_Time> guardTimes;
};
struct RuleArguments {
    RULE_COMMON_PARAM_S common;
    std::list<RULE_ALARM_PARAM> rules;
    RULE_ALARM_PARAM_S alarm;
};
struct RuleAnswer {
    RULE_COMMON_PARAM_S common;
    std::list<RULE_ALARM_PARAM> rules;
};

// A user points at a place or at a rectangle of the picture.
enum LocateKind : std::int32_t { LOCATE_POINT = 0, LOCATE_AREA = 1 };
struct LocateArguments {
    LocateKind eKind = LOCATE_POINT;
    std::uint32_t uiChannel = 0;
    std::string strSlaveCode;
    PU_POINT_INFO stPoint;
    _AREA_INFO stArea;
};
struct LocateAnswer {
    double dPan = 0;
    double dTilt = 0;
    double dZoom = 1;
};

enum DeviceFunction : std::int32_t {
    FUNCTION_START_CALIBRATION = 0,
    FUNCTION_STOP_CALIBRATION = 1,
    FUNCTION_CALIBRATION_STATUS = 2,
    FUNCTION_LOCATE = 3,
};
struct FunctionArguments {
    DeviceFunction eFunction = FUNCTION_CALIBRATION_STATUS;
    MASTER_SLAVE_LOCATE_PARA locate;
};

struct PositionSubscription {
    std::uint32_t uiSequence = 0;
    std::string strDeviceID;
    std::string strSubscriber;
    std::uint32_t uiInterval = 5;
    std::string strStartTime;
    std::string strEndTime;
};

struct JsonMessage {
    std::string strMethod;
    Json::Value body;
};
struct JsonAnswer {
    Json::Value body;
};

struct CommunityArguments {
    std::string strCommunityID;
    std::string strIpcCode;
};

struct PresetList {
    std::list<_MSG_PTZ_GET_PRESET_RSP> presets;
};
enum AutoscanSide : std::int32_t { AUTOSCAN_LEFT = 0, AUTOSCAN_RIGHT = 1 };
struct AutoscanBoundary {
    AutoscanSide eSide = AUTOSCAN_LEFT;
};

struct RecordPlan {
    PU_RECORD_PLAN_INFO plan;
    std::vector<_PU_Guard_Time> spans;
};
struct RecordList {
    GET_PU_RECORD_INFO search;
    std::list<_GET_PU_RECORD_DATA_LIST> records;
};
struct SnapshotPlan {
    std::list<_PU_SNAP_SHOT_PLAN> spans;
};
struct SnapshotPlanAnswer {
    PU_GET_SNAP_SHOT_PLAN plan;
    std::list<_PU_SNAP_SHOT_PLAN> spans;
};
struct RecordStream {
    std::int32_t nStreamType = 0;
};

struct ExternDevices {
    std::list<CExtDevInfo> cameras;
    std::list<CExtDevInfo> alarmInputs;
    std::list<CExtDevInfo> alarmOutputs;
};
struct ExternDevCode {
    std::string strCode;
};
struct ChannelRelations {
    std::vector<_VIDEO_CHANNEL_CODE_RELATION> channels;
};

}  // namespace gvx
