#include "gvx_common/event/gvx_reactor.h"

#include "base/log.h"
#include "bp/service.h"
#include "event_test_support.h"
#include "gvx_common/event/gvx_dev_reactor_mgr.h"
#include "bp/cmd.h"
#include "gvx_common/event/gvx_reactor_session_table.h"
#include "support/recording_logger.h"

#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <pthread.h>

namespace {

#ifdef __SANITIZE_THREAD__
constexpr int kSerialCmds = 20000;
#else
constexpr int kSerialCmds = 100000;
#endif

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

// The request types by number, as the platform's side has them.
const std::vector<std::pair<BP::SessionKind, std::vector<std::uint32_t>>> kRequestTypes = {
    {BP::SessionKind::DeviceManage,
     {0x0109, 0x0151, 0x0110, 0x0A14, 0x912D, 0x912C, 0x012E, 0x0163, 0x0164, 0x0166, 0x0C3E, 0x0C3F, 0x0C40, 0x0C46,
      0x0C47, 0x0C48, 0x0C54, 0x0C55, 0x0C59, 0x9F52, 0x9170, 0x019A, 0x2005, 0x2003, 0x9E30, 0xFFFB, 0xFFFA}},
    {BP::SessionKind::DeviceConfig,
     {0x02B9, 0x010B, 0x015D, 0x010C, 0x015C, 0x0119, 0x011B, 0x0127, 0x0128, 0x0113, 0x0114, 0x0115,
      0x0158, 0x0157, 0x0159, 0x0138, 0x0198, 0x0162, 0x0145, 0x1059, 0x0186, 0x0A71, 0x018E, 0x018D,
      0x0143, 0x0203, 0x01A0, 0x01A1, 0x01AC, 0x01AD, 0x0AD4, 0x01AE, 0x92D4, 0x014B, 0x02D6, 0x0282,
      0x0283, 0x01B3, 0x01B4, 0x014C, 0x02E2, 0x0BA9, 0x014D, 0x014E, 0x014F}},
    {BP::SessionKind::DeviceStream, {0x0501, 0x0502, 0x0503, 0x0504, 0x0507}},
    {BP::SessionKind::DeviceAlarm, {0x02C1, 0x02C2, 0x02BB, 0x02BC, 0x011E, 0x011F, 0x0120, 0x0121, 0x0C1C, 0x0DA2,
                                    0x0146, 0x0134, 0x0136, 0x0137, 0x0132, 0x0133, 0x0135, 0x0C30, 0x0840, 0x0841,
                                    0xDC11, 0x9C90, 0x0C74, 0x0C73, 0x0272, 0x0273, 0x019F, 0x0DA9, 0x9DA9}},
    {BP::SessionKind::GvxOmu, {0x0A0D, 0x0A0E, 0x0A12, 0x0A10, 0x0A11, 0x0A35, 0x1033, 0x0256, 0x0257, 0x9AD5}},
    {BP::SessionKind::DevicePtz,
     {0x012F, 0x0130, 0x0131, 0x013A, 0x013B, 0x013C, 0x013D, 0x013E, 0x9181, 0x013F, 0x0140, 0x0141, 0x020C, 0x0195}},
    {BP::SessionKind::DeviceRecord,
     {0x0A15, 0x0A18, 0x0505, 0x0506, 0x0A20, 0x0A19, 0x0A55, 0x0A57, 0x0A5A, 0x9A5A, 0x0A43, 0x9A43, 0x0A5D, 0x9A5D,
      0x015A, 0x0A37, 0x9A5F, 0x0A76}},
};

TEST(GvxReactorService, SessionClassesOfAllRequestTypes) {
    std::map<std::uint32_t, BP::SessionKind> expected;
    for (const auto& [kind, reqIDs] : kRequestTypes) {
        for (const std::uint32_t reqID : reqIDs) {
            EXPECT_TRUE(expected.emplace(reqID, kind).second) << std::hex << reqID;
        }
    }
    ASSERT_EQ(148u, expected.size());
    for (std::uint32_t reqID = 0; reqID <= 0x1FFFF; ++reqID) {
        const auto row = expected.find(reqID);
        const std::optional<BP::SessionKind> found = FindSessionKind(reqID);
        ASSERT_EQ(row != expected.end(), found.has_value()) << std::hex << reqID;
        if (found) {
            EXPECT_EQ(row->second, *found) << std::hex << reqID;
        }
    }
}

// Keeps what the reactor answers to each of its notifications.
class AnsweringReactor : public CGvxReactor {
public:
    ~AnsweringReactor() override { UnInit(); }
    int handle_exception(ACE_HANDLE handle) override {
        const int answer = CGvxReactor::handle_exception(handle);
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_answers.push_back(answer);
        return answer;
    }
    std::vector<int> Answers(std::size_t count) {
        WaitUntil([&] {
            const std::lock_guard<std::mutex> guard(m_mutex);
            return m_answers.size() >= count;
        });
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_answers;
    }

private:
    std::mutex m_mutex;
    std::vector<int> m_answers;  // Guarded by m_mutex.
};

TEST(GvxReactorService, AnswerIsThatOfTheSessionAndTheCommandIsDestroyed) {
    std::atomic<int> live{0};
    AnsweringReactor reactor;
    BP::RegisterSessionWork(NSS_PTZ_CONTROL_REQ, [](BP::CGvxSessionBase&, const BP::CCmd& cmd) {
        return static_cast<int>(cmd.GetServiceID());
    });
    ScopedRecordingLogger log;
    const std::vector<std::pair<std::uint32_t, std::uint32_t>> rows = {
        {NSS_PTZ_CONTROL_REQ, 0}, {NSS_PTZ_CONTROL_REQ, 1234}, {0x0C3A, 5}, {GVX_INTERNAL_REQ_SDK_EXCEPTION, 5}};
    for (const auto& [reqID, service] : rows) {
        EXPECT_EQ(0, reactor.PushMessage(TestCmd(reqID, "dev").Service(service).Counted(live).Entry()));
    }
    EXPECT_EQ((std::vector<int>{0, 1234, 1, 0}), reactor.Answers(rows.size()));
    EXPECT_EQ(0, live.load());
    EXPECT_EQ(1u, log->Count("not create session by reqID[0x0c3a]"));
    EXPECT_EQ(1u, log->Count("Not support this message type with seq id["));
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
    AnsweringReactor reactor;
    ScopedRecordingLogger log;
    for (const std::uint32_t reqID :
         {GVX_INTERNAL_REQ_SDK_EXCEPTION + 0u, NSS_SNAPSHOT_RSP + 0u, NSS_PTZ_CONTROL_REQ + 0u}) {
        EXPECT_EQ(0, reactor.PushMessage(TestCmd(reqID, "dev").Counted(live).Entry()));
    }
    EXPECT_EQ((std::vector<int>{1, 1, 0}), reactor.Answers(3));
    EXPECT_EQ("0131@dev", served.Text());
    EXPECT_EQ(0, live.load());
    EXPECT_TRUE(log->Contains("Serving reqID[0xffff] threw: exception report devID[dev]"));
    EXPECT_TRUE(log->Contains("Serving reqID[0x9a5a] threw something unknown. devID[dev]"));
}

TEST(GvxReactorService, SessionKnowsItsCommandAndReactor) {
    std::atomic<bool> served{false};
    CGvxReactor reactor;
    BP::RegisterSessionWork(NSS_ADD_MAIN_DEV_REQ, [&](BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
        EXPECT_EQ(&cmd, session.GetCmd());
        EXPECT_EQ(&reactor, session.GetReactor());
        EXPECT_FALSE(session.GetSessionID().empty());
        EXPECT_EQ("dev", session.GetRespDevID());
        EXPECT_EQ(42u, cmd.GetServiceID());
        served = true;
        return 0;
    });
    EXPECT_EQ(0, reactor.PushMessage(TestCmd(NSS_ADD_MAIN_DEV_REQ, "dev").Service(42).Entry()));
    EXPECT_TRUE(WaitUntil([&] { return served.load(); }));
    reactor.UnInit();
    BP::ClearSessionWork();
}

TEST(GvxReactorService, ResponseIsServedWithTheDeviceOfItsRequest) {
    const TestDeviceMgr devices;
    const ServedCmds served({NSS_SNAPSHOT_RSP});
    CGvxReactor reactor;
    ScopedRecordingLogger log;
    EXPECT_EQ(0, reactor.PushMessage(TestCmd(NSS_SNAPSHOT_RSP, "queue").Frame(77).Entry()));
    EXPECT_EQ(0, reactor.PushMessage(TestCmd(NSS_SNAPSHOT_RSP, "queue").Entry()));
    ASSERT_TRUE(served.WaitForCount(2));
    EXPECT_FALSE(log->Contains("memcpy_s failed!"));
    EXPECT_EQ(0, reactor.PushMessage(TestCmd(NSS_SNAPSHOT_RSP, "queue").Block("short", 5).Entry()));
    ASSERT_TRUE(served.WaitForCount(3));
    EXPECT_EQ("9a5a@requester 9a5a@queue 9a5a@unknown", served.Text());
    EXPECT_TRUE(log->Contains("memcpy_s failed!"));
}

TEST(GvxReactorService, SdkExceptionGoesToTheDeviceTableAndNoSession) {
    const TestDeviceMgr devices;
    CGvxReactor reactor;
    ScopedRecordingLogger log;
    EXPECT_EQ(0, reactor.PushMessage(TestCmd(GVX_INTERNAL_REQ_SDK_EXCEPTION, "dev").Block("abcde", 5).Entry()));
    EXPECT_TRUE(WaitUntil([&] { return devices.m_exceptionBytes == 5; }));
    reactor.UnInit();
    EXPECT_FALSE(log->Contains("Create session"));
}

TEST(GvxReactorService, AnswersOfServingOneCommand) {
    // Stopped, so that the test may stand in for the reactor's thread; what is pushed is taken back.
    CGvxReactor stopped;
    stopped.UnInit();
    EXPECT_EQ(1, stopped.handle_exception());
    ScopedRecordingLogger log;
    EXPECT_NE(0, Push(stopped, NSS_PTZ_CONTROL_REQ, "dev"));
    EXPECT_TRUE(log->Contains("Input param is null Reactor["));
    BP::CGvxNssCmd_ none;
    EXPECT_EQ(1, stopped.PopMessage(none));
}

TEST(GvxReactorService, WorkThatThrowsHarmsNoOtherCommand) {
    const ServedCmds served({NSS_PTZ_CONTROL_REQ});
    CGvxReactor reactor;
    BP::RegisterSessionWork(NSS_GET_PRESET_REQ, [](BP::CGvxSessionBase&, const BP::CCmd&) -> int { throw 1; });
    EXPECT_EQ(0, Push(reactor, NSS_GET_PRESET_REQ, "dev"));
    EXPECT_EQ(0, Push(reactor, NSS_PTZ_CONTROL_REQ, "dev"));
    EXPECT_TRUE(served.WaitForCount(1));
}

TEST(GvxReactorService, ThreadCarriesItsNameAndObjectsAreCounted) {
    const long before = g_bp_memstat.load();
    {
        CGvxReactor reactor(1048576, "Device7");
        CGvxReactor unnamed(1048576, "a name that is too long");
        EXPECT_TRUE(unnamed.IsRunning());
        std::atomic<bool> named{false};
        BP::RegisterSessionWork(NSS_PTZ_CONTROL_REQ, [&](BP::CGvxSessionBase&, const BP::CCmd&) {
            char name[16] = {};
            pthread_getname_np(pthread_self(), name, sizeof(name));
            named = std::string(name) == "Device7";
            return 0;
        });
        EXPECT_EQ(0, Push(reactor, NSS_PTZ_CONTROL_REQ, "dev"));
        EXPECT_TRUE(WaitUntil([&] { return named.load(); }));
        EXPECT_GT(g_bp_memstat.load(), before);
    }
    BP::ClearSessionWork();
    EXPECT_EQ(before, g_bp_memstat.load());
}

TEST(GvxReactorService, EndsAtOnceAndTwiceAndWithoutWork) {
    for (int i = 0; i < 50; ++i) {
        CGvxReactor reactor;
        EXPECT_EQ(0, reactor.UnInit());
        EXPECT_EQ(0, reactor.UnInit());
    }
}

// What one device's sessions have written. Not locked: two sessions of one device at a time would be a race.
struct DeviceRecord {
    std::vector<std::uint32_t> order;
    std::atomic<bool> inside{false};
    std::atomic<int> overlaps{0};
};

class SerialService {
public:
    static constexpr int kDevices = 64;
    static constexpr int kProducers = 4;

    // All devices together get kSerialCmds.
    static constexpr std::uint32_t PerDevice(int device) {
        return static_cast<std::uint32_t>(kSerialCmds / kDevices + (device < kSerialCmds % kDevices ? 1 : 0));
    }

    SerialService() {
        EXPECT_EQ(0, m_mgr.ReactorPoolInit(8));
        for (int i = 0; i < kDevices; ++i) {
            m_reactors[Index(i)] = m_mgr.ScheduleReactor("dev" + std::to_string(i));
            m_records[Index(i)].order.reserve(PerDevice(i));
        }
        BP::RegisterSessionWork(NSS_PTZ_CONTROL_REQ, [this](BP::CGvxSessionBase& session, const BP::CCmd& cmd) {
            Serve(std::stoi(session.GetRespDevID().substr(3)), cmd.GetServiceID());
            return 0;
        });
    }
    ~SerialService() { BP::ClearSessionWork(); }

    // Each producer feeds its own devices in turn and comes back later to one whose queue is full.
    void Produce(int producer) {
        std::array<std::uint32_t, kDevices> next{};
        for (bool left = true; left;) {
            left = false;
            for (int device = producer; device < kDevices; device += kProducers) {
                std::uint32_t& number = next[Index(device)];
                if (number >= PerDevice(device)) {
                    continue;
                }
                left = true;
                TestCmd cmd(NSS_PTZ_CONTROL_REQ, "dev" + std::to_string(device));
                if (m_reactors[Index(device)]->PushMessage(cmd.Service(number).Entry()) == 0) {
                    ++number;
                } else {
                    std::this_thread::yield();
                }
            }
        }
    }

    int Served() const { return m_served.load(); }
    bool AllMet() const { return m_arrived.load() >= kDevices; }
    const std::array<DeviceRecord, kDevices>& Records() const { return m_records; }
    std::size_t DifferentReactors() const { return std::map<CGvxReactor*, int>(Counts()).size(); }

private:
    static std::size_t Index(int device) { return static_cast<std::size_t>(device); }
    std::map<CGvxReactor*, int> Counts() const {
        std::map<CGvxReactor*, int> counts;
        for (CGvxReactor* reactor : m_reactors) {
            ++counts[reactor];
        }
        return counts;
    }
    void Serve(int device, std::uint32_t number) {
        DeviceRecord& record = m_records[Index(device)];
        if (record.inside.exchange(true)) {
            ++record.overlaps;
        }
        if (number == 0) {
            // The first commands of all devices wait for each other: they can only meet when they run in parallel.
            ++m_arrived;
            WaitUntil([this] { return AllMet(); });
        } else if (device % 8 == 0 && number % 16 == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));  // a slow device
        }
        record.order.push_back(number);
        record.inside = false;
        ++m_served;
    }

    std::array<DeviceRecord, kDevices> m_records;
    std::array<CGvxReactor*, kDevices> m_reactors{};
    std::atomic<int> m_arrived{0};
    std::atomic<int> m_served{0};
    CGvxDevReactorMgr m_mgr;  // ends first, and with it every session
};

TEST(GvxReactorService, DevicesRunInParallelAndEachInOrder) {
    SerialService service;
    EXPECT_EQ(64u, service.DifferentReactors());
    std::vector<std::thread> producers;
    for (int i = 0; i < SerialService::kProducers; ++i) {
        producers.emplace_back([&service, i] { service.Produce(i); });
    }
    for (std::thread& producer : producers) {
        producer.join();
    }
    ASSERT_TRUE(WaitUntil([&] { return service.Served() >= kSerialCmds; }, std::chrono::seconds(60)))
        << service.Served();
    EXPECT_TRUE(service.AllMet());
    std::size_t total = 0;
    for (int device = 0; device < SerialService::kDevices; ++device) {
        const DeviceRecord& record = service.Records()[static_cast<std::size_t>(device)];
        EXPECT_EQ(0, record.overlaps.load());
        ASSERT_EQ(SerialService::PerDevice(device), record.order.size());
        for (std::uint32_t i = 0; i < record.order.size(); ++i) {
            ASSERT_EQ(i, record.order[i]);
        }
        total += record.order.size();
    }
    EXPECT_EQ(static_cast<std::size_t>(kSerialCmds), total);
}

}  // namespace
