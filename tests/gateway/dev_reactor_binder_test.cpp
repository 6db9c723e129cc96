#include "gateway/devices/dev_reactor_binder.h"

#include "gateway/devices/history_sweep.h"
#include "nss/nss_msg_type.h"
#include "support/caught_frames.h"
#include "support/fake_peer.h"
#include "support/recording_logger.h"
#include "support/test_clock.h"

#include <gtest/gtest.h>

TEST(DevReactorBinderTest, KeyStaysBoundWhileAnAdditionWaits) {
    gvx::DevReactorBinder binder;
    ASSERT_EQ(binder.InitPool(2), 0);
    std::string reason;
    CGvxReactor* reactor = binder.BindForAddition("B1", reason);
    ASSERT_NE(reactor, nullptr);
    EXPECT_EQ(binder.BindForAddition("B1", reason), reactor);
    binder.SettleAddition("B1", false);
    EXPECT_EQ(binder.Find("B1"), reactor) << "the second addition still waits";
    binder.SettleAddition("B1", true);
    EXPECT_EQ(binder.Find("B1"), reactor) << "the device exists";
    EXPECT_EQ(binder.BindForAddition("B1", reason), reactor);
    binder.SettleDeletion("B1");
    EXPECT_EQ(binder.Find("B1"), reactor) << "a re-addition waits behind the deletion";
    binder.SettleAddition("B1", false);
    EXPECT_EQ(binder.Find("B1"), nullptr);
    binder.Sweep();
    EXPECT_EQ(binder.Bind("B1"), reactor) << "it returns to its reactor";
    binder.SettleDeletion("B1");
}

TEST(DevReactorBinderTest, RoomForAFailedAdditionComesBackWithTime) {
    ScopedTestClock clock;
    gvx::DevReactorBinder binder;
    ASSERT_EQ(binder.InitPool(1), 0);
    binder.SetMaxDevices(1);
    std::string reason;
    ASSERT_NE(binder.BindForAddition("L1", reason), nullptr);
    EXPECT_EQ(binder.BindForAddition("L2", reason), nullptr) << "one device may be there";
    binder.SettleAddition("L1", false);
    EXPECT_EQ(binder.BindForAddition("L2", reason), nullptr) << "one may have gone";
    clock->AdvanceSeconds(1800);
    binder.Sweep();
    EXPECT_EQ(binder.BindForAddition("L2", reason), nullptr);
    clock->AdvanceSeconds(1);
    binder.Sweep();
    EXPECT_NE(binder.BindForAddition("L2", reason), nullptr) << reason;
    binder.SettleAddition("L2", false);
}

TEST(HistorySweepTest, ForgetsTransactionsThatNobodyAnswered) {
    const ScopedRecordingLogger log;
    ScopedTestClock clock;
    const CaughtFrames frames;
    gvx::DevReactorBinder binder;
    auto& sweep = gvx::HistorySweep::Instance();
    ASSERT_TRUE(sweep.Start(binder, 86400));
    ACE_Message_Block* block = BlockOf(FakePeer::MakeFrame(NSS_ALARM_REPORT_REQ, 1, "nobody"));
    ASSERT_EQ(
        BP::CDispatcher::dispatcherOutWithTransaction(1, 0, "GVX#900", "nobody", NSS_ALARM_REPORT_REQ, block, false, 0),
        0);
    clock->AdvanceSeconds(61);
    sweep.handle_timeout(ACE_Time_Value::zero, nullptr);
    EXPECT_EQ(BP::CTransactionMgr::OpenTransactions(), 0u);
    EXPECT_TRUE(log->Contains("1 requests of the gateway were not answered in time."));
    sweep.Stop();
}
