#include "gvx_common/adapter/gvx_adapter_sdk.h"

#include "base/fixed_text.h"
#include "support/settings_folder.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace {

struct Report {
    int percent;
    std::vector<std::string> devices;
};

std::mutex g_mutex;
std::vector<Report> g_reports;  // Guarded by g_mutex.

void TakeReport(CDiscoveryDeviceInfo* info) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_reports.push_back({info->iPercent, {}});
    for (const DeviceDiscoveryInfo& device : info->DiscDevInfoList) {
        g_reports.back().devices.push_back(device.szIp);
    }
}

std::size_t ReportCount() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_reports.size();
}

class ProbingSdk : public CAdapterSdkBase {
public:
    explicit ProbingSdk(std::function<void(ProbingSdk&, const std::list<std::string>&)> probe)
        : m_probe(std::move(probe)) {
        SetDiscoveryDeviceCallback(&TakeReport);
        const std::lock_guard<std::mutex> lock(g_mutex);
        g_reports.clear();
    }
    ~ProbingSdk() override {
        StopSearchDevice();
        EXPECT_TRUE(WaitSearchEnd(20000));
    }

    bool Init(const char*) override { return true; }
    int CreateDevice(const MainDeviceInfo&, CAdapterDevBase*&) override { return ZVS_GVX_DEV_UN_SUPPORT; }
    void SendLocalProbeMessage(std::list<std::string>& addresses) override { m_probe(*this, addresses); }
    void SendRemoteProbeMessage(std::list<std::string>& addresses) override { m_probe(*this, addresses); }

    void Found(const std::string& address) {
        DeviceDiscoveryInfo device{};
        EXPECT_TRUE(gvx::PutText(device.szIp, address));
        UpdateDiscoveryDeviceList(device);
    }
    void BePassive() { m_enUpdatePrecentMode = Update_Precent_Mode_Passive; }
    using CAdapterSdkBase::IsSearchOver;

private:
    const std::function<void(ProbingSdk&, const std::list<std::string>&)> m_probe;
};

DISCOVERY_IP_INFO Range(const std::string& first, const std::string& last) {
    DISCOVERY_IP_INFO range{};
    EXPECT_TRUE(gvx::PutText(range.strStartIp, first) && gvx::PutText(range.strEndIp, last));
    return range;
}

CDiscoveryDeviceInfo Request(const std::string& first, const std::string& last) {
    CDiscoveryDeviceInfo request;
    request.DiscDevIpRangeList.push_back(Range(first, last));
    return request;
}

// Lets time go by until the search has reported 100 percent, and gives what it reported in all.
std::vector<Report> ReportsUntilDone(TestClock& clock) {
    EXPECT_TRUE(WaitUntil(
        [&clock] {
            clock.AdvanceMs(100);
            const std::lock_guard<std::mutex> lock(g_mutex);
            return !g_reports.empty() && g_reports.back().percent == 100;
        },
        std::chrono::seconds(60)));
    const std::lock_guard<std::mutex> lock(g_mutex);
    for (std::size_t i = 1; i < g_reports.size(); ++i) {
        EXPECT_LE(g_reports[i - 1].percent, g_reports[i].percent);
    }
    return std::move(g_reports);
}

std::multiset<std::string> DevicesOf(const std::vector<Report>& reports) {
    std::multiset<std::string> devices;
    for (const Report& report : reports) {
        devices.insert(report.devices.begin(), report.devices.end());
    }
    return devices;
}

TEST(Discovery, EachNewDeviceOfASegmentIsReportedOnce) {
    ScopedTestClock clock;
    ProbingSdk sdk([](ProbingSdk& self, const std::list<std::string>& addresses) {
        EXPECT_EQ(254u, addresses.size());
        EXPECT_EQ("127.0.7.1", addresses.front());
        int left = 200;
        for (auto address = addresses.begin(); left > 0; ++address, --left) {
            self.Found(*address);
            self.Found(*address);
        }
    });
    CDiscoveryDeviceInfo request = Request("127.0.7.1", "127.0.7.254");
    std::multiset<std::string> expected;
    for (int i = 1; i <= 200; ++i) {
        const std::string address = "127.0.7." + std::to_string(i);
        if (i % 2 == 0) {
            request.AddedDevList.push_back(address);
        } else {
            expected.insert(address);
        }
    }
    ASSERT_EQ(0, sdk.StartSearchDevice(&request));
    const std::vector<Report> reports = ReportsUntilDone(*clock);
    EXPECT_EQ(expected, DevicesOf(reports));
    EXPECT_EQ(15u, reports.size());  // 6, 12 ... 84, and 100 at the fifteenth tick
    EXPECT_EQ(6, reports.front().percent);
}

TEST(Discovery, ASecondStartIsRefusedAndAStopEndsTheSearch) {
    ScopedTestClock clock;
    ProbingSdk sdk([](ProbingSdk& self, const std::list<std::string>& addresses) {
        self.Found(addresses.front());
        EXPECT_TRUE(WaitUntil([&self] { return self.IsSearchOver(); }));
    });
    CDiscoveryDeviceInfo request = Request("127.0.7.1", "127.0.7.9");
    CDiscoveryDeviceInfo other = Request("127.0.8.1", "127.0.8.9");
    EXPECT_EQ(ZVS_NULL_POINTER, sdk.StartSearchDevice(nullptr));
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(0, sdk.StartSearchDevice(&request)) << round;
        EXPECT_EQ(ZVS_GVX_DEV_DISCOVERY_RUNNING, sdk.StartSearchDevice(&other));
        ASSERT_TRUE(WaitUntil([&sdk] { return sdk.GetSendProbeStatus() == Send_Probe_Status_Running; }));
        sdk.StopSearchDevice();
        EXPECT_EQ(std::multiset<std::string>{"127.0.7.1"}, DevicesOf(ReportsUntilDone(*clock)));
        ASSERT_TRUE(sdk.WaitSearchEnd(20000));
    }
}

TEST(Discovery, EndsInTimeAndNeverLetsTheNextStartWaitForEver) {
    const ScopedSettings settings("[DISCOVERY]\nDISCOVERY_MAX_SECONDS=30\n");
    ScopedTestClock clock;
    std::atomic<bool> release{false};
    ProbingSdk sdk([&release](ProbingSdk&, const std::list<std::string>&) {
        EXPECT_TRUE(WaitUntil([&release] { return release.load(); }, std::chrono::seconds(60)));
    });
    CDiscoveryDeviceInfo request;  // the local segment
    ASSERT_EQ(0, sdk.StartSearchDevice(&request));
    const std::vector<Report> reports = ReportsUntilDone(*clock);
    ASSERT_LE(2u, reports.size());
    EXPECT_EQ(99, reports[reports.size() - 2].percent);
    ASSERT_TRUE(WaitUntil([&sdk] { return sdk.IsSearchOver(); }));
    EXPECT_EQ(ZVS_GVX_DEV_DISCOVERY_RUNNING, sdk.StartSearchDevice(&request));
    release = true;
    ASSERT_TRUE(sdk.WaitSearchEnd(20000));
    EXPECT_EQ(0, sdk.StartSearchDevice(&request));
}

TEST(Discovery, APassiveSearchNeverReportsLessThanBefore) {
    ScopedTestClock clock;
    ProbingSdk sdk([](ProbingSdk& self, const std::list<std::string>&) {
        self.UpdateDiscoveryPrecent(40);
        EXPECT_TRUE(WaitUntil([] {
            const std::lock_guard<std::mutex> lock(g_mutex);
            return !g_reports.empty() && g_reports.back().percent == 40;
        }));
        self.UpdateDiscoveryPrecent(30);
        EXPECT_TRUE(WaitUntil([count = ReportCount()] { return ReportCount() > count + 1; }));
        self.UpdateDiscoveryPrecent(101);
    });
    sdk.BePassive();
    CDiscoveryDeviceInfo request = Request("10.0.0.1", "10.0.0.1");
    ASSERT_EQ(0, sdk.StartSearchDevice(&request));
    EXPECT_TRUE(DevicesOf(ReportsUntilDone(*clock)).empty());
    sdk.Found("late");
}

TEST(Discovery, ExpandsRangesOfOneSegmentEach) {
    const ScopedSettings settings("[MESSAGE]\nGVX_MESSAGE_IP=10.1.2.3\n");
    const struct {
        std::list<DISCOVERY_IP_INFO> ranges;
        std::size_t count;
        const char* first;
        const char* last;
    } kRows[] = {
        {{}, 255, "10.1.2.1", "10.1.2.255"},
        {{Range("10.0.0.250", "10.0.0.300")}, 6, "10.0.0.250", "10.0.0.255"},
        {{Range("10.0.0.256", "10.0.0.257"), Range("10.0.0.5", "10.0.9.6")}, 2, "10.0.0.5", "10.0.0.6"},
        {{Range("10.0.0.9", "10.0.0.8"), Range("10.0.0.9", ""), Range("garbage", "10.0.0.1"), Range("", "")},
         0,
         "",
         ""},
    };
    for (const auto& row : kRows) {
        std::list<std::string> probed;
        ProbingSdk sdk([&probed](ProbingSdk&, const std::list<std::string>& addresses) { probed = addresses; });
        CDiscoveryDeviceInfo request;
        request.DiscDevIpRangeList = row.ranges;
        ASSERT_EQ(0, sdk.StartSearchDevice(&request));
        ASSERT_TRUE(WaitUntil([&sdk] { return sdk.GetSendProbeStatus() == Send_Probe_Status_Finish; }));
        ASSERT_EQ(row.count, probed.size());
        EXPECT_EQ(row.first, probed.empty() ? "" : probed.front());
        EXPECT_EQ(row.last, probed.empty() ? "" : probed.back());
    }
}

}  // namespace
