#include "gateway/number_setting.h"

#include "gateway/request_body.h"
#include "gvx_common/config/gvx_config_mgr.h"

#include <string>

namespace gvx {

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
