#include "plugin_support/alarm_table.h"

#include "base/cbb_xml.h"
#include "base/fixed_text.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/config/side_files_check.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace gvxplugin {
namespace {

// No direction: tells whether the table has set one.
constexpr ZVS_BOOL kUnset = 2;

// What a table has not said, its row does.
template <std::size_t Size>
bool CopyIfEmpty(char (&target)[Size], const char* text) {
    return target[0] != '\0' || gvx::PutText(target, text);
}

}  // namespace

AlarmTable::~AlarmTable() {
    CGvxConfigMgr::ClearAlarmMappings(m_mappings);
}

bool AlarmTable::Load(const std::string& path, const std::vector<std::string>& codes, std::string& error) {
    if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) {
        return true;
    }
    if (CGvxConfigMgr::Instance()->LoadAlarmMappingsConfig(path.c_str(), m_mappings) != 0) {
        // A start that fails says all it has to say in this one line.
        CBB::CXml xml;
        const bool isXml = xml.Load(path.c_str());
        const std::string place = path + (xml.FaultLine() > 0 ? ":" + std::to_string(xml.FaultLine()) : std::string());
        error = isXml ? path + " is no AlarmInfoList of AlarmInfo elements, with texts that fit and each code once."
                      : place + ": " + xml.FaultText() + ".";
        return false;
    }
    gvx::CheckAlarmMap(path, codes);
    return true;
}

bool AlarmTable::Translate(const AlarmEvent& trigger, enPuDevFormType form, ZVS_ALARM_REPORT& report,
                           std::string& error) const {
    CGvxConfigMgr& config = *CGvxConfigMgr::Instance();
    const std::string action = trigger.hasAction ? trigger.action : std::string(GVX_ALARM_ACTION_DEFAULT);
    report.bAction = trigger.hasAction ? kUnset : 1;
    GVX_DEVICE_ALARM_INFO_MAPPINGS* row = nullptr;
    if (config.MatchAlarmTypeAndAction(trigger.code, action, report, m_mappings) != 0 ||
        m_mappings.find(trigger.code, row) != 0) {
        error = "Its code is not in the table of alarms.";
        return false;
    }
    if (report.cAlarmType[0] == '\0' || report.bAction == kUnset) {
        error = "Its code or its action has no meaning in the table of alarms.";
        return false;
    }
    // A report with extension text keeps it, so the row's goes first. Types that the gateway does not describe are sent
    // as the row has them.
    if (!gvx::PutText(report.cExtParam, row->chExtParam)) {
        error = "Its extension text is too long.";
        return false;
    }
    config.BuildAlarmInfoForNVT(report, form);
    const bool described = trigger.description.empty() || gvx::PutText(report.cAlarmDesc, trigger.description.c_str());
    if (!described || !CopyIfEmpty(report.cAlarmDesc, row->chAlarmDesc)) {
        error = "Its description is too long.";
        return false;
    }
    return true;
}

}  // namespace gvxplugin
