#pragma once

namespace gvx {

struct UnifiedConfigRow {
    const char* section;
    const char* key;
};

// The settings that the operation and maintenance unit may read, and the section in which each stands.
constexpr UnifiedConfigRow g_omuUnifiedConfigRelationTable[] = {
    {"SERVICE_CAPACITY", "MAX_CAPS"},
    {"SERVICE_CAPACITY", "BAND_WIDTH"},
    {"SERVICE_CAPACITY", "IS_SUPPORT_VSP"},
    {"SERVICE_CAPACITY", "REPORT_CAMERA_NAME"},
    {"MEDIA", "GVX_MEDIA_IP"},
    {"MESSAGE", "GVX_MESSAGE_IP"},
    {"SIF_CFG", "GVX_SIP_SERVER_PORT"},
    {"SIF_CFG", "SIP_QUEUE_SIZE"},
    {"SIF_CFG", "GVX_SIP_LOG_SWITCH"},
    {"SIF_CFG", "SUPPORT_AREA_TYPE"},
    {"SIF_CFG", "T28181_VIDEO_FORMAT_ABILITY"},
    {"ALARM_CFG", "ALARM_KEEP_TIME"},
    {"SECURITY_CFG", "EXTSYSTEM_HONEYWELL_ENABLE"},
    {"SECURITY_CFG", "EXTSYSTEM_CONGWEN_ENABLE"},
    {"SECURITY_CFG", "EXTSYSTEM_BOSCH_ENABLE"},
    {"SECURITY_CFG", "EXTSYSTEM_SIEMENS_ENABLE"},
    {"SECURITY_CFG", "DEVICE_VSP_ENABLE"},
    {"SECURITY_CFG", "DEVICE_VSP_IP_WHITELIST"},
    {"SECURITY_CFG", "EXTSYSTEM_CONGWEN_IP_WHITELIST"},
    {"TIME_SYNCHRONIZATION", "GVX_SDK_SYNC_TIME_SWITCH"},
    {"TIME_SYNCHRONIZATION", "GVX_SDK_SYNC_TIME_INTERVAL"},
};

}  // namespace gvx
