#pragma once

#include "base/zvs_types.h"
#include "gvx_common/records/device_alarm_records.h"

#include <cstddef>
#include <cstdint>

// The records in which alarms wait and leave. All are packed: their layouts are wire formats, or are shared with other
// libraries. Texts are terminated and zero-padded, numbers in host order unless a field says otherwise.

#pragma pack(push, 1)

// An alarm of the gateway itself. The bytes ahead of cAlarmDesc go on the wire as they stand, the description behind
// them as a pair of tag and text.
struct _ZVS_GVX_DEV_ALARM_REPORT {
    std::int64_t iAlarmEventID;  // network order
    char cFac[64];               // maker's name
    char cDomainCode[32];        // empty
    char cNetEleName[64];        // empty
    char cNetEleID[32];          // network element identifier, without its prefix
    char cAlarmInCode[64];       // "GVX#" and the identifier
    char cAlarmInName[256];
    char cAlarmType[64];
    char cAlarmInType[4];
    char cOccurTime[20];  // UTC, "YYYYMMDDhhmmss"
    char cLocationInfo[256];
    char cAlarmDesc[256];
};
using GVX_ALARM_REPORT = _ZVS_GVX_DEV_ALARM_REPORT;

// The two pairs behind the body of an alarm. Tag and length are in network order on the wire; of the text, as many
// bytes follow as the length says, without a terminator.
struct _ZVS_ALARM_REPORT_DEC {
    std::uint16_t uiAlarmDescType;  // NSS_TAG_ALARM_DESC
    std::uint32_t uiAlarmDescLen;
    char cAlarmDesc[1024];
};
struct _ZVS_ALARM_REPORT_EXT {
    std::uint16_t uiAlarmExtType;  // NSS_TAG_EXT_PARAM
    std::uint32_t uiAlarmExtLen;
    char cExtParam[2048];
};

// What the cloud platform gets of an alarm. Sent whole; what an alarm does not fill is zero.
struct GVX_DEVICE_ALARM_REPORT_INFO {
    char cHead[32];              // zero
    std::uint64_t ulAlarmID;     // of the alarm dictionary; host order
    char cNodeCode[256];         // NodeCode of log.xml
    char cFrontDeviceCode[256];  // device alarms: the device that owns the channel
    char cFac[64];
    char cDomainCode[32];
    char cNetElemName[64];
    char cNetElemId[32];
    char cAlarmInCode[64];
    char cAlarmInName[256];  // device alarms: the word for the device's form
    char cAlarmType[64];
    char cAlarmInType[4];
    char cLocationInfo[256];
    char cAlarmDesc[1024];
    char cTail[2132];  // zero
};

// An alarm of the gateway that waits for a link.
struct _ZVS_REPORT_LIST {
    std::uint16_t usiMsgType;  // 0
    char cTransId[2048];       // empty
    char cAlarmType[64];
    char cAlarmInType[4];
    char cLocationInfo[256];
    char cAlarmDesc[256];
};
using ZVS_REPORT_LIST = _ZVS_REPORT_LIST;

#pragma pack(pop)

// What of a record goes on the wire ahead of the description.
constexpr std::size_t kGvxAlarmWireBytes = 864;
constexpr std::size_t kDeviceAlarmWireBytes = 272;

#define GVX_ALARM_FIELD_AT(record, field, offset) \
    static_assert(offsetof(record, field) == (offset), #record "::" #field " has its fixed place")

GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, iAlarmEventID, 0);
GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, cFac, 8);
GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, cDomainCode, 72);
GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, cNetEleName, 104);
GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, cNetEleID, 168);
GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, cAlarmInCode, 200);
GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, cAlarmInName, 264);
GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, cAlarmType, 520);
GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, cAlarmInType, 584);
GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, cOccurTime, 588);
GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, cLocationInfo, 608);
GVX_ALARM_FIELD_AT(_ZVS_GVX_DEV_ALARM_REPORT, cAlarmDesc, kGvxAlarmWireBytes);
static_assert(sizeof(_ZVS_GVX_DEV_ALARM_REPORT) == 1120);

GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, cAlarmInCode, 0);
GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, cDevDomainCode, 64);
GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, cAlarmType, 96);
GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, cOccurTime, 160);
GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, cReportTime, 180);
GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, bAction, 200);
GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, cAlarmID, 204);
GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, uiOccurNumber, 236);
GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, cNvrCode, 240);
GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, cReserve, kDeviceAlarmWireBytes);
GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, cAlarmDesc, 304);
GVX_ALARM_FIELD_AT(ZVS_ALARM_REPORT, cExtParam, 1328);
static_assert(sizeof(ZVS_ALARM_REPORT) == 3376);

GVX_ALARM_FIELD_AT(_ZVS_ALARM_REPORT_DEC, uiAlarmDescLen, 2);
GVX_ALARM_FIELD_AT(_ZVS_ALARM_REPORT_DEC, cAlarmDesc, 6);
static_assert(sizeof(_ZVS_ALARM_REPORT_DEC) == 1030);
GVX_ALARM_FIELD_AT(_ZVS_ALARM_REPORT_EXT, uiAlarmExtLen, 2);
GVX_ALARM_FIELD_AT(_ZVS_ALARM_REPORT_EXT, cExtParam, 6);
static_assert(sizeof(_ZVS_ALARM_REPORT_EXT) == 2054);

GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, ulAlarmID, 32);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cNodeCode, 40);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cFrontDeviceCode, 296);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cFac, 552);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cDomainCode, 616);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cNetElemName, 648);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cNetElemId, 712);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cAlarmInCode, 744);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cAlarmInName, 808);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cAlarmType, 1064);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cAlarmInType, 1128);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cLocationInfo, 1132);
GVX_ALARM_FIELD_AT(GVX_DEVICE_ALARM_REPORT_INFO, cAlarmDesc, 1388);
static_assert(sizeof(GVX_DEVICE_ALARM_REPORT_INFO) == 4544);

GVX_ALARM_FIELD_AT(_ZVS_REPORT_LIST, usiMsgType, 0);
GVX_ALARM_FIELD_AT(_ZVS_REPORT_LIST, cTransId, 2);
GVX_ALARM_FIELD_AT(_ZVS_REPORT_LIST, cAlarmType, 2050);
GVX_ALARM_FIELD_AT(_ZVS_REPORT_LIST, cAlarmInType, 2114);
GVX_ALARM_FIELD_AT(_ZVS_REPORT_LIST, cLocationInfo, 2118);
GVX_ALARM_FIELD_AT(_ZVS_REPORT_LIST, cAlarmDesc, 2374);
static_assert(sizeof(_ZVS_REPORT_LIST) == 2630);

#undef GVX_ALARM_FIELD_AT
