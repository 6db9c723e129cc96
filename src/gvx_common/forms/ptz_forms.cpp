#include "gvx_common/forms/record_forms.h"

#include <iterator>

namespace gvx {
namespace {

constexpr NumberName kCommands[] = {{PTZ_STOP, "stop"},
                                    {PTZ_UP, "up"},
                                    {PTZ_DOWN, "down"},
                                    {PTZ_LEFT, "left"},
                                    {PTZ_RIGHT, "right"},
                                    {PTZ_UP_LEFT, "up-left"},
                                    {PTZ_UP_RIGHT, "up-right"},
                                    {PTZ_DOWN_LEFT, "down-left"},
                                    {PTZ_DOWN_RIGHT, "down-right"},
                                    {PTZ_ZOOM_IN, "zoom-in"},
                                    {PTZ_ZOOM_OUT, "zoom-out"},
                                    {PTZ_FOCUS_NEAR, "focus-near"},
                                    {PTZ_FOCUS_FAR, "focus-far"},
                                    {PTZ_FOCUS_AUTO, "focus-auto"},
                                    {PTZ_IRIS_OPEN, "iris-open"},
                                    {PTZ_IRIS_CLOSE, "iris-close"},
                                    {PTZ_GOTO_PRESET, "goto-preset"},
                                    {PTZ_START_CRUISE, "start-cruise"},
                                    {PTZ_STOP_CRUISE, "stop-cruise"},
                                    {PTZ_GOTO_GUARD_POSITION, "goto-guard-position"},
                                    {PTZ_START_AUTOSCAN, "start-autoscan"},
                                    {PTZ_STOP_AUTOSCAN, "stop-autoscan"},
                                    {PTZ_SET_AUTOSCAN_LEFT, "set-autoscan-left"},
                                    {PTZ_SET_AUTOSCAN_RIGHT, "set-autoscan-right"},
                                    {PTZ_WIPER_ON, "wiper-on"},
                                    {PTZ_WIPER_OFF, "wiper-off"},
                                    {PTZ_LIGHT_ON, "light-on"},
                                    {PTZ_LIGHT_OFF, "light-off"},
                                    {PTZ_HEATER_ON, "heater-on"},
                                    {PTZ_HEATER_OFF, "heater-off"},
                                    {PTZ_ABSOLUTE_MOVE, "absolute-move"},
                                    {PTZ_DIRECTION_MOVE, "direction-move"}};
constexpr NumberName kSides[] = {{AUTOSCAN_LEFT, "left"}, {AUTOSCAN_RIGHT, "right"}};

}  // namespace

template <>
const RecordForm& FormOf<MSG_PTZ_PARAM>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_PTZ_PARAM::strProtocol>("Protocol", "such as PELCO-D").Range(0, 31),
        Field<&MSG_PTZ_PARAM::uiSerialNum>("SerialNum", "number of the serial line, from 0").Range(0, 255),
        Field<&MSG_PTZ_PARAM::uiBaudRate>("BaudRate", "bits a second").Range(300, 921600),
        Field<&MSG_PTZ_PARAM::uiAddress>("Address", "of the decoder").Range(0, 255),
    };
    static constexpr RecordForm kForm{"MSG_PTZ_PARAM", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_PTZ_CTRL_REQ>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_PTZ_CTRL_REQ::eCommand>("Command", "what the lens does").Names(kCommands).Required(),
        Field<&MSG_PTZ_CTRL_REQ::uiSpeed>("Speed", "10 is fastest").Range(1, 10),
        Field<&MSG_PTZ_CTRL_REQ::uiDuration>("Duration", "milliseconds until it stops by itself; 0: at stop")
            .Range(0, 3600000),
        Field<&MSG_PTZ_CTRL_REQ::nIndex>("Index", "of the preset or the track").Range(0, 65535),
        Field<&MSG_PTZ_CTRL_REQ::dPan>("Pan", "degrees, to or by which it moves").Real(-360, 360),
        Field<&MSG_PTZ_CTRL_REQ::dTilt>("Tilt", "degrees").Real(-180, 180),
        Field<&MSG_PTZ_CTRL_REQ::dZoom>("Zoom", "times").Real(-1000, 1000),
        Field<&MSG_PTZ_CTRL_REQ::uiPriority>("Priority", "of the user; higher goes first").Range(0, 255),
    };
    static constexpr RecordForm kForm{"MSG_PTZ_CTRL_REQ", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_PTZ_SET_PRESET_REQ>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_PTZ_SET_PRESET_REQ::uiPresetIndex>("PresetIndex", "0: the next free one").Range(0, 65535),
        Field<&MSG_PTZ_SET_PRESET_REQ::strPresetName>("PresetName", "for people"),
    };
    static constexpr RecordForm kForm{"MSG_PTZ_SET_PRESET_REQ", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<_MSG_PTZ_GET_PRESET_RSP>() {
    static constexpr FieldForm kFields[] = {
        Field<&_MSG_PTZ_GET_PRESET_RSP::uiPresetIndex>("PresetIndex", "of the preset").Range(0, 65535),
        Field<&_MSG_PTZ_GET_PRESET_RSP::strPresetName>("PresetName", "for people"),
    };
    static constexpr RecordForm kForm{"_MSG_PTZ_GET_PRESET_RSP", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PresetList>() {
    static constexpr FieldForm kFields[] = {
        Field<&PresetList::presets>("Presets", "of the lens"),
    };
    static constexpr RecordForm kForm{"PresetList", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_PTZ_DEL_PRESET_REQ>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_PTZ_DEL_PRESET_REQ::uiPresetIndex>("PresetIndex", "of the preset").Range(1, 65535).Required(),
    };
    static constexpr RecordForm kForm{"MSG_PTZ_DEL_PRESET_REQ", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_PTZ_SET_HOME_POSITION_REQ>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_PTZ_SET_HOME_POSITION_REQ::bEnable>("Enable", "the lens goes back by itself").Required(),
        Field<&MSG_PTZ_SET_HOME_POSITION_REQ::uiPresetIndex>("PresetIndex", "of the preset that it is").Range(0, 65535),
        Field<&MSG_PTZ_SET_HOME_POSITION_REQ::uiWaitTime>("WaitTime", "seconds without a command before it goes back")
            .Range(5, 86400),
    };
    static constexpr RecordForm kForm{"MSG_PTZ_SET_HOME_POSITION_REQ", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_PTZ_GET_HOME_POSITION_RSP>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_PTZ_GET_HOME_POSITION_RSP::bEnable>("Enable", "the lens goes back by itself"),
        Field<&MSG_PTZ_GET_HOME_POSITION_RSP::uiPresetIndex>("PresetIndex", "of the preset that it is").Range(0, 65535),
        Field<&MSG_PTZ_GET_HOME_POSITION_RSP::uiWaitTime>("WaitTime", "seconds without a command before it goes back"),
    };
    static constexpr RecordForm kForm{"MSG_PTZ_GET_HOME_POSITION_RSP", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PTZ_CRUISE_POINT>() {
    static constexpr FieldForm kFields[] = {
        Field<&PTZ_CRUISE_POINT::uiPresetIndex>("PresetIndex", "of the preset").Range(1, 65535).Required(),
        Field<&PTZ_CRUISE_POINT::uiDwellTime>("DwellTime", "seconds at it").Range(1, 3600),
        Field<&PTZ_CRUISE_POINT::uiSpeed>("Speed", "on the way to it, 10 is fastest").Range(1, 10),
    };
    static constexpr RecordForm kForm{"PTZ_CRUISE_POINT", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PTZ_CRUISE_TRACK>() {
    static constexpr FieldForm kFields[] = {
        Field<&PTZ_CRUISE_TRACK::uiTrackIndex>("TrackIndex", "of the way").Range(0, 65535),
        Field<&PTZ_CRUISE_TRACK::strTrackName>("TrackName", "for people"),
        Field<&PTZ_CRUISE_TRACK::points>("Points", "in order"),
    };
    static constexpr RecordForm kForm{"PTZ_CRUISE_TRACK", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_PTZ_SET_CRUISE_TRACK_REQ>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_PTZ_SET_CRUISE_TRACK_REQ::uiTrackIndex>("TrackIndex", "0: the next free one").Range(0, 65535),
        Field<&MSG_PTZ_SET_CRUISE_TRACK_REQ::strTrackName>("TrackName", "for people"),
        Field<&MSG_PTZ_SET_CRUISE_TRACK_REQ::points>("Points", "in order").Required(),
    };
    static constexpr RecordForm kForm{"MSG_PTZ_SET_CRUISE_TRACK_REQ", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_PTZ_SET_CRUISE_TRACK_RSP>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_PTZ_SET_CRUISE_TRACK_RSP::uiTrackIndex>("TrackIndex", "where the way is kept").Range(0, 65535),
    };
    static constexpr RecordForm kForm{"MSG_PTZ_SET_CRUISE_TRACK_RSP", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_PTZ_GET_CRUISE_TRACK_RSP>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_PTZ_GET_CRUISE_TRACK_RSP::tracks>("Tracks", "of the lens"),
    };
    static constexpr RecordForm kForm{"MSG_PTZ_GET_CRUISE_TRACK_RSP", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_PTZ_DEL_CRUISE_TRACK_REQ>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_PTZ_DEL_CRUISE_TRACK_REQ::uiTrackIndex>("TrackIndex", "of the way").Range(1, 65535).Required(),
    };
    static constexpr RecordForm kForm{"MSG_PTZ_DEL_CRUISE_TRACK_REQ", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_PTZ_ABS_POSITION_RSP>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_PTZ_ABS_POSITION_RSP::dPan>("Pan", "degrees, clockwise from the device's zero").Real(0, 360),
        Field<&MSG_PTZ_ABS_POSITION_RSP::dTilt>("Tilt", "degrees, -90 up, 90 down").Real(-90, 90),
        Field<&MSG_PTZ_ABS_POSITION_RSP::dZoom>("Zoom", "times"),
        Field<&MSG_PTZ_ABS_POSITION_RSP::dFocus>("Focus", "0 nearest, 1 farthest").Real(0, 1),
    };
    static constexpr RecordForm kForm{"MSG_PTZ_ABS_POSITION_RSP", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<AutoscanBoundary>() {
    static constexpr FieldForm kFields[] = {
        Field<&AutoscanBoundary::eSide>("Side", "which boundary").Names(kSides).Required(),
    };
    static constexpr RecordForm kForm{"AutoscanBoundary", kFields, std::size(kFields)};
    return kForm;
}

}  // namespace gvx
