#include "gvx_common/config/config_rules.h"

#include "base/redact.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace gvx {
namespace {

constexpr std::string_view kAddressKeys[] = {
    "GVX_MESSAGE_IP", "GVX_MEDIA_IP", "ONVIF_LOCAL_IP", "ONVIF_MEDIA_IP", "SeverIP",
};

constexpr std::string_view kDigitKeys[] = {
    "ALARM_INFO_LIFECYCLE",
    "ALARM_RESERVE_TIME",
    "TRACE_KEEP_TIME",
    "MSG_QUEUE_LIFECYCLE",
    "SIP_QUEUE_SIZE",
    "GVX_SIP_HEARTBEAT_TIME",
    "ONVIF_SERVICE_CAPACITY",
    "ONVIF_DETECT_CAPACITY",
    "ONVIF_DETECT_PERIOD",
    "ONVIF_ALARM_RENEW",
    "ONVIF_ALARM_DURATION",
    "ONVIF_PULLPOINT_PERIOD",
    "ONVIF_ALARM_LISTENER_PORT",
    "LogFileSize",
    "LogBackupCount",
    "LogLevel",
    "securityLogFileSize",
    "securityLogBackupCount",
    "securityLogLevel",
    "operationLogFileSize",
    "operationLogBackupCount",
    "operationLogLevel",
    "runLogFileSize",
    "runLogBackupCount",
    "runLogLevel",
    "userLogFileSize",
    "userLogBackupCount",
    "userLogLevel",
    "debugLogFileSize",
    "debugLogBackupCount",
    "DebugLogSwitch",
    "UploadLogSwitch",
    "GVX_TRACE_LOG_SIZE",
    "GVX_TRACE_LOG_COUNT",
    "NODE_CODE",
    "SCU_SIP_PORT",
    "CONGWEN_LIMIT",
    "SOCKET_BUFFER_SIZE",
};
static_assert(std::size(kDigitKeys) == 38);

struct RangeRule {
    std::string_view key;
    int low;
    int high;
    const char* offered;
};

// An edit at run time may be held to a narrower range than a file.
constexpr RangeRule kRangeRules[] = {
    {"MAX_CAPS", 1, 300, "128"},
    {"BAND_WIDTH", 100, 600, "256"},
    {"GVX_SIP_SERVER_PORT", 1, 65535, "5080"},
    {"ALARM_KEEP_TIME", 60, 3600, "1800"},
    {"GVX_SDK_SYNC_TIME_INTERVAL", 3600, 86400, "3600"},
    {"GB35114_DATE_INTERNAL", 5, 3600, "600"},
    {"SUPPORT_AREA_TYPE", 0, 3, "0"},
};

constexpr std::string_view kVideoFormatKey = "T28181_VIDEO_FORMAT_ABILITY";
constexpr int kVideoFormats[] = {0, 2, 5};

constexpr std::string_view kSwitchKeys[] = {
    "GVX_SDK_SYNC_TIME_SWITCH",
    "GVX_SIP_LOG_SWITCH",
    "GVX_HIKSDK_LOG_SWITCH",
    "GVX_DHSDK_LOG_SWITCH",
    "DEVICE_VSP_ENABLE",
    "EXTSYSTEM_BOSCH_ENABLE",
    "EXTSYSTEM_CONGWEN_ENABLE",
    "EXTSYSTEM_HONEYWELL_ENABLE",
    "EXTSYSTEM_SIEMENS_ENABLE",
    "IS_SUPPORT_VSP",
    "MOTION_DETECTION_ALARM_SWITCH",
    "REPORT_CAMERA_NAME",
    "TV_INIT_FORBID_RSA_SWITCH",
};
static_assert(std::size(kSwitchKeys) == 13);

template <typename List, typename Item>
bool Holds(const List& list, const Item& item) {
    return std::find(std::begin(list), std::end(list), item) != std::end(list);
}

bool OfferUnless(bool legal, std::string& value, const char* offered) {
    if (!legal) {
        value = offered;
    }
    return legal;
}

// Sets known when the key is one of the identity strings.
bool CheckIdentity(const std::string& key, const std::string& value, bool& known) {
    known = true;
    if (key == "GB35114_SECURITY_LEVEL") {
        return CGvxUtility::Check35114Level(value, 1);
    }
    if (key == "GB35114_KEYLABEL") {
        return CGvxUtility::CheckKeyLabel(value, 3, 32);
    }
    if (key == "GB35114_SERVER_ID" || key == "GVX_SIP_SERVER_ID") {
        return CGvxUtility::CheckServerID(value, 20);
    }
    known = false;
    return false;
}

enum class EditRule { Address, Range, VideoFormat, SecurityLevel, KeyLabel, ServerID, Any };

struct EditRow {
    std::string_view key;
    EditRule rule;
    int low = 0;  // of Range, both ends included
    int high = 0;
};

constexpr EditRow Switch(std::string_view key) {
    return EditRow{key, EditRule::Range, 0, 1};
}

constexpr EditRow kEditRows[] = {
    {"GVX_MESSAGE_IP", EditRule::Address},
    {"GVX_MEDIA_IP", EditRule::Address},
    {"MAX_CAPS", EditRule::Range, 1, 150},
    {"BAND_WIDTH", EditRule::Range, 100, 300},
    {"GVX_SIP_SERVER_PORT", EditRule::Range, 1, 65535},
    {"SIP_QUEUE_SIZE", EditRule::Range, 1000, 65535},
    Switch("GVX_SIP_LOG_SWITCH"),
    {"ALARM_KEEP_TIME", EditRule::Range, 60, 3600},
    Switch("IS_SUPPORT_VSP"),
    Switch("REPORT_CAMERA_NAME"),
    Switch("GVX_SDK_SYNC_TIME_SWITCH"),
    {"GVX_SDK_SYNC_TIME_INTERVAL", EditRule::Range, 3600, 86400},
    Switch("MOTION_DETECTION_ALARM_SWITCH"),
    Switch("DI_ALARM_SWITCH"),
    {"GB35114_SECURITY_LEVEL", EditRule::SecurityLevel},
    Switch("ARTIFICIAL_VIDEO_ALARM_SWITCH"),
    {"GB35114_KEYLABEL", EditRule::KeyLabel},
    {"GB35114_DATE_INTERNAL", EditRule::Range, 5, 3600},
    {"SUBNET_NAT_IP_LIST", EditRule::Any},  // checked when it is parsed
    {"GB35114_SERVER_ID", EditRule::ServerID},
    Switch("GVX_DHSDK_LOG_SWITCH"),
    Switch("GVX_HIKSDK_LOG_SWITCH"),
    Switch("GVX_PLUGIN_DEBUG_LOG_SWITCH"),
    {"SUPPORT_AREA_TYPE", EditRule::Range, 0, 3},
    {"T28181_VIDEO_FORMAT_ABILITY", EditRule::VideoFormat},
    {"GVX_MEDIA_SEND_TCP", EditRule::Any},
    {"GVX_MEDIA_SEND_UDP", EditRule::Any},
    Switch("TV_INIT_FORBID_RSA_SWITCH"),
    {"T28181_DIGEST_ALGORITHM", EditRule::Any},
    {"GVX_SIP_SERVER_ID", EditRule::ServerID},
};

bool Passes(const EditRow& row, const std::string& value) {
    const int number = CGvxUtility::toInt(value);
    switch (row.rule) {
        case EditRule::Address:
            return CGvxUtility::IsIPv4(value.c_str());
        case EditRule::Range:
            return number >= row.low && number <= row.high;
        case EditRule::VideoFormat:
            return number == 0 || number == 2 || number == 5;
        case EditRule::SecurityLevel:
            return CGvxUtility::Check35114Level(value, 1);
        case EditRule::KeyLabel:
            return CGvxUtility::CheckKeyLabel(value, 3, 32);
        case EditRule::ServerID:
            return CGvxUtility::CheckServerID(value, 20);
        case EditRule::Any:
            return true;
    }
    return false;
}

// Null for a key that may not be edited.
const EditRow* FindRow(const std::string& key) {
    const auto* row = std::find_if(std::begin(kEditRows), std::end(kEditRows),
                                   [&key](const EditRow& candidate) { return candidate.key == key; });
    return row != std::end(kEditRows) ? row : nullptr;
}

}  // namespace

bool CheckSetting(const std::string& key, std::string& value) {
    if (Holds(kAddressKeys, key)) {
        return CGvxUtility::IsIPv4(value.c_str());
    }
    if (Holds(kDigitKeys, key)) {
        return OfferUnless(CGvxUtility::isNum(value), value, "");
    }
    const auto* rule = std::find_if(std::begin(kRangeRules), std::end(kRangeRules),
                                    [&key](const RangeRule& candidate) { return candidate.key == key; });
    if (rule != std::end(kRangeRules)) {
        const int number = CGvxUtility::toInt(value);
        return OfferUnless(number >= rule->low && number <= rule->high, value, rule->offered);
    }
    if (key == kVideoFormatKey) {
        return OfferUnless(Holds(kVideoFormats, CGvxUtility::toInt(value)), value, "0");
    }
    if (Holds(kSwitchKeys, key)) {
        return OfferUnless(value == "0" || value == "1", value, "0");
    }
    bool known = false;
    const bool legal = CheckIdentity(key, value, known);
    return legal || !known;
}

bool CheckEdit(const std::string& key, const std::string& value) {
    const EditRow* row = FindRow(key);
    return row != nullptr && Passes(*row, value);
}

bool IsEditable(const std::string& key) {
    return FindRow(key) != nullptr;
}

bool ReadsBackEqual(const std::string& value) {
    return value.find(';') == std::string::npos && CGvxUtility::trim(value) == value;
}

bool IsSecretName(const std::string& name) {
    const std::string line = name + "=x";
    return RedactSecrets(line) != line;
}

const char* LoggableValue(const std::string& name, const char* value) {
    return IsSecretName(name) ? "***" : value;
}

}  // namespace gvx
