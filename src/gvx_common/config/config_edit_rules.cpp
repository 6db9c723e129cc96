#include "gvx_common/config/config_rules.h"

#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace gvx {
namespace {

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

}  // namespace gvx
