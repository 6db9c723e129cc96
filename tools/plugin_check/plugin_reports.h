#pragma once

#include <cstddef>
#include <mutex>
#include <set>
#include <string>

class CAdapterSdkBase;
struct ADAPTER_COMMON_MESSAGE;
struct CDiscoveryDeviceInfo;

namespace plugin_check {

class Journal;

// What the plug-in reports by its callbacks, and whether it may at that moment. The callbacks know no object, so there
// is one for the process. Any thread.
class PluginReports {
public:
    static PluginReports& Instance();

    // Hands the callbacks to the plug-in; what they break goes into the journal, which outlives the plug-in.
    void Listen(CAdapterSdkBase& sdk, Journal& journal);

    // From its making to its deletion a device may report.
    void DeviceLives(const std::string& code, bool lives);
    // From now on nothing may.
    void AdapterGone();

    void SearchRuns(bool runs);
    int LastPercent() const;
    // The devices that searches have found: their number, and each in words.
    std::string FoundText() const;
    int Alarms() const;

    void OnCommonMessage(const ADAPTER_COMMON_MESSAGE& message);
    void OnAlarm(const char* device, const char* json);
    void OnDiscovered(const CDiscoveryDeviceInfo* report);

private:
    void JudgeReporterLocked(const char* callback, const std::string& device);

    mutable std::mutex m_mutex;
    Journal* m_journal = nullptr;    // Guarded by m_mutex, as is all below.
    std::set<std::string> m_living;  // codes of devices
    bool m_adapterGone = false;
    int m_alarms = 0;
    int m_lastPercent = 0;
    bool m_searching = false;
    std::size_t m_found = 0;
    std::string m_foundText;
};

}  // namespace plugin_check
