#pragma once

#include "gvx_common/records/gvx_adapter_records.h"

#include <cstdint>
#include <string>
#include <vector>

// Argument records about pan, tilt and zoom. Angles are in degrees: pan 0 to 360 clockwise from the device's zero, tilt
// -90 (up) to 90 (down). A speed is 1 (slow) to 10.

// How the decoder of pan and tilt is reached.
struct MSG_PTZ_PARAM {
    std::string strProtocol;          // such as "PELCO-D", at most 31
    std::uint32_t uiSerialNum = 0;    // serial line, from 0
    std::uint32_t uiBaudRate = 9600;  // 300 to 921600
    std::uint32_t uiAddress = 1;      // of the decoder, 0 to 255
};

enum PTZ_COMMAND : std::int32_t {
    PTZ_STOP = 0,  // ends whatever moves
    PTZ_UP = 1,
    PTZ_DOWN = 2,
    PTZ_LEFT = 3,
    PTZ_RIGHT = 4,
    PTZ_UP_LEFT = 5,
    PTZ_UP_RIGHT = 6,
    PTZ_DOWN_LEFT = 7,
    PTZ_DOWN_RIGHT = 8,
    PTZ_ZOOM_IN = 10,
    PTZ_ZOOM_OUT = 11,
    PTZ_FOCUS_NEAR = 12,
    PTZ_FOCUS_FAR = 13,
    PTZ_FOCUS_AUTO = 14,
    PTZ_IRIS_OPEN = 15,
    PTZ_IRIS_CLOSE = 16,
    PTZ_GOTO_PRESET = 20,   // nIndex: the preset
    PTZ_START_CRUISE = 21,  // nIndex: the track
    PTZ_STOP_CRUISE = 22,
    PTZ_GOTO_GUARD_POSITION = 23,
    PTZ_START_AUTOSCAN = 30,
    PTZ_STOP_AUTOSCAN = 31,
    PTZ_SET_AUTOSCAN_LEFT = 32,  // the present position becomes the boundary
    PTZ_SET_AUTOSCAN_RIGHT = 33,
    PTZ_WIPER_ON = 40,
    PTZ_WIPER_OFF = 41,
    PTZ_LIGHT_ON = 42,
    PTZ_LIGHT_OFF = 43,
    PTZ_HEATER_ON = 44,
    PTZ_HEATER_OFF = 45,
    PTZ_ABSOLUTE_MOVE = 50,   // to dPan, dTilt, dZoom; HandleAbsoluteMove serves it
    PTZ_DIRECTION_MOVE = 51,  // by dPan, dTilt, dZoom; HandleDiectionMove serves it
};
struct MSG_PTZ_CTRL_REQ {
    PTZ_COMMAND eCommand = PTZ_STOP;
    std::uint32_t uiSpeed = 5;     // 1 to 10
    std::uint32_t uiDuration = 0;  // milliseconds until the device stops by itself; 0: at PTZ_STOP
    std::int32_t nIndex = 0;       // of the preset or the track, 0 to 65535
    double dPan = 0;
    double dTilt = 0;
    double dZoom = 1;              // times, 1 is none
    std::uint32_t uiPriority = 0;  // of the user who moves the camera, 0 to 255; higher goes first
};

// A position that the device remembers.
struct MSG_PTZ_SET_PRESET_REQ {
    std::uint32_t uiPresetIndex = 0;  // in: 0 for the next free one; out: where it is kept; up to 65535
    std::string strPresetName;        // at most 127
};
struct _MSG_PTZ_GET_PRESET_RSP {
    std::uint32_t uiPresetIndex = 0;
    std::string strPresetName;
};
struct MSG_PTZ_DEL_PRESET_REQ {
    std::uint32_t uiPresetIndex = 0;
};

// The position to which the lens goes back by itself.
struct MSG_PTZ_SET_HOME_POSITION_REQ {
    bool bEnable = false;
    std::uint32_t uiPresetIndex = 0;  // the preset that it is
    std::uint32_t uiWaitTime = 60;    // seconds without a command before it goes back, 5 to 86400
};
struct MSG_PTZ_GET_HOME_POSITION_RSP {
    bool bEnable = false;
    std::uint32_t uiPresetIndex = 0;
    std::uint32_t uiWaitTime = 0;
};
struct MSG_PTZ_GET_GUARD_INFO_RSP {
    bool bEnable = false;
    std::uint32_t uiPresetIndex = 0;
    std::uint32_t uiWaitTime = 0;
    bool bAtGuardPosition = false;  // the lens stands there now
};

// A way from preset to preset.
struct PTZ_CRUISE_POINT {
    std::uint32_t uiPresetIndex = 0;
    std::uint32_t uiDwellTime = 10;  // seconds at it, 1 to 3600
    std::uint32_t uiSpeed = 5;       // on the way to it, 1 to 10
};
struct PTZ_CRUISE_TRACK {
    std::uint32_t uiTrackIndex = 0;
    std::string strTrackName;  // at most 127
    std::vector<PTZ_CRUISE_POINT> points;
};
struct MSG_PTZ_SET_CRUISE_TRACK_REQ {
    std::uint32_t uiTrackIndex = 0;  // 0: the next free one; up to 65535
    std::string strTrackName;
    std::vector<PTZ_CRUISE_POINT> points;
};
struct MSG_PTZ_SET_CRUISE_TRACK_RSP {
    std::uint32_t uiTrackIndex = 0;  // where it is kept
};
struct MSG_PTZ_GET_CRUISE_TRACK_RSP {
    std::vector<PTZ_CRUISE_TRACK> tracks;
};
struct MSG_PTZ_DEL_CRUISE_TRACK_REQ {
    std::uint32_t uiTrackIndex = 0;
};

// Where the lens looks.
struct MSG_PTZ_ABS_POSITION_RSP {
    double dPan = 0;
    double dTilt = 0;
    double dZoom = 1;   // times
    double dFocus = 0;  // 0 nearest to 1 farthest
};
