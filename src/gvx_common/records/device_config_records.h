#pragma once

#include "gvx_common/records/conf_item_mask.h"
#include "gvx_common/records/gvx_adapter_records.h"

#include <cstdint>
#include <list>
#include <string>
#include <vector>

// Argument records of the operations about a device as a whole. Texts are UTF-8; lengths are in bytes. A password is
// in clear: it is not to be logged or kept, and whoever fills the record wipes it.

// The clock of a device.
struct PU_TIME_CONF_STRU {
    std::string strTime;                 // UTC, "YYYYMMDDhhmmss"; empty: leave the clock
    std::int32_t nTimeZone = 0;          // minutes east of UTC, -720 to 840
    bool bDaylightSaving = false;        // the device moves its clock by itself
    bool bNtpEnable = false;             // take the time from a server
    std::string strNtpServer;            // address or name, at most 255
    std::uint16_t usNtpPort = 123;       // host order
    std::uint32_t uiNtpInterval = 3600;  // seconds between two questions, 60 to 604800
};

// How a device is reached in the network.
struct PU_NET_CONF_STRU {
    std::string strNetCard;  // name of the card, at most 31; empty: the first one
    bool bDhcp = false;
    std::string strIP;  // dotted IPv4
    std::string strMask;
    std::string strGateway;
    std::string strDns1;
    std::string strDns2;
    std::string strMac;            // "00:11:22:33:44:55"; of an answer
    std::uint16_t usHttpPort = 0;  // host order; 0: leave
    std::uint16_t usRtspPort = 0;
    std::uint32_t uiMtu = 1500;  // bytes, 576 to 9216
};

// New firmware of a device, which the device fetches.
struct UPGRADE_PARAM {
    std::string strUrl;  // ftp, sftp, http or https, at most 511
    std::string strUserName;
    std::string strPassword;
    std::string strVersion;          // that the file holds, at most 63
    std::string strSha256;           // of the file, 64 hexadecimal digits; empty: not checked
    std::uint64_t ullFileBytes = 0;  // 0: not known
};

// A serial line, and the decoder of pan and tilt behind it.
enum PU_SERIAL_PARITY : std::int32_t {
    PU_SERIAL_PARITY_NONE = 0,
    PU_SERIAL_PARITY_ODD = 1,
    PU_SERIAL_PARITY_EVEN = 2,
};
struct PU_SERIAL_CONF_STRU {
    CONF_ITEM_MASK_STRU stMask{};     // SERIAL_*, COM_* and PTZ_CONTROL_PROTOCOL_INDEX
    std::uint32_t uiSerialNum = 0;    // number of the line, from 0
    std::uint32_t uiComNum = 0;       // number of the port on the device, from 0
    std::uint32_t uiBaudRate = 9600;  // 300 to 921600
    std::uint32_t uiDataBits = 8;     // 5 to 8
    std::uint32_t uiStopBits = 1;     // 1 or 2
    PU_SERIAL_PARITY eParity = PU_SERIAL_PARITY_NONE;
    std::string strPtzProtocol;   // such as "PELCO-D", at most 31
    std::uint32_t uiComAddr = 1;  // address of the decoder, 0 to 255
};

// The credentials by which the gateway logs in to a device.
struct PU_MOD_PASSWORD_STRU {
    std::string strUserName;     // at most 63
    std::string strOldPassword;  // at most 255
    std::string strNewPassword;
};

// The same of the device's own web page.
struct MOD_WEB_PASSWORD_STRU {
    std::string strUserName;
    std::string strOldPassword;
    std::string strNewPassword;
};

// Admission to a network by IEEE 802.1X.
enum DEV_8021X_EAP_TYPE : std::int32_t {
    DEV_8021X_EAP_MD5 = 0,
    DEV_8021X_EAP_TLS = 1,
    DEV_8021X_EAP_TTLS = 2,
    DEV_8021X_EAP_PEAP = 3,
};
struct DEV_8021X_CONF_STRU {
    bool bEnable = false;
    DEV_8021X_EAP_TYPE eEapType = DEV_8021X_EAP_MD5;
    std::uint32_t uiEapolVersion = 1;  // 1 or 2
    std::string strUserName;
    std::string strPassword;  // of a setting; empty in an answer
};

// Which lines of a device's log are asked for.
struct PU_GVX_LOG_INFO {
    std::string strStartTime;         // UTC, "YYYYMMDDhhmmss"; empty: from the first
    std::string strEndTime;           // empty: to the last
    std::int32_t nLogType = 0;        // 0 all, 1 operations, 2 alarms, 3 errors
    std::uint32_t uiMaxCount = 1000;  // lines at most, 1 to 10000
};

// A device that is not added yet, and what the plug-in has found of it.
struct VALIDATE_DEVICE_INFO {
    std::string strIP;                      // in: address or name
    std::uint16_t usPort = 0;               // in: host order
    std::string strUserName;                // in
    std::string strPassword;                // in
    std::string strExtend;                  // in: text for the plug-in alone, at most 2047
    enPuDevFormType eDevFormType = PU_IPC;  // out
    std::string strModel;                   // out
    std::string strFirmware;                // out
    std::string strSerialNumber;            // out
    std::uint32_t uiChannelNum = 0;         // out
};

// The basic settings of a device in the platform's own terms.
struct MSG_DEVICE_CONFIG_REQ {
    std::string strName;                     // at most 127
    std::uint32_t uiExpiration = 3600;       // seconds that a registration lasts, 60 to 604800
    std::uint32_t uiHeartBeatInterval = 60;  // seconds, 5 to 3600
    std::uint32_t uiHeartBeatCount = 3;      // beats that may be missed, 1 to 255
};
struct MSG_DEVICE_CONFIG_GET_RSP {
    std::string strName;
    std::uint32_t uiExpiration = 0;
    std::uint32_t uiHeartBeatInterval = 0;
    std::uint32_t uiHeartBeatCount = 0;
    std::int32_t nPositionCapability = 0;  // 0 none, 1 satellite (GPS), 2 satellite (BeiDou)
    double dLongitude = 0;                 // degrees, east positive
    double dLatitude = 0;                  // degrees, north positive
};

// The platform's code of a channel.
struct _VIDEO_CHANNEL_CODE_RELATION {
    std::uint32_t uiChannel = 0;  // from 0
    std::string strLensCode;      // 1 to 32
    std::string strName;          // at most 127
};

// A device behind a device: a camera, an alarm input or an alarm output of an external system.
enum EXT_DEV_TYPE : std::int32_t {
    EXT_DEV_VIDEO = 0,
    EXT_DEV_ALARM_IN = 1,
    EXT_DEV_ALARM_OUT = 2,
};
class CExtDevInfo {
public:
    std::string strCode;        // the platform's, 1 to 32
    std::string strParentCode;  // the device that it hangs behind
    std::string strExternCode;  // what the external system calls it, at most 127
    std::string strName;        // at most 127
    EXT_DEV_TYPE eType = EXT_DEV_VIDEO;
    std::uint32_t uiChannel = 0;  // on that device, from 0
    MainDevStatus eStatus = MAIN_DEV_STATUS_OFFLINE;
};
