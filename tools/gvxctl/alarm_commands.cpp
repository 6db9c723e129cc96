#include "gvxctl/alarm_commands.h"

#include "base/clock.h"
#include "base/json_io.h"
#include "gvxctl/alarm_records.h"
#include "gvxctl/frame_text.h"
#include "gvxctl/platform.h"
#include "gvxctl/progress.h"
#include "gvxctl/terminal.h"

#include <cstdio>
#include <functional>
#include <mutex>
#include <utility>

#include <sys/socket.h>

namespace gvxctl {
namespace {

constexpr int kConnectTimeoutMs = 5000;
constexpr int kStepMs = 20;

// Prints alarms as they come, on the threads of the links, and counts them.
class AlarmPrinter {
public:
    explicit AlarmPrinter(const AlarmsOptions& options) : m_options(options) {}

    void OnFrame(const std::string& linkId, const Frame& frame);
    // Called before an alarm is printed. Before the first link.
    void Before(std::function<void()> call) { m_before = std::move(call); }
    int Count() const;
    bool Enough() const;
    bool Judge(std::string& error) const;

private:
    void Print(const std::string& linkId, const Alarm& alarm) const;

    AlarmsOptions m_options;
    std::function<void()> m_before;
    mutable std::mutex m_mutex;  // guards the counts and keeps alarms apart in the output
    int m_alarms = 0;
    int m_faults = 0;
};

void AlarmPrinter::OnFrame(const std::string& linkId, const Frame& frame) {
    if (!IsAlarmFrame(frame)) {
        return;
    }
    Alarm alarm;
    std::string error;
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_options.count > 0 && m_alarms >= m_options.count) {
        return;  // what comes between the last one asked for and the end
    }
    if (!DecodeAlarm(frame, alarm, error)) {
        ++m_faults;
        Fail(kExitRefused, "bad alarm on " + linkId + ": " + error);
        return;
    }
    ++m_alarms;
    m_before();
    Print(linkId, alarm);
}

void AlarmPrinter::Print(const std::string& linkId, const Alarm& alarm) const {
    if (m_options.json) {
        Json::Value value = AlarmToJson(alarm);
        value["link"] = linkId;
        value["receivedAt"] = static_cast<Json::Value::Int64>(gvx::WallSeconds());
        std::fputs(gvx::WriteJson(value).c_str(), stdout);
    } else {
        const std::string fields = m_options.full ? "\n" + AlarmFields(alarm, "    ") : std::string();
        gvxctl::Print(Printable(AlarmLine(alarm) + fields));
    }
    std::fflush(stdout);
}

int AlarmPrinter::Count() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_alarms;
}

bool AlarmPrinter::Enough() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_options.count > 0 && m_alarms >= m_options.count;
}

bool AlarmPrinter::Judge(std::string& error) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_faults > 0) {
        error = std::to_string(m_faults) + " alarms could not be decoded";
    } else if (m_alarms < m_options.count) {
        error = std::to_string(m_alarms) + " alarms came instead of " + std::to_string(m_options.count);
    }
    return error.empty();
}

}  // namespace

int RunAlarms(const CommonOptions& common, const AlarmsOptions& options) {
    AlarmPrinter printer(options);
    Progress progress("waiting for alarms", [&printer] { return std::to_string(printer.Count()) + " have come"; });
    printer.Before([&progress] { progress.Hide(); });
    Platform platform(
        common.gateway, [&](const std::string& linkId, const Frame& frame) { printer.OnFrame(linkId, frame); },
        common.ports);
    std::string error;
    if (!platform.LinkMainService(error) || !platform.LinkOmu(error)) {
        return Fail(kExitNoLink, error);
    }
    const std::int64_t end = gvx::MonotonicMilliseconds() + options.seconds * 1000LL;
    while (!printer.Enough() && platform.OpenLinks().size() == 2 &&
           (options.seconds == 0 || gvx::MonotonicMilliseconds() < end) && SleepUnlessInterrupted(kStepMs)) {
    }
    if (!printer.Enough() && platform.OpenLinks().size() < 2) {
        return Fail(kExitNoLink, "the gateway has closed a link");
    }
    return printer.Judge(error) ? kExitOk : Fail(kExitRefused, error);
}

std::string TriggerLine(const TriggerOptions& options) {
    Json::Value line;
    line["device"] = options.device;
    if (options.channel >= 0) {
        line["channel"] = options.channel;
    }
    line["code"] = options.code;
    line["action"] = options.action;
    if (!options.description.empty()) {
        line["description"] = options.description;
    }
    return gvx::WriteJson(line);
}

int RunAlarmTrigger(const TriggerOptions& options) {
    std::string error;
    const gvx::UniqueFd intake = ConnectTcp(options.intake, kConnectTimeoutMs, error);
    if (!intake.Valid()) {
        return Fail(kExitNoLink, error);
    }
    const std::string line = TriggerLine(options);
    if (!SendAll(intake.Get(), line.data(), line.size(), kConnectTimeoutMs)) {
        return Fail(kExitRefused, "the intake did not take the line");
    }
    // An end behind the line, and the other side's end in turn: it has read everything by then.
    ::shutdown(intake.Get(), SHUT_WR);
    if (!WaitReadable(intake.Get(), kConnectTimeoutMs)) {
        return Fail(kExitRefused, "the intake has not ended the connection, the line may not have been read");
    }
    std::fputs(("sent " + line).c_str(), stdout);
    return kExitOk;
}

}  // namespace gvxctl
