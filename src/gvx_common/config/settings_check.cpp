#include "gvx_common/config/settings_check.h"

#include "base/utf8.h"
#include "base/whole_file.h"
#include "gvx_common/config/config_findings.h"
#include "gvx_common/config/config_rules.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/utility/gvx_utility.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <sstream>

namespace gvx {
namespace {

using Weight = ConfigFinding::Weight;

constexpr const char* kLeadingBlanks = "\t ";
constexpr const char* kTrailingBlanks = "\t\r\n ";
constexpr int kMostFindings = 100;  // of one file: one of another kind has something wrong in every line
constexpr std::size_t kShownBytes = 64;
constexpr const char* kFileOfSettings = "zvs_gvx.conf";

std::string WithoutLeadingBlanks(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(kLeadingBlanks);
    return begin == std::string::npos ? std::string() : text.substr(begin);
}

std::string WithoutTrailingBlanks(const std::string& text) {
    // npos + 1 is 0: nothing is left of a text of blanks.
    return text.substr(0, text.find_last_not_of(kTrailingBlanks) + 1);
}

std::string Shown(std::string text) {
    if (text.size() > kShownBytes) {
        text = std::string(CutAtCharacter(text, kShownBytes)) + "...";
    }
    // A terminal may show it.
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }, '?');
    return "[" + text + "]";
}

class FileCheck {
public:
    FileCheck(const std::string& file, FaultyFile faulty) : m_file(file), m_faulty(faulty) {}

    bool Run(const std::string& content) {
        if (content.find('\0') != std::string::npos) {
            m_isUsable = false;
            Tell(Weight::Error, "the file holds zero bytes: it is no text");
        }
        std::istringstream lines(content);
        std::string line;
        while (std::getline(lines, line)) {
            ++m_line;
            const std::string setting = line.substr(0, line.find(';'));
            TakeLine(WithoutTrailingBlanks(WithoutLeadingBlanks(setting)));
            CheckEndOfValue(setting, line.size());
        }
        CheckFloors();
        if (m_told > 0 && !m_anyIsKnown) {
            m_isUsable = false;
            TellFinding(
                {Weight::Error, m_file, 0, "not one setting that is known stands in it: it may be another file"});
        }
        if (m_told > kMostFindings) {
            TellFinding({Weight::Warning, m_file, 0,
                         "there is more of this kind, " + std::to_string(m_told - kMostFindings) + " lines"});
        }
        return m_isUsable;
    }

private:
    void TakeLine(const std::string& line) {
        std::string key;
        std::string value;
        if (m_line == 1 && !line.empty() && line[0] != '[') {
            Tell(Weight::Warning, "the first line loses its first character: begin the file with a comment");
        } else if (SplitSetting(line, key, value)) {
            TakeSetting(key, value);
        } else if (!line.empty() && line[0] == '[') {
            TakeSection(line.substr(1, line.find(']') - 1));
        } else if (!line.empty()) {
            Tell(Weight::Warning, Shown(line) + " is no comment, section or setting; the next edit takes it away");
        }
    }

    // A ';' between two entries of a list begins a comment, too.
    void CheckEndOfValue(const std::string& setting, std::size_t lineBytes) {
        std::string key;
        std::string value;
        if (setting.size() < lineBytes && SplitSetting(setting, key, value) && !value.empty() &&
            WithoutTrailingBlanks(setting) == setting) {
            Tell(Weight::Warning,
                 key + "=" + Shown(LoggableValue(key, value.c_str())) +
                     " ends at the ';' behind it, which begins a comment: put a blank in front of one");
        }
    }

    // The value in force of a number, and the line that it stands on.
    long long NumberOf(Setting setting, int& line) const {
        const SettingRow& row = RowOf(setting);
        const auto found = m_settings.find(row.key);
        line = found != m_settings.end() ? found->second.line : 0;
        const std::string value = found != m_settings.end() ? found->second.value : row.fallback;
        return std::strtoll(ValueInForce(row, value).c_str(), nullptr, 10);
    }

    void CheckFloors() {
        for (const SettingFloor& floor : SettingFloors()) {
            int line = 0;
            int otherLine = 0;
            const long long number = NumberOf(floor.setting, line);
            const long long least = floor.factor * NumberOf(floor.other, otherLine);
            if (number < least) {
                m_line = line != 0 ? line : otherLine;
                Tell(Weight::Warning, std::string(RowOf(floor.setting).key) + "=[" + std::to_string(number) +
                                          "] is too small beside " + RowOf(floor.other).key + "; [" +
                                          std::to_string(least) + "] holds");
            }
        }
    }

    void TakeSection(const std::string& name) {
        m_section = name;
        m_sectionIsKnown = IsSettingSection(name);
        if (!m_sectionIsKnown) {
            Tell(Weight::Warning, "nobody knows the section " + Shown(name) + Nearest(name, &NearSection));
        }
    }

    void TakeSetting(const std::string& key, const std::string& value) {
        const auto [first, isFirst] = m_settings.emplace(key, Place{m_line, value});
        if (!isFirst) {
            Tell(Weight::Warning, key + " stands again; line " + std::to_string(first->second.line) + " counts");
        }
        const SettingRow* const row = FindSetting(key);
        if (row == nullptr) {
            Tell(Weight::Warning, "nobody knows the key " + Shown(key) + Nearest(key, &NearKey));
            return;
        }
        m_anyIsKnown = true;
        if (std::string(row->file) != kFileOfSettings) {
            Tell(Weight::Warning, key + " is looked for in " + row->file + " alone");
            return;
        }
        if (m_sectionIsKnown && m_section != row->section) {
            Tell(Weight::Warning, key + " stands in [" + m_section + "]; edits look for it in [" + row->section + "]");
        }
        CheckValue(*row, value, isFirst);
    }

    // Only for what is told: a file of another kind has a hundred thousand unknown keys, and each look takes 0.1 ms.
    std::string Nearest(const std::string& word, std::string (*find)(const std::string&)) const {
        const std::string near = m_told < kMostFindings ? find(word) : std::string();
        return near.empty() ? near : "; " + near + " is the nearest";
    }

    void CheckValue(const SettingRow& row, const std::string& value, bool counts) {
        std::string checked = value;
        const bool alarmed = !CheckSetting(row.key, checked);
        if (FitsSetting(row, value) || !counts) {
            return;
        }
        m_isUsable = false;
        const bool refused = m_faulty == FaultyFile::IsRefused;
        const std::string inForce = ValueInForce(row, value);
        const bool holdsInPart = !refused && !value.empty() && inForce == value;  // of a list
        Tell(alarmed || refused ? Weight::Error : Weight::Warning,
             std::string(row.key) + "=" + Shown(LoggableValue(row.key, value.c_str())) +
                 (holdsInPart ? " can not be used as a whole, allowed: " : " can not be used, allowed: ") +
                 SettingValues(row) +
                 (refused           ? ""
                  : holdsInPart     ? "; what is allowed of it holds"
                  : inForce.empty() ? "; it counts as not set"
                                    : "; [" + inForce + "] holds"));
    }

    void Tell(Weight weight, const std::string& text) {
        if (++m_told <= kMostFindings) {
            TellFinding({weight, m_file, m_line, text});
        }
    }

    const std::string& m_file;
    const FaultyFile m_faulty;
    bool m_isUsable = true;
    bool m_anyIsKnown = false;
    int m_line = 0;
    int m_told = 0;
    std::string m_section;
    bool m_sectionIsKnown = false;
    struct Place {
        int line;
        std::string value;
    };
    std::map<std::string, Place> m_settings;  // those that count
};

}  // namespace

bool SplitSetting(const std::string& rawLine, std::string& key, std::string& value) {
    const std::string line = WithoutTrailingBlanks(WithoutLeadingBlanks(rawLine));
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) {
        return false;
    }
    key = WithoutTrailingBlanks(line.substr(0, equals));
    value = WithoutLeadingBlanks(line.substr(equals + 1));
    return true;
}

bool PeekSetting(const std::string& directory, Setting setting, std::string& value) {
    const SettingRow& row = RowOf(setting);
    std::string content;
    if (!ReadWholeFile(directory + "/" + row.file, kMaxConfigBytes, content) || content.empty()) {
        return false;
    }
    value = row.fallback;
    std::istringstream lines(content.substr(1));
    std::string line;
    std::string key;
    std::string found;
    while (std::getline(lines, line)) {
        if (SplitSetting(line.substr(0, line.find(';')), key, found) && key == row.key) {
            value = ValueInForce(row, found);
            break;
        }
    }
    return true;
}

bool CheckSettingsFile(const std::string& file, const std::string& content, FaultyFile faulty) {
    return FileCheck(file, faulty).Run(content);
}

}  // namespace gvx
