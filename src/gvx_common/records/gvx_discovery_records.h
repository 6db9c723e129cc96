#pragma once

#include <cstdint>
#include <list>
#include <string>

// Records of a search for devices.

// The device protocol that a search speaks; the numbers are the platform's and only pass through.
enum enDevProtocolType : std::int32_t {};

enum _SEND_PEOBE_STATUS : int {
    Send_Probe_Status_Idel = 0,
    Send_Probe_Status_Running = 1,
    Send_Probe_Status_Finish = 2,
};
using SEND_PEOBE_STATUS = _SEND_PEOBE_STATUS;

enum _UPDATE_PRECENT_MODE : int {
    Update_Precent_Mode_Initiative = 0,  // the base class advances the percentage
    Update_Precent_Mode_Passive = 1,     // the plug-in sets it
};
using UPDATE_PRECENT_MODE = _UPDATE_PRECENT_MODE;

// A range of addresses, both ends included; dotted IPv4 texts.
struct DISCOVERY_IP_INFO {
    char strStartIp[17];
    char strEndIp[17];
    int iPort;
};

// A device that was found.
struct DeviceDiscoveryInfo {
    char szIp[17];
    char szFac[257];  // its maker
    char szType[33];
    char szSerialNumber[49];
    std::uint16_t uiPort;
    enDevProtocolType enProtocol;
};

// Request and report of a search in one record.
struct CDiscoveryDeviceInfo {
    virtual ~CDiscoveryDeviceInfo() = default;

    std::list<DISCOVERY_IP_INFO> DiscDevIpRangeList;  // empty: the local segment
    std::list<std::string> AddedDevList;              // devices that the platform has already
    std::list<DeviceDiscoveryInfo> DiscDevInfoList;   // new devices of this report
    // Copied from the request, for the reply.
    std::string strServerCode;
    std::string strTransID;
    std::string strSCULinkID;
    enDevProtocolType enProtocolType{};
    int iPercent = 0;
};
