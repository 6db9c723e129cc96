#include "gvx_common/forms/record_forms.h"

#include <iterator>

namespace gvx {
namespace {

constexpr NumberName kWeekDays[] = {{0, "sunday"},   {1, "monday"}, {2, "tuesday"}, {3, "wednesday"},
                                    {4, "thursday"}, {5, "friday"}, {6, "saturday"}};
constexpr NumberName kContacts[] = {{PU_ALARM_NORMALLY_OPEN, "open"}, {PU_ALARM_NORMALLY_CLOSED, "closed"}};
constexpr NumberName kActions[] = {{PU_LINKAGE_RECORD, "record"},
                                   {PU_LINKAGE_SNAPSHOT, "snapshot"},
                                   {PU_LINKAGE_ALARM_OUT, "alarm-out"},
                                   {PU_LINKAGE_PRESET, "preset"},
                                   {PU_LINKAGE_CRUISE, "cruise"}};
constexpr NumberName kDetectTypes[] = {{0, "areas"}, {1, "blocks"}};
constexpr NumberName kSoundTypes[] = {{0, "loud"}, {1, "rise"}, {2, "none"}};
constexpr NumberName kGuardKinds[] = {{GUARD_ALARMS, "alarms"}, {GUARD_LENS_STATE, "lens-state"}};

}  // namespace

template <>
const RecordForm& FormOf<_PU_Guard_Time>() {
    static constexpr FieldForm kFields[] = {
        Field<&_PU_Guard_Time::uiWeekDay>("WeekDay", "of the span").Names(kWeekDays).Required(),
        Field<&_PU_Guard_Time::strStartTime>("StartTime", "local time").Range(6, 6).As(TextRule::TimeOfDay).Required(),
        Field<&_PU_Guard_Time::strEndTime>("EndTime", "local time; 240000 is the end of the day")
            .Range(6, 6)
            .As(TextRule::TimeOfDay)
            .Required(),
    };
    static constexpr RecordForm kForm{"_PU_Guard_Time", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<_MOTION_DETECTION_ALARM_GUARD_TIME>() {
    static constexpr FieldForm kFields[] = {
        Field<&_MOTION_DETECTION_ALARM_GUARD_TIME::uiWeekDay>("WeekDay", "of the span").Names(kWeekDays).Required(),
        Field<&_MOTION_DETECTION_ALARM_GUARD_TIME::strStartTime>("StartTime", "local time")
            .Range(6, 6)
            .As(TextRule::TimeOfDay)
            .Required(),
        Field<&_MOTION_DETECTION_ALARM_GUARD_TIME::strEndTime>("EndTime", "local time; 240000 is the end of the day")
            .Range(6, 6)
            .As(TextRule::TimeOfDay)
            .Required(),
    };
    static constexpr RecordForm kForm{"_MOTION_DETECTION_ALARM_GUARD_TIME", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_ALARM_SWITCH_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_ALARM_SWITCH_INFO::uiChannel>("Channel", "of the input or output, from 0")
            .Range(0, 32767)
            .Item(ALARM_NUM_INDEX)
            .Required(),
        Field<&PU_ALARM_SWITCH_INFO::strName>("Name", "for people"),
        Field<&PU_ALARM_SWITCH_INFO::bEnable>("Enable", "an input is watched, an output may be switched"),
        Field<&PU_ALARM_SWITCH_INFO::eContact>("Contact", "what the contact is at rest")
            .Names(kContacts)
            .Item(ALARM_TYPE_INDEX),
        Field<&PU_ALARM_SWITCH_INFO::bActive>("Active", "an input has fired, an output is on"),
        Field<&PU_ALARM_SWITCH_INFO::uiDuration>("Duration",
                                                 "seconds that an output stays on; 0: until it is switched off")
            .Range(0, 86400),
        Field<&PU_ALARM_SWITCH_INFO::guardTimes>("GuardTimes", "when it is watched; none: always"),
    };
    static constexpr RecordForm kForm{"PU_ALARM_SWITCH_INFO", kFields, std::size(kFields),
                                      &MaskAt<&PU_ALARM_SWITCH_INFO::stMask>};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_ALARM_LINKAGE_INFO_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_ALARM_LINKAGE_INFO_STRU::strAlarmType>("AlarmType", "the platform's")
            .Range(1, 63)
            .As(TextRule::Code)
            .Required(),
        Field<&PU_ALARM_LINKAGE_INFO_STRU::eAction>("Action", "what the device does").Names(kActions).Required(),
        Field<&PU_ALARM_LINKAGE_INFO_STRU::strTargetCode>("TargetCode", "the lens or output that acts")
            .Range(0, 32)
            .As(TextRule::Code),
        Field<&PU_ALARM_LINKAGE_INFO_STRU::uiIndex>("Index", "of the preset or the track").Range(0, 65535),
        Field<&PU_ALARM_LINKAGE_INFO_STRU::uiDuration>("Duration", "seconds").Range(0, 86400),
    };
    static constexpr RecordForm kForm{"PU_ALARM_LINKAGE_INFO_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<LinkageArguments>() {
    static constexpr FieldForm kFields[] = {
        Field<&LinkageArguments::strAlarmInCode>("AlarmInCode", "the input whose alarms they are")
            .Range(1, 63)
            .As(TextRule::Code)
            .Required(),
        Field<&LinkageArguments::actions>("Actions", "none: the device does nothing by itself").Required(),
    };
    static constexpr RecordForm kForm{"LinkageArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<GuardArguments>() {
    static constexpr FieldForm kFields[] = {
        Field<&GuardArguments::bEnable>("Enable", "watch, or no longer").Required(),
        Field<&GuardArguments::eKind>("Kind", "alarms as such, or the state that a lens reports").Names(kGuardKinds),
        Field<&GuardArguments::strLensCode>("LensCode",
                                            "a lens of the device; empty: the device, of Kind 1 its first lens")
            .Range(0, 32)
            .As(TextRule::Code),
    };
    static constexpr RecordForm kForm{"GuardArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_SET_MOTION_DETECTION_ALARM_REQ>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_SET_MOTION_DETECTION_ALARM_REQ::bEnable>("Enable", "motion gives alarms").Required(),
        Field<&MSG_SET_MOTION_DETECTION_ALARM_REQ::uiDetectType>("DetectType", "where motion counts")
            .Names(kDetectTypes)
            .Item(MOTION_DETECT_TYPE_INDEX),
        Field<&MSG_SET_MOTION_DETECTION_ALARM_REQ::uiSensitivity>("Sensitivity", "100 is most").Range(0, 100),
        Field<&MSG_SET_MOTION_DETECTION_ALARM_REQ::uiStartBlocks>("StartBlocks",
                                                                  "blocks with motion at which an alarm begins")
            .Range(0, 65535)
            .Item(MOTION_START_BLOCKS_INDEX),
        Field<&MSG_SET_MOTION_DETECTION_ALARM_REQ::uiStopBlocks>("StopBlocks", "blocks at which it ends")
            .Range(0, 65535)
            .Item(MOTION_STOP_BLOCKS_INDEX),
        Field<&MSG_SET_MOTION_DETECTION_ALARM_REQ::strBlockMask>("BlockMask", "a bit for each block, row by row")
            .Range(0, 1024)
            .As(TextRule::Hex)
            .Item(MOTION_BLOCK_MASK_INDEX),
        Field<&MSG_SET_MOTION_DETECTION_ALARM_REQ::uiInterval>("Interval", "seconds from one alarm to the next")
            .Range(0, 86400),
    };
    static constexpr RecordForm kForm{"MSG_SET_MOTION_DETECTION_ALARM_REQ", kFields, std::size(kFields),
                                      &MaskAt<&MSG_SET_MOTION_DETECTION_ALARM_REQ::stMask>};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_GET_MOTION_DETECTION_ALARM_REQ>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_GET_MOTION_DETECTION_ALARM_REQ::bEnable>("Enable", "motion gives alarms"),
        Field<&MSG_GET_MOTION_DETECTION_ALARM_REQ::uiDetectType>("DetectType", "where motion counts")
            .Names(kDetectTypes),
        Field<&MSG_GET_MOTION_DETECTION_ALARM_REQ::uiSensitivity>("Sensitivity", "100 is most").Range(0, 100),
        Field<&MSG_GET_MOTION_DETECTION_ALARM_REQ::uiStartBlocks>("StartBlocks",
                                                                  "blocks with motion at which an alarm begins")
            .Range(0, 65535),
        Field<&MSG_GET_MOTION_DETECTION_ALARM_REQ::uiStopBlocks>("StopBlocks", "blocks at which it ends")
            .Range(0, 65535),
        Field<&MSG_GET_MOTION_DETECTION_ALARM_REQ::strBlockMask>("BlockMask", "a bit for each block, row by row")
            .Range(0, 1024)
            .As(TextRule::Hex),
        Field<&MSG_GET_MOTION_DETECTION_ALARM_REQ::uiInterval>("Interval", "seconds from one alarm to the next")
            .Range(0, 86400),
    };
    static constexpr RecordForm kForm{"MSG_GET_MOTION_DETECTION_ALARM_REQ", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MotionArguments>() {
    static constexpr FieldForm kFields[] = {
        Part<&MotionArguments::alarm>(),
        Field<&MotionArguments::areas>("Areas", "rectangles in which motion counts"),
        Field<&MotionArguments::guardTimes>("GuardTimes", "when it counts; none: always"),
    };
    static constexpr RecordForm kForm{"MotionArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MotionAnswer>() {
    static constexpr FieldForm kFields[] = {
        Part<&MotionAnswer::alarm>(),
        Field<&MotionAnswer::areas>("Areas", "rectangles in which motion counts"),
        Field<&MotionAnswer::guardTimes>("GuardTimes", "when it counts; none: always"),
    };
    static constexpr RecordForm kForm{"MotionAnswer", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_HIDE_ALARM_CONF_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_HIDE_ALARM_CONF_STRU::bEnable>("Enable", "a covered lens gives alarms").Required(),
        Field<&PU_HIDE_ALARM_CONF_STRU::uiSensitivity>("Sensitivity", "100 is most").Range(0, 100),
        Field<&PU_HIDE_ALARM_CONF_STRU::uiDuration>("Duration", "seconds that it must be covered").Range(0, 3600),
    };
    static constexpr RecordForm kForm{"PU_HIDE_ALARM_CONF_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<TamperArguments>() {
    static constexpr FieldForm kFields[] = {
        Part<&TamperArguments::alarm>(),
        Field<&TamperArguments::areas>("Areas", "rectangles that are watched"),
        Field<&TamperArguments::guardTimes>("GuardTimes", "when; none: always"),
    };
    static constexpr RecordForm kForm{"TamperArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_SET_AUDIO_ALARM_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_SET_AUDIO_ALARM_INFO::bEnable>("Enable", "sound gives alarms").Required(),
        Field<&MSG_SET_AUDIO_ALARM_INFO::nAlarmType>("AlarmType", "loud, a sudden rise, or no sound at all")
            .Names(kSoundTypes),
        Field<&MSG_SET_AUDIO_ALARM_INFO::uiThreshold>("Threshold", "100 is loudest").Range(0, 100),
        Field<&MSG_SET_AUDIO_ALARM_INFO::uiSensitivity>("Sensitivity", "100 is most").Range(0, 100),
        Field<&MSG_SET_AUDIO_ALARM_INFO::guardTimes>("GuardTimes", "when; none: always"),
    };
    static constexpr RecordForm kForm{"MSG_SET_AUDIO_ALARM_INFO", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_GET_AUDIO_ALARM_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_GET_AUDIO_ALARM_INFO::bEnable>("Enable", "sound gives alarms"),
        Field<&MSG_GET_AUDIO_ALARM_INFO::nAlarmType>("AlarmType", "loud, a sudden rise, or no sound at all")
            .Names(kSoundTypes),
        Field<&MSG_GET_AUDIO_ALARM_INFO::uiThreshold>("Threshold", "100 is loudest").Range(0, 100),
        Field<&MSG_GET_AUDIO_ALARM_INFO::uiSensitivity>("Sensitivity", "100 is most").Range(0, 100),
        Field<&MSG_GET_AUDIO_ALARM_INFO::uiCurrentLevel>("CurrentLevel", "that the lens hears now").Range(0, 100),
        Field<&MSG_GET_AUDIO_ALARM_INFO::guardTimes>("GuardTimes", "when; none: always"),
    };
    static constexpr RecordForm kForm{"MSG_GET_AUDIO_ALARM_INFO", kFields, std::size(kFields)};
    return kForm;
}

}  // namespace gvx
