#include "gvx_common/config/gvx_config_mgr.h"

#include "base/bounded_string.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "gvx_common/records/gvx_adapter_records.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include <strings.h>

namespace {

// Types that take the form and the direction into their name whatever their mode.
constexpr std::string_view kAlwaysReworked[] = {"ALARM_TYPE_DI", "ALARM_SD_CARD_FAULT", "ALARM_DISK_FULL",
                                                "ALARM_SHIELD"};
// Types that are final: they carry their own direction, or have none.
constexpr std::string_view kFinalTypes[] = {"ALARM_DEVICE_REMOVE", "ALARM_IPC_HIGH_TEMPERATURE_ON",
                                            "ALARM_IPC_LOW_TEMPERATURE_ON", "ALARM_STORAGE_DEVICE_FAN_FAULT_ON"};

template <std::size_t N>
bool IsOneOf(const std::string_view (&list)[N], const std::string& type) {
    return std::find(std::begin(list), std::end(list), type) != std::end(list);
}

// The number of characters written, or -1.
template <std::size_t N>
int WriteField(char (&field)[N], const char* text) {
    return snprintf_s(field, N, N - 1, "%s", text);
}

// A camera's disk is its memory card.
const char* FormPrefix(_PU_DEV_FORM_TYPE form) {
    switch (form) {
        case PU_DVS:
            return "DVS_";
        case PU_DVR:
            return "DVR_";
        case PU_eNVR:
            return "eNVR_";
        case PU_IPC:
            return "IPC_";
        default:
            GVX_LOG_WARN("BuildAlarmInfoForNVT", "ePuDevFormType is default: %d", static_cast<int>(form));
            return "IPC_";
    }
}

bool IsCamera(_PU_DEV_FORM_TYPE form) {
    return form != PU_DVS && form != PU_DVR && form != PU_eNVR;
}

std::string FormType(const std::string& type, const char* prefix, bool active) {
    std::string result = type;
    const std::size_t underscore = result.find('_');
    if (underscore != std::string::npos) {
        result.insert(underscore + 1, prefix);
    }
    return result + (active ? "_ON" : "_OFF");
}

void WarnUnknownAction(const char* title, const std::string& action, const GVX_DEVICE_ALARM_ACTION& known) {
    GVX_LOG_WARN(title, "Action[%s] is not found in the config with active[%s] and inactive[%s].", action.c_str(),
                 known.chActive, known.chInactive);
}

bool BeginsWith(const char* word, const std::string& action) {
    return strncasecmp(word, action.c_str(), action.size()) == 0;
}

}  // namespace

int CGvxConfigMgr::GetAlarmDescription(const std::string& type, GVX_DEVICE_ALARM_INFO_DESCRIPTION*& row) {
    return m_alarmDescMap.find(type, row) == 0 ? ZVS_SUCCEED : ZVS_FAIL;
}

int CGvxConfigMgr::MatchAlarmTypeAndAction(const std::string& code, const std::string& action, ZVS_ALARM_REPORT& report,
                                           const DEVICE_ALARM_INFO_MAPPINGS_MAP& mappings) {
    constexpr const char* kTitle = "MatchAlarmTypeAndAction";
    GVX_DEVICE_ALARM_INFO_MAPPINGS* info = nullptr;
    if (mappings.find(code, info) != 0) {
        GVX_DEBUG("Gvx config mgr match alarm type and action, Failed to find alarm information with alarm code[%s].",
                  code.c_str());
        return ZVS_FAIL;
    }
    if (info == nullptr) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_NULL_POINTER, "Alarm info is null.");
        return ZVS_FAIL;
    }
    if (info->chAlarmType[0] == '\0') {
        GVX_LOG_ERR(kTitle, "Alarm type is null.");
        return ZVS_FAIL;
    }
    if (!gvx::PutText(report.cAlarmType, gvx::TextOf(info->chAlarmType))) {
        GVX_LOG_ERR(kTitle, "strncpy_s stAlarmReportInfo.cAlarmType failed!");
        return ZVS_SUCCEED;
    }
    if (action == GVX_ALARM_ACTION_DEFAULT) {
        return ZVS_SUCCEED;
    }
    const GVX_DEVICE_ALARM_ACTION& known = info->stAlarmAction;
    if (BeginsWith(known.chActive, action) || BeginsWith("true", action)) {
        report.bAction = 1;
    } else if (BeginsWith(known.chInactive, action) || BeginsWith("false", action)) {
        report.bAction = 0;
    } else {
        WarnUnknownAction(kTitle, action, known);
    }
    return ZVS_SUCCEED;
}

int CGvxConfigMgr::BuildAlarmInfoForNVT(ZVS_ALARM_REPORT& report, _PU_DEV_FORM_TYPE form) {
    constexpr const char* kTitle = "BuildAlarmInfoForNVT";
    report.uiOccurNumber = 1;
    const std::string incoming = gvx::TextOf(report.cAlarmType);
    if (incoming.size() == sizeof(report.cAlarmType)) {
        GVX_LOG_ERR(kTitle, "strncpy_s szAlarmTypeTmp, sizeof(szAlarmTypeTmp) failed!");
    }
    std::string type = incoming;
    const char* prefix = FormPrefix(form);
    if (IsCamera(form) && incoming == "ALARM_DISK_FAULT") {
        type = "ALARM_SD_CARD_FAULT";
    }
    GVX_DEVICE_ALARM_INFO_DESCRIPTION* row = nullptr;
    if (GetAlarmDescription(type, row) != ZVS_SUCCEED || row == nullptr) {
        return ZVS_FAIL;
    }
    if (row->enAlarmMode == enAlarmMode_Device || IsOneOf(kAlwaysReworked, incoming)) {
        if (!IsOneOf(kFinalTypes, incoming)) {
            type = FormType(type, prefix, report.bAction != 0);
        }
        if (WriteField(report.cAlarmType, type.c_str()) < 1) {
            GVX_LOG_ERR(kTitle, "snprintf_s cAlarmType failed");
            return ZVS_FAIL;
        }
    }
    if (WriteField(report.cAlarmDesc, row->chAlarmDesc) < 1) {
        GVX_LOG_ERR(kTitle, "snprintf_s cAlarmDesc failed");
        return ZVS_FAIL;
    }
    if (report.cExtParam[0] == '\0' && WriteField(report.cExtParam, row->chExtParam) < 0) {
        GVX_LOG_ERR(kTitle, "snprintf_s cExtParam failed");
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

int CGvxConfigMgr::BuildAlarmInfoForEAS(const std::string& code, const std::string& action, ZVS_ALARM_REPORT& report,
                                        const DEVICE_ALARM_INFO_MAPPINGS_MAP& mappings) {
    constexpr const char* kTitle = "BuildAlarmInfoForEAS";
    report.uiOccurNumber = 1;
    GVX_DEVICE_ALARM_INFO_MAPPINGS* info = nullptr;
    if (mappings.find(code, info) != 0) {
        GVX_LOG_ERR(kTitle, "alarm code[%s].", code.c_str());
        return ZVS_FAIL;
    }
    if (info == nullptr) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_NULL_POINTER, "Alarm info is null.");
        return ZVS_NULL_POINTER;
    }
    const GVX_DEVICE_ALARM_ACTION& known = info->stAlarmAction;
    if (action == GVX_ALARM_ACTION_DEFAULT) {
        // The direction stays as the caller set it.
    } else if (action == known.chActive) {
        report.bAction = 1;
    } else if (action == known.chInactive) {
        report.bAction = 0;
    } else {
        WarnUnknownAction(kTitle, action, known);
    }
    if (WriteField(report.cAlarmType, info->chAlarmType) < 1) {
        GVX_LOG_ERR(kTitle, "snprintf_s cAlarmType failed");
        return ZVS_FAIL;
    }
    if (WriteField(report.cAlarmDesc, info->chAlarmDesc) < 1) {
        GVX_LOG_ERR(kTitle, "snprintf_s cAlarmDesc failed");
        return ZVS_FAIL;
    }
    if (report.cExtParam[0] == '\0' && WriteField(report.cExtParam, info->chExtParam) < 1) {
        GVX_LOG_ERR(kTitle, "snprintf_s cExtParam failed");
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}
