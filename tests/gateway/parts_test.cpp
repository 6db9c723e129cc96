#include "bp/dispatcher.h"
#include "gateway/devices/dev_reactor_binder.h"
#include "gateway/devices/device_table.h"
#include "gateway/devices/history_sweep.h"
#include "gateway/messages/request_target.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/process/start_watch.h"
#include "gateway/process/stop_deadline.h"
#include "gateway/streams/stream_gate.h"
#include "gvx_common/event/gvx_reactor.h"
#include "gvx_common/media/media_send_stream.h"
#include "nss/nss_msg.h"
#include "nss/nss_msg_type.h"
#include "support/fake_peer.h"
#include "support/recording_logger.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <thread>

TEST(PluginGuard, ExceptionsBecomeResultsAndOneLine) {
    const ScopedRecordingLogger log;
    EXPECT_EQ(gvx::CallPlugin("p", "Op", "DEV", [] { return 0; }), 0);
    EXPECT_EQ(log->Lines().size(), 0u);
    EXPECT_EQ(gvx::CallPlugin("p", "Op", "DEV", []() -> int { throw std::runtime_error("why"); }),
              ZVS_GVX_PLUGIN_EXCEPTION);
    ASSERT_EQ(log->Lines().size(), 1u);
    EXPECT_NE(log->Lines()[0].text.find("plug-in p: Op of device DEV threw: why"), std::string::npos);
    EXPECT_TRUE(gvx::PluginCallWatch::Instance().OpenCalls().empty());
}

TEST(PluginGuard, CallThatDoesNotReturnIsNamedOnce) {
    const ScopedRecordingLogger log;
    ScopedTestClock clock;
    auto& watch = gvx::PluginCallWatch::Instance();
    const gvx::PluginCallScope call("p", "StopStream", "DEV");
    clock->AdvanceMs(9999);
    EXPECT_EQ(watch.NameOverdue(10000), 0u);
    clock->AdvanceMs(1);
    EXPECT_EQ(watch.NameOverdue(10000), 1u);
    EXPECT_TRUE(log->Contains("plug-in p: StopStream of device DEV has not returned for 10 s"));
    clock->AdvanceSeconds(100);
    EXPECT_EQ(watch.NameOverdue(10000), 0u);
    EXPECT_EQ(watch.NameOpen(), 1u);
}

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
    BP::CDispatcher::SetWriter([](const std::string&, ACE_Message_Block* block) {
        block->release();
        return 0;
    });
    gvx::DevReactorBinder binder;
    auto& sweep = gvx::HistorySweep::Instance();
    ASSERT_TRUE(sweep.Start(binder, 86400));
    const std::string frame = FakePeer::MakeFrame(NSS_ALARM_REPORT_REQ, 1, "nobody");
    auto* block = new ACE_Message_Block(frame.size());
    block->copy(frame.data(), frame.size());
    ASSERT_EQ(BP::CDispatcher::dispatcherOutWithTransaction(1, 0, "GVX#900", "nobody", NSS_ALARM_REPORT_REQ, block,
                                                            false, 0),
              0);
    clock->AdvanceSeconds(61);
    sweep.handle_timeout(ACE_Time_Value::zero, nullptr);
    EXPECT_EQ(BP::CTransactionMgr::OpenTransactions(), 0u);
    EXPECT_TRUE(log->Contains("1 requests of the gateway were not answered in time."));
    sweep.Stop();
    BP::CDispatcher::SetWriter({});
}

TEST(DevReactorBinderTest, ThreadsMayCallAtTheSameTime) {
    gvx::DevReactorBinder binder;
    ASSERT_EQ(binder.InitPool(1), 0);
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&binder, &wrong, t] {
            for (int i = 0; i < 200; ++i) {
                const std::string key = "T" + std::to_string(t) + "_" + std::to_string(i % 3);
                std::string reason;
                CGvxReactor* reactor = binder.BindForAddition(key, reason);
                wrong += reactor == nullptr || binder.Find(key) != reactor;
                binder.SettleAddition(key, false);
                binder.Sweep();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST(DeviceTableTest, RemembersTheLastRequests) {
    gvx::DeviceTable table;
    EXPECT_EQ(table.GetReqDevID(1), "");
    for (std::uint32_t seq = 1; seq <= gvx::DeviceTable::kMaxRequests + 1; ++seq) {
        table.RememberRequest(seq, "D" + std::to_string(seq));
    }
    EXPECT_EQ(table.GetReqDevID(1), "") << "the oldest goes first";
    EXPECT_EQ(table.GetReqDevID(2), "D2");
    table.RememberRequest(2, "other");
    EXPECT_EQ(table.GetReqDevID(2), "other");
}

TEST(StreamGateTest, ClosedGateLetsNothingThroughAndCountsWhoIsInside) {
    auto media = std::make_shared<CMediaSendStream>();
    gvx::StreamGate gate;
    gate.SetTarget(media.get(), true);
    std::atomic<bool> sent{false};
    std::atomic<int> result{0};
    std::thread sender([&] {
        char packet[20] = {};
        MEDIA_DATA data{};
        data.pUserInfo = gate.UserInfo();
        data.pDataBuf = packet;
        data.nVideoSize = sizeof(packet);
        STREAM_TYPE_EX type = STREAM_TYPE_REAL_MAIN;
        result = gvx::StreamGate::Send(&data, &type);  // waits: the gate is held
        sent = data.pUserInfo == gate.UserInfo();
    });
    gate.Close();
    EXPECT_TRUE(gate.WaitEmpty(20000));
    sender.join();
    EXPECT_TRUE(sent);
    EXPECT_EQ(result, ZVS_GVX_OPEN_SOCKET_ERROR);
    EXPECT_EQ(gvx::StreamGate::Send(nullptr, nullptr), ZVS_FAIL);
}

TEST(StreamGateTest, MetadataGoesToItsOwnTargetOrNowhere) {
    CMediaSendStream media;
    CMediaSendStream closed;
    gvx::StreamGate gate;
    gate.SetTarget(&media, true);
    gate.Open();
    char packet[20] = {};
    MEDIA_DATA data{};
    data.pUserInfo = gate.UserInfo();
    data.pDataBuf = packet;
    data.nMetaDataSize = sizeof(packet);
    STREAM_TYPE_EX type = STREAM_TYPE_METADATA;
    EXPECT_EQ(gvx::StreamGate::Send(&data, &type), ZVS_SUCCEED) << "nobody asked for it";
    gate.SetMetadataTarget(&closed);
    EXPECT_EQ(gvx::StreamGate::Send(&data, &type), ZVS_GVX_OPEN_SOCKET_ERROR);
    EXPECT_EQ(gate.MetadataPackets(), 0u);
}

TEST(StreamGateTest, UserInformationOfAGateThatIsGoneFitsNoOther) {
    auto former = std::make_unique<gvx::StreamGate>();
    void* const late = former->UserInfo();
    former = nullptr;
    std::vector<std::unique_ptr<gvx::StreamGate>> gates;
    for (int i = 0; i < 100; ++i) {
        gates.push_back(std::make_unique<gvx::StreamGate>());
        gates.back()->Open();
        ASSERT_NE(gates.back()->UserInfo(), late);
    }
    for (void* userInfo : {late, reinterpret_cast<void*>(~std::uintptr_t{0}), reinterpret_cast<void*>(1)}) {
        MEDIA_DATA data{};
        data.pUserInfo = userInfo;
        data.nVideoSize = 1;
        EXPECT_EQ(gvx::StreamGate::Send(&data, nullptr), ZVS_GVX_OPEN_SOCKET_ERROR);
    }
}

TEST(StreamGateTest, PlacesAreUsedAgain) {
    std::set<std::uintptr_t> places;
    for (int i = 0; i < 1000; ++i) {
        const gvx::StreamGate gate;
        ASSERT_TRUE(gate.IsUsable());
        places.insert(reinterpret_cast<std::uintptr_t>(gate.UserInfo()) % gvx::StreamGate::kMaxGates);
    }
    EXPECT_LE(places.size(), 101u) << "as many as stood at a time, whatever test came before";
}

TEST(StopDeadlineTest, ActsUnlessCalledOff) {
    std::atomic<int> acted{0};
    { const gvx::StopDeadline deadline(std::chrono::hours(1), [&] { ++acted; }); }
    EXPECT_EQ(acted, 0);
    const gvx::StopDeadline deadline(std::chrono::milliseconds(1), [&] { ++acted; });
    EXPECT_TRUE(WaitUntil([&] { return acted == 1; }));
}

TEST(StartWatchTest, ActsOnlyOnASignalThatAStartDoesNotHeed) {
    std::atomic<int> signal{0};
    std::atomic<int> acted{0};
    const auto pending = [&] { return signal.load(); };
    const auto act = [&](int number) { acted = number; };
    signal = 15;
    {
        const gvx::StartWatch heeded(pending, std::chrono::hours(1), act);
        EXPECT_TRUE(WaitUntil([&] { return heeded.SinceSignal().count() > 0; }));
    }
    EXPECT_EQ(acted, 0);
    signal = 0;
    const gvx::StartWatch watch(pending, std::chrono::milliseconds(1), act);
    EXPECT_EQ(watch.SinceSignal().count(), 0);
    signal = 15;
    EXPECT_TRUE(WaitUntil([&] { return acted == 15; }));
}

TEST(RequestTarget, IdentifiersAreShortAndPrintable) {
    EXPECT_TRUE(gvx::IsCode(std::string(32, 'a')));
    EXPECT_TRUE(gvx::IsCode("\xE5\xAE\xB6"));
    for (const std::string& bad : {std::string(), std::string(33, 'a'), std::string("a b"), std::string("a\n")}) {
        EXPECT_FALSE(gvx::IsCode(bad)) << bad;
    }
}
