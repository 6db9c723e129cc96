#include "gvx_common/alarm/gvx_alarm_dictionary.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "base/paths.h"
#include "bp/service.h"
#include "gvx_common/config/gvx_config_mgr.h"

#include <algorithm>
#include <iterator>

// clang-format off

constexpr GVX_ALARM_TYPE_ID gvxAlarmTypeAndID[kGvxAlarmTypes] = {
    {"ALARM_GVX_LOG_BCK_FAIL_ON", "308521802"},
    {"ALARM_GVX_LOG_BCK_FAIL_OFF", "308521802"},
    {"ALARM_GVX_LOG_RECORD_FAIL_ON", "308521803"},
    {"ALARM_GVX_LOG_RECORD_FAIL_OFF", "308521803"},
    {"ALARM_GVX_ALARM_RECORD_FAIL_ON", "308521804"},
    {"ALARM_GVX_ALARM_RECORD_FAIL_OFF", "308521804"},
    {"ALARM_GVX_CONFIG_READ_FAIL", "308521805"},
    {"ALARM_GVX_FLOW_CONTROL_ERROR_ON", "308521806"},
    {"ALARM_GVX_FLOW_CONTROL_ERROR_OFF", "308521806"},
    {"ALARM_GVX_SYS_PORT_CONFLICT", "308521807"},
    {"ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_ON", "308521809"},
    {"ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL_OFF", "308521809"},
    {"ALARM_IPC_SD_CARD_FAULT_ON", "308521901"},
    {"ALARM_IPC_SD_CARD_FAULT_OFF", "308521901"},
    {"ALARM_IPC_TEMPERATURE_ON", "308521907"},
    {"ALARM_IPC_TEMPERATURE_OFF", "308521907"},
    {"ALARM_IPC_CPU_HIGH_ON", "308521903"},
    {"ALARM_IPC_CPU_HIGH_OFF", "308521903"},
    {"ALARM_IPC_MEMORY_HIGH_ON", "308521904"},
    {"ALARM_IPC_MEMORY_HIGH_OFF", "308521904"},
    {"ALARM_IPC_TYPE_DI_ON", "308521909"},
    {"ALARM_IPC_TYPE_DI_OFF", "308521909"},
    {"ALARM_IPC_SHIELD_ON", "308521910"},
    {"ALARM_IPC_SHIELD_OFF", "308521910"},
    {"ALARM_IPC_IP_ADDRESS_CONFLICT_ON", "308521911"},
    {"ALARM_IPC_IP_ADDRESS_CONFLICT_OFF", "308521911"},
    {"ALARM_IPC_AUDIO_EXCEPTION_ON", "308521912"},
    {"ALARM_IPC_AUDIO_EXCEPTION_OFF", "308521912"},
    {"ALARM_IPC_FAN_PWR_BLOCKED_ON", "308521913"},
    {"ALARM_IPC_FAN_PWR_BLOCKED_OFF", "308521913"},
    {"ALARM_IPC_FAN_HEC_BLOCKED_ON", "308521914"},
    {"ALARM_IPC_FAN_HEC_BLOCKED_OFF", "308521914"},
    {"ALARM_IPC_SFP_TEMP_HIGH_ON", "308521915"},
    {"ALARM_IPC_SFP_TEMP_HIGH_OFF", "308521915"},
    {"ALARM_IPC_SFP_TEMP_LOW_ON", "308521916"},
    {"ALARM_IPC_SFP_TEMP_LOW_OFF", "308521916"},
    {"ALARM_IPC_SFP_VOL_HIGH_ON", "308521917"},
    {"ALARM_IPC_SFP_VOL_HIGH_OFF", "308521917"},
    {"ALARM_IPC_SFP_VOL_LOW_ON", "308521918"},
    {"ALARM_IPC_SFP_VOL_LOW_OFF", "308521918"},
    {"ALARM_IPC_SFP_BIAS_HIGH_ON", "308521919"},
    {"ALARM_IPC_SFP_BIAS_HIGH_OFF", "308521919"},
    {"ALARM_IPC_SFP_BIAS_LOW_ON", "308521920"},
    {"ALARM_IPC_SFP_BIAS_LOW_OFF", "308521920"},
    {"ALARM_IPC_SFP_TX_PWR_HIGH_ON", "308521921"},
    {"ALARM_IPC_SFP_TX_PWR_HIGH_OFF", "308521921"},
    {"ALARM_IPC_SFP_TX_PWR_LOW_ON", "308521922"},
    {"ALARM_IPC_SFP_TX_PWR_LOW_OFF", "308521922"},
    {"ALARM_IPC_SFP_RX_PWR_HIGH_ON", "308521923"},
    {"ALARM_IPC_SFP_RX_PWR_HIGH_OFF", "308521923"},
    {"ALARM_IPC_SFP_RX_PWR_LOW_ON", "308521924"},
    {"ALARM_IPC_SFP_RX_PWR_LOW_OFF", "308521924"},
    {"ALARM_IPC_SFP_LASER_TEMP_HIGH_ON", "308521925"},
    {"ALARM_IPC_SFP_LASER_TEMP_HIGH_OFF", "308521925"},
    {"ALARM_IPC_SFP_LASER_TEMP_LOW_ON", "308521926"},
    {"ALARM_IPC_SFP_LASER_TEMP_LOW_OFF", "308521926"},
    {"ALARM_IPC_SFP_TEC_CURRENT_HIGH_ON", "308521927"},
    {"ALARM_IPC_SFP_TEC_CURRENT_HIGH_OFF", "308521927"},
    {"ALARM_IPC_SFP_TEC_CURRENT_LOW_ON", "308521928"},
    {"ALARM_IPC_SFP_TEC_CURRENT_LOW_OFF", "308521928"},
    {"ALARM_IPC_DISK_FULL_ON", "308521929"},
    {"ALARM_IPC_DISK_FULL_OFF", "308521929"},
    {"ALARM_IPC_NETWORK_INTERRUPT_ON", "308521930"},
    {"ALARM_IPC_NETWORK_INTERRUPT_OFF", "308521930"},
    {"ALARM_DEVICE_REMOVE", "308521931"},
    {"ALARM_IPC_LOW_TEMPERATURE_ON", "308521933"},
    {"ALARM_STORAGE_DEVICE_FAN_FAULT_ON", "308521934"},
    {"ALARM_IPC_PROFILE_ABNORMAL_ON", "308521937"},
    {"ALARM_DVR_DISK_FULL_ON", "308522001"},
    {"ALARM_DVR_DISK_FULL_OFF", "308522001"},
    {"ALARM_DVR_DISK_FAULT_ON", "308522002"},
    {"ALARM_DVR_DISK_FAULT_OFF", "308522002"},
    {"ALARM_DVR_TYPE_DI_ON", "308522004"},
    {"ALARM_DVR_TYPE_DI_OFF", "308522004"},
    {"ALARM_DVS_DISK_FULL_ON", "308522101"},
    {"ALARM_DVS_DISK_FULL_OFF", "308522101"},
    {"ALARM_DVS_DISK_FAULT_ON", "308522102"},
    {"ALARM_DVS_DISK_FAULT_OFF", "308522102"},
    {"ALARM_DVS_TYPE_DI_ON", "308522104"},
    {"ALARM_DVS_TYPE_DI_OFF", "308522104"},
    {"ALARM_eNVR_DISK_FULL_ON", "308522301"},
    {"ALARM_eNVR_DISK_FULL_OFF", "308522301"},
    {"ALARM_eNVR_DISK_FAULT_ON", "308522302"},
    {"ALARM_eNVR_DISK_FAULT_OFF", "308522302"},
};

// Blanks at the end of a text belong to it.
constexpr GB3514_ALARM_ID_DESC gvxGB35114AlarmIDAndDesc[kGB35114AlarmTexts] = {
    {"10051301", "ca: failed to create socket"},
    {"10051302", "ca failed: to resd socket"},
    {"10052105", "ca: failed to connect server"},
    {"10052109", "ca: timeout"},
    {"10052110", "ca: has no available encryption machine"},
    {"10020013", "kms: communication error"},
    {"10020201", "kms: failed to create socket"},
    {"10020202", "kms: failed to read socket"},
    {"10020501", "kms: over time range"},
    {"10021100", "kms: socket timeout"},
    {"10021101", "kms: failed to connect server"},
    {"10021200", "kms: semget timeout"},
    {"10021201", "kms: has no available encryption machine"},
    {"10040201", "hsm: get result over time"},
    {"10040204", "hsm: error sending data caused by network exception "},
    {"10040205", "hsm: error receiving data caused by network exception"},
    {"10040206", "hsm: server disconnected session"},
    {"10040300", "hsm: get device resource timeout"},
    {"10040301", "hsm: has no available encryption machine"},
    {"10030101", "svs: timeout"},
    {"10031003", "svs: communication error"},
    {"10031005", "svs: failed to open device"},
    {"10032100", "svs: socket timeout"},
    {"10032101", "svs: failed to connect server"},
    {"10032200", "svs: semget timeout"},
    {"10032201", "svs: has no available encryption machine"},
};

constexpr const char* vecAlarmIDForModLocInfo[kLocationAlarms] = {
    "308521809", "308521901", "308521903", "308521904", "308521907", "308521909",
    "308521910", "308521911", "308521912", "308521913", "308521914", "308521915",
    "308521916", "308521917", "308521918", "308521919", "308521920", "308521921",
    "308521922", "308521923", "308521924", "308521925", "308521926", "308521927",
    "308521928", "308521929", "308521930", "308521931", "308521933", "308521934",
    "308521937", "308522001", "308522002", "308522004", "308522101", "308522102",
    "308522104", "308522301", "308522302",
};

// clang-format on

namespace {

constexpr const char* DEFAULT_LOG_XML_NAME = "/log.xml";
constexpr const char* kNodeCodePath = "Log/NodeCode";
constexpr const char* kNodeCodeName = "NodeCode";

bool IsLocationRewritten(const std::string& id) {
    return std::any_of(std::begin(vecAlarmIDForModLocInfo), std::end(vecAlarmIDForModLocInfo),
                       [&id](const char* row) { return id == row; });
}

}  // namespace

int getGB35114AlarmDesc(const std::string& code, std::string& description) {
    for (const GB3514_ALARM_ID_DESC& row : gvxGB35114AlarmIDAndDesc) {
        if (code == row.strALarmDescCode) {
            description = row.strAlarmDesc;
            return ZVS_SUCCEED;
        }
    }
    return ZVS_FAIL;
}

int getNodeCodeFromLogXml(std::string& code) {
    std::string path;
    if (get_config_directory(path) != 0) {
        GVX_LOG_ERR("Alarm manager, node code", "get config directory fail");
        return ZVS_FAIL;
    }
    CBB::CXml xml;
    if (!xml.Load((path + DEFAULT_LOG_XML_NAME).c_str())) {
        GVX_LOG_ERR("Alarm manager, node code", "load xml");
        return ZVS_FAIL;
    }
    const char* value = xml.FindElem(kNodeCodePath) ? xml.GetElemValue() : nullptr;
    if (value == nullptr) {
        GVX_LOG_ERR_CODE("Alarm manager, node code", ZVS_PARA_INVALID, "the Elem is [%s]", kNodeCodeName);
        return ZVS_FAIL;
    }
    code = value;
    return ZVS_SUCCEED;
}

int setLocationInfo(const std::string& id, const std::string& devCode, const std::string& text, std::string& location) {
    if (!IsLocationRewritten(id)) {
        return ZVS_SUCCEED;
    }
    const std::string& address = GvxConfigMgr()->GetLocalIP();
    if (address.empty()) {
        GVX_LOG_ERR("Alarm manager, set location", "Alarm manager, setLocationInfo failed");
        return ZVS_FAIL;
    }
    location = "HostIP=" + address + ",LocalDesc=" + text;
    std::string deviceAddress;
    if (!devCode.empty() && BP::CDeviceMgr::FindMainDevice(devCode, deviceAddress) && !deviceAddress.empty()) {
        location += "[DevIP:" + deviceAddress + "]";
    }
    return ZVS_SUCCEED;
}
