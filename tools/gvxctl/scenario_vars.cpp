#include "gvxctl/scenario_vars.h"

namespace gvxctl {

bool FillText(std::string& text, const VarLookup& valueOf, const std::string& later, std::string& error) {
    for (std::size_t begin = text.find("${"); begin != std::string::npos; begin = text.find("${", begin)) {
        const std::size_t end = text.find('}', begin);
        if (end == std::string::npos) {
            error = "a \"${\" has no end";
            return false;
        }
        const std::string name = text.substr(begin + 2, end - begin - 2);
        std::string value;
        if (valueOf(name, value)) {
            text.replace(begin, end + 1 - begin, value);
            begin += value.size();
        } else if (!later.empty() && name.compare(0, later.size(), later) == 0) {
            begin = end;
        } else {
            error = "there is no value for \"" + name + "\"";
            return false;
        }
    }
    return true;
}

bool FillJson(Json::Value& value, const ScenarioVars& vars, std::string& error) {
    const auto lookup = [&vars](const std::string& name, std::string& found) {
        const auto entry = vars.find(name);
        found = entry == vars.end() ? std::string() : entry->second;
        return entry != vars.end();
    };
    if (value.isString()) {
        std::string text = value.asString();
        const bool good = FillText(text, lookup, "port:", error);
        value = text;
        return good;
    }
    if (value.isArray() || value.isObject()) {
        for (Json::Value& part : value) {
            if (!FillJson(part, vars, error)) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace gvxctl
