#include "gateway/intake/intake_settings.h"

#include "gvx_common/config/setting_table.h"

namespace gvx {

namespace {

template <typename Number>
void Read(Setting setting, Number& value) {
    value = static_cast<Number>(SettingNumber(setting));
}

}  // namespace

IntakeSettings ReadIntakeSettings() {
    IntakeSettings settings;
    settings.ip = SettingText(Setting::GVX_INTAKE_IP);
    Read(Setting::GVX_INTAKE_PORT, settings.port);
    Read(Setting::GVX_INTAKE_MAX_BLOCKS, settings.limits.maxBlocks);
    Read(Setting::GVX_INTAKE_MAX_WAIT_MS, settings.limits.maxWaitMs);
    Read(Setting::GVX_INTAKE_MAX_RATE, settings.limits.maxRate);
    Read(Setting::GVX_INTAKE_ALARM_INTERVAL, settings.limits.alarmIntervalSec);
    return settings;
}

}  // namespace gvx
