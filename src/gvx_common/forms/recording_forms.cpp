#include "gvx_common/forms/record_forms.h"

#include <iterator>

namespace gvx {
namespace {

constexpr NumberName kWeekDays[] = {{0, "sunday"},   {1, "monday"}, {2, "tuesday"}, {3, "wednesday"},
                                    {4, "thursday"}, {5, "friday"}, {6, "saturday"}};
constexpr NumberName kStreamTypes[] = {
    {STREAM_TYPE_REAL_MAIN, "main"}, {STREAM_TYPE_REAL_SUB1, "sub1"}, {STREAM_TYPE_REAL_SUB2, "sub2"}};
constexpr NumberName kRecordTypes[] = {{PU_RECORD_ALL, "all"},
                                       {PU_RECORD_PLAN, "plan"},
                                       {PU_RECORD_MANUAL, "manual"},
                                       {PU_RECORD_ALARM, "alarm"},
                                       {PU_RECORD_MOTION, "motion"}};
constexpr NumberName kSnapTypes[] = {
    {SNAP_TYPE_NONE, "none"}, {SNAP_TYPE_MANUAL, "manual"}, {SNAP_TYPE_PLAN, "plan"}, {SNAP_TYPE_ALARM, "alarm"}};

}  // namespace

template <>
const RecordForm& FormOf<PU_RECORD_PLAN_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_RECORD_PLAN_INFO::strPlanName>("PlanName", "for people"),
        Field<&PU_RECORD_PLAN_INFO::bEnable>("Enable", "the plan is in force").Required(),
        Field<&PU_RECORD_PLAN_INFO::nStreamType>("StreamType", "what is recorded").Names(kStreamTypes),
        Field<&PU_RECORD_PLAN_INFO::uiPreRecord>("PreRecord", "seconds before an alarm").Range(0, 300),
        Field<&PU_RECORD_PLAN_INFO::uiPostRecord>("PostRecord", "seconds behind it").Range(0, 3600),
        Field<&PU_RECORD_PLAN_INFO::uiRetentionDays>("RetentionDays", "0: until the disk is full").Range(0, 3650),
        Field<&PU_RECORD_PLAN_INFO::bOverwrite>("Overwrite", "the oldest recordings give way to new ones"),
    };
    static constexpr RecordForm kForm{"PU_RECORD_PLAN_INFO", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<RecordPlan>() {
    static constexpr FieldForm kFields[] = {
        Part<&RecordPlan::plan>(),
        Field<&RecordPlan::spans>("Spans", "when the device records"),
    };
    static constexpr RecordForm kForm{"RecordPlan", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_RECORD_START_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_RECORD_START_STRU::nStreamType>("StreamType", "what is recorded").Names(kStreamTypes),
        Field<&PU_RECORD_START_STRU::uiDuration>("Duration", "seconds; 0: until it is stopped").Range(0, 86400),
    };
    static constexpr RecordForm kForm{"PU_RECORD_START_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_RECORD_STATE>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_RECORD_STATE::bRecording>("Recording", "the device records"),
        Field<&PU_RECORD_STATE::strStartTime>("StartTime", "since when").Range(0, 14).As(TextRule::Time),
        Field<&PU_RECORD_STATE::ullDiskBytes>("DiskBytes", "room for recordings"),
        Field<&PU_RECORD_STATE::ullFreeBytes>("FreeBytes", "of these free"),
    };
    static constexpr RecordForm kForm{"PU_RECORD_STATE", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<GET_PU_RECORD_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&GET_PU_RECORD_INFO::strStartTime>("StartTime", "empty: from the first recording")
            .Range(0, 14)
            .As(TextRule::Time),
        Field<&GET_PU_RECORD_INFO::strEndTime>("EndTime", "empty: to the last recording")
            .Range(0, 14)
            .As(TextRule::Time),
        Field<&GET_PU_RECORD_INFO::eRecordType>("RecordType", "why it was recorded").Names(kRecordTypes),
        Field<&GET_PU_RECORD_INFO::uiFromIndex>("FromIndex", "the first one of the answer, from 0"),
        Field<&GET_PU_RECORD_INFO::uiMaxCount>("MaxCount", "recordings of an answer at most").Range(1, 1000),
        Field<&GET_PU_RECORD_INFO::uiTotal>("Total", "how many there are in all").AnswerOnly(),
    };
    static constexpr RecordForm kForm{"GET_PU_RECORD_INFO", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<_GET_PU_RECORD_DATA_LIST>() {
    static constexpr FieldForm kFields[] = {
        Field<&_GET_PU_RECORD_DATA_LIST::strContentID>("ContentID", "by which it is played").Range(0, 256),
        Field<&_GET_PU_RECORD_DATA_LIST::strStartTime>("StartTime", "of the recording").Range(0, 14).As(TextRule::Time),
        Field<&_GET_PU_RECORD_DATA_LIST::strEndTime>("EndTime", "of the recording").Range(0, 14).As(TextRule::Time),
        Field<&_GET_PU_RECORD_DATA_LIST::eRecordType>("RecordType", "why it was recorded").Names(kRecordTypes),
        Field<&_GET_PU_RECORD_DATA_LIST::nStreamType>("StreamType", "what was recorded").Names(kStreamTypes),
        Field<&_GET_PU_RECORD_DATA_LIST::ullBytes>("Bytes", "its length"),
    };
    static constexpr RecordForm kForm{"_GET_PU_RECORD_DATA_LIST", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<RecordList>() {
    static constexpr FieldForm kFields[] = {
        Part<&RecordList::search>(),
        Field<&RecordList::records>("Records", "in order of time"),
    };
    static constexpr RecordForm kForm{"RecordList", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<RecordStream>() {
    static constexpr FieldForm kFields[] = {
        Field<&RecordStream::nStreamType>("StreamType", "what is recorded").Names(kStreamTypes).Required(),
    };
    static constexpr RecordForm kForm{"RecordStream", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_RECORD_LAYER_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_RECORD_LAYER_STRU::strLayerCode>("LayerCode", "of the words")
            .Range(1, 63)
            .As(TextRule::Code)
            .Required(),
        Field<&PU_RECORD_LAYER_STRU::bEnable>("Enable", "recordings carry them"),
    };
    static constexpr RecordForm kForm{"PU_RECORD_LAYER_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<_PU_SNAP_SHOT_PLAN>() {
    static constexpr FieldForm kFields[] = {
        Field<&_PU_SNAP_SHOT_PLAN::uiWeekDay>("WeekDay", "of the span").Names(kWeekDays).Required(),
        Field<&_PU_SNAP_SHOT_PLAN::strStartTime>("StartTime", "local time")
            .Range(6, 6)
            .As(TextRule::TimeOfDay)
            .Required(),
        Field<&_PU_SNAP_SHOT_PLAN::strEndTime>("EndTime", "local time; 240000 is the end of the day")
            .Range(6, 6)
            .As(TextRule::TimeOfDay)
            .Required(),
        Field<&_PU_SNAP_SHOT_PLAN::uiInterval>("Interval", "seconds from one picture to the next").Range(1, 86400),
        Field<&_PU_SNAP_SHOT_PLAN::uiNumber>("Number", "pictures at a time").Range(1, 100),
    };
    static constexpr RecordForm kForm{"_PU_SNAP_SHOT_PLAN", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<SnapshotPlan>() {
    static constexpr FieldForm kFields[] = {
        Field<&SnapshotPlan::spans>("Spans", "when the device takes pictures").Required(),
    };
    static constexpr RecordForm kForm{"SnapshotPlan", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_GET_SNAP_SHOT_PLAN>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_GET_SNAP_SHOT_PLAN::bEnable>("Enable", "the plan is in force"),
        Field<&PU_GET_SNAP_SHOT_PLAN::strPlanName>("PlanName", "for people"),
    };
    static constexpr RecordForm kForm{"PU_GET_SNAP_SHOT_PLAN", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<SnapshotPlanAnswer>() {
    static constexpr FieldForm kFields[] = {
        Part<&SnapshotPlanAnswer::plan>(),
        Field<&SnapshotPlanAnswer::spans>("Spans", "when the device takes pictures"),
    };
    static constexpr RecordForm kForm{"SnapshotPlanAnswer", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_UPLOAD_IMAGE_RSP>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_UPLOAD_IMAGE_RSP::strLensCode>("LensCode", "whose picture it is").Range(0, 32).As(TextRule::Code),
        Field<&PU_UPLOAD_IMAGE_RSP::strUrl>("Url", "to which it is sent").Range(0, 1023),
        Field<&PU_UPLOAD_IMAGE_RSP::strContentID>("ContentID", "by which the platform knows it").Range(0, 256),
        Field<&PU_UPLOAD_IMAGE_RSP::ullSessionID>("SessionID", "of the request for the picture"),
        Field<&PU_UPLOAD_IMAGE_RSP::eSnapType>("SnapType", "why it was taken").Names(kSnapTypes),
        Field<&PU_UPLOAD_IMAGE_RSP::nResult>("Result", "0, or why there is no address"),
    };
    static constexpr RecordForm kForm{"PU_UPLOAD_IMAGE_RSP", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_UPLOAD_IMAGE_COMP_REQ>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_UPLOAD_IMAGE_COMP_REQ::strContentID>("ContentID", "by which the platform knows it").Range(0, 256),
        Field<&PU_UPLOAD_IMAGE_COMP_REQ::ullSessionID>("SessionID", "of the request for the picture"),
        Field<&PU_UPLOAD_IMAGE_COMP_REQ::nResult>("Result", "0: it has arrived whole"),
        Field<&PU_UPLOAD_IMAGE_COMP_REQ::ullBytes>("Bytes", "its length"),
    };
    static constexpr RecordForm kForm{"PU_UPLOAD_IMAGE_COMP_REQ", kFields, std::size(kFields)};
    return kForm;
}

}  // namespace gvx
