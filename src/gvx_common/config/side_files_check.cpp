#include "gvx_common/config/side_files_check.h"

#include "base/cbb_xml.h"
#include "base/near_words.h"
#include "base/net_interface.h"
#include "base/paths.h"
#include "base/whole_file.h"
#include "gvx_common/config/config_findings.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/config/settings_check.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <sstream>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <unistd.h>

namespace gvx {
namespace {

using Weight = ConfigFinding::Weight;

constexpr int kMostFindings = 100;  // of one file
constexpr const char* kAlarmTexts = "/alarm/gvx_nvt_alarm_description.xml";

enum class Text { Any, OneOf, AlarmCode, AlarmType };

// An element of a file, by its path from the root.
struct ElementRow {
    const char* path;
    Text text = Text::Any;
    const char* choices = "";          // by commas
    const char* ifMissing = nullptr;   // what comes of it when it is missing or empty; null where that is well
    const char* attributes = nullptr;  // those that it needs, by commas: a name, then counts
    bool repeats = false;
};

constexpr ElementRow kLogRows[] = {
    {"Log"},
    {"Log/NodeCode", Text::Any, "", "no alarm of the gateway's own reaches the cloud platform"},
    {"Log/DebugLog"},
    {"Log/DebugLog/DebugLogSwitch", Text::OneOf, "True,False"},
};
constexpr ElementRow kCloudRows[] = {
    {"CloudConfig"},
    {"CloudConfig/inited", Text::OneOf, "true,false", "no alarm leaves that did not before"},
    {"CloudConfig/RunMode", Text::OneOf, "0,1,2"},
};
constexpr ElementRow kUnitRows[] = {
    {"Content"},
    {"Content/IpConfig"},
    {"Content/IpConfig/IpConfigInfo"},
    {"Content/IpConfig/IpConfigInfo/SignalIpAddress"},
    {"Content/IpConfig/IpConfigInfo/MediaIpAddress"},
};
constexpr ElementRow kAbilityRows[] = {
    {"DeviceList"},
    {"DeviceList/Device", Text::Any, "", nullptr,
     "Id,VideoInNum,AudioInNum,AlarmInNum,AlarmOutNum,TalkbackInNum,TalkbackOutNum,SerialPortNum,NetworkCardNum,"
     "HardDiskNum,PTZNum",
     true},
};
constexpr ElementRow kAlarmTextRows[] = {
    {"AlarmInfoList"},
    {"AlarmInfoList/AlarmInfo", Text::Any, "", nullptr, nullptr, true},
    {"AlarmInfoList/AlarmInfo/AlarmType", Text::Any, "", "nothing finds these texts"},
    {"AlarmInfoList/AlarmInfo/AlarmMode", Text::OneOf, "Device,Business"},
    {"AlarmInfoList/AlarmInfo/AlarmDetailEn"},
    {"AlarmInfoList/AlarmInfo/ExtParam"},
    {"AlarmInfoList/AlarmInfo/AlarmSubDevType"},
};
constexpr ElementRow kAlarmMapRows[] = {
    {"AlarmInfoList"},
    {"AlarmInfoList/AlarmInfo", Text::Any, "", nullptr, nullptr, true},
    {"AlarmInfoList/AlarmInfo/AlarmCode", Text::AlarmCode},
    {"AlarmInfoList/AlarmInfo/AlarmType", Text::AlarmType, "", "no alarm of this code leaves"},
    {"AlarmInfoList/AlarmInfo/AlarmDetailEn"},
    {"AlarmInfoList/AlarmInfo/ExtParam"},
    {"AlarmInfoList/AlarmInfo/AlarmSubDevType"},
    {"AlarmInfoList/AlarmInfo/ACTION"},
    {"AlarmInfoList/AlarmInfo/ACTION/ACTIVE"},
    {"AlarmInfoList/AlarmInfo/ACTION/INACTIVE"},
};

struct Shape {
    template <std::size_t N>
    constexpr explicit Shape(const ElementRow (&rows)[N]) : begin(rows), end(rows + N) {}

    const ElementRow* begin;
    const ElementRow* end;
};

std::string ParentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string NameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

bool IsAmong(const std::vector<std::string>& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

std::string NearestIn(const std::string& misspelt, const std::vector<std::string>& words) {
    const std::vector<std::string> near = NearWords(misspelt, words);
    return near.empty() ? std::string() : "; " + near.front() + " is the nearest";
}

// A type that an alarm has when it leaves, such as ALARM_IPC_SHIELD_ON, without its form and its direction.
std::string NeutralType(std::string type) {
    for (const char* const form : {"_IPC_", "_DVS_", "_DVR_", "_eNVR_"}) {
        if (const std::size_t at = type.find(form); at == type.find('_') && at != std::string::npos) {
            type.erase(at, std::strlen(form) - 1);
            break;
        }
    }
    for (const std::string& direction : {std::string("_ON"), std::string("_OFF")}) {
        if (type.size() > direction.size() &&
            type.compare(type.size() - direction.size(), std::string::npos, direction) == 0) {
            return type.substr(0, type.size() - direction.size());
        }
    }
    return type;
}

// Compares a file with its shape, element by element. One that is no XML is its reader's to tell.
class ShapeCheck {
public:
    // alarmTypes, alarmCodes: those that are known; empty where any is well.
    ShapeCheck(std::string file, const Shape& shape, std::vector<std::string> alarmTypes = {},
               std::vector<std::string> alarmCodes = {})
        : m_file(std::move(file)),
          m_shape(shape),
          m_alarmTypes(std::move(alarmTypes)),
          m_alarmCodes(std::move(alarmCodes)) {}

    // False when the file cannot be read, or is no XML; Xml then tells why.
    bool Run() {
        if (!m_xml.Load(m_file.c_str())) {
            return false;
        }
        CheckLevel("", 1);
        return true;
    }
    const CBB::CXml& Xml() const { return m_xml; }

private:
    struct Found {
        std::string name;
        int line;
    };

    // The elements inside parent, whose line that is; the cursor stands before the first.
    void CheckLevel(const std::string& parent, int line) {
        std::vector<std::string> missing = Inside(parent);
        std::vector<Found> unknown;
        while (m_xml.NextElem()) {
            const std::string name = m_xml.GetElemName();
            const std::string path = parent.empty() ? name : parent + "/" + name;
            const ElementRow* const row = RowOf(path);
            if (row == nullptr) {
                unknown.push_back({name, m_xml.GetElemLine()});
                continue;
            }
            if (!row->repeats) {
                missing.erase(std::remove(missing.begin(), missing.end(), name), missing.end());
            }
            CheckElement(*row, name);
            const int itsLine = m_xml.GetElemLine();
            if (m_xml.IntoElem()) {
                CheckLevel(path, itsLine);
                m_xml.OutOfElem();
            } else {
                TellMissing(Inside(path), path, itsLine);
            }
        }
        for (const Found& element : unknown) {
            const std::string nearest = NearestIn(element.name, missing);
            if (parent.empty() || !nearest.empty()) {
                Tell(element.line, "nobody knows the element <" + element.name + ">" + nearest);
            }
        }
        TellMissing(missing, parent, line);
    }

    void CheckElement(const ElementRow& row, const std::string& name) {
        const char* const value = m_xml.GetElemValue();
        const std::string text = value == nullptr ? "" : value;
        const int line = m_xml.GetElemLine();
        if (!text.empty()) {
            CheckText(row, name, text);
        } else if (row.ifMissing != nullptr) {
            Tell(line, name + " is empty: " + row.ifMissing);
        }
        if (row.attributes != nullptr) {
            CheckAttributes(CGvxUtility::split(row.attributes, ","), name);
        }
    }

    void CheckText(const ElementRow& row, const std::string& name, const std::string& text) {
        std::vector<std::string> known;
        std::string fault;
        switch (row.text) {
            case Text::Any:
                return;
            case Text::OneOf:
                known = CGvxUtility::split(row.choices, ",");
                fault = std::string("none of ") + row.choices;
                break;
            case Text::AlarmCode:
                known = m_alarmCodes;
                fault = "no code that this plug-in raises";
                break;
            case Text::AlarmType:
                known = m_alarmTypes;
                fault = std::string("not among the types of ") + (kAlarmTexts + 1) + ": it leaves as it stands";
                break;
        }
        const bool isForm = row.text == Text::AlarmType && IsAmong(known, NeutralType(text));
        if (!known.empty() && !IsAmong(known, text) && !isForm) {
            Tell(m_xml.GetElemLine(), name + " [" + text + "] is " + fault + NearestIn(text, known));
        }
    }

    void CheckAttributes(const std::vector<std::string>& names, const std::string& element) {
        constexpr std::size_t kMostDigits = 5;
        for (const std::string& name : names) {
            const char* const value = m_xml.GetAttributeValue(name.c_str());
            const std::string text = value == nullptr ? "" : value;
            if (value == nullptr) {
                Tell(m_xml.GetElemLine(),
                     "this " + element + " has no " + name + ": nothing is known of its model and of those behind it");
                return;
            }
            const bool isCount = !text.empty() && text.size() <= kMostDigits && CGvxUtility::isNum(text);
            if (name != names.front() && !isCount) {
                Tell(m_xml.GetElemLine(), name + " [" + text + "] is no count");
            }
        }
    }

    void TellMissing(const std::vector<std::string>& names, const std::string& parent, int line) {
        for (const std::string& name : names) {
            const ElementRow* const row = RowOf(parent.empty() ? name : parent + "/" + name);
            if (row != nullptr && row->ifMissing != nullptr) {
                Tell(line, "there is no " + name + " in this " + NameOf(parent) + ": " + row->ifMissing);
            }
        }
    }

    const ElementRow* RowOf(const std::string& path) const {
        const ElementRow* const row =
            std::find_if(m_shape.begin, m_shape.end, [&path](const ElementRow& known) { return path == known.path; });
        return row == m_shape.end ? nullptr : row;
    }

    std::vector<std::string> Inside(const std::string& parent) const {
        std::vector<std::string> names;
        for (const ElementRow* row = m_shape.begin; row != m_shape.end; ++row) {
            const std::string path = row->path;
            if (ParentOf(path) == parent) {
                names.push_back(NameOf(path));
            }
        }
        return names;
    }

    void Tell(int line, const std::string& text) {
        if (++m_told <= kMostFindings) {
            TellFinding({Weight::Warning, m_file, line, text});
        }
    }

    const std::string m_file;
    const Shape m_shape;
    const std::vector<std::string> m_alarmTypes;
    const std::vector<std::string> m_alarmCodes;
    CBB::CXml m_xml;
    int m_told = 0;
};

// A prefix of a mode's word counts as the mode.
bool IsNetworkMode(const std::string& word, const std::vector<std::string>& modes) {
    return !word.empty() && std::any_of(modes.begin(), modes.end(), [&word](const std::string& mode) {
        return mode.compare(0, word.size(), word) == 0;
    });
}

void CheckNetworkFile(const std::string& file) {
    const std::vector<std::string> modes = {"standard", "simplify", "compatible"};
    const std::vector<std::string> roles = {"INTERNAL_API", "EXTERNAL_API"};
    const std::vector<std::string> keys = {"NETWORK_MODE", roles[0], roles[1]};
    std::string content;
    std::string line;
    std::string key;
    std::string value;
    if (!ReadWholeFile(file, kMaxConfigBytes, content)) {
        return;  // it need not be there
    }
    std::istringstream lines(content);
    for (int number = 1, told = 0; told < kMostFindings && std::getline(lines, line); ++number) {
        std::string text;
        char address[INET_ADDRSTRLEN] = {};
        if (!SplitSetting(line, key, value) || key.empty() || key[0] == '#' || key[0] == ';') {
            continue;
        }
        if (key == keys[0] && !IsNetworkMode(value, modes)) {
            text = key + "=[" + value + "] is no mode: standard, simplify or compatible" + NearestIn(value, modes);
        } else if (IsAmong(roles, key) && ZVS_GetIpByNetworkface(value.c_str(), address) != 0) {
            text = key + "=[" + value + "]: no network interface of that name has an IPv4 address now";
        } else if (!IsAmong(keys, key) && !NearestIn(key, keys).empty()) {
            text = "nobody knows the key [" + key + "]" + NearestIn(key, keys);
        }
        if (!text.empty()) {
            ++told;
            TellFinding({Weight::Warning, file, number, text});
        }
    }
}

// One that no other check reads.
void CheckOwnXml(const std::string& file, const Shape& shape, const char* ifMissing) {
    ShapeCheck check(file, shape);
    if (access(file.c_str(), F_OK) != 0) {
        if (ifMissing != nullptr) {
            TellFinding({Weight::Warning, file, 0, std::string("there is none: ") + ifMissing});
        }
    } else if (!check.Run()) {
        TellFinding({Weight::Warning, file, check.Xml().FaultLine(), check.Xml().FaultText()});
    }
}

std::vector<std::string> AlarmTypes(const std::string& directory) {
    std::vector<std::string> types;
    CBB::CXml xml;
    if (!xml.Load((directory + kAlarmTexts).c_str()) || !xml.FindElem("AlarmInfoList") || !xml.IntoElem()) {
        return types;
    }
    while (xml.FindElem("AlarmInfo")) {
        if (!xml.IntoElem()) {
            continue;
        }
        const char* const type = xml.FindFirstElem("AlarmType") ? xml.GetElemValue() : nullptr;
        types.emplace_back(type == nullptr ? "" : type);
        xml.OutOfElem();
    }
    return types;
}

}  // namespace

void CheckSideFiles(const std::string& directory) {
    CheckNetworkFile(directory + "/network.conf");
    CheckOwnXml(directory + "/log.xml", Shape(kLogRows), kLogRows[1].ifMissing);
    CheckOwnXml(directory + "/other/device_ability.xml", Shape(kAbilityRows), nullptr);
    ShapeCheck(directory + kAlarmTexts, Shape(kAlarmTextRows)).Run();
    ShapeCheck(RootedPath(GVX_CLOUD_CONFIG_PATH), Shape(kCloudRows)).Run();
    ShapeCheck(RootedPath(GVXCONFIG_OMU_COMMON_CONFIG_PATH), Shape(kUnitRows)).Run();
}

void CheckAlarmMap(const std::string& file, const std::vector<std::string>& codes) {
    std::string directory;
    if (get_config_directory(directory) == 0) {
        ShapeCheck(file, Shape(kAlarmMapRows), AlarmTypes(directory), codes).Run();
    }
}

}  // namespace gvx
