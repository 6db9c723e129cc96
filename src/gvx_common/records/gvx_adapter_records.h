#pragma once

#include "base/zvs_types.h"
#include "gvx_common/records/adapter_common_message.h"
#include "gvx_common/records/gvx_adapter_records_fwd.h"
#include "gvx_common/records/media_types.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

// Argument records of the adapter operations whose fields the gateway itself looks at. The others stand by subject in
// device_config_records.h, picture_records.h, ptz_records.h, guard_records.h, recording_records.h and
// intelligent_records.h; gvx_adapter_records_fwd.h declares them.

class CExtDevInfo;
class CStreamParam;
struct CDiscoveryDeviceInfo;

enum _PU_DEV_FORM_TYPE : int {
    PU_IPC = 1,
    PU_DVS = 2,
    PU_DVR = 3,
    PU_eNVR = 4,
    PU_EXT_SYS = 5,
    PU_EXT_DEV = 6,
};
using enPuDevFormType = _PU_DEV_FORM_TYPE;

enum enMainDevType : int {
    MAIN_DEV_TYPE_IPC = 0,
    MAIN_DEV_TYPE_DVR = 1,
};

// What is wrong with a channel's stream profile, as GetChannelAbnormalFlag reports it.
enum enProfileAbnormalType : int {
    PROFILE_NORMAL = 0,
    PROFILE_ABNORMAL = 1,
};

enum MainDevStatus : int {
    MAIN_DEV_STATUS_OFFLINE = 0,
    MAIN_DEV_STATUS_ONLINE = 1,
};

// Whether a lens watches for alarms.
enum PU_Guard_State : int {
    PU_GUARD_OFF = 0,
    PU_GUARD_ON = 1,
};

// A device as the platform adds it.
struct MainDeviceInfo {
    std::string strDevCode;     // 1 to 32 characters
    std::string strPluginName;  // the plug-in that makes the device
    std::string strParentCode;
    enPuDevFormType eDevFormType = PU_IPC;
    std::string strIP;
    std::uint16_t nPort = 0;  // host order
    std::string strUserName;
    std::string strPassword;  // clear; not to be logged or kept longer than the login needs
    std::string strModel;
    std::string strExtend;  // text for the plug-in alone, at most 2047 bytes
};

// One channel of a device.
struct GVX_CHANNEL_ABILITY_INFO {
    int nChannelId = 0;  // from 0
    std::string strName;
    std::uint32_t nVideoFormat = 0;  // a ZVS_VIDEO_DEC_TYPE; 0 for none
    std::uint32_t nAudioFormat = 0;  // an AUDIO_FORMAT_TYPE; 0 for none
    std::uint16_t nWidth = 0;        // picture size; 0 when not known
    std::uint16_t nHeight = 0;
    double dFrameRate = 0;           // frames a second; 0 when not known
    std::uint32_t nStreamCount = 1;  // main stream and sub streams
};

// What a device can do.
struct GVX_DEVICE_ABILITY_INFO {
    enPuDevFormType eDevFormType = PU_IPC;
    std::string strModel;
    std::string strFirmware;
    std::vector<GVX_CHANNEL_ABILITY_INFO> channels;
};

// The same of one lens, found by its identifier.
struct LENS_ABILITY_INFO {
    std::string strLensCode;  // in: the lens that is asked for
    GVX_CHANNEL_ABILITY_INFO channel;
};

// The stream that a device records by itself.
struct PU_RECORD_STREAM_STRU {
    char chSubDevId[33];
    std::int32_t nStreamType;  // an _STREAM_TYPE_EX
};

// What is done with a stream that plays a recording.
enum STREAM_CONTROL_CMD : std::int32_t {
    STREAM_CONTROL_PLAY = 0,
    STREAM_CONTROL_PAUSE = 1,
    STREAM_CONTROL_SEEK = 2,
    STREAM_CONTROL_SPEED = 3,
};
struct STREAM_CONTROL_PARAM_S {
    STREAM_CONTROL_CMD eCmd = STREAM_CONTROL_PLAY;
    double dSpeed = 1;             // 1 is the recorded speed; negative plays backwards
    std::uint32_t uiPosition = 0;  // STREAM_CONTROL_SEEK: seconds from the start of the recording
};

// A request for snapshots. Packed, numbers in host order.
#pragma pack(push, 1)
struct _NSS_START_SNAP_SHOT_REQ {
    char stCamerCode[33];
    std::uint32_t nSnapNum;
    std::uint32_t nSnapInterval;
    bool bIsUpload;
    std::uint64_t sessionId;
    SnapType enSnapType;
    std::uint64_t timeStamp;  // milliseconds since 1970-01-01 00:00:00 UTC
};
#pragma pack(pop)
static_assert(sizeof(_NSS_START_SNAP_SHOT_REQ) == 62, "the layout is that of the message body");
using PU_SNAP_CONF_REQ = _NSS_START_SNAP_SHOT_REQ;

// Sub devices that a device reports or is given, by their code; the map of pointers does not own them.
using EXT_DEVICE_MAP = std::map<std::string, CExtDevInfo>;
using EXT_DEVICE_P_MAP = std::map<std::string, CExtDevInfo*>;

// How a plug-in reports. Any thread of the plug-in may call; the argument is valid for the call alone.
using ADAPTER_COMMON_MESSAGE_CALLBACK = void(ADAPTER_COMMON_MESSAGE&);
using ADAPTER_DISCOVERY_DEVICE_CALLBACK = void(CDiscoveryDeviceInfo*);
// An alarm, a SIP message, a media status and a registration: the plug-in's device, and its report as JSON text.
//
// An alarm's report is an object: "AlarmType" (the platform's type, at most 63 bytes) and "Action" (1 began, 0 ended) must
// be there; "AlarmInCode" (the lens or device that it comes from, at most 63), "OccurTime" (UTC, "YYYYMMDDhhmmss"),
// "AlarmID" (at most 31), "DomainCode" (at most 31), "AlarmDesc" (at most 1023) and "ExtParam" (at most 2047) may be.
// Nothing is cut: a report with a text that is too long is lost, with a log line.
using ADAPTER_ALARM_CALLBACK = void(const char* devID, const char* json);
using ADAPTER_SIP_MESSAGE_CALLBACK = void(const char* devID, const char* json);
using ADAPTER_MEDISSTATUS_MESSAGE_CALLBACK = void(const char* devID, const char* json);
using ADAPTER_REGISTER_MESSAGE_CALLBACK = void(const char* devID, const char* json);

// Takes audio of the device for a talk; as SEND_STREAM_FUNC.
using SEND_VOICE_STREAM_FUNC = int(MEDIA_DATA*, STREAM_TYPE_EX*);
