#pragma once

#include "gvx_common/adapter/gvx_adapter_dev.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"
#include "gvx_common/records/adapter_common_message.h"
#include "gvx_common/records/conf_item_mask.h"
#include "gvx_common/records/device_config_records.h"
#include "gvx_common/records/guard_records.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "gvx_common/records/gvx_discovery_records.h"
#include "gvx_common/records/gvx_metadata_records.h"
#include "gvx_common/records/intelligent_records.h"
#include "gvx_common/records/media_types.h"
#include "gvx_common/records/picture_records.h"
#include "gvx_common/records/ptz_records.h"
#include "gvx_common/records/recording_records.h"
#include "gvx_common/records/stream_param.h"

#include <cstddef>
#include <cstdint>

// What a plug-in was built against: the number of the interface, and the sizes of the classes and records that both
// sides use. A plug-in and the core that differ in one of them would write beside each other's members, so the gateway
// compares before it calls anything.

// Raised whenever an existing plug-in would have to be built anew although every size is the same: operations in
// another place, another meaning of a field.
#define GVX_PLUGIN_ABI_VERSION 2

// A class or record of the contract and its size in bytes, as one compilation saw it.
struct GvxTypeSize {
    const char* pName;
    std::uint32_t uiBytes;
};

// Its own layout stays as it is for all times, since it is read before anything is known of the other side.
struct GvxPluginLayout {
    std::uint32_t uiAbiVersion;  // GVX_PLUGIN_ABI_VERSION
    std::uint32_t uiTypes;       // entries of pTypes
    const GvxTypeSize* pTypes;   // static
};

// Every complete type that passes between core and plug-in. One that is added to the contract is added here.
#define GVX_PLUGIN_TYPES(TYPE)                 \
    TYPE(CAdapterSdkBase)                      \
    TYPE(CAdapterDevBase)                      \
    TYPE(CAdapterLensBase)                     \
    TYPE(CMediaChannel)                        \
    TYPE(CStreamParam)                         \
    TYPE(MEDIA_DATA)                           \
    TYPE(ADAPTER_COMMON_MESSAGE)               \
    TYPE(CDiscoveryDeviceInfo)                 \
    TYPE(DISCOVERY_IP_INFO)                    \
    TYPE(DeviceDiscoveryInfo)                  \
    TYPE(ITSPlates)                            \
    TYPE(ITSPlatesTrim)                        \
    TYPE(stFaceRects)                          \
    TYPE(CONF_ITEM_MASK_STRU)                  \
    TYPE(MainDeviceInfo)                       \
    TYPE(GVX_CHANNEL_ABILITY_INFO)             \
    TYPE(GVX_DEVICE_ABILITY_INFO)              \
    TYPE(LENS_ABILITY_INFO)                    \
    TYPE(PU_RECORD_STREAM_STRU)                \
    TYPE(STREAM_CONTROL_PARAM_S)               \
    TYPE(PU_SNAP_CONF_REQ)                     \
    TYPE(PU_TIME_CONF_STRU)                    \
    TYPE(PU_NET_CONF_STRU)                     \
    TYPE(UPGRADE_PARAM)                        \
    TYPE(PU_SERIAL_CONF_STRU)                  \
    TYPE(PU_MOD_PASSWORD_STRU)                 \
    TYPE(MOD_WEB_PASSWORD_STRU)                \
    TYPE(DEV_8021X_CONF_STRU)                  \
    TYPE(PU_GVX_LOG_INFO)                      \
    TYPE(VALIDATE_DEVICE_INFO)                 \
    TYPE(MSG_DEVICE_CONFIG_REQ)                \
    TYPE(MSG_DEVICE_CONFIG_GET_RSP)            \
    TYPE(_VIDEO_CHANNEL_CODE_RELATION)         \
    TYPE(CExtDevInfo)                          \
    TYPE(_PU_Guard_Time)                       \
    TYPE(_MOTION_DETECTION_ALARM_GUARD_TIME)   \
    TYPE(PU_ALARM_SWITCH_INFO)                 \
    TYPE(PU_ALARM_LINKAGE_INFO_STRU)           \
    TYPE(MSG_SET_MOTION_DETECTION_ALARM_REQ)   \
    TYPE(MSG_GET_MOTION_DETECTION_ALARM_REQ)   \
    TYPE(PU_HIDE_ALARM_CONF_STRU)              \
    TYPE(MSG_SET_AUDIO_ALARM_INFO)             \
    TYPE(MSG_GET_AUDIO_ALARM_INFO)             \
    TYPE(_AREA_INFO)                           \
    TYPE(PU_POINT_INFO)                        \
    TYPE(_AREA_INFO_EX)                        \
    TYPE(PU_STREAM_ATTRIBUTE)                  \
    TYPE(PU_CAMERA_STREAM_CONFIG)              \
    TYPE(PU_RESOLUTION)                        \
    TYPE(VIDEO_ENCODE_OPTION)                  \
    TYPE(VIDEO_ENCODE_OPTIONS)                 \
    TYPE(GVX_PU_AUDIO_INFO)                    \
    TYPE(PU_IMAGE_PARAM_CONFIG)                \
    TYPE(PU_EXTENDED_IMAGE_PARAM_CONFIG)       \
    TYPE(PU_OSD_TEXT)                          \
    TYPE(PU_OSD_CONF_STRU)                     \
    TYPE(PU_SET_VIDEO_MASK_STRU)               \
    TYPE(PU_GET_VIDEO_MASK_STRU)               \
    TYPE(PU_Fec_CONF_INFO)                     \
    TYPE(VisualAreaInfo)                       \
    TYPE(MSG_PTZ_PARAM)                        \
    TYPE(MSG_PTZ_CTRL_REQ)                     \
    TYPE(MSG_PTZ_SET_PRESET_REQ)               \
    TYPE(_MSG_PTZ_GET_PRESET_RSP)              \
    TYPE(MSG_PTZ_DEL_PRESET_REQ)               \
    TYPE(MSG_PTZ_SET_HOME_POSITION_REQ)        \
    TYPE(MSG_PTZ_GET_HOME_POSITION_RSP)        \
    TYPE(MSG_PTZ_GET_GUARD_INFO_RSP)           \
    TYPE(PTZ_CRUISE_POINT)                     \
    TYPE(PTZ_CRUISE_TRACK)                     \
    TYPE(MSG_PTZ_SET_CRUISE_TRACK_REQ)         \
    TYPE(MSG_PTZ_SET_CRUISE_TRACK_RSP)         \
    TYPE(MSG_PTZ_GET_CRUISE_TRACK_RSP)         \
    TYPE(MSG_PTZ_DEL_CRUISE_TRACK_REQ)         \
    TYPE(MSG_PTZ_ABS_POSITION_RSP)             \
    TYPE(PU_RECORD_PLAN_INFO)                  \
    TYPE(PU_RECORD_PLAN_MAP)                   \
    TYPE(PU_RECORD_START_STRU)                 \
    TYPE(PU_RECORD_STATE)                      \
    TYPE(GET_PU_RECORD_INFO)                   \
    TYPE(_GET_PU_RECORD_DATA_LIST)             \
    TYPE(PU_RECORD_LAYER_STRU)                 \
    TYPE(_PU_SNAP_SHOT_PLAN)                   \
    TYPE(PU_GET_SNAP_SHOT_PLAN)                \
    TYPE(PU_UPLOAD_IMAGE_RSP)                  \
    TYPE(PU_UPLOAD_IMAGE_COMP_REQ)             \
    TYPE(RULE_COMMON_PARAM_S)                  \
    TYPE(RULE_ALARM_PARAM)                     \
    TYPE(RULE_ALARM_PARAM_S)                   \
    TYPE(IPCA_RULE)                            \
    TYPE(AUTO_TRACE_PARAM_S)                   \
    TYPE(MASTER_SLAVE_TRACK_PARA)              \
    TYPE(MASTER_SLAVE_LOCATE_CONFIG)           \
    TYPE(MASTER_SLAVE_MANUAL_TRACK_PARA)       \
    TYPE(MASTER_SLAVE_LOCATE_PARA)             \
    TYPE(MASTER_SLAVE_CALIBRATION_STATUS_PARA) \
    TYPE(PU_NET_IN_CONTROL_INTELLITRACKER)     \
    TYPE(PU_NET_OUT_CONTROL_INTELLITRACKER)    \
    TYPE(PU_NET_IN_MSGROUP_RECTLOCATE_INFO)    \
    TYPE(PU_NET_OUT_MSGROUP_RECTLOCATE_INFO)   \
    TYPE(PU_NET_IN_MSGROUP_LOCATE_INFO)        \
    TYPE(PU_NET_OUT_MSGROUP_LOCATE_INTO)

namespace gvx {

// Each compilation has its own copy: nothing of another library may stand in for it.
#define GVX_SIZE_ENTRY(type) GvxTypeSize{#type, static_cast<std::uint32_t>(sizeof(type))},
constexpr GvxTypeSize kPluginTypes[] = {GVX_PLUGIN_TYPES(GVX_SIZE_ENTRY)};
#undef GVX_SIZE_ENTRY
constexpr GvxPluginLayout kPluginLayout{GVX_PLUGIN_ABI_VERSION, sizeof(kPluginTypes) / sizeof(kPluginTypes[0]),
                                        kPluginTypes};

// One number for all names and sizes of a layout (FNV-1a, 32 bits): equal layouts have equal numbers.
constexpr std::uint32_t LayoutNumber(const GvxPluginLayout& layout) {
    std::uint32_t number = 2166136261u;
    for (std::uint32_t i = 0; i < layout.uiTypes; ++i) {
        for (const char* c = layout.pTypes[i].pName; *c != '\0'; ++c) {
            number = (number ^ static_cast<unsigned char>(*c)) * 16777619u;
        }
        for (unsigned shift = 0; shift < 32; shift += 8) {
            number = (number ^ ((layout.pTypes[i].uiBytes >> shift) & 0xFFu)) * 16777619u;
        }
    }
    return number;
}

}  // namespace gvx

using GvxGetPluginLayoutFunc = const GvxPluginLayout* (*)();
#define GVX_PLUGIN_LAYOUT_SYMBOL "GvxGetPluginLayout"

// Exported by every plug-in that includes gvx_plugin.h, with nothing to be written by its author.
extern "C" __attribute__((visibility("default"), used)) inline const GvxPluginLayout* GvxGetPluginLayout() {
    return &gvx::kPluginLayout;
}
