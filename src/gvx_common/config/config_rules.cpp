#include "gvx_common/config/config_rules.h"

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

}  // namespace gvx
