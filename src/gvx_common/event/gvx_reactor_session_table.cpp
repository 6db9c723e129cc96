#include "gvx_common/event/gvx_reactor_session_table.h"

#include "bp/cmd.h"
#include "nss/nss_msg_type.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace {

constexpr std::uint32_t kDeviceManage[] = {
    NSS_ADD_MAIN_DEV_REQ,
    NSS_MOD_MAIN_DEV_REQ,
    NSS_DEL_MAIN_DEV_REQ,
    NSS_SEND_DEVICE_REQ,
    NSS_DEV_STATUS_REPORT_RSP,
    NSS_MAIN_DEV_ABILITY_NOTIFY_RSP,
    NSS_DEVICE_REBOOT_REQ,
    NSS_START_SEARCH_DEVICE_REQ,
    NSS_STOP_SEARCH_DEVICE_REQ,
    NSS_VALIDATE_DEVICE_REQ,
    NSS_ADD_EXTERN_SYS_NOTIFY_REQ,
    NSS_MODIFY_EXTERN_SYS_NOTIFY_REQ,
    NSS_DELETE_EXTERN_SYS_NOTIFY_REQ,
    NSS_ADD_EXTERN_DEV_NOTIFY_REQ,
    NSS_MODIFY_EXTERN_DEV_NOTIFY_REQ,
    NSS_DELETE_EXTERN_DEV_NOTIFY_REQ,
    NSS_EXTERN_DEVICE_REPORT_REQ,
    NSS_SEND_EXTERN_DEVICE_REQ,
    NSS_ADD_EXTERN_DEV_LIST_NOTIFY_REQ,
    NSS_CLUSTER_FIND_MAIN_DEV_BATCH_RSP,
    NSS_VIDEO_ABILITY_NOTIFY_RSP,
    NSS_DVR_VIDEO_CHANNEL_SYNC_REQ,
    NSS_CLUSTER_DISABLE_CG_REQ,
    NSS_CLUSTER_SET_CG_REQ,
    NSS_QUERY_GVX_TYPE_RSP,
    GVX_INTERNAL_REQ_DELETE,
    GVX_INTERNAL_REQ_PLUGIN_CALL,
};
static_assert(std::size(kDeviceManage) == 27);

constexpr std::uint32_t kDeviceConfig[] = {
    NSS_SET_LINKAGE_SWITCH_REQ,
    NSS_SET_DEV_TIME_CFG_REQ,
    NSS_GET_DEV_TIME_CFG_REQ,
    NSS_SET_DEV_NET_CFG_REQ,
    NSS_GET_DEV_NET_CFG_REQ,
    NSS_CONF_VOICE_CHAN_REQ,
    NSS_GET_VOICE_INFO_REQ,
    NSS_CONF_SERIAL_CHAN_REQ,
    NSS_GET_SERIAL_INFO_REQ,
    NSS_SET_CAMERA_STREAM_CFG_REQ,
    NSS_GET_CAMERA_STREAM_CFG_REQ,
    NSS_SET_IMAGING_PARA_REQ,
    NSS_GET_BASIC_IMAGING_PARA_REQ,
    NSS_SET_EXTENDED_IMAGING_PARA_REQ,
    NSS_GET_EXTENDED_IMAGING_PARA_REQ,
    NSS_SET_OSD_PARA_REQ,
    NSS_GET_MULTY_OSD_PARA_REQ,
    NSS_GET_DEV_LOG_REQ,
    NSS_SET_WATERMARK_REQ,
    NSS_DEV_UPGRADE_REQ,
    NSS_SET_DEV_PWD_REQ,
    NSS_EXPORT_DEV_CFG_FILE_REQ,
    NSS_SET_FEC_PARA_REQ,
    NSS_GET_FEC_PARA_REQ,
    NSS_GET_CAMERA_ENCODE_CAPABILITIES_REQ,
    NSS_SET_CACHERECORD_REQ,
    NSS_GET_VISUAL_AREA_INFO_REQ,
    NSS_SET_VISUAL_AREA_INFO_REQ,
    NSS_DEVICE_CONFIG_REQ,
    NSS_CONFIG_DOWNLOAD_REQ,
    NSS_MODIFY_GB35114_CONF_REQ,
    NSS_SET_DEV_TRANSPARENT_PARAMETER_REQ,
    NSS_NOTIFY_LINK_PORT_TO_GVX_RSP,
    NSS_IPC_TASK_SEND_REQ,
    NSS_GET_DEVICE_ABILITY_REQ,
    NSS_ADD_IPC_COORDINATE_COMMUNITY_REQ,
    NSS_DEL_IPC_COORDINATE_COMMUNITY_REQ,
    NSS_EXDOMAIN_SET_OSD_PARA_REQ,
    NSS_EXDOMAIN_GET_OSD_PARA_REQ,
    NSS_DEVICE_REQUEST_SEND_REQ,
    NSS_DEVICE_FUNC_GVX_REQ,
    NSS_SET_GVX_PLUGIN_CONFIG_REQ,
    NSS_BATCH_MOD_DEV_WEB_PWD_REQ,
    NSS_BATCH_SET_DEV_8021X_REQ,
    NSS_BATCH_GET_DEV_8021X_REQ,
};
static_assert(std::size(kDeviceConfig) == 45);

constexpr std::uint32_t kDeviceStream[] = {
    NSS_START_STREAM_REQ, NSS_START_STREAM_ACK, NSS_STOP_STREAM_REQ, NSS_GET_IFRAME_REQ, NSS_STREAM_CTRL_REQ,
};
static_assert(std::size(kDeviceStream) == 5);

constexpr std::uint32_t kDeviceAlarm[] = {
    NSS_FIX_MANUAL_TRACE_REQ,
    NSS_FIX_MANUAL_POS_REQ,
    NSS_PANORAMIC_MANUAL_TRACE_REQ,
    NSS_PANORAMIC_MANUAL_POS_REQ,
    NSS_CONF_ALARM_IN_CHAN_REQ,
    NSS_GET_ALARM_IN_INFO_REQ,
    NSS_CONF_ALARM_OUT_CHAN_REQ,
    NSS_GET_ALARM_OUT_INFO_REQ,
    NSS_ADD_ALARM_LINKAGE_REQ,
    NSS_SET_AUTO_TRACE_PARAM_REQ,
    NSS_GUARD_SET_REQ,
    NSS_SET_MOTION_DETECTION_ALARM_REQ,
    NSS_SET_HIDE_ALARM_REQ,
    NSS_GET_HIDE_ALARM_REQ,
    NSS_SET_VIDEO_MASK_PARA_REQ,
    NSS_GET_VIDEO_MASK_PARA_REQ,
    NSS_GET_MOTION_DETECTION_ALARM_REQ,
    NSS_SET_ALARM_OUT_STATE_REQ,
    NSS_SET_PU_CAMERA_RULE_REQ,
    NSS_GET_PU_CAMERA_RULE_REQ,
    GVX_INTERNAL_REQ_ALARM_CONTROL,
    NSS_ADD_GVX_ALARM_TYPE_REPORT_RSP,
    NSS_SET_AUDIO_ALARM_PARA_REQ,
    NSS_GET_AUDIO_ALARM_PARA_REQ,
    NSS_SET_VIDEO_TRAPEZIFORM_MASK_PARA_REQ,
    NSS_GET_VIDEO_TRAPEZIFORM_MASK_PARA_REQ,
    NSS_MOBILE_POSITION_SUBSCRIBE_REQ,
    NSS_ALARM_CONTRON_REQ,
    NSS_ALARM_CONTRON_RSP,
};
static_assert(std::size(kDeviceAlarm) == 29);

constexpr std::uint32_t kGvxOmu[] = {
    NSS_CREATE_TRACE_REQ, NSS_CLOSE_TRACE_REQ,      NSS_LOCALCFG_IPCHANGE_REQ,     NSS_CONFIG_QUERY_REQ,
    NSS_CONFIG_EDIT_REQ,  NSS_SET_LOG_LEVEL_REQ,    NSS_PERFORMACE_NEXT_QUERY_REQ, NSS_START_IPCA_REQ,
    NSS_STOP_IPCA_REQ,    NSS_GET_GB35114_CONF_RSP,
};
static_assert(std::size(kGvxOmu) == 10);

constexpr std::uint32_t kDevicePtz[] = {
    NSS_SET_PTZ_PARA_REQ,
    NSS_GET_PTZ_PARA_REQ,
    NSS_PTZ_CONTROL_REQ,
    NSS_SET_PRESET_REQ,
    NSS_GET_PRESET_REQ,
    NSS_DEL_PRESET_REQ,
    NSS_SET_GUARD_POSITION_REQ,
    NSS_GET_GUARD_POSITION_REQ,
    NSS_GET_GUARD_INFO_RSP,
    NSS_SET_CRUISE_TRACK_REQ,
    NSS_GET_CRUISE_TRACK_REQ,
    NSS_DEL_CRUISE_TRACK_REQ,
    NSS_PTZ_SET_AUTOSCAN_BOUNDARY_REQ,
    NSS_GET_PTZ_ABS_POSITION_REQ,
};
static_assert(std::size(kDevicePtz) == 14);

constexpr std::uint32_t kDeviceRecord[] = {
    NSS_ADD_RECORD_PLAN_REQ,
    NSS_GET_RECORD_PLAN_REQ,
    NSS_START_RECORD_REQ,
    NSS_STOP_RECORD_REQ,
    NSS_GET_RECORD_LIST_REQ,
    NSS_GET_RECORD_STATE_REQ,
    NSS_ADD_SNAPSHOT_PLAN_REQ,
    NSS_GET_SNAPSHOT_PLAN_REQ,
    NSS_SNAPSHOT_REQ,
    NSS_SNAPSHOT_RSP,
    NSS_GET_UPLOAD_IMAGE_URL_REQ,
    NSS_GET_UPLOAD_IMAGE_URL_RSP,
    NSS_IMAGE_UPLOAD_COMPLETE_REQ,
    NSS_IMAGE_UPLOAD_COMPLETE_RSP,
    NSS_SET_LAYER_CODE_REQ,
    NSS_GET_RECORD_TASK_REQ,
    NSS_GET_FILE_UPLOAD_URL_RSP,
    NSS_SET_RECORD_STREAM_REQ,
};
static_assert(std::size(kDeviceRecord) == 18);

struct Row {
    std::uint32_t reqID = 0;
    BP::SessionKind kind = BP::SessionKind::DeviceManage;
};

constexpr std::size_t kRows = std::size(kDeviceManage) + std::size(kDeviceConfig) + std::size(kDeviceStream) +
                              std::size(kDeviceAlarm) + std::size(kGvxOmu) + std::size(kDevicePtz) +
                              std::size(kDeviceRecord);

template <std::size_t N>
constexpr std::size_t Append(std::array<Row, kRows>& rows, std::size_t count, const std::uint32_t (&list)[N],
                             BP::SessionKind kind) {
    for (const std::uint32_t reqID : list) {
        rows[count++] = Row{reqID, kind};
    }
    return count;
}

// The lists in one, sorted by number.
constexpr std::array<Row, kRows> MakeTable() {
    std::array<Row, kRows> rows{};
    std::size_t count = 0;
    count = Append(rows, count, kDeviceManage, BP::SessionKind::DeviceManage);
    count = Append(rows, count, kDeviceConfig, BP::SessionKind::DeviceConfig);
    count = Append(rows, count, kDeviceStream, BP::SessionKind::DeviceStream);
    count = Append(rows, count, kDeviceAlarm, BP::SessionKind::DeviceAlarm);
    count = Append(rows, count, kGvxOmu, BP::SessionKind::GvxOmu);
    count = Append(rows, count, kDevicePtz, BP::SessionKind::DevicePtz);
    count = Append(rows, count, kDeviceRecord, BP::SessionKind::DeviceRecord);
    for (std::size_t i = 1; i < count; ++i) {
        const Row row = rows[i];
        std::size_t j = i;
        for (; j > 0 && rows[j - 1].reqID > row.reqID; --j) {
            rows[j] = rows[j - 1];
        }
        rows[j] = row;
    }
    return rows;
}

constexpr std::array<Row, kRows> kTable = MakeTable();

constexpr bool AllDifferent() {
    for (std::size_t i = 1; i < kRows; ++i) {
        if (kTable[i - 1].reqID == kTable[i].reqID) {
            return false;
        }
    }
    return true;
}
static_assert(kRows == 148 && AllDifferent(), "a request type is served by one session class");

}  // namespace

std::optional<BP::SessionKind> FindSessionKind(std::uint32_t reqID) noexcept {
    const auto row = std::lower_bound(kTable.begin(), kTable.end(), reqID,
                                      [](const Row& left, std::uint32_t right) { return left.reqID < right; });
    if (row == kTable.end() || row->reqID != reqID) {
        return std::nullopt;
    }
    return row->kind;
}
