#include "gvx_common/config/config_findings.h"

#include "base/log.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

namespace gvx {
namespace {

constexpr const char* kTitle = "Configuration";

struct Kept {
    std::mutex mutex;  // Guards all below; no other lock is taken under it.
    bool keeps = false;
    std::vector<ConfigFinding> findings;
};

// Never destroyed: a plug-in's thread may still tell while static objects end.
Kept& TheKept() {
    static Kept& kept = *new Kept;
    return kept;
}

}  // namespace

std::string ConfigFinding::Line() const {
    return file.empty() ? text : file + (line > 0 ? ":" + std::to_string(line) : std::string()) + ": " + text;
}

void TellFinding(ConfigFinding finding) {
    if (finding.weight == ConfigFinding::Weight::Warning) {
        GVX_LOG_WARN(kTitle, "%s", finding.Line().c_str());
    } else {
        GVX_LOG_ERR(kTitle, "%s", finding.Line().c_str());
    }
    const std::lock_guard<std::mutex> guard(TheKept().mutex);
    if (TheKept().keeps) {
        TheKept().findings.push_back(std::move(finding));
    }
}

FindingsKeeper::FindingsKeeper() {
    const std::lock_guard<std::mutex> guard(TheKept().mutex);
    TheKept().keeps = true;
}

FindingsKeeper::~FindingsKeeper() {
    const std::lock_guard<std::mutex> guard(TheKept().mutex);
    TheKept().keeps = false;
    TheKept().findings.clear();
}

std::vector<ConfigFinding> FindingsKeeper::All() const {
    const std::lock_guard<std::mutex> guard(TheKept().mutex);
    return TheKept().findings;
}

std::string FindingsKeeper::WhyNoStart() const {
    const std::vector<ConfigFinding> all = All();
    const auto found = std::find_if(all.begin(), all.end(), [](const ConfigFinding& finding) {
        return finding.weight == ConfigFinding::Weight::StopsStart;
    });
    return found != all.end() ? found->Line() : std::string();
}

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
