#include "gateway/settings/number_setting.h"

#include "gvx_common/config/gvx_config_mgr.h"

#include <cerrno>
#include <cstdlib>

namespace gvx {

bool ReadNumber(const std::string& text, long long least, long long most, long long& value) {
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || number < least || number > most) {
        return false;
    }
    value = number;
    return true;
}

StartResult ReadSetting(const NumberSetting& setting, long long& value) {
    value = setting.fallback;
    const std::string text = CGvxConfigMgr::Instance()->GetConfValue(setting.key, std::to_string(setting.fallback));
    if (ReadNumber(text, setting.least, setting.most, value)) {
        return {};
    }
    return StartFailure(ExitCode::ConfigRefused, std::string(setting.key) + " is not one of " +
                                                     std::to_string(setting.least) + " to " +
                                                     std::to_string(setting.most) + ": " + text);
}

}  // namespace gvx
