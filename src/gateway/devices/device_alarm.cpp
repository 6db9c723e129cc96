#include "gateway/devices/device_alarm.h"

#include "base/fixed_text.h"
#include "base/json_io.h"
#include "base/log.h"
#include "gateway/plugins/plugin_guard.h"
#include "gvx_common/adapter/gvx_adapter_dev.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/records/device_alarm_records.h"
#include "gvx_common/utility/gvx_utility.h"

#include <cstring>

namespace gvx {

namespace {

constexpr const char* kTitle = "Device alarm";
constexpr const char* kScuPrefix = "SCU#";

struct TextField {
    const char* name;  // in the plug-in's report
    char* target;
    std::size_t size;
    std::string fallback;
};

// The recorder code of an alarm is that of the SCU which owns the device, without its prefix.
std::string RecorderCode(const CAdapterDevBase& adapter) {
    const std::size_t prefix = std::strlen(kScuPrefix);
    std::string link = adapter.GetSCULinkID();
    if (link.compare(0, prefix, kScuPrefix) != 0) {
        link = CGvxConnectionMgr::Instance()->GetScuLinkId();
    }
    return link.size() > prefix ? link.substr(prefix) : std::string();
}

// False with the name of the field that is at fault.
bool FillReport(const Json::Value& source, const std::string& device, const CAdapterDevBase& adapter,
                ZVS_ALARM_REPORT& report, std::string& fault) {
    std::string now;
    CGvxUtility::GetCurrentUtcTime(now, "YYYYMMDDhhmmss");
    const TextField fields[] = {
        {"AlarmInCode", report.cAlarmInCode, sizeof(report.cAlarmInCode), device},
        {"DomainCode", report.cDevDomainCode, sizeof(report.cDevDomainCode), ""},
        {"AlarmType", report.cAlarmType, sizeof(report.cAlarmType), ""},
        {"OccurTime", report.cOccurTime, sizeof(report.cOccurTime), now},
        {"AlarmID", report.cAlarmID, sizeof(report.cAlarmID),
         CGvxUtility::GenerateTransactionNo("", CGvxUtility::CreatSeqID())},
        {"AlarmDesc", report.cAlarmDesc, sizeof(report.cAlarmDesc), ""},
        {"ExtParam", report.cExtParam, sizeof(report.cExtParam), ""},
    };
    for (const TextField& field : fields) {
        if (!PutText(field.target, field.size, JsonText(source, field.name, field.fallback))) {
            fault = field.name;
            return false;
        }
    }
    const long long action = JsonInt(source, "Action", -1);
    const std::string recorder = RecorderCode(adapter);
    const bool direction = action == 0 || action == 1;
    if (report.cAlarmType[0] == '\0' || !direction) {
        fault = direction ? "AlarmType" : "Action";
        return false;
    }
    report.bAction = static_cast<ZVS_BOOL>(action);
    report.uiOccurNumber = 1;
    if (!PutText(report.cReportTime, now) || !PutText(report.cNvrCode, recorder)) {
        fault = "cNvrCode";
        return false;
    }
    return true;
}

}  // namespace

int SendDeviceAlarm(const std::string& plugin, const std::string& device, CAdapterDevBase& adapter,
                    const std::string& json) {
    Json::Value source;
    std::string fault;
    ZVS_ALARM_REPORT report{};
    if (!ParseJson(json.data(), json.size(), source, &fault) || !source.isObject() ||
        !FillReport(source, device, adapter, report, fault)) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_PARA_INVALID, "plug-in %s: an alarm of device %s cannot be read: %s",
                         plugin.c_str(), device.c_str(), fault.c_str());
        return ZVS_PARA_INVALID;
    }
    if (!GuardPluginCall<bool>(plugin, "IsAllowSendAlarm", device, false, [&] { return adapter.IsAllowSendAlarm(); })) {
        GVX_LOG_INFO(kTitle, "[dev:%s] does not allow the alarm %s.", device.c_str(), report.cAlarmType);
        return ZVS_SUCCEED;
    }
    const int action = static_cast<int>(report.bAction);
    const SendOutcome toScu = CGvxConnectionMgr::Instance()->SendDeviceAlarm(report);
    const SendOutcome toCloud = CGvxConnectionMgr::Instance()->ReportDeviceAlarm(report, adapter.GetDevFromType());
    GVX_LOG_INFO(kTitle, "[dev:%s] %s of %s, action[%d], recorder[%s]: SCU[%d], cloud[%d]", device.c_str(),
                 report.cAlarmType, report.cAlarmInCode, action, report.cNvrCode, toScu.number, toCloud.number);
    if (toScu.sent) {
        CallPlugin(plugin, "UpdateLastAlarmTime", device, [&] {
            adapter.UpdateLastAlarmTime();
            return 0;
        });
    }
    return ZVS_SUCCEED;
}

}  // namespace gvx
