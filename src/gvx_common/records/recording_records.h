#pragma once

#include "gvx_common/records/gvx_adapter_records.h"
#include "gvx_common/records/guard_records.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Argument records about what a device records by itself: plans, recordings, snapshots. Times are UTC,
// "YYYYMMDDhhmmss", but for plans, which are local times of the device.

// A plan by which a device records.
struct PU_RECORD_PLAN_INFO {
    std::string strPlanName;  // at most 127
    bool bEnable = false;
    std::int32_t nStreamType = 0;       // STREAM_TYPE_REAL_MAIN, _SUB1 or _SUB2
    std::uint32_t uiPreRecord = 5;      // seconds before an alarm, 0 to 300
    std::uint32_t uiPostRecord = 10;    // seconds behind it, 0 to 3600
    std::uint32_t uiRetentionDays = 0;  // 0 to 3650; 0: until the disk is full
    bool bOverwrite = true;             // the oldest recordings give way to new ones
};
// Its spans by weekday, 0 Sunday to 6 Saturday.
struct PU_RECORD_PLAN_MAP {
    std::map<std::uint32_t, std::vector<_PU_Guard_Time>> spans;
};

// A recording that is started by hand.
struct PU_RECORD_START_STRU {
    std::int32_t nStreamType = 0;
    std::uint32_t uiDuration = 0;  // seconds, 0 to 86400; 0: until it is stopped
};
struct PU_RECORD_STATE {
    bool bRecording = false;
    std::string strStartTime;        // since when; empty when it does not record
    std::uint64_t ullDiskBytes = 0;  // room for recordings in all
    std::uint64_t ullFreeBytes = 0;
};

// Why something was recorded.
enum PU_RECORD_TYPE : std::int32_t {
    PU_RECORD_ALL = 0,  // of a search
    PU_RECORD_PLAN = 1,
    PU_RECORD_MANUAL = 2,
    PU_RECORD_ALARM = 3,
    PU_RECORD_MOTION = 4,
};
// A search for recordings, and its result: one entry for each recording.
struct GET_PU_RECORD_INFO {
    std::string strStartTime;                    // in; empty: from the first
    std::string strEndTime;                      // in; empty: to the last
    PU_RECORD_TYPE eRecordType = PU_RECORD_ALL;  // in
    std::uint32_t uiFromIndex = 0;               // in: the first entry of the answer, from 0
    std::uint32_t uiMaxCount = 100;              // in: entries at most, 1 to 1000
    std::uint32_t uiTotal = 0;                   // out: how many there are in all
};
struct _GET_PU_RECORD_DATA_LIST {
    std::string strContentID;  // by which it is played, at most 256
    std::string strStartTime;
    std::string strEndTime;
    PU_RECORD_TYPE eRecordType = PU_RECORD_PLAN;
    std::int32_t nStreamType = 0;
    std::uint64_t ullBytes = 0;
};

// The picture's words that stand in a recording.
struct PU_RECORD_LAYER_STRU {
    std::string strLayerCode;  // at most 63
    bool bEnable = true;
};

// A plan by which a device takes pictures.
struct _PU_SNAP_SHOT_PLAN {
    std::uint32_t uiWeekDay = 0;  // 0 Sunday to 6 Saturday
    std::string strStartTime;     // local, "hhmmss"
    std::string strEndTime;
    std::uint32_t uiInterval = 60;  // seconds between two pictures, 1 to 86400
    std::uint32_t uiNumber = 1;     // pictures at a time, 1 to 100
};
struct PU_GET_SNAP_SHOT_PLAN {
    bool bEnable = false;
    std::string strPlanName;
};

// Where a picture goes: the platform's answer to the question for an address.
struct PU_UPLOAD_IMAGE_RSP {
    std::string strLensCode;         // whose picture it is, at most 32
    std::string strUrl;              // to which it is sent, at most 1023
    std::string strContentID;        // by which the platform knows it, at most 256
    std::uint64_t ullSessionID = 0;  // of the request for the picture
    SnapType eSnapType = SNAP_TYPE_NONE;
    std::int32_t nResult = 0;  // 0, or why there is no address
};
// The platform has the picture, or has not.
struct PU_UPLOAD_IMAGE_COMP_REQ {
    std::string strContentID;
    std::uint64_t ullSessionID = 0;
    std::int32_t nResult = 0;  // 0: it has arrived whole
    std::uint64_t ullBytes = 0;
};
