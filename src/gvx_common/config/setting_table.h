#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace gvx {

// A setting by its key, so that a reader can only name one that stands in the table.
enum class Setting {
#define GVX_SETTING_OF(file, key, ...) key,
#define GVX_SETTING(key, ...) GVX_SETTING_OF("", key, __VA_ARGS__)
#include "gvx_common/config/setting_table.inc"
#undef GVX_SETTING
#undef GVX_SETTING_OF
};

enum class SettingKind { Number, OneOf, Address, Text, PortRanges, RequestTypes, Networks, Level, KeyLabel, ServerID };

// Which of the platform's own checks a value in a file must pass, or an alarm is raised.
enum class LoadCheck { None, Address, Digits, Range, Formats, Switch, Identity };

// What a number counts as that is outside its range.
enum class Outside {
    Default,
    Nearest,  // the nearer end
    Most,     // the upper end, also below 0; the lower end for what is between
};

// The values of a setting. Bounds are included.
struct SettingRule {
    SettingKind kind = SettingKind::Text;
    long long least = 0;
    long long most = 0;
    LoadCheck check = LoadCheck::None;
    const char* choices = nullptr;  // of OneOf, separated by commas
    Outside outside = Outside::Default;
};

// Who may give a setting which value at run time.
struct SettingEdit {
    enum class By { Nobody, Platform, Operator };
    By by = By::Nobody;
    bool anyValue = false;
    long long least = 0;  // of a number, where that differs from the file's; both 0 otherwise
    long long most = 0;
};

// When a changed value acts. Live: with the next use.
enum class SettingActs { Live, Stream, Start, Never };

struct SettingRow {
    Setting setting;
    const char* file;
    const char* key;
    const char* section;
    SettingRule rule;
    const char* fallback;  // the default; empty for none
    SettingEdit edit;
    SettingActs acts;
    const char* readers;  // rooms of the code, separated by blanks; null when none of this tree reads it
};

// All functions may run on any thread at any time.

const SettingRow& RowOf(Setting setting);
const SettingRow* FindSetting(const std::string& key);  // null for a key that nobody knows
const std::vector<SettingRow>& AllSettings();
bool IsSettingSection(const std::string& section);
// The known key or section that a word most likely means; empty when none is near.
std::string NearKey(const std::string& word);
std::string NearSection(const std::string& word);

// Whether readers take the value as it is.
bool FitsSetting(const SettingRow& row, const std::string& value);
// What readers take for a value: itself where it fits, otherwise the default or the nearest that fits. A list of request
// types, and one of networks, is taken as it is: what is none in it counts for nothing.
std::string ValueInForce(const SettingRow& row, const std::string& value);
// The values as a phrase, such as "0 to 65535" or "an IPv4 address".
std::string SettingValues(const SettingRow& row);
// The page docs/settings.md.
std::string SettingsPage();

// Ports, both ends included.
struct PortRange {
    std::uint16_t from;
    std::uint16_t to;
};
// Reads "<from>-<to>,<from>-<to>"; an empty text gives none. False, with no ranges, for any other text.
bool ReadPortRanges(const std::string& text, std::vector<PortRange>& ranges);

// A number that counts as at least another's multiple, whatever the file says.
struct SettingFloor {
    Setting setting;
    Setting other;
    long long factor;
};
const std::vector<SettingFloor>& SettingFloors();

// The setting's value in force, by the configuration that is loaded (CGvxConfigMgr). SettingNumber is for a setting of
// kind Number alone.
long long SettingNumber(Setting setting);
std::string SettingText(Setting setting);

}  // namespace gvx
