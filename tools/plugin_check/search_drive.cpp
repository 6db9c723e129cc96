#include "plugin_check/search_drive.h"

#include "base/fixed_text.h"
#include "gvx_common/adapter/gvx_adapter_sdk.h"
#include "plugin_check/drive.h"
#include "plugin_check/journal.h"
#include "plugin_check/plugin_reports.h"

#include <chrono>
#include <string>
#include <thread>

namespace plugin_check {

namespace {

// A search that nobody answers takes some 15 s.
constexpr std::chrono::seconds kSearchLimit(60);

}  // namespace

bool StartSearch(CAdapterSdkBase& sdk, const DriveOptions& options, Journal& journal) {
    PluginReports::Instance().SearchRuns(true);
    CDiscoveryDeviceInfo request;
    DISCOVERY_IP_INFO range{};
    if (!gvx::PutText(range.strStartIp, options.ip) || !gvx::PutText(range.strEndIp, options.ip)) {
        return false;
    }
    range.iPort = options.port;
    request.DiscDevIpRangeList.push_back(range);
    const auto start = [&] { return sdk.StartSearchDevice(&request); };
    if (journal.Call(kSdk, "StartSearchDevice", start) != 0) {
        return false;
    }
    journal.MustRefuse(kSdk, "StartSearchDevice during a search", start);
    return true;
}

void EndSearch(CAdapterSdkBase& sdk, Journal& journal) {
    const auto end = std::chrono::steady_clock::now() + kSearchLimit;
    const auto percent = [] { return PluginReports::Instance().LastPercent(); };
    while (percent() < 100 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (percent() < 100) {
        journal.Broken(kSdk, "a search", "has not come to its end at " + std::to_string(percent()) + " %");
    }
    journal.Call(kSdk, "StopSearchDevice", [&] {
        sdk.StopSearchDevice();
        return 0;
    });
    // The last report comes ahead of the search's end, and nobody may be at work in an object that is destroyed.
    if (!sdk.WaitSearchEnd(10000)) {
        journal.Broken(kSdk, "a search", "its threads do not end");
    }
    PluginReports::Instance().SearchRuns(false);
    journal.Figure(kSdk, "a search", PluginReports::Instance().FoundText());
}

}  // namespace plugin_check
