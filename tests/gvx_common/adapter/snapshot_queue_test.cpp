#include "gvx_common/adapter/gvx_adapter_lens.h"

#include "base/clock.h"
#include "support/run_threads.h"
#include "support/settings_folder.h"
#include "support/test_clock.h"
#include "support/test_lens.h"
#include "support/wait_until.h"

#include <gtest/gtest.h>

#include <atomic>
#include <utility>

namespace {

PU_SNAP_CONF_REQ RequestAt(std::int64_t ageMs) {
    PU_SNAP_CONF_REQ request{};
    request.timeStamp = static_cast<std::uint64_t>(gvx::CurrentClock().WallMicroseconds() / 1000 - ageMs);
    return request;
}

// A lens whose captures wait until the test lets them go.
class CapturingLens : public TestLens {
public:
    explicit CapturingLens(CAdapterDevBase& device) : TestLens(device) {}
    ~CapturingLens() override {
        held = false;
        StopSnapQueueThread();
    }
    int VcuSnapShotReqInfo(const PU_SNAP_CONF_REQ&) override {
        ++captures;
        WaitUntil([this] { return !held; }, std::chrono::seconds(60));
        return 0;
    }
    bool WaitForCaptures(int count) {
        return WaitUntil([this, count] { return captures == count; });
    }

    std::atomic<int> captures{0};
    std::atomic<bool> held{false};
};

TEST(SnapshotQueue, OfABurstFiveWaitAndNoneOlderThanASecondRuns) {
    const ScopedSettings settings("[SNAPSHOT]\nEveryIPC_CapInterval=-5\n");
    ScopedTestClock clock;
    TestDevice device;
    CapturingLens lens(device);
    lens.held = true;
    ASSERT_EQ(0, lens.EnqueueSnapRequest(RequestAt(0)));
    ASSERT_TRUE(lens.WaitForCaptures(1));
    std::atomic<int> accepted{0};
    std::atomic<int> refused{0};
    RunThreads(8, [&](int t) {
        for (int i = t; i < 100; i += 8) {
            const int result = lens.EnqueueSnapRequest(RequestAt(0));
            accepted += result == 0 ? 1 : 0;
            refused += result == ZVS_GVX_GET_SNAP_SHOT_ERROR ? 1 : 0;
        }
    });
    EXPECT_EQ(5, accepted);
    EXPECT_EQ(95, refused);
    clock->AdvanceMs(1001);
    lens.held = false;
    // The late ones leave their places one by one, without a capture.
    ASSERT_TRUE(WaitUntil([&lens] { return lens.EnqueueSnapRequest(RequestAt(1000)) == 0; }));
    ASSERT_TRUE(lens.WaitForCaptures(2));
}

TEST(SnapshotQueue, RequestsRunUpToOneSecondAfterTheyWereMade) {
    const ScopedTestClock clock;
    TestLensOnDevice on;
    for (const auto& [ageMs, runs] : {std::pair{0, true}, {1000, true}, {1001, false}, {-1, false}}) {
        EXPECT_EQ(runs, on.lens.OnCheckSnapShotRequest(RequestAt(ageMs))) << ageMs;
    }
}

TEST(SnapshotQueue, AStopEndsThePauseDropsWhatWaitsAndIsForGood) {
    const ScopedSettings settings("[SNAPSHOT]\nEveryIPC_CapInterval=86400000\n");
    const ScopedTestClock clock;
    TestDevice device;
    CapturingLens lens(device);
    EXPECT_EQ(0, lens.StopSnapQueueThread());  // there is nothing to stop
    ASSERT_EQ(0, lens.EnqueueSnapRequest(RequestAt(0)));
    ASSERT_TRUE(lens.WaitForCaptures(1));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0, lens.EnqueueSnapRequest(RequestAt(0)));
    }
    EXPECT_EQ(0, lens.StopSnapQueueThread());
    EXPECT_EQ(0, lens.EnqueueSnapRequest(RequestAt(0)));  // a new worker ends at its first wake-up
    EXPECT_EQ(0, lens.StopSnapQueueThread());
    EXPECT_EQ(1, lens.captures);
}

}  // namespace
