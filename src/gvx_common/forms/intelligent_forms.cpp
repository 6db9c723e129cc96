#include "gvx_common/forms/record_forms.h"

#include <iterator>

namespace gvx {
namespace {

constexpr NumberName kRuleTypes[] = {{RULE_LINE_CROSSING, "line-crossing"},
                                     {RULE_INTRUSION, "intrusion"},
                                     {RULE_ENTER_AREA, "enter-area"},
                                     {RULE_LEAVE_AREA, "leave-area"},
                                     {RULE_LOITERING, "loitering"},
                                     {RULE_LEFT_OBJECT, "left-object"},
                                     {RULE_REMOVED_OBJECT, "removed-object"},
                                     {RULE_CROWD, "crowd"},
                                     {RULE_FACE, "face"},
                                     {RULE_PLATE, "plate"}};
constexpr NumberName kDirections[] = {{0, "both"}, {1, "left-to-right"}, {2, "right-to-left"}};
constexpr NumberName kCalibrationStates[] = {{0, "not-begun"}, {1, "running"}, {2, "done"}, {3, "failed"}};
constexpr NumberName kLocateKinds[] = {{LOCATE_POINT, "point"}, {LOCATE_AREA, "area"}};
constexpr NumberName kFunctions[] = {{FUNCTION_START_CALIBRATION, "start"},
                                     {FUNCTION_STOP_CALIBRATION, "stop"},
                                     {FUNCTION_CALIBRATION_STATUS, "status"},
                                     {FUNCTION_LOCATE, "locate"}};

}  // namespace

template <>
const RecordForm& FormOf<RULE_COMMON_PARAM_S>() {
    static constexpr FieldForm kFields[] = {
        Field<&RULE_COMMON_PARAM_S::bEnable>("Enable", "the lens looks for something").Required(),
        Field<&RULE_COMMON_PARAM_S::uiSensitivity>("Sensitivity", "100 is most").Range(0, 100),
        Field<&RULE_COMMON_PARAM_S::bSendMetadata>("SendMetadata", "what was found goes beside the stream"),
        Field<&RULE_COMMON_PARAM_S::bDrawRules>("DrawRules", "rules are drawn into the picture"),
        Field<&RULE_COMMON_PARAM_S::guardTimes>("GuardTimes", "when; none: always"),
    };
    static constexpr RecordForm kForm{"RULE_COMMON_PARAM_S", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<RULE_ALARM_PARAM>() {
    static constexpr FieldForm kFields[] = {
        Field<&RULE_ALARM_PARAM::uiRuleID>("RuleID", "from 0").Range(0, 1023),
        Field<&RULE_ALARM_PARAM::strRuleName>("RuleName", "for people"),
        Field<&RULE_ALARM_PARAM::eRuleType>("RuleType", "what is looked for").Names(kRuleTypes).Required(),
        Field<&RULE_ALARM_PARAM::bEnable>("Enable", "the rule is in force"),
        Field<&RULE_ALARM_PARAM::nDirection>("Direction", "across a line").Names(kDirections),
        Field<&RULE_ALARM_PARAM::uiMinSize>("MinSize", "of an object, ten-thousandths of the picture").Range(0, 10000),
        Field<&RULE_ALARM_PARAM::uiMaxSize>("MaxSize", "of an object, ten-thousandths of the picture").Range(0, 10000),
        Field<&RULE_ALARM_PARAM::uiDuration>("Duration", "seconds that it must last").Range(0, 86400),
        Field<&RULE_ALARM_PARAM::uiSensitivity>("Sensitivity", "100 is most").Range(0, 100),
        Field<&RULE_ALARM_PARAM::points>("Points", "two of a line, three to 32 of an area"),
    };
    static constexpr RecordForm kForm{"RULE_ALARM_PARAM", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<RULE_ALARM_PARAM_S>() {
    static constexpr FieldForm kFields[] = {
        Field<&RULE_ALARM_PARAM_S::uiAlarmInterval>("AlarmInterval", "seconds from one alarm of a rule to the next")
            .Range(0, 86400),
        Field<&RULE_ALARM_PARAM_S::bSnapshot>("Snapshot", "the device takes a picture"),
        Field<&RULE_ALARM_PARAM_S::bRecord>("Record", "the device records"),
    };
    static constexpr RecordForm kForm{"RULE_ALARM_PARAM_S", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<RuleArguments>() {
    static constexpr FieldForm kFields[] = {
        Part<&RuleArguments::common>(),
        Field<&RuleArguments::rules>("Rules", "of the lens"),
        Part<&RuleArguments::alarm>(),
    };
    static constexpr RecordForm kForm{"RuleArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<RuleAnswer>() {
    static constexpr FieldForm kFields[] = {
        Part<&RuleAnswer::common>(),
        Field<&RuleAnswer::rules>("Rules", "of the lens"),
    };
    static constexpr RecordForm kForm{"RuleAnswer", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<IPCA_RULE>() {
    static constexpr FieldForm kFields[] = {
        Field<&IPCA_RULE::strLensCode>("LensCode", "a lens of the device; empty: the device")
            .Range(0, 32)
            .As(TextRule::Code),
        Field<&IPCA_RULE::strTaskID>("TaskID", "of the analysis").Range(1, 63).As(TextRule::Code).Required(),
        Field<&IPCA_RULE::strRule>("Rule", "in the device's own words").Range(0, 4095),
    };
    static constexpr RecordForm kForm{"IPCA_RULE", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<AUTO_TRACE_PARAM_S>() {
    static constexpr FieldForm kFields[] = {
        Field<&AUTO_TRACE_PARAM_S::bEnable>("Enable", "the dome follows what it sees").Required(),
        Field<&AUTO_TRACE_PARAM_S::uiTraceTime>("TraceTime", "seconds at most").Range(1, 3600),
        Field<&AUTO_TRACE_PARAM_S::dZoom>("Zoom", "times that the object is brought nearer").Real(1, 100),
        Field<&AUTO_TRACE_PARAM_S::bReturn>("Return", "to its guard position afterwards"),
    };
    static constexpr RecordForm kForm{"AUTO_TRACE_PARAM_S", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MASTER_SLAVE_TRACK_PARA>() {
    static constexpr FieldForm kFields[] = {
        Field<&MASTER_SLAVE_TRACK_PARA::bEnable>("Enable", "the slave follows what its master sees").Required(),
        Field<&MASTER_SLAVE_TRACK_PARA::strSlaveCode>("SlaveCode", "lens of the slave").Range(0, 32).As(TextRule::Code),
        Field<&MASTER_SLAVE_TRACK_PARA::uiTraceTime>("TraceTime", "seconds at an object").Range(1, 3600),
    };
    static constexpr RecordForm kForm{"MASTER_SLAVE_TRACK_PARA", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MASTER_SLAVE_MANUAL_TRACK_PARA>() {
    static constexpr FieldForm kFields[] = {
        Field<&MASTER_SLAVE_MANUAL_TRACK_PARA::strSlaveCode>("SlaveCode", "lens of the slave")
            .Range(0, 32)
            .As(TextRule::Code),
        Field<&MASTER_SLAVE_MANUAL_TRACK_PARA::uiObjectID>("ObjectID", "number of the object in the master's picture"),
        Field<&MASTER_SLAVE_MANUAL_TRACK_PARA::bStart>("Start", "look at it, or away again"),
    };
    static constexpr RecordForm kForm{"MASTER_SLAVE_MANUAL_TRACK_PARA", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MASTER_SLAVE_LOCATE_PARA>() {
    static constexpr FieldForm kFields[] = {
        Field<&MASTER_SLAVE_LOCATE_PARA::strSlaveCode>("SlaveCode", "lens of the slave")
            .Range(0, 32)
            .As(TextRule::Code),
        Field<&MASTER_SLAVE_LOCATE_PARA::stArea>("Area", "of the master's picture"),
    };
    static constexpr RecordForm kForm{"MASTER_SLAVE_LOCATE_PARA", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MASTER_SLAVE_CALIBRATION_STATUS_PARA>() {
    static constexpr FieldForm kFields[] = {
        Field<&MASTER_SLAVE_CALIBRATION_STATUS_PARA::nStatus>("Status", "how far they are").Names(kCalibrationStates),
        Field<&MASTER_SLAVE_CALIBRATION_STATUS_PARA::uiPercent>("Percent", "of the work").Range(0, 100),
    };
    static constexpr RecordForm kForm{"MASTER_SLAVE_CALIBRATION_STATUS_PARA", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<FunctionArguments>() {
    static constexpr FieldForm kFields[] = {
        Field<&FunctionArguments::eFunction>("Function", "what is to be done").Names(kFunctions).Required(),
        Part<&FunctionArguments::locate>(),
    };
    static constexpr RecordForm kForm{"FunctionArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_NET_IN_CONTROL_INTELLITRACKER>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_NET_IN_CONTROL_INTELLITRACKER::uiChannel>("Channel", "from 0").Range(0, 32767),
        Field<&PU_NET_IN_CONTROL_INTELLITRACKER::bStart>("Start", "follow the object, or no longer"),
        Field<&PU_NET_IN_CONTROL_INTELLITRACKER::uiObjectID>("ObjectID", "0: the object in the area"),
        Field<&PU_NET_IN_CONTROL_INTELLITRACKER::stArea>("Area", "of the picture"),
    };
    static constexpr RecordForm kForm{"PU_NET_IN_CONTROL_INTELLITRACKER", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_NET_OUT_CONTROL_INTELLITRACKER>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_NET_OUT_CONTROL_INTELLITRACKER::uiObjectID>("ObjectID", "that the tracker follows"),
    };
    static constexpr RecordForm kForm{"PU_NET_OUT_CONTROL_INTELLITRACKER", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<LocateArguments>() {
    static constexpr FieldForm kFields[] = {
        Field<&LocateArguments::eKind>("Kind", "a place or a rectangle").Names(kLocateKinds),
        Field<&LocateArguments::uiChannel>("Channel", "from 0").Range(0, 32767),
        Field<&LocateArguments::strSlaveCode>("SlaveCode", "lens of the slave").Range(0, 32).As(TextRule::Code),
        Field<&LocateArguments::stPoint>("Point", "of Kind 0"),
        Field<&LocateArguments::stArea>("Area", "of Kind 1"),
    };
    static constexpr RecordForm kForm{"LocateArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<LocateAnswer>() {
    static constexpr FieldForm kFields[] = {
        Field<&LocateAnswer::dPan>("Pan", "degrees, where the slave looks"),
        Field<&LocateAnswer::dTilt>("Tilt", "degrees"),
        Field<&LocateAnswer::dZoom>("Zoom", "times"),
    };
    static constexpr RecordForm kForm{"LocateAnswer", kFields, std::size(kFields)};
    return kForm;
}

}  // namespace gvx
