#pragma once

#include <list>
#include <string>
#include <utility>

namespace CBB {
class CXml;
}

enum EroInfoType : int { GVX_ERR_TYPE_DEV = 0 };

// One failure of a device operation, as the platform is told of it. One thread at a time.
class GVXDevErr {
public:
    using DevPair = std::pair<std::string, std::string>;  // device code, channel code

    // Adds the pairs of another report; everything else stays as it was reported first.
    void addDevErr(GVXDevErr& other);

    // Writes the report as a new document, whatever xml held before:
    //   Content: InfoType, DevErrorInfo: DevList (DevInfo: DevCode, ChannelCode), ErrorOccurTime, ErrorCode,
    //   FaultSourceIP, FaultSourceModule, ErrorDetail
    // Control characters, which XML cannot carry, become blanks, and bytes that are no UTF-8 become U+FFFD. 0, or 1
    // when an element could not be added.
    int fromStruToXml(CBB::CXml& xml) const;

    // Gives back all texts and pairs; the report is then as a fresh one.
    void release();

    EroInfoType nInfoType = GVX_ERR_TYPE_DEV;
    std::list<DevPair> lstDevInfo;
    int nErrorCode = 0;
    std::string sErrorOccurTime;     // local, with the zone: "2026-01-02 03:04:05+01:00"
    std::string sFaultSourceIP;      // the gateway's own address
    std::string sFaultSourceModule;  // "GVX"
    std::string sErrDetail;
    std::string sLinkID;   // the link of the report; empty for one that is kept for a response
    long long nTicks = 0;  // when it was made, in seconds of the monotonic clock
};
