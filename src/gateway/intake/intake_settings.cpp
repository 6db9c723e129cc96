#include "gateway/intake/intake_settings.h"

#include "gateway/settings/number_setting.h"
#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/utility/gvx_utility.h"

namespace gvx {

namespace {

template <typename Number>
StartResult Read(const NumberSetting& setting, Number& value) {
    long long number = 0;
    StartResult result = ReadSetting(setting, number);
    value = static_cast<Number>(number);
    return result;
}

}  // namespace

StartResult ReadIntakeSettings(IntakeSettings& settings) {
    settings.ip = CGvxConfigMgr::Instance()->GetConfValue("GVX_INTAKE_IP", settings.ip);
    if (!CGvxUtility::IsIPv4(settings.ip.c_str())) {
        return StartFailure(ExitCode::ConfigRefused, "GVX_INTAKE_IP is no IPv4 address: " + settings.ip);
    }
    IntakeLimits& limits = settings.limits;
    StartResult result = Read({"GVX_INTAKE_PORT", 0, 0, 65535}, settings.port);
    if (!result.Failed()) {
        result = Read({"GVX_INTAKE_MAX_BLOCKS", limits.maxBlocks, 1, 1000000}, limits.maxBlocks);
    }
    if (!result.Failed()) {
        result = Read({"GVX_INTAKE_MAX_WAIT_MS", limits.maxWaitMs, 1000, 3600000}, limits.maxWaitMs);
    }
    if (!result.Failed()) {
        result = Read({"GVX_INTAKE_MAX_RATE", limits.maxRate, 0, 1000000}, limits.maxRate);
    }
    if (!result.Failed()) {
        result = Read({"GVX_INTAKE_ALARM_INTERVAL", limits.alarmIntervalSec, 1, 86400}, limits.alarmIntervalSec);
    }
    return result;
}

}  // namespace gvx
