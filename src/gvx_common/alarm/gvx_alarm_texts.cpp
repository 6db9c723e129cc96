#include "gvx_common/alarm/gvx_alarm_texts.h"

#include "base/cbb_xml.h"
#include "base/log.h"
#include "base/paths.h"
#include "bp/service.h"
#include "gvx_common/alarm/gvx_alarm_dictionary.h"
#include "gvx_common/config/gvx_config_mgr.h"

#include <algorithm>
#include <iterator>

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
