#include "gvx_common/event/gvx_dev_reactor_mgr.h"

#include "event_test_support.h"
#include "support/recording_logger.h"
#include "support/test_clock.h"

namespace {

class GvxDevReactorMgrTest : public ::testing::Test {
protected:
    CGvxReactor* Bind(const std::string& key) { return m_mgr.ScheduleReactor(key); }
    ScopedTestClock m_clock;
    CGvxDevReactorMgr m_mgr;
};

TEST_F(GvxDevReactorMgrTest, DeviceReturnsToItsReactorAndNewOnesGoToTheIdlest) {
    EXPECT_EQ(nullptr, Bind("A")) << "of an empty pool";
    EXPECT_EQ(nullptr, m_mgr.FindAndReleaseReactor("A"));
    ASSERT_EQ(0, m_mgr.ReactorPoolInit(8));
    CGvxReactor* first = Bind("A");
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, Bind("A"));
    EXPECT_EQ(first, m_mgr.FindReactor("A"));
    EXPECT_EQ(1, first->GetEventHandleNum()) << "counted once";
    CGvxReactor* second = Bind("B");
    EXPECT_NE(first, second);
    EXPECT_EQ(first, m_mgr.FindAndReleaseReactor("A"));
    EXPECT_EQ(nullptr, m_mgr.FindReactor("A"));
    EXPECT_EQ(0, first->GetEventHandleNum());
    EXPECT_EQ(1, first->GetHistoryTrackNum());
    CGvxReactor* third = Bind("C");
    EXPECT_NE(first, third) << "its track makes the first one fuller than an unused one";
    EXPECT_NE(second, third);
    EXPECT_EQ(first, Bind("A"));
    EXPECT_EQ(1, first->GetHistoryTrackNum()) << "the track was there already";
    EXPECT_EQ(first, m_mgr.FindAndReleaseReactor("A"));
    EXPECT_EQ(first, m_mgr.FindAndReleaseReactor("A")) << "not bound any more: from its track";
    EXPECT_EQ(0, first->GetEventHandleNum()) << "and detached once";
}

TEST_F(GvxDevReactorMgrTest, TracksExpireStrictlyAfterTheLimit) {
    const ScopedSettings setting("MAX_DEV_REACTOR_NUM=2\n");
    ASSERT_EQ(0, m_mgr.ReactorPoolInit(2));
    CGvxReactor* reactor = Bind("A");
    Bind("bound");
    m_mgr.FindAndReleaseReactor("A");
    m_clock->AdvanceSeconds(100);
    m_mgr.FindAndReleaseReactor("A");  // refreshes the track
    m_clock->AdvanceSeconds(1800);
    m_mgr.DelExpiredHistoryTrack();
    EXPECT_EQ(1, reactor->GetHistoryTrackNum()) << "exactly as old as the limit";
    m_clock->AdvanceSeconds(1);
    m_mgr.DelExpiredHistoryTrack();
    EXPECT_EQ(0, reactor->GetHistoryTrackNum());
    EXPECT_EQ(1, m_mgr.FindReactor("bound")->GetHistoryTrackNum()) << "a bound device is never swept";
}

TEST_F(GvxDevReactorMgrTest, PoolGrowsOneBindBeforeTheLastFreeReactorUpToItsMaximumAndThenShares) {
    const ScopedSettings setting("MAX_DEV_REACTOR_NUM=5\n");
    ASSERT_EQ(0, m_mgr.ReactorPoolInit(4));
    ScopedRecordingLogger log;
    CGvxReactor* first = Bind("A");
    Bind("B");
    EXPECT_FALSE(log->Contains("will expand size"));
    Bind("C");
    EXPECT_TRUE(log->Contains("ReactorPool,current size[4], will expand size["));
    Bind("D");
    EXPECT_TRUE(log->Contains(", cannot expand"));
    Bind("E");
    EXPECT_EQ(first, Bind("F")) << "ties go to the lowest index";
    EXPECT_EQ(2, first->GetEventHandleNum());
}

}  // namespace
