#include "plugin_check/plugin_reports.h"

#include "base/json_io.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"
#include "gvx_common/records/adapter_common_message.h"
#include "plugin_check/journal.h"

#include <json/value.h>

#include <cstring>

namespace plugin_check {

PluginReports& PluginReports::Instance() {
    static PluginReports* const reports = new PluginReports;  // a plug-in's thread may outlive static objects
    return *reports;
}

void PluginReports::Listen(CAdapterSdkBase& sdk, Journal& journal) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_journal = &journal;
    }
    const auto set = [&](const char* name, auto function) {
        journal.Call(kSdk, name, [&] {
            function();
            return 0;
        });
    };
    set("SetCommonMessageCallback", [&] {
        sdk.SetCommonMessageCallback([](ADAPTER_COMMON_MESSAGE& message) { Instance().OnCommonMessage(message); });
    });
    set("SetAlarmMessageCallback", [&] {
        sdk.SetAlarmMessageCallback([](const char* device, const char* json) { Instance().OnAlarm(device, json); });
    });
    set("SetDiscoveryDeviceCallback",
        [&] { sdk.SetDiscoveryDeviceCallback([](CDiscoveryDeviceInfo* report) { Instance().OnDiscovered(report); }); });
}

void PluginReports::DeviceLives(const std::string& code, bool lives) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (lives) {
        m_living.insert(code);
    } else {
        m_living.erase(code);
    }
}

void PluginReports::AdapterGone() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_adapterGone = true;
}

void PluginReports::SearchRuns(bool runs) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_searching = runs;
}

int PluginReports::LastPercent() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastPercent;
}

std::string PluginReports::FoundText() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::to_string(m_found) + " devices found" + m_foundText;
}

int PluginReports::Alarms() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_alarms;
}

// Reports must name a device that lives.
void PluginReports::JudgeReporterLocked(const char* callback, const std::string& device) {
    if (m_adapterGone) {
        m_journal->Broken(kSdk, callback, "is called after the plug-in object is destroyed");
    } else if (m_living.count(device) == 0) {
        m_journal->Broken(kSdk, callback, "is called for '" + device + "', which is no device or is deleted");
    }
}

void PluginReports::OnCommonMessage(const ADAPTER_COMMON_MESSAGE& message) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    JudgeReporterLocked("the common message callback",
                        std::string(message.chDevId, strnlen(message.chDevId, sizeof(message.chDevId))));
}

void PluginReports::OnAlarm(const char* device, const char* json) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    JudgeReporterLocked("the alarm callback", device == nullptr ? "" : device);
    Json::Value report;
    std::string error;
    if (json == nullptr || !gvx::ParseJson(json, std::strlen(json), report, &error) ||
        !report["AlarmType"].isString() || !report["Action"].isInt()) {
        m_journal->Broken(kSdk, "the alarm callback", "a report is no JSON object with AlarmType and Action");
    }
    ++m_alarms;
}

void PluginReports::OnDiscovered(const CDiscoveryDeviceInfo* report) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (report == nullptr || !m_searching) {
        m_journal->Broken(kSdk, "the discovery callback",
                          report == nullptr ? "a report is null" : "is called while nothing is searched");
        return;
    }
    if (report->iPercent < m_lastPercent || report->iPercent > 100) {
        m_journal->Broken(
            kSdk, "the discovery callback",
            "percentages go from " + std::to_string(m_lastPercent) + " to " + std::to_string(report->iPercent));
    }
    m_lastPercent = report->iPercent;
    for (const DeviceDiscoveryInfo& found : report->DiscDevInfoList) {
        ++m_found;
        m_foundText += std::string(" ") + found.szIp + ":" + std::to_string(found.uiPort) + " \"" + found.szFac + "\"";
    }
}

}  // namespace plugin_check
