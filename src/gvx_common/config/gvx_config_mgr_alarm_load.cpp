#include "gvx_common/config/gvx_config_mgr.h"

#include "base/fixed_text.h"
#include "base/cbb_xml.h"
#include "base/log.h"
#include "base/paths.h"
#include "gvx_common/config/config_findings.h"
#include "gvx_common/utility/gvx_utility.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

namespace {

// A structural fault of an alarm file: what the alarm names, and the line for an alarm that is open already or anew.
struct Fault {
    const char* paraName;
    const char* whenOpen;
    const char* whenRaised;
};

struct LoaderTexts {
    const char* title;
    Fault load;  // its second line is followed by "[<path>]"
    Fault noRoot;
    Fault emptyRoot;
    Fault noRow;
    Fault emptyRow;
    gvx::ConfigFinding::Weight weight;
};

constexpr LoaderTexts kMappingTexts = {
    "LoadAlarmMappingsConfig",
    {"###", "Alarm info xml load file fail", "net xml load failed"},
    {"AlarmInfoList", "Find elem alarm info list fail.", "Can not find alarm info list node."},
    {"###", "Into elem fail.", "Alarm info list do not have children."},
    {"AlarmInfo", "Alarm info xml find AlarmInfo fail.", "Can not find alarm info node."},
    {"###", "Alarm info xml into elem fail.", "Process do not have children."},
    gvx::ConfigFinding::Weight::Error,
};

// The missing root names another element here.
constexpr LoaderTexts kDescriptionTexts = {
    "LoadAlarmDescriptionConfig",
    {"###", "Alarm info xml load file fail", "Xml load failed"},
    {"AlarmCode", "Can not find <AlarmInfoList> node.", "Can not find <AlarmInfoList> node."},
    {"###", "<AlarmInfoList> do not have children.", "<AlarmInfoList> do not have children."},
    {"AlarmInfo", "Find <AlarmInfo> failed.", "Find <AlarmInfo> failed."},
    {"###", "<AlarmInfo> do not have children.", "<AlarmInfo> do not have children."},
    gvx::ConfigFinding::Weight::StopsStart,
};

void ReportFault(const LoaderTexts& texts, const Fault& fault, const char* path, const std::string& location,
                 int line) {
    const bool raised = gvx::ConfigAlarms().OnSideFileFault(location + ",ParaName=" + fault.paraName, "");
    GVX_LOG_ERR(texts.title, "%s", raised ? fault.whenRaised : fault.whenOpen);
    gvx::TellFinding({texts.weight, path, line, fault.whenRaised});
}

void ReportLoadFault(const LoaderTexts& texts, const CBB::CXml& xml, const char* path, const std::string& location) {
    gvx::TellFinding({texts.weight, path, xml.FaultLine(), xml.FaultText()});
    if (gvx::ConfigAlarms().OnSideFileFault(location + ",ParaName=" + texts.load.paraName, "")) {
        GVX_LOG_ERR(texts.title, "%s[%s]", texts.load.whenRaised, path);
    } else {
        GVX_LOG_ERR(texts.title, "%s", texts.load.whenOpen);
    }
}

// Copies a child's text at the cursor's level; an absent one leaves the field empty. What does not fit is logged under
// the field's name.
template <std::size_t N>
bool TakeField(CBB::CXml& xml, const LoaderTexts& texts, const char* element, char (&field)[N], const char* name) {
    if (!xml.FindFirstElem(element)) {
        return true;
    }
    const char* value = xml.GetElemValue();
    if (value != nullptr && gvx::PutText(field, value)) {
        return true;
    }
    GVX_LOG_ERR(texts.title, "strncpy_s %s failed!", name);
    return false;
}

template <typename Row>
struct UncountRow {
    void operator()(Row* row) const {
        delete row;
        --g_bp_memstat;
    }
};
template <typename Row>
using RowPtr = std::unique_ptr<Row, UncountRow<Row>>;

template <typename Row>
RowPtr<Row> MakeRow(const char* title) {
    RowPtr<Row> row(new (std::nothrow) Row());
    if (row == nullptr) {
        GVX_LOG_ERR_CODE(title, ZVS_ALLOC_MEMORY_ERROR, "There is no memory for a row.");
        return row;
    }
    ++g_bp_memstat;
    return row;
}

template <typename Row>
bool BindRow(const char* title, DeviceAlarmMap<Row*>& table, const std::string& key, RowPtr<Row> row) {
    errno = 0;
    if (table.bind(key, row.get()) != 0) {
        GVX_LOG_ERR(title, "error:%d.", errno);
        return false;
    }
    row.release();  // the table's from here on
    return true;
}

template <typename Row>
void DeleteRows(DeviceAlarmMap<Row*>& table) {
    for (auto entry = table.begin(); entry != table.end(); ++entry) {
        RowPtr<Row>((*entry).int_id_);
    }
    table.unbind_all();
}

AlarmMode ModeOf(CBB::CXml& xml) {
    const char* value = xml.FindFirstElem("AlarmMode") ? xml.GetElemValue() : nullptr;
    const std::string mode = value == nullptr ? "" : value;
    if (mode == "Business") {
        return enAlarmMode_Business;
    }
    return mode == "Device" ? enAlarmMode_Device : enAlarmMode_Defalut;
}

// Reads the row that the cursor stands inside.
bool LoadDescriptionRow(CBB::CXml& xml, DEVICE_ALARM_INFO_DESC_MAP& table) {
    const LoaderTexts& texts = kDescriptionTexts;
    auto row = MakeRow<GVX_DEVICE_ALARM_INFO_DESCRIPTION>(texts.title);
    if (row == nullptr || !TakeField(xml, texts, "AlarmType", row->chAlarmType, "pAlarmInfoDesc->chAlarmType")) {
        return false;
    }
    row->enAlarmMode = ModeOf(xml);
    if (!TakeField(xml, texts, "AlarmDetailEn", row->chAlarmDesc, "pAlarmInfoDesc->chAlarmDesc") ||
        !TakeField(xml, texts, "ExtParam", row->chExtParam, "pAlarmInfoDesc->chExtParam") ||
        !TakeField(xml, texts, "AlarmSubDevType", row->chAlarmSubDevType, "pAlarmInfoDesc->chAlarmSubDevType")) {
        return false;
    }
    const std::string type = row->chAlarmType;
    return BindRow(texts.title, table, type, std::move(row));
}

bool TakeAction(CBB::CXml& xml, const LoaderTexts& texts, GVX_DEVICE_ALARM_ACTION& action) {
    if (!xml.FindFirstElem("ACTION") || !xml.IntoElem()) {
        return true;
    }
    const bool taken = TakeField(xml, texts, "ACTIVE", action.chActive, "pAlarmInfo->stAlarmAction.chActive") &&
                       TakeField(xml, texts, "INACTIVE", action.chInactive, "pAlarmInfo->stAlarmAction.chInactive");
    xml.OutOfElem();
    return taken;
}

// code is that of the row before where this one has none.
bool LoadMappingRow(CBB::CXml& xml, const char* path, const std::string& location, std::string& code,
                    DEVICE_ALARM_INFO_MAPPINGS_MAP& table) {
    const LoaderTexts& texts = kMappingTexts;
    auto row = MakeRow<GVX_DEVICE_ALARM_INFO_MAPPINGS>(texts.title);
    if (row == nullptr) {
        return false;
    }
    if (xml.FindFirstElem("AlarmCode")) {
        const char* value = xml.GetElemValue();
        if (value == nullptr || *value == '\0') {
            GVX_LOG_ERR(texts.title, "Alarm code is null.");
            gvx::TellFinding({texts.weight, path, xml.GetElemLine(), "this AlarmCode is empty; its row is left out"});
            gvx::ConfigAlarms().OnSideFileFault(location + ",ParaName=AlarmCode", "");
            return true;
        }
        code = value;
    }
    if (!TakeField(xml, texts, "AlarmType", row->chAlarmType, "pAlarmInfo->chAlarmType") ||
        !TakeField(xml, texts, "AlarmDetailEn", row->chAlarmDesc, "pAlarmInfo->chAlarmDesc") ||
        !TakeField(xml, texts, "ExtParam", row->chExtParam, "pAlarmInfo->chExtParam") ||
        !TakeField(xml, texts, "AlarmSubDevType", row->chAlarmSubDevType, "pAlarmInfo->chAlarmSubDevType") ||
        !TakeAction(xml, texts, row->stAlarmAction)) {
        return false;
    }
    return BindRow(texts.title, table, code, std::move(row));
}

// Runs loadRow inside each AlarmInfo of the file, until one fails.
template <typename LoadRow>
int LoadRows(const LoaderTexts& texts, const char* path, const std::string& location, LoadRow loadRow) {
    CBB::CXml xml;
    if (!xml.Load(path)) {
        ReportLoadFault(texts, xml, path, location);
        return ZVS_FAIL;
    }
    const Fault* fault = nullptr;
    int line = 1;
    if (!xml.FindElem("AlarmInfoList")) {
        fault = &texts.noRoot;
    } else if (!xml.IntoElem()) {
        fault = &texts.emptyRoot;
    } else if (!xml.FindElem("AlarmInfo")) {
        fault = &texts.noRow;
    }
    while (fault == nullptr) {
        line = xml.GetElemLine();
        if (!xml.IntoElem()) {
            fault = &texts.emptyRow;
            break;
        }
        if (!loadRow(xml)) {
            gvx::TellFinding(
                {texts.weight, path, line,
                 "this AlarmInfo can not be taken: a text is too long or missing, or its name stands twice"});
            return ZVS_FAIL;
        }
        xml.OutOfElem();
        if (!xml.FindElem("AlarmInfo")) {
            return ZVS_SUCCEED;
        }
    }
    ReportFault(texts, *fault, path, location, line);
    return ZVS_FAIL;
}

bool TakeCount(CBB::CXml& xml, const char* name, std::uint16_t& count) {
    const char* pValue = xml.GetAttributeValue(name);
    GVX_CHECK_NULL_RETURN(pValue, false);
    count = static_cast<std::uint16_t>(CGvxUtility::toInt(pValue));
    return true;
}

bool LoadAbilityRow(CBB::CXml& xml, DEVICE_ABILITY_MAP& abilities) {
    const char* pValue = xml.GetAttributeValue("Id");
    GVX_CHECK_NULL_RETURN(pValue, false);
    DEVICE_ABILITY ability{};
    if (!TakeCount(xml, "VideoInNum", ability.VideoInputChannelNum) ||
        !TakeCount(xml, "AudioInNum", ability.AudioInputChannelNum) ||
        !TakeCount(xml, "AlarmInNum", ability.AlarmDINum) || !TakeCount(xml, "AlarmOutNum", ability.AlarmDONum) ||
        !TakeCount(xml, "TalkbackInNum", ability.TalkbackInputNum) ||
        !TakeCount(xml, "TalkbackOutNum", ability.TalkbackOutputNum) ||
        !TakeCount(xml, "SerialPortNum", ability.SerialPortNum) ||
        !TakeCount(xml, "NetworkCardNum", ability.NetworkCardNum) ||
        !TakeCount(xml, "HardDiskNum", ability.HardDiskNum) || !TakeCount(xml, "PTZNum", ability.PTZNum)) {
        return false;
    }
    abilities.bind(pValue, ability);  // the first of two equal Ids stays
    return true;
}

}  // namespace

int CGvxConfigMgr::LoadAlarmDescriptionConfig(const char* path) {
    GVX_CHECK_NULL_RETURN(path, ZVS_NULL_POINTER);
    return LoadRows(kDescriptionTexts, path, std::string("Location=") + path,
                    [this](CBB::CXml& xml) { return LoadDescriptionRow(xml, m_alarmDescMap); });
}

void CGvxConfigMgr::ClearAlarmInfoDesccription() {
    DeleteRows(m_alarmDescMap);
}

int CGvxConfigMgr::LoadAlarmMappingsConfig(const char* path, DEVICE_ALARM_INFO_MAPPINGS_MAP& mappings) {
    GVX_CHECK_NULL_RETURN(path, ZVS_NULL_POINTER);
    const std::string location = std::string("Location=") + path;
    std::string code;
    return LoadRows(kMappingTexts, path, location,
                    [&](CBB::CXml& xml) { return LoadMappingRow(xml, path, location, code, mappings); });
}

void CGvxConfigMgr::ClearAlarmMappings(DEVICE_ALARM_INFO_MAPPINGS_MAP& mappings) {
    DeleteRows(mappings);
}

int CGvxConfigMgr::LoadDeviceAbility(DEVICE_ABILITY_MAP& abilities) {
    constexpr const char* kTitle = "LoadDeviceAbility";
    std::string directory;
    if (get_config_directory(directory) != 0) {
        GVX_LOG_ERR(kTitle, "CGvxConfigMgr get config directory failed");
        return ZVS_FAIL;
    }
    CBB::CXml xml;
    if (!xml.Load((directory + "/other/device_ability.xml").c_str())) {
        GVX_LOG_ERR(kTitle, "Load config failed.");
        return ZVS_FAIL;
    }
    if (!xml.FindElem("DeviceList")) {
        GVX_LOG_ERR(kTitle, "Failed to find elem[DeviceList].");
        return ZVS_FAIL;
    }
    if (!xml.IntoElem()) {
        GVX_LOG_ERR(kTitle, "Failed to into elem.");
        return ZVS_FAIL;
    }
    if (!xml.FindElem("Device")) {
        GVX_LOG_ERR(kTitle, "Failed to find elem.");
        return ZVS_FAIL;
    }
    do {
        if (!LoadAbilityRow(xml, abilities)) {
            return ZVS_FAIL;
        }
    } while (xml.FindElem("Device"));
    return ZVS_SUCCEED;
}
