#include "gvx_common/forms/record_forms.h"

#include <iterator>

namespace gvx {
namespace {

constexpr NumberName kDevForms[] = {{PU_IPC, "ipc"},   {PU_DVS, "dvs"},         {PU_DVR, "dvr"},
                                    {PU_eNVR, "envr"}, {PU_EXT_SYS, "ext-sys"}, {PU_EXT_DEV, "ext-dev"}};
constexpr NumberName kParities[] = {
    {PU_SERIAL_PARITY_NONE, "none"}, {PU_SERIAL_PARITY_ODD, "odd"}, {PU_SERIAL_PARITY_EVEN, "even"}};
constexpr NumberName kEapTypes[] = {
    {DEV_8021X_EAP_MD5, "md5"}, {DEV_8021X_EAP_TLS, "tls"}, {DEV_8021X_EAP_TTLS, "ttls"}, {DEV_8021X_EAP_PEAP, "peap"}};
constexpr NumberName kLogTypes[] = {{0, "all"}, {1, "operation"}, {2, "alarm"}, {3, "error"}};
constexpr NumberName kPositionCapabilities[] = {{0, "none"}, {1, "gps"}, {2, "beidou"}};
constexpr NumberName kExternTypes[] = {
    {EXT_DEV_VIDEO, "video"}, {EXT_DEV_ALARM_IN, "alarm-in"}, {EXT_DEV_ALARM_OUT, "alarm-out"}};
constexpr NumberName kDevStatuses[] = {{MAIN_DEV_STATUS_OFFLINE, "offline"}, {MAIN_DEV_STATUS_ONLINE, "online"}};
constexpr NumberName kAbilityKinds[] = {
    {ABILITY_OF_DEVICE, "device"}, {ABILITY_OF_MASTER_SLAVE, "master-slave"}, {ABILITY_OWN_WORDS, "own-words"}};

}  // namespace

template <>
const RecordForm& FormOf<NoArguments>() {
    static constexpr RecordForm kForm{"NoArguments", nullptr, 0};
    return kForm;
}

template <>
const RecordForm& FormOf<ListenAddress>() {
    static constexpr FieldForm kFields[] = {
        Field<&ListenAddress::strIP>("IP", "the new address").Range(7, 15).As(TextRule::Ip).Required(),
    };
    static constexpr RecordForm kForm{"ListenAddress", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<DeviceChange>() {
    static constexpr FieldForm kFields[] = {
        Field<&DeviceChange::strIP>("IP", "address or name; empty: as it is").Range(0, 256),
        Field<&DeviceChange::usPort>("Port", "0: as it is"),
        Field<&DeviceChange::strUserName>("UserName", "empty: as it is").Range(0, 256),
        Field<&DeviceChange::strPassword>("Password", "empty: as it is").Range(0, 256).Secret(),
    };
    static constexpr RecordForm kForm{"DeviceChange", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<RebootArguments>() {
    static constexpr FieldForm kFields[] = {
        Field<&RebootArguments::nKind>("Kind", "0 restarts the device at once; other numbers are the plug-in's own")
            .Range(0, 255),
    };
    static constexpr RecordForm kForm{"RebootArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<SwitchArguments>() {
    static constexpr FieldForm kFields[] = {
        Field<&SwitchArguments::bEnable>("Enable", "on or off").Required(),
    };
    static constexpr RecordForm kForm{"SwitchArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<ConfigText>() {
    static constexpr FieldForm kFields[] = {
        Field<&ConfigText::strConfig>("Config", "in the device's own words").Range(0, 262144).Required(),
    };
    static constexpr RecordForm kForm{"ConfigText", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<DeviceLog>() {
    static constexpr FieldForm kFields[] = {
        Field<&DeviceLog::lines>("Lines", "one text for each line").Range(0, 4096),
    };
    static constexpr RecordForm kForm{"DeviceLog", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<AbilityQuestion>() {
    static constexpr FieldForm kFields[] = {
        Field<&AbilityQuestion::eKind>("Kind", "what is asked for").Names(kAbilityKinds),
        Field<&AbilityQuestion::strLensCode>("LensCode", "a lens of the device; empty: the device")
            .Range(0, 32)
            .As(TextRule::Code),
    };
    static constexpr RecordForm kForm{"AbilityQuestion", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<GVX_CHANNEL_ABILITY_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&GVX_CHANNEL_ABILITY_INFO::nChannelId>("Channel", "from 0"),
        Field<&GVX_CHANNEL_ABILITY_INFO::strName>("Name", "of the channel"),
        Field<&GVX_CHANNEL_ABILITY_INFO::nVideoFormat>("VideoFormat", "1 H.264, 2 MJPEG, 3 MPEG-4, 6 H.265; 0 none"),
        Field<&GVX_CHANNEL_ABILITY_INFO::nAudioFormat>("AudioFormat", "1 G.711A, 2 G.711U, 3 G.726, 4 AAC; 0 none"),
        Field<&GVX_CHANNEL_ABILITY_INFO::nWidth>("Width", "pixels; 0 not known"),
        Field<&GVX_CHANNEL_ABILITY_INFO::nHeight>("Height", "pixels; 0 not known"),
        Field<&GVX_CHANNEL_ABILITY_INFO::dFrameRate>("FrameRate", "frames a second; 0 not known"),
        Field<&GVX_CHANNEL_ABILITY_INFO::nStreamCount>("StreamCount", "main stream and sub streams"),
    };
    static constexpr RecordForm kForm{"GVX_CHANNEL_ABILITY_INFO", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<GVX_DEVICE_ABILITY_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&GVX_DEVICE_ABILITY_INFO::eDevFormType>("FormType", "form of the device").Names(kDevForms),
        Field<&GVX_DEVICE_ABILITY_INFO::strModel>("Model", "of the device"),
        Field<&GVX_DEVICE_ABILITY_INFO::strFirmware>("Firmware", "its version"),
        Field<&GVX_DEVICE_ABILITY_INFO::channels>("Channels", "one for each channel"),
    };
    static constexpr RecordForm kForm{"GVX_DEVICE_ABILITY_INFO", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<AbilityAnswer>() {
    static constexpr FieldForm kFields[] = {
        Part<&AbilityAnswer::ability>(),
        Field<&AbilityAnswer::ownWords>("OwnWords", "what the device itself tells, of Kind 2; else null"),
    };
    static constexpr RecordForm kForm{"AbilityAnswer", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_TIME_CONF_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_TIME_CONF_STRU::strTime>("Time", "the clock; empty: as it is").Range(0, 14).As(TextRule::Time),
        Field<&PU_TIME_CONF_STRU::nTimeZone>("TimeZone", "minutes east of UTC").Range(-720, 840),
        Field<&PU_TIME_CONF_STRU::bDaylightSaving>("DaylightSaving", "the device moves its clock by itself"),
        Field<&PU_TIME_CONF_STRU::bNtpEnable>("NtpEnable", "take the time from a server"),
        Field<&PU_TIME_CONF_STRU::strNtpServer>("NtpServer", "address or name").Range(0, 255),
        Field<&PU_TIME_CONF_STRU::usNtpPort>("NtpPort", "of the server").Range(1, 65535),
        Field<&PU_TIME_CONF_STRU::uiNtpInterval>("NtpInterval", "seconds between two questions").Range(60, 604800),
    };
    static constexpr RecordForm kForm{"PU_TIME_CONF_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_NET_CONF_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_NET_CONF_STRU::strNetCard>("NetCard", "name of the card; empty: the first one").Range(0, 31),
        Field<&PU_NET_CONF_STRU::bDhcp>("Dhcp", "the network gives the address"),
        Field<&PU_NET_CONF_STRU::strIP>("IP", "of the device").Range(0, 15).As(TextRule::Ip),
        Field<&PU_NET_CONF_STRU::strMask>("Mask", "of its network").Range(0, 15).As(TextRule::Ip),
        Field<&PU_NET_CONF_STRU::strGateway>("Gateway", "of its network").Range(0, 15).As(TextRule::Ip),
        Field<&PU_NET_CONF_STRU::strDns1>("Dns1", "name server").Range(0, 15).As(TextRule::Ip),
        Field<&PU_NET_CONF_STRU::strDns2>("Dns2", "second name server").Range(0, 15).As(TextRule::Ip),
        Field<&PU_NET_CONF_STRU::strMac>("Mac", "hardware address").Range(0, 17).As(TextRule::Mac).AnswerOnly(),
        Field<&PU_NET_CONF_STRU::usHttpPort>("HttpPort", "0: as it is"),
        Field<&PU_NET_CONF_STRU::usRtspPort>("RtspPort", "0: as it is"),
        Field<&PU_NET_CONF_STRU::uiMtu>("Mtu", "bytes").Range(576, 9216),
    };
    static constexpr RecordForm kForm{"PU_NET_CONF_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_SERIAL_CONF_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_SERIAL_CONF_STRU::uiSerialNum>("SerialNum", "number of the line, from 0")
            .Range(0, 255)
            .Item(SERIAL_PORT_NUM_INDEX),
        Field<&PU_SERIAL_CONF_STRU::uiComNum>("ComNum", "number of the port on the device, from 0")
            .Range(0, 255)
            .Item(COM_NUM_INDEX),
        Field<&PU_SERIAL_CONF_STRU::uiBaudRate>("BaudRate", "bits a second")
            .Range(300, 921600)
            .Item(SERIAL_PORT_BAUT_RATE_INDEX),
        Field<&PU_SERIAL_CONF_STRU::uiDataBits>("DataBits", "bits of a character")
            .Range(5, 8)
            .Item(SERIAL_PORT_DATA_BITS_INDEX),
        Field<&PU_SERIAL_CONF_STRU::uiStopBits>("StopBits", "behind a character")
            .Range(1, 2)
            .Item(SERIAL_PORT_STOP_BITS_INDEX),
        Field<&PU_SERIAL_CONF_STRU::eParity>("Parity", "of a character")
            .Names(kParities)
            .Item(SERIAL_PORT_PARITY_INDEX),
        Field<&PU_SERIAL_CONF_STRU::strPtzProtocol>("PtzProtocol", "such as PELCO-D")
            .Range(0, 31)
            .Item(PTZ_CONTROL_PROTOCOL_INDEX),
        Field<&PU_SERIAL_CONF_STRU::uiComAddr>("ComAddr", "address of the decoder").Range(0, 255).Item(COM_ADDR_INDEX),
    };
    static constexpr RecordForm kForm{"PU_SERIAL_CONF_STRU", kFields, std::size(kFields),
                                      &MaskAt<&PU_SERIAL_CONF_STRU::stMask>};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_MOD_PASSWORD_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_MOD_PASSWORD_STRU::strUserName>("UserName", "at the device").Range(1, 63).Required(),
        Field<&PU_MOD_PASSWORD_STRU::strOldPassword>("OldPassword", "that is in force").Range(0, 255).Secret(),
        Field<&PU_MOD_PASSWORD_STRU::strNewPassword>("NewPassword", "that comes into force")
            .Range(1, 255)
            .Secret()
            .Required(),
    };
    static constexpr RecordForm kForm{"PU_MOD_PASSWORD_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MOD_WEB_PASSWORD_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&MOD_WEB_PASSWORD_STRU::strUserName>("UserName", "at the web page").Range(1, 63).Required(),
        Field<&MOD_WEB_PASSWORD_STRU::strOldPassword>("OldPassword", "that is in force").Range(0, 255).Secret(),
        Field<&MOD_WEB_PASSWORD_STRU::strNewPassword>("NewPassword", "that comes into force")
            .Range(1, 255)
            .Secret()
            .Required(),
    };
    static constexpr RecordForm kForm{"MOD_WEB_PASSWORD_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<DEV_8021X_CONF_STRU>() {
    static constexpr FieldForm kFields[] = {
        Field<&DEV_8021X_CONF_STRU::bEnable>("Enable", "ask for admission").Required(),
        Field<&DEV_8021X_CONF_STRU::eEapType>("EapType", "method").Names(kEapTypes),
        Field<&DEV_8021X_CONF_STRU::uiEapolVersion>("EapolVersion", "of the protocol").Range(1, 2),
        Field<&DEV_8021X_CONF_STRU::strUserName>("UserName", "identity").Range(0, 63),
        Field<&DEV_8021X_CONF_STRU::strPassword>("Password", "of that identity").Range(0, 255).Secret(),
    };
    static constexpr RecordForm kForm{"DEV_8021X_CONF_STRU", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<UPGRADE_PARAM>() {
    static constexpr FieldForm kFields[] = {
        Field<&UPGRADE_PARAM::strUrl>("Url", "where the file is: ftp, sftp, http or https").Range(1, 511).Required(),
        Field<&UPGRADE_PARAM::strUserName>("UserName", "at that server").Range(0, 63),
        Field<&UPGRADE_PARAM::strPassword>("Password", "at that server").Range(0, 255).Secret(),
        Field<&UPGRADE_PARAM::strVersion>("Version", "that the file holds").Range(0, 63),
        Field<&UPGRADE_PARAM::strSha256>("Sha256", "of the file; empty: not checked").Range(0, 64).As(TextRule::Hex),
        Field<&UPGRADE_PARAM::ullFileBytes>("FileBytes", "length of the file; 0 not known"),
    };
    static constexpr RecordForm kForm{"UPGRADE_PARAM", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PU_GVX_LOG_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&PU_GVX_LOG_INFO::strStartTime>("StartTime", "empty: from the first line")
            .Range(0, 14)
            .As(TextRule::Time),
        Field<&PU_GVX_LOG_INFO::strEndTime>("EndTime", "empty: to the last line").Range(0, 14).As(TextRule::Time),
        Field<&PU_GVX_LOG_INFO::nLogType>("LogType", "which lines").Names(kLogTypes),
        Field<&PU_GVX_LOG_INFO::uiMaxCount>("MaxCount", "lines at most").Range(1, 10000),
    };
    static constexpr RecordForm kForm{"PU_GVX_LOG_INFO", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<VALIDATE_DEVICE_INFO>() {
    static constexpr FieldForm kFields[] = {
        Field<&VALIDATE_DEVICE_INFO::strIP>("IP", "address or name of the device").Range(1, 256).Required(),
        Field<&VALIDATE_DEVICE_INFO::usPort>("Port", "of the device"),
        Field<&VALIDATE_DEVICE_INFO::strUserName>("UserName", "at the device").Range(0, 256),
        Field<&VALIDATE_DEVICE_INFO::strPassword>("Password", "at the device").Range(0, 256).Secret(),
        Field<&VALIDATE_DEVICE_INFO::strExtend>("Extend", "text for the plug-in alone").Range(0, 2047),
        Field<&VALIDATE_DEVICE_INFO::eDevFormType>("FormType", "form of the device").Names(kDevForms).AnswerOnly(),
        Field<&VALIDATE_DEVICE_INFO::strModel>("Model", "of the device").AnswerOnly(),
        Field<&VALIDATE_DEVICE_INFO::strFirmware>("Firmware", "its version").AnswerOnly(),
        Field<&VALIDATE_DEVICE_INFO::strSerialNumber>("SerialNumber", "of the device").AnswerOnly(),
        Field<&VALIDATE_DEVICE_INFO::uiChannelNum>("ChannelNum", "how many channels it has").AnswerOnly(),
    };
    static constexpr RecordForm kForm{"VALIDATE_DEVICE_INFO", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_DEVICE_CONFIG_REQ>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_DEVICE_CONFIG_REQ::strName>("Name", "of the device"),
        Field<&MSG_DEVICE_CONFIG_REQ::uiExpiration>("Expiration", "seconds that a registration lasts")
            .Range(60, 604800),
        Field<&MSG_DEVICE_CONFIG_REQ::uiHeartBeatInterval>("HeartBeatInterval", "seconds between two heartbeats")
            .Range(5, 3600),
        Field<&MSG_DEVICE_CONFIG_REQ::uiHeartBeatCount>("HeartBeatCount", "heartbeats that may be missed")
            .Range(1, 255),
    };
    static constexpr RecordForm kForm{"MSG_DEVICE_CONFIG_REQ", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<MSG_DEVICE_CONFIG_GET_RSP>() {
    static constexpr FieldForm kFields[] = {
        Field<&MSG_DEVICE_CONFIG_GET_RSP::strName>("Name", "of the device"),
        Field<&MSG_DEVICE_CONFIG_GET_RSP::uiExpiration>("Expiration", "seconds that a registration lasts"),
        Field<&MSG_DEVICE_CONFIG_GET_RSP::uiHeartBeatInterval>("HeartBeatInterval", "seconds between two heartbeats"),
        Field<&MSG_DEVICE_CONFIG_GET_RSP::uiHeartBeatCount>("HeartBeatCount", "heartbeats that may be missed"),
        Field<&MSG_DEVICE_CONFIG_GET_RSP::nPositionCapability>("PositionCapability", "how the device finds its place")
            .Names(kPositionCapabilities),
        Field<&MSG_DEVICE_CONFIG_GET_RSP::dLongitude>("Longitude", "degrees, east positive").Real(-180, 180),
        Field<&MSG_DEVICE_CONFIG_GET_RSP::dLatitude>("Latitude", "degrees, north positive").Real(-90, 90),
    };
    static constexpr RecordForm kForm{"MSG_DEVICE_CONFIG_GET_RSP", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<_VIDEO_CHANNEL_CODE_RELATION>() {
    static constexpr FieldForm kFields[] = {
        Field<&_VIDEO_CHANNEL_CODE_RELATION::uiChannel>("Channel", "from 0").Range(0, 32767).Required(),
        Field<&_VIDEO_CHANNEL_CODE_RELATION::strLensCode>("LensCode", "the platform's")
            .Range(1, 32)
            .As(TextRule::Code)
            .Required(),
        Field<&_VIDEO_CHANNEL_CODE_RELATION::strName>("Name", "of the channel"),
    };
    static constexpr RecordForm kForm{"_VIDEO_CHANNEL_CODE_RELATION", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<ChannelRelations>() {
    static constexpr FieldForm kFields[] = {
        Field<&ChannelRelations::channels>("Channels", "one for each channel").Required(),
    };
    static constexpr RecordForm kForm{"ChannelRelations", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<CExtDevInfo>() {
    static constexpr FieldForm kFields[] = {
        Field<&CExtDevInfo::strCode>("Code", "the platform's").Range(1, 32).As(TextRule::Code).Required(),
        Field<&CExtDevInfo::strParentCode>("ParentCode", "of the device that it hangs behind")
            .Range(0, 32)
            .As(TextRule::Code),
        Field<&CExtDevInfo::strExternCode>("ExternCode", "what the external system calls it"),
        Field<&CExtDevInfo::strName>("Name", "for people"),
        Field<&CExtDevInfo::eType>("Type", "what it is").Names(kExternTypes),
        Field<&CExtDevInfo::uiChannel>("Channel", "on that device, from 0").Range(0, 32767),
        Field<&CExtDevInfo::eStatus>("Status", "whether it can be reached").Names(kDevStatuses),
    };
    static constexpr RecordForm kForm{"CExtDevInfo", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<ExternDevices>() {
    static constexpr FieldForm kFields[] = {
        Field<&ExternDevices::cameras>("Cameras", "of the system"),
        Field<&ExternDevices::alarmInputs>("AlarmInputs", "of the system"),
        Field<&ExternDevices::alarmOutputs>("AlarmOutputs", "of the system"),
    };
    static constexpr RecordForm kForm{"ExternDevices", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<ExternDevCode>() {
    static constexpr FieldForm kFields[] = {
        Field<&ExternDevCode::strCode>("Code", "of the device that goes").Range(1, 32).As(TextRule::Code).Required(),
    };
    static constexpr RecordForm kForm{"ExternDevCode", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<CommunityArguments>() {
    static constexpr FieldForm kFields[] = {
        Field<&CommunityArguments::strCommunityID>("CommunityID", "of those that work together")
            .Range(1, 63)
            .As(TextRule::Code)
            .Required(),
        Field<&CommunityArguments::strIpcCode>("IpcCode", "of the other camera").Range(0, 32).As(TextRule::Code),
    };
    static constexpr RecordForm kForm{"CommunityArguments", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<PositionSubscription>() {
    static constexpr FieldForm kFields[] = {
        Field<&PositionSubscription::uiSequence>("Sequence", "number of the subscription"),
        Field<&PositionSubscription::strDeviceID>("DeviceID", "whose position; empty: the device's")
            .Range(0, 32)
            .As(TextRule::Code),
        Field<&PositionSubscription::strSubscriber>("Subscriber", "who asks").Range(0, 32).As(TextRule::Code),
        Field<&PositionSubscription::uiInterval>("Interval", "seconds between two reports").Range(1, 86400),
        Field<&PositionSubscription::strStartTime>("StartTime", "empty: at once").Range(0, 14).As(TextRule::Time),
        Field<&PositionSubscription::strEndTime>("EndTime", "empty: until further notice")
            .Range(0, 14)
            .As(TextRule::Time),
    };
    static constexpr RecordForm kForm{"PositionSubscription", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<JsonMessage>() {
    static constexpr FieldForm kFields[] = {
        Field<&JsonMessage::strMethod>("Method", "what the device is to do").Range(1, 127).Required(),
        Field<&JsonMessage::body>("Body", "the message"),
    };
    static constexpr RecordForm kForm{"JsonMessage", kFields, std::size(kFields)};
    return kForm;
}

template <>
const RecordForm& FormOf<JsonAnswer>() {
    static constexpr FieldForm kFields[] = {
        Field<&JsonAnswer::body>("Body", "the device's answer; a text where it is no JSON"),
    };
    static constexpr RecordForm kForm{"JsonAnswer", kFields, std::size(kFields)};
    return kForm;
}

}  // namespace gvx
