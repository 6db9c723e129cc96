#pragma once

#include "base/zvs_types.h"

#include <cstddef>
#include <cstdint>
#include <ctime>

// What happened to a platform link, as told to the device layer.
enum LINKCLOSE_NET_ELE : std::int32_t {
    NET_ELE_SCU_CLOSE = 1,
    NET_ELE_MU = 2,
    NET_ELE_OMU = 3,
    NET_ELE_SCU_OPEN = 4,
    NET_ELE_IMGU = 5,
    NET_ELE__MAX = 6,
};
using LINKCLOSE_NET_ELE_E = LINKCLOSE_NET_ELE;

// Why a picture is taken; carried for plug-ins, not looked at here.
enum SnapType : std::int32_t {
    SNAP_TYPE_NONE = 0,
    SNAP_TYPE_MANUAL = 1,
    SNAP_TYPE_PLAN = 2,
    SNAP_TYPE_ALARM = 3,
};

// What a plug-in reports of a device (ExceptionType), by the callback of SetCommonMessageCallback; chDevId names it.
// Every other value is an exception of the device SDK, which is only logged.
enum ADAPTER_REPORT_TYPE : std::uint16_t {
    // A picture was taken and waits for an address to be sent to. chSubDevId: the lens; stContentId: what the plug-in
    // calls the picture; ulIdentifyID and enSnapType: those of the request. VcuGetUploadImgRsp brings the address.
    ADAPTER_REPORT_PICTURE_TAKEN = 101,
    // It was sent, or could not be; same fields. VcuUploadImgCompReq brings the platform's word about the former.
    ADAPTER_REPORT_PICTURE_SENT = 102,
    ADAPTER_REPORT_PICTURE_LOST = 103,
    // A stream of a recording has come to its end by itself. chSubDevId: the lens; chServiceID: the stream.
    ADAPTER_REPORT_RECORDING_END = 104,
};

// The record that reports go up in: link events and device SDK exceptions. Packed, numbers in host order. A link
// event clears all of it and fills only chNetEleLinkId and eLinkCloseNetEle.
#pragma pack(push, 1)
struct ADAPTER_COMMON_MESSAGE {
    std::uint16_t ExceptionType;  // 0 for link events
    std::time_t ExceptionTime;
    std::uint16_t Port;
    ZVS_UINT16 iGvxListenPort;
    char Ip[17];
    char chSubDevId[33];
    char chDevId[33];
    char chNetEleLinkId[41];  // link identifier, at most 40 characters
    LINKCLOSE_NET_ELE_E eLinkCloseNetEle;
    std::uint64_t ulIdentifyID;
    char stContentId[257];
    char chServiceID[33];
    SnapType enSnapType;
    bool useHttps;
    ZVS_ULONG alarmEventID;
    void* m_pExtend;
};
#pragma pack(pop)

static_assert(sizeof(ADAPTER_COMMON_MESSAGE) == 461, "the layout is shared with the device layer");
static_assert(offsetof(ADAPTER_COMMON_MESSAGE, chNetEleLinkId) == 97 &&
                  offsetof(ADAPTER_COMMON_MESSAGE, eLinkCloseNetEle) == 138 &&
                  offsetof(ADAPTER_COMMON_MESSAGE, stContentId) == 150 &&
                  offsetof(ADAPTER_COMMON_MESSAGE, alarmEventID) == 445,
              "the layout is shared with the device layer");
