#include "gvx_common/link/gvx_connection_mgr.h"

#include "base/fixed_text.h"
#include "base/log.h"
#include "bp/service.h"
#include "gvx_common/alarm/emergency_protection.h"
#include "gvx_common/alarm/gvx_alarm_dictionary.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/records/gvx_adapter_records.h"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <unordered_map>

// The report of alarms to the cloud platform.

namespace {

constexpr const char* kFailedTitle = "Alarm manager, send gvx device alarm failed";
constexpr const char* kChannelOfDevice = "0000";
constexpr std::size_t kChannelDigits = 4;

using AlarmTypeMap = std::unordered_map<std::string, std::string>;

AlarmTypeMap buildGvxAlarmTypeMap() {
    AlarmTypeMap map;
    for (const GVX_ALARM_TYPE_ID& row : gvxAlarmTypeAndID) {
        map.emplace(row.strAlarmType, row.strALarmID);
    }
    return map;
}

// From alarm type to identifier; read-only once it is built. Never destroyed, as alarms may come until the process is
// gone.
const AlarmTypeMap& gvxAlarmTypeMap() {
    static const AlarmTypeMap& map = *new AlarmTypeMap(buildGvxAlarmTypeMap());
    return map;
}

std::uint64_t getKSPAlarmID(const std::string& id) {
    return std::strtoull(id.c_str(), nullptr, 10);
}

// A text that does not fit leaves its field empty; the report is worth sending all the same.
template <std::size_t N>
void Put(char (&field)[N], const std::string& text, const char* name) {
    if (!gvx::PutText(field, text)) {
        GVX_LOG_ERR(kFailedTitle, "%s", name);
    }
}

// Null when the type is not in the dictionary.
const std::string* FindAlarmID(const std::string& type) {
    const auto found = gvxAlarmTypeMap().find(type);
    return found == gvxAlarmTypeMap().end() ? nullptr : &found->second;
}

bool FillNodeCode(GVX_DEVICE_ALARM_REPORT_INFO& stDeviceAlarmReportInfo) {
    std::string nodeCode;
    if (getNodeCodeFromLogXml(nodeCode) != ZVS_SUCCEED) {
        GVX_LOG_ERR(kFailedTitle, "get NodeCode From log.xml failed!");
        return false;
    }
    Put(stDeviceAlarmReportInfo.cNodeCode, nodeCode, "stDeviceAlarmReportInfo.cNodeCode");
    return true;
}

void FillFromReport(GVX_DEVICE_ALARM_REPORT_INFO& stDeviceAlarmReportInfo, const GVX_ALARM_REPORT& report) {
    Put(stDeviceAlarmReportInfo.cFac, gvx::TextOf(report.cFac), "stDeviceAlarmReportInfo.cFac");
    Put(stDeviceAlarmReportInfo.cDomainCode, gvx::TextOf(report.cDomainCode), "stDeviceAlarmReportInfo.cDomainCode");
    Put(stDeviceAlarmReportInfo.cNetElemName, gvx::TextOf(report.cNetEleName), "stDeviceAlarmReportInfo.cNetElemName");
    Put(stDeviceAlarmReportInfo.cNetElemId, gvx::TextOf(report.cNetEleID), "stDeviceAlarmReportInfo.cNetElemId");
    Put(stDeviceAlarmReportInfo.cAlarmInCode, gvx::TextOf(report.cAlarmInCode), "stDeviceAlarmReportInfo.cAlarmInCode");
    Put(stDeviceAlarmReportInfo.cAlarmInName, gvx::TextOf(report.cAlarmInName), "stDeviceAlarmReportInfo.cAlarmInName");
    Put(stDeviceAlarmReportInfo.cAlarmType, gvx::TextOf(report.cAlarmType), "stDeviceAlarmReportInfo.cAlarmType");
    Put(stDeviceAlarmReportInfo.cAlarmInType, gvx::TextOf(report.cAlarmInType), "stDeviceAlarmReportInfo.cAlarmInType");
}

// False, with a log line, when the location cannot be told.
bool LocationOfGvxAlarm(const std::string& id, const GVX_ALARM_REPORT& report, std::string& location) {
    location = gvx::TextOf(report.cLocationInfo);
    if (id == ALARM_GVX_ALARM_RECORD_FAIL) {
        location = "HostIP=" + GvxConfigMgr()->GetLocalIP() + ",LocalDesc=Alarm from GVX";
        return true;
    }
    if (id == ALARM_GVX_CONNECT_THIRD_PARTY_SERVERS_FAIL &&
        setLocationInfo(id, "", gvx::TextOf(report.cAlarmDesc), location) != ZVS_SUCCEED) {
        GVX_LOG_ERR(kFailedTitle, "The location is not known, AlarmType is[%s]",
                    gvx::TextOf(report.cAlarmType).c_str());
        return false;
    }
    return true;
}

// Value 2 is the DVS in the form's enumeration and the DVR in this word, value 3 the other way round: the platform
// knows the devices by these words.
const char* FormWord(_PU_DEV_FORM_TYPE form) {
    static constexpr const char* kWords[] = {"QCN_IPC", "QCN_DVR", "QCN_DVS", "QCN_eNVR"};
    const auto at = static_cast<std::size_t>(form) - PU_IPC;
    if (form < PU_IPC || at >= std::size(kWords)) {
        GVX_LOG_WARN("Alarm manager, send gvx device alarm", "ePuDevFormType is default: %d", static_cast<int>(form));
        return kWords[0];
    }
    return kWords[at];
}

// The device that owns the channel: the same code for channel 0. A code too short to have one stands for the device to
// which the gateway knows it to belong; false, with a log line, without such a device.
bool FrontDeviceOf(const std::string& strDevCode, std::string& device) {
    if (strDevCode.size() <= kChannelDigits) {
        if (BP::CDeviceMgr::FindOwner(strDevCode, device)) {
            return true;
        }
        GVX_LOG_ERR(kFailedTitle, "the length of strDevCode[%d] must be longer than strDeviceIDTemp[%d]",
                    static_cast<int>(strDevCode.size()), static_cast<int>(kChannelDigits));
        return false;
    }
    device = strDevCode.substr(0, strDevCode.size() - kChannelDigits) + kChannelOfDevice;
    return true;
}

}  // namespace

SendOutcome CGvxConnectionMgr::SendAlarmReportToKSP(const GVX_DEVICE_ALARM_REPORT_INFO& info) {
    return SendStruct(BP::SUBSYS_SCU, kElementSCU, NSS_GVX_PLUGIN_ALARM_REPORT_REQ,
                      reinterpret_cast<const char*>(&info), sizeof(info), "KSP#" + gvx::TextOf(info.cNetElemId));
}

SendOutcome CGvxConnectionMgr::ReportGatewayAlarm(const _ZVS_GVX_DEV_ALARM_REPORT& report) {
    if (!AlarmsMayLeave()) {
        return {false, ZVS_FAIL};
    }
    const std::string type = gvx::TextOf(report.cAlarmType);
    const std::string* const id = FindAlarmID(type);
    if (id == nullptr) {
        GVX_LOG_INFO("Alarm manager, send gvx device end, no matching alarmID", "AlarmType is[%s]", type.c_str());
        return {false, ZVS_FAIL};
    }
    GVX_DEVICE_ALARM_REPORT_INFO stDeviceAlarmReportInfo{};
    stDeviceAlarmReportInfo.ulAlarmID = getKSPAlarmID(*id);
    if (!FillNodeCode(stDeviceAlarmReportInfo)) {
        return {false, ZVS_FAIL};
    }
    FillFromReport(stDeviceAlarmReportInfo, report);
    std::string location;
    if (!LocationOfGvxAlarm(*id, report, location)) {
        return {false, ZVS_FAIL};
    }
    Put(stDeviceAlarmReportInfo.cLocationInfo, location, "stDeviceAlarmReportInfo.cLocationInfo");
    Put(stDeviceAlarmReportInfo.cAlarmDesc, gvx::TextOf(report.cAlarmDesc), "stDeviceAlarmReportInfo.cAlarmDesc");
    return SendAlarmReportToKSP(stDeviceAlarmReportInfo);
}

SendOutcome CGvxConnectionMgr::ReportDeviceAlarm(const ZVS_ALARM_REPORT& report, _PU_DEV_FORM_TYPE form) {
    if (!AlarmsMayLeave()) {
        return {false, ZVS_FAIL};
    }
    const std::string type = gvx::TextOf(report.cAlarmType);
    const std::string* const id = FindAlarmID(type);
    if (id == nullptr) {
        GVX_LOG_INFO("Alarm manager", "Alarm manager, send gvx device end, no matching alarmID, AlarmType is[%s]",
                     type.c_str());
        return {false, ZVS_FAIL};
    }
    GVX_DEVICE_ALARM_REPORT_INFO stDeviceAlarmReportInfo{};
    stDeviceAlarmReportInfo.ulAlarmID = getKSPAlarmID(*id);
    const std::string code = gvx::TextOf(report.cAlarmInCode);
    std::string device;
    std::string location;
    if (!FillNodeCode(stDeviceAlarmReportInfo) || !FrontDeviceOf(code, device)) {
        return {false, ZVS_FAIL};
    }
    // Channels of plug-ins have codes of their own making, of which the front device's is none.
    std::string located = device;
    std::string address;
    if (!BP::CDeviceMgr::FindMainDevice(device, address) && !BP::CDeviceMgr::FindOwner(code, located)) {
        located = device;
    }
    if (setLocationInfo(*id, located, code, location) != ZVS_SUCCEED) {
        GVX_LOG_ERR(kFailedTitle, "The location is not known, AlarmType is[%s]", type.c_str());
        return {false, ZVS_FAIL};
    }
    Put(stDeviceAlarmReportInfo.cFrontDeviceCode, device, "stDeviceAlarmReportInfo.cFrontDeviceCode");
    Put(stDeviceAlarmReportInfo.cDomainCode, gvx::TextOf(report.cDevDomainCode), "stDeviceAlarmReportInfo.cDomainCode");
    Put(stDeviceAlarmReportInfo.cAlarmInCode, code, "stDeviceAlarmReportInfo.cAlarmInCode");
    Put(stDeviceAlarmReportInfo.cAlarmInName, FormWord(form), "stDeviceAlarmReportInfo.cAlarmInName");
    Put(stDeviceAlarmReportInfo.cAlarmType, type, "stDeviceAlarmReportInfo.cAlarmType");
    Put(stDeviceAlarmReportInfo.cLocationInfo, location, "stDeviceAlarmReportInfo.cLocationInfo");
    Put(stDeviceAlarmReportInfo.cAlarmDesc, gvx::TextOf(report.cAlarmDesc), "stDeviceAlarmReportInfo.cAlarmDesc");
    return SendAlarmReportToKSP(stDeviceAlarmReportInfo);
}
