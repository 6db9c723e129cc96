#include "gvx_common/event/gvx_reactor.h"

#include "base/log.h"
#include "bp/service.h"
#include "event_test_support.h"
#include "gvx_common/event/gvx_dev_reactor_mgr.h"
#include "support/fake_peer.h"
#include "support/recording_logger.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace {

class TestDeviceMgr : public BP::IDeviceMgr {
public:
    TestDeviceMgr() { BP::CDeviceMgr::SetImplementation(this); }
    ~TestDeviceMgr() override { BP::CDeviceMgr::SetImplementation(nullptr); }
    int ProcessSdkException(const ACE_Message_Block* block) override {
        m_exceptionBytes = block != nullptr ? static_cast<int>(block->length()) : -1;
        return 1;
    }
    std::string GetReqDevID(std::uint32_t seqID) override { return seqID == 77 ? "requester" : "unknown"; }
    int HandleClusterTaskShiftIn(int, const std::string&) override { return 1; }
    std::atomic<int> m_exceptionBytes{0};
};

TEST(GvxReactorService, EachCommandIsServedInASessionAndDestroyed) {
    std::atomic<int> live{0};
    std::atomic<int> sessions{0};
    const long before = g_bp_memstat.load();
    auto owned = std::make_unique<CGvxReactor>();
    CGvxReactor& reactor = *owned;
    for (const std::uint32_t reqID : {NSS_PTZ_CONTROL_REQ + 0u, NSS_ADD_MAIN_DEV_REQ + 0u}) {
        BP::RegisterSessionWork(reqID, [&](BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
            EXPECT_EQ(&cmd, session.GetCmd());
            EXPECT_EQ(cmd.GetReqID() == NSS_ADD_MAIN_DEV_REQ ? &reactor : nullptr, session.GetReactor());
            EXPECT_FALSE(session.GetSessionID().empty());
            ++sessions;
            return static_cast<int>(cmd.GetServiceID());
        });
    }
    ScopedRecordingLogger log;
    const std::vector<std::pair<std::uint32_t, std::uint32_t>> rows = {
        {NSS_PTZ_CONTROL_REQ, 0}, {NSS_ADD_MAIN_DEV_REQ, 1234}, {0x0C3A, 5}, {GVX_INTERNAL_REQ_SDK_EXCEPTION, 5}};
    for (const auto& [reqID, service] : rows) {
        EXPECT_EQ(0, reactor.PushMessage(TestCmd(reqID, "dev").Service(service).Counted(live).Entry()));
    }
    EXPECT_TRUE(log->WaitFor("Not support this message type with seq id["));
    EXPECT_TRUE(WaitUntil([&] { return live == 0; }));
    EXPECT_EQ(2, sessions.load());
    EXPECT_EQ(1u, log->Count("not create session by reqID[0x0c3a]"));
    EXPECT_GT(g_bp_memstat.load(), before);
    owned.reset();
    EXPECT_EQ(before, g_bp_memstat.load());
    BP::ClearSessionWork();
}

TEST(GvxReactorService, WhatThrowsCostsItsCommandAlone) {
    class ThrowingDeviceMgr : public TestDeviceMgr {
        int ProcessSdkException(const ACE_Message_Block*) override { throw std::runtime_error("exception report"); }
        std::string GetReqDevID(std::uint32_t) override { throw 1; }
    };
    const ThrowingDeviceMgr devices;
    const ServedCmds served({NSS_PTZ_CONTROL_REQ, NSS_SNAPSHOT_RSP});
    std::atomic<int> live{0};
    CGvxReactor reactor;
    ScopedRecordingLogger log;
    for (const std::uint32_t reqID :
         {GVX_INTERNAL_REQ_SDK_EXCEPTION + 0u, NSS_SNAPSHOT_RSP + 0u, NSS_PTZ_CONTROL_REQ + 0u}) {
        EXPECT_EQ(0, reactor.PushMessage(TestCmd(reqID, "dev").Counted(live).Entry()));
    }
    EXPECT_TRUE(WaitUntil([&] { return live == 0; }));
    EXPECT_EQ((std::vector<std::string>{"0131@dev"}), served.All());
    EXPECT_TRUE(log->Contains("Serving reqID[0xffff] threw: exception report devID[dev]"));
    EXPECT_TRUE(log->Contains("Serving reqID[0x9a5a] threw something unknown. devID[dev]"));
}

TEST(GvxReactorService, ResponseIsServedWithTheDeviceOfItsRequest) {
    const TestDeviceMgr devices;
    const ServedCmds served({NSS_SNAPSHOT_RSP});
    CGvxReactor reactor;
    EXPECT_EQ(0, reactor.PushMessage(
                     TestCmd(NSS_SNAPSHOT_RSP, "queue").Block(FakePeer::MakeFrame(NSS_SNAPSHOT_RSP, 77)).Entry()));
    EXPECT_EQ(0, reactor.PushMessage(TestCmd(NSS_SNAPSHOT_RSP, "queue").Entry()));
    ASSERT_TRUE(served.WaitForCount(2));
    EXPECT_EQ(0, reactor.PushMessage(TestCmd(NSS_SNAPSHOT_RSP, "queue").Block("short").Entry()));
    ASSERT_TRUE(served.WaitForCount(3));
    EXPECT_EQ((std::vector<std::string>{"9a5a@requester", "9a5a@queue", "9a5a@unknown"}), served.All());
    // A report of a device SDK goes to the device table.
    EXPECT_EQ(0, reactor.PushMessage(TestCmd(GVX_INTERNAL_REQ_SDK_EXCEPTION, "dev").Block("abcde").Entry()));
    EXPECT_TRUE(WaitUntil([&] { return devices.m_exceptionBytes == 5; }));
}

TEST(GvxReactorService, DevicesRunInParallelAndEachInOrder) {
    constexpr std::size_t kDevices = 16;
    constexpr std::uint32_t kCmds = 1000;
    struct Device {
        CGvxReactor* reactor = nullptr;
        std::vector<std::uint32_t> order;  // not locked: two sessions of one device at a time would be a race
        std::atomic<bool> inside{false};
        std::atomic<int> overlaps{0};
    };
    std::array<Device, kDevices> devices;
    std::atomic<std::size_t> met{0};
    std::atomic<std::size_t> served{0};
    CGvxDevReactorMgr mgr;  // ends first, and with it every session
    ASSERT_EQ(0, mgr.ReactorPoolInit(8));
    BP::RegisterSessionWork(NSS_PTZ_CONTROL_REQ, [&](BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
        Device& device = devices[std::stoul(session.GetRespDevID())];
        device.overlaps += device.inside.exchange(true) ? 1 : 0;
        if (device.order.empty()) {
            // The first commands of all devices wait for each other: they can only meet when they run in parallel.
            ++met;
            EXPECT_TRUE(WaitUntil([&] { return met == kDevices; }));
        }
        device.order.push_back(cmd.GetServiceID());
        device.inside = false;
        ++served;
        return 0;
    });
    std::vector<std::thread> producers;
    for (std::size_t i = 0; i < kDevices; ++i) {
        devices[i].reactor = mgr.ScheduleReactor(std::to_string(i));
        producers.emplace_back([&reactor = *devices[i].reactor, name = std::to_string(i)] {
            for (std::uint32_t number = 0; number < kCmds;) {
                if (reactor.PushMessage(TestCmd(NSS_PTZ_CONTROL_REQ, name).Service(number).Entry()) == 0) {
                    ++number;
                } else {
                    std::this_thread::yield();  // the queue is full
                }
            }
        });
    }
    for (std::thread& producer : producers) {
        producer.join();
    }
    EXPECT_TRUE(WaitUntil([&] { return served == kDevices * kCmds; }));
    for (const Device& device : devices) {
        EXPECT_EQ(0, device.overlaps.load());
        EXPECT_EQ(kCmds, device.order.size());
        EXPECT_TRUE(std::is_sorted(device.order.begin(), device.order.end()));
    }
    BP::ClearSessionWork();
}

}  // namespace
