#include "gvx_common/config/config_alarm.h"

#include "base/log.h"

#include <atomic>

namespace gvx {

namespace {

class LogOnly : public ConfigAlarmSink {
public:
    void OnFileFault(const std::string& location, const std::string& description) override {
        Tell(location, description);
    }
    bool OnSideFileFault(const std::string& location, const std::string& description) override {
        Tell(location, description);
        return true;
    }
    void OnIllegalSetting(const std::string& location, const std::string& description) override {
        Tell(location, description);
    }

private:
    static void Tell(const std::string& location, const std::string& description) {
        GVX_LOG_ERR("Configuration alarm", "Configuration cannot be used: %s, description[%s]", location.c_str(),
                    description.c_str());
    }
};

std::atomic<ConfigAlarmSink*> g_sink{nullptr};

}  // namespace

void SetConfigAlarmSink(ConfigAlarmSink* sink) {
    g_sink = sink;
}

ConfigAlarmSink& ConfigAlarms() {
    static LogOnly logOnly;
    ConfigAlarmSink* const sink = g_sink;
    return sink == nullptr ? logOnly : *sink;
}

}  // namespace gvx
