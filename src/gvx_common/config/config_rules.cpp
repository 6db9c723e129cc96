#include "gvx_common/config/config_rules.h"

#include "base/redact.h"
#include "gvx_common/config/setting_table.h"
#include "gvx_common/utility/gvx_utility.h"

namespace gvx {
namespace {

// The number that text begins with, as the platform reads it.
bool IsWithin(const std::string& text, long long least, long long most) {
    const int number = CGvxUtility::toInt(text);
    return number >= least && number <= most;
}

bool IsChoiceNumber(const SettingRow& row, const std::string& text) {
    return FitsSetting(row, std::to_string(CGvxUtility::toInt(text)));
}

}  // namespace

bool CheckSetting(const std::string& key, std::string& value) {
    const SettingRow* const row = FindSetting(key);
    bool legal = true;
    switch (row == nullptr ? LoadCheck::None : row->rule.check) {
        case LoadCheck::None:
            return true;
        case LoadCheck::Address:
        case LoadCheck::Identity:
            return FitsSetting(*row, value);
        case LoadCheck::Digits:
            if (!CGvxUtility::isNum(value)) {
                value.clear();
                return false;
            }
            return true;
        case LoadCheck::Range:
            legal = IsWithin(value, row->rule.least, row->rule.most);
            break;
        case LoadCheck::Formats:
            legal = IsChoiceNumber(*row, value);
            break;
        case LoadCheck::Switch:
            legal = value == "0" || value == "1";
            break;
    }
    if (!legal) {
        value = row->fallback;
    }
    return legal;
}

bool CheckEdit(const std::string& key, const std::string& value) {
    const SettingRow* const row = FindSetting(key);
    if (row == nullptr || row->edit.by != SettingEdit::By::Platform) {
        return false;
    }
    if (row->edit.anyValue) {
        return true;
    }
    if (row->edit.most != 0) {
        return IsWithin(value, row->edit.least, row->edit.most);
    }
    if (row->rule.kind == SettingKind::Number) {
        return IsWithin(value, row->rule.least, row->rule.most);
    }
    return row->rule.kind == SettingKind::OneOf ? IsChoiceNumber(*row, value) : FitsSetting(*row, value);
}

bool IsEditable(const std::string& key) {
    const SettingRow* const row = FindSetting(key);
    return row != nullptr && row->edit.by == SettingEdit::By::Platform;
}

bool ReadsBackEqual(const std::string& value) {
    return value.find(';') == std::string::npos && CGvxUtility::trim(value) == value;
}

bool IsSecretName(const std::string& name) {
    const std::string line = name + "=x";
    return RedactSecrets(line) != line;
}

const char* LoggableValue(const std::string& name, const char* value) {
    return IsSecretName(name) ? "***" : value;
}

}  // namespace gvx
