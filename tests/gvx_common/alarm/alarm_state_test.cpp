#include "gvx_common/alarm/alarm_fixture.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "support/fake_peer.h"
#include "support/run_threads.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <sqlite3.h>

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <map>
#include <thread>
#include <vector>

namespace {

class AlarmState : public AlarmFixture {
protected:
    using Texts = std::vector<std::string>;

    // What went to OMU since the last look, as "type|location|description". The good news about the store is left out:
    // it comes with every operation.
    Texts Sent() {
        Texts sent;
        for (const CaughtFrame& frame : m_frames.Take()) {
            const std::string body = frame.Body();
            const std::string text = TextAt(body, 520, 64) + "|" + TextAt(body, 608, 256) + "|";
            if (frame.Type() == 0x1008 && text != "ALARM_GVX_ALARM_RECORD_FAIL_OFF|HostIP=10.0.0.1|") {
                sent.push_back(text + body.substr(864 + 6, static_cast<unsigned char>(body[864 + 5])));
            }
        }
        return sent;
    }

    static void Store(const char* id, const std::string& info) {
        Alarm_Item item{};
        ASSERT_EQ(0, strncpy_s(item.AlarmType, sizeof(item.AlarmType), id, 9));
        ASSERT_EQ(0, strncpy_s(item.AlarmInfo, sizeof(item.AlarmInfo), info.c_str(), info.size()));
        ASSERT_EQ(0, ZVS_AddAlarmItem(&item));
    }
    static int Stored() {
        int count = -1;
        ZVS_GetAllAlarmItem(nullptr, &count);
        return count;
    }
};

TEST_F(AlarmState, OneRaiseAndOneClearForEachFaultOfTheLogger) {
    CEmergencyProtection alarms;
    EXPECT_EQ(1, alarms.LoadAlarmStatus(m_store));  // nothing to restore
    alarms.OnLogWarn(550, "/var/log", "a.log");
    EXPECT_EQ(Texts{}, Sent());
    struct Row {
        unsigned int raise, clear;
        const char* stem;
    };
    for (const Row& row : {Row{500, 550, "RECORD"}, Row{502, 552, "RECORD"}, Row{504, 554, "RECORD"},
                           Row{503, 553, "BCK"}, Row{505, 555, "BCK"}, Row{506, 556, "BCK"}}) {
        const std::string type = std::string("ALARM_GVX_LOG_") + row.stem + "_FAIL_";
        const std::string text = "|FilePath=/var/log,FileName=a.log,ErrorCode=" + std::to_string(row.raise) + "|";
        alarms.OnLogWarn(row.raise, "/var/log", "a.log");
        alarms.OnLogWarn(row.raise, "/var/log", "a.log");
        EXPECT_EQ(Texts{type + "ON" + text}, Sent());
        EXPECT_EQ(1, Stored());
        alarms.OnLogWarn(row.clear, "/var/log", "other.log");
        alarms.OnLogWarn(row.clear, "/var/log", "a.log");
        alarms.OnLogWarn(row.clear, "/var/log", "a.log");
        EXPECT_EQ(Texts{type + "OFF" + text}, Sent());
        EXPECT_EQ(0, Stored());
    }
    alarms.OnLogWarn(501, "/var/log", "a.log");
    alarms.OnLogWarn(500, std::string(300, 'p').c_str(), "a.log");
    EXPECT_EQ(Texts{}, Sent());
}

TEST_F(AlarmState, ARestartClearsFlowControlAtOnceAndTheRestByTheirEvents) {
    ASSERT_EQ(0, ZVS_AlarmInit(m_store.c_str()));
    const std::string logText = "FilePath=/l,FileName=a,ErrorCode=500";
    Store(ALARM_GVX_FLOW_CONTROL, "queue a");
    Store(ALARM_GVX_LOG_RECORD_FAIL, logText);
    Store(ALARM_GVX_FLOW_CONTROL, "queue b");
    CEmergencyProtection alarms;
    ASSERT_EQ(0, alarms.LoadAlarmStatus(m_store));
    EXPECT_EQ(
        (Texts{"ALARM_GVX_FLOW_CONTROL_ERROR_OFF|queue a|queue a", "ALARM_GVX_FLOW_CONTROL_ERROR_OFF|queue b|queue b"}),
        Sent());
    EXPECT_EQ(0, alarms.IsAlarmStatusItemExist(ALARM_GVX_LOG_RECORD_FAIL, logText));
    EXPECT_EQ(1, alarms.IsAlarmStatusItemExist(ALARM_GVX_FLOW_CONTROL, "queue a"));
    EXPECT_EQ(1, Stored());
    alarms.OnLogWarn(500, "/l", "a");
    EXPECT_EQ(Texts{}, Sent());
    alarms.OnLogWarn(550, "/l", "a");
    EXPECT_EQ(Texts{"ALARM_GVX_LOG_RECORD_FAIL_OFF|" + logText + "|"}, Sent());
    EXPECT_EQ(0, Stored());
}

TEST_F(AlarmState, AStoreThatFailsRaisesOneAlarmAndClearsItWhenItWorks) {
    ScopedTestClock clock;
    CEmergencyProtection alarms;
    alarms.AddAlarmStatusItem("1", "not open");
    alarms.AddAlarmStatusItem("1", "not open either");
    EXPECT_EQ(1, alarms.LoadAlarmStatus(m_folder.Path("missing/alarms.db")));
    EXPECT_EQ(Texts{"ALARM_GVX_ALARM_RECORD_FAIL_ON|HostIP=10.0.0.1|"}, Sent());
    // Without a store memory alone decides: each fault has one raise and one clear.
    EXPECT_EQ(0, alarms.DelAlarmStatusItem("1", "not open"));
    EXPECT_EQ(1, alarms.IsAlarmStatusItemExist("1", "not open"));
    for (const unsigned int code : {500u, 550u, 550u, 500u}) {
        alarms.OnLogWarn(code, "/l", "a");
    }
    EXPECT_EQ(3u, Sent().size());
    // It is tried again once a minute, and takes what memory has.
    std::filesystem::create_directory(m_folder.Path("missing"));
    EXPECT_FALSE(alarms.KeepStore());
    clock->AdvanceSeconds(60);
    EXPECT_TRUE(alarms.KeepStore());
    EXPECT_FALSE(alarms.KeepStore());
    EXPECT_EQ(2, Stored());
    ZVS_AlarmClose();
    alarms.AddAlarmStatusItem("1", "closed");
    EXPECT_EQ(Texts{"ALARM_GVX_ALARM_RECORD_FAIL_ON|HostIP=10.0.0.1|"}, Sent());
}

TEST_F(AlarmState, RowsThatCannotBeDeletedAreDeletedLater) {
    ScopedTestClock clock;
    sqlite3* database = nullptr;
    ASSERT_EQ(0, ZVS_AlarmInit(m_store.c_str()));
    Store(ALARM_GVX_FLOW_CONTROL, "queue a");
    ASSERT_EQ(SQLITE_OK, sqlite3_open(m_store.c_str(), &database));
    const auto run = [database](const char* text) { return sqlite3_exec(database, text, nullptr, nullptr, nullptr); };
    ASSERT_EQ(SQLITE_OK, run("CREATE TRIGGER kept BEFORE DELETE ON alarm BEGIN SELECT RAISE(ABORT, 'kept'); END"));
    CEmergencyProtection alarms;
    ASSERT_EQ(0, alarms.LoadAlarmStatus(m_store));
    alarms.OnLogWarn(500, "/l", "a");
    const std::int64_t raisedAtMs = gvx::MonotonicMilliseconds();
    clock->AdvanceSeconds(60);
    alarms.OnLogWarn(550, "/l", "a");
    ASSERT_EQ(1u, alarms.OpenAlarms().size()) << "its row is there, so the next end of the fault clears it";
    EXPECT_EQ(raisedAtMs, alarms.OpenAlarms()[0].sinceMs);
    alarms.KeepStore();
    EXPECT_EQ(2, Stored());
    EXPECT_EQ(1u, m_log->Count("Deleting items failed", "Alarm store")) << "one line an episode";
    ASSERT_EQ(SQLITE_OK, run("DROP TRIGGER kept"));
    sqlite3_close(database);
    alarms.KeepStore();
    EXPECT_EQ(2, Stored()) << "once a minute";
    clock->AdvanceSeconds(60);
    alarms.KeepStore();
    EXPECT_EQ(1, Stored());
    alarms.OnLogWarn(550, "/l", "a");
    EXPECT_EQ(0, Stored());
}

TEST_F(AlarmState, RowsServeAnAlarmThatIsRaisedAgainWhileItsClearWaits) {
    CEmergencyProtection alarms;
    CloseMainService();
    alarms.OnLogWarn(500, "/l", "a");
    alarms.OnLogWarn(550, "/l", "a");
    EXPECT_EQ(1, alarms.LoadAlarmStatus(m_store));
    alarms.OnLogWarn(500, "/l", "a");
    EXPECT_EQ(1, Stored()) << "memory alone had the first";
    alarms.OnLogWarn(550, "/l", "a");
    alarms.OnLogWarn(500, "/l", "a");
    EXPECT_EQ(1, Stored());
    BP::fluxControlWarnInfo info{};
    for (std::size_t cycle = 0; cycle < 2 * CEmergencyProtection::kMostEqualRows; ++cycle) {
        alarms.OnFluxControlWarn(&info);
        alarms.OnFluxControlWarn(&info);
        alarms.OnFluxControlResume(&info);
    }
    EXPECT_EQ(1 + static_cast<int>(CEmergencyProtection::kMostEqualRows), Stored());
    OpenMainService();
    alarms.SendAlarmCacheToGvx();
    EXPECT_EQ(1, Stored());
    alarms.CloseStore();
    Sent();
    alarms.OnLogWarn(500, "/l", "b");
    EXPECT_EQ(Texts{"ALARM_GVX_LOG_RECORD_FAIL_ON|FilePath=/l,FileName=b,ErrorCode=500|"}, Sent())
        << "a store that was closed is no fault";
}

TEST_F(AlarmState, FlowControlIsSentEachTimeAndAQueueStaysRemembered) {
    CEmergencyProtection alarms;
    ASSERT_EQ(1, alarms.LoadAlarmStatus(m_store));
    alarms.OnFluxControlWarn("ONVIF", "events", "queue full");
    alarms.OnFluxControlResume("ONVIF", "events", "queue full");
    const std::string raised = "Protocal=ONVIF,Msg Queue=events,FlowControlCode=[queue full]";
    const std::string ended = "Protocal=ONVIF,MsgQueue=events,FlowControlCode=[queue full]";
    EXPECT_EQ((Texts{"ALARM_GVX_FLOW_CONTROL_ERROR_ON|" + raised + "|" + raised,
                     "ALARM_GVX_FLOW_CONTROL_ERROR_OFF|" + ended + "|" + ended}),
              Sent());
    EXPECT_EQ(0, alarms.IsAlarmStatusItemExist(ALARM_GVX_FLOW_CONTROL, raised));
    EXPECT_EQ(2, alarms.DelAlarmStatusItem(ALARM_GVX_FLOW_CONTROL, ""));
    EXPECT_EQ(0, alarms.DelAlarmStatusItem(ALARM_GVX_FLOW_CONTROL, raised));

    // A thread's record has its name behind it, here without a terminator; one text serves both ways.
    alignas(BP::fluxControlWarnInfo) char bytes[sizeof(BP::fluxControlWarnInfo) + 8] = {};
    auto* info = reinterpret_cast<BP::fluxControlWarnInfo*>(bytes);
    info->uiThreadID = 12;
    info->uiLevel = 3;
    info->uiNameLength = 4;
    std::memcpy(bytes + offsetof(BP::fluxControlWarnInfo, pThreadName), "taskXX", 6);
    const std::string text = "<Level>3</Level><ThreadID>12</ThreadID><ThreadName>task</ThreadName>";
    alarms.OnFluxControlWarn(info);
    EXPECT_EQ(0, alarms.IsAlarmStatusItemExist(ALARM_GVX_FLOW_CONTROL, text));
    alarms.OnFluxControlResume(info);
    EXPECT_EQ(1, alarms.IsAlarmStatusItemExist(ALARM_GVX_FLOW_CONTROL, text));
    EXPECT_EQ((Texts{"ALARM_GVX_FLOW_CONTROL_ERROR_ON|" + text + "|" + text,
                     "ALARM_GVX_FLOW_CONTROL_ERROR_OFF|" + text + "|" + text}),
              Sent());
}

TEST_F(AlarmState, AlarmsWaitInOrderWhileTheMainServiceIsDown) {
    CEmergencyProtection& alarms = *CEmergencyProtection::Instance();
    CloseMainService();
    for (const char* location : {"a", "b", "", "c"}) {
        alarms.SetGvxBPAlarmRepMsg("ALARM_T", GVX_ALARM_DEV_TYPE, location, "d", false);
    }
    GvxConnectionMgr()->SetGvxAlarmRepMsg("ALARM_U", GVX_ALARM_DEV_TYPE, "e", "");
    EXPECT_EQ(4u, alarms.GetHeldAlarms().size());
    EXPECT_EQ(Texts{}, Sent());
    OpenMainService();
    EXPECT_EQ((Texts{"ALARM_T|a|d", "ALARM_T|b|d", "ALARM_T|c|d", "ALARM_U|e|"}), Sent());
    EXPECT_EQ(0u, alarms.GetHeldAlarms().size());
    // OMU's identifier outlives its link: an alarm goes there at once, and is not repeated when the link opens.
    GvxConnectionMgr()->OnLinkClosed("", 0, kOmu, "127.0.0.1", 1);
    GvxConnectionMgr()->SetGvxAlarmRepMsg("ALARM_U", GVX_ALARM_DEV_TYPE, "f", "");
    EXPECT_EQ(Texts{"ALARM_U|f|"}, Sent());
    GvxConnectionMgr()->OnLinkOpened("", 0, kOmu, "127.0.0.1", 1);
    EXPECT_EQ(Texts{}, Sent());
}

TEST_F(AlarmState, OneOrderForAnObjectWhileTheLinkComesAndGoes) {
    CEmergencyProtection& alarms = *CEmergencyProtection::Instance();
    ASSERT_EQ(1, alarms.LoadAlarmStatus(m_store));
    for (int round = 0; round < 100; ++round) {
        CloseMainService();
        std::thread faults([&alarms] {
            for (const unsigned int code : {500u, 550u, 500u, 550u}) {
                alarms.OnLogWarn(code, "/l", "a");
            }
        });
        OpenMainService();
        faults.join();
        ASSERT_EQ(0u, alarms.GetHeldAlarms().size()) << "one stays with the link up";
    }
    const Texts sent = Sent();
    EXPECT_EQ(400u, sent.size());
    for (std::size_t at = 0; at < sent.size(); ++at) {
        ASSERT_EQ(sent[at].find("_ON|") != std::string::npos, at % 2 == 0) << at;
    }
    EXPECT_EQ(0, Stored());
}

TEST_F(AlarmState, AMainServiceGetsPluginsThenAlarmsThenPortsWhoeverSends) {
    constexpr unsigned short kPlugins = 0x02D7;
    constexpr unsigned int kAlarm = 0x0C76;
    constexpr unsigned short kPorts = 0x0BAA;
    class Registry : public BP::IPluginRegistry {
        int RegisterPlugin() override {
            return GvxConnectionMgr()->SendRetMsgWithJson(kPlugins, "{}", kElementGVX, std::string(), std::string());
        }
        bool FindPlugin(const std::string& /*name*/, BP::CPluginInfo& /*info*/) override { return false; }
    } registry;
    CGvxConnectionMgr::SetMainServiceObserver(MainServiceStep::UsedPorts, [](const std::string& /*linkId*/) {
        GvxConnectionMgr()->SendRetMsgWithJson(kPorts, "{}", kElementGVX, std::string(), std::string());
    });
    BP::CPluginMgr::SetImplementation(&registry);
    CEmergencyProtection& alarms = *CEmergencyProtection::Instance();
    std::atomic<bool> ends{false};
    std::thread keeper([&alarms, &ends] {
        while (!ends) {
            alarms.SendAlarmCacheToGvx();
        }
    });
    const std::vector<unsigned int> stated{kPlugins, kAlarm, kAlarm, kPorts};
    for (int round = 0; round < 200 && !HasFailure(); ++round) {
        CloseMainService();
        m_frames.Take();
        alarms.CachePluginAlarm("ALARM_GVX_CONFIG_READ_FAIL", GVX_ALARM_DEV_TYPE, "a", "");
        alarms.CachePluginAlarm("ALARM_GVX_CONFIG_READ_FAIL", GVX_ALARM_DEV_TYPE, "b", "");
        OpenMainService();
        std::vector<unsigned int> types;
        for (const CaughtFrame& frame : m_frames.Take()) {
            if (frame.linkID == kMain) {
                types.push_back(frame.Type());
            }
        }
        EXPECT_EQ(stated, types) << "round " << round;
    }
    ends = true;
    keeper.join();
    BP::CPluginMgr::SetImplementation(nullptr);
    CGvxConnectionMgr::SetMainServiceObserver(MainServiceStep::UsedPorts, nullptr);
}

TEST_F(AlarmState, WhatALinkHadInItsQueueWhenItClosedLeavesByTheNextOne) {
    constexpr int kAlarms = 1500;
    BP::CDispatcher::SetWriter({});
    m_omuIsGone = true;
    BP::LinkOptions options;
    options.localID = "GVX#001";
    options.keepAliveMs = options.silenceTimeoutMs = 3600000;
    const auto ignore = [](const std::string&, int, const std::string&, const std::string&, unsigned int) {};
    std::uint16_t port = 0;
    ASSERT_EQ(0, BP::CNetFactory::Start(options, {ignore, ignore}));
    ASSERT_EQ(0, BP::CNetFactory::Listen("127.0.0.1", 0, &port));
    const auto link = [port] {
        std::unique_ptr<FakePeer> peer = FakePeer::Connect(port, "127.0.0.1", 4096);
        EXPECT_TRUE(peer != nullptr && peer->Register(kMain) == 0u);
        EXPECT_TRUE(WaitUntil([] { return BP::CNetFactory::RoomOf(kMain) == BP::LinkRoom::Free; }));
        return peer;
    };
    CEmergencyProtection& alarms = *CEmergencyProtection::Instance();
    std::unique_ptr<FakePeer> peer = link();
    OpenMainService();
    const std::shared_ptr<const BP::LinkProgress> progress = BP::CNetFactory::ProgressOf(kMain);
    for (int number = 0; number < kAlarms; ++number) {
        alarms.SetGvxBPAlarmRepMsg("ALARM_GVX_CONFIG_READ_FAIL", GVX_ALARM_DEV_TYPE, std::to_string(number), "", false);
    }
    peer.reset();
    ASSERT_TRUE(WaitUntil([&progress] { return progress->closed.load(); }));
    CloseMainService();
    ASSERT_LT(progress->written, progress->queued) << "the queue was empty";
    peer = link();
    OpenMainService();
    // The first frame has answered the registration, and what the socket took is the former link's.
    for (int number = static_cast<int>(progress->written) - 1; number < kAlarms;) {
        alarms.SendAlarmCacheToGvx();
        const auto frame = peer->ReadFrame();
        ASSERT_TRUE(frame) << "number " << number << " is lost";
        if (frame->head.usiMsgType == 0x0C76) {
            ASSERT_EQ(std::to_string(number++), TextAt(frame->body, 1132, 256));
        }
    }
    // One that registers anew under the name gets nothing ahead of its opening.
    const std::shared_ptr<const BP::LinkProgress> former = BP::CNetFactory::ProgressOf(kMain);
    const std::unique_ptr<FakePeer> anew = link();
    ASSERT_TRUE(WaitUntil([&former] { return BP::CNetFactory::ProgressOf(kMain) != former; }));
    alarms.SetGvxBPAlarmRepMsg("ALARM_GVX_CONFIG_READ_FAIL", GVX_ALARM_DEV_TYPE, "late", "", false);
    EXPECT_EQ(1u, alarms.CountHeldAlarms());
    OpenMainService();
    EXPECT_EQ(0u, alarms.CountHeldAlarms());
    BP::CNetFactory::Stop();
}

TEST_F(AlarmState, TooManyHeldAlarmsLoseTheOldestAndAreCounted) {
    CEmergencyProtection& alarms = *CEmergencyProtection::Instance();
    const std::uint64_t before = alarms.CountLostAlarms();
    for (std::size_t number = 0; number < gvx::AlarmOutbox::kMostHeld + 2; ++number) {
        alarms.CachePluginAlarm("ALARM_T", GVX_ALARM_DEV_TYPE, std::to_string(number), "");
    }
    EXPECT_EQ("2", alarms.GetHeldAlarms().front().location);
    EXPECT_EQ(before + 2, alarms.CountLostAlarms());
    EXPECT_TRUE(m_log->Contains("the oldest goes: type[ALARM_T], location[0]", "Alarms are lost"));
    alarms.SendAlarmCacheToGvx();
    EXPECT_TRUE(m_log->Contains("2 of those that waited are lost", "Alarms are lost"));
    // The repeated good news about the store is sent each time, but pushes nothing out.
    CloseMainService();
    ASSERT_EQ(1, alarms.LoadAlarmStatus(m_store));
    ASSERT_EQ(2u, alarms.CountHeldAlarms());
    while (alarms.CountHeldAlarms() < gvx::AlarmOutbox::kMostHeld / 2) {
        alarms.CachePluginAlarm("ALARM_T", GVX_ALARM_DEV_TYPE, "x", "");
    }
    alarms.AddAlarmStatusItem("1", "x");
    EXPECT_EQ(gvx::AlarmOutbox::kMostHeld / 2, alarms.CountHeldAlarms());
    OpenMainService();
    EXPECT_EQ(0u, alarms.CountHeldAlarms());
    alarms.DelAlarmStatusItem("1", "x");
}

TEST_F(AlarmState, TextsThatDoNotFitAreDroppedWithTheirMessage) {
    CEmergencyProtection alarms;
    const std::string full(255, 'x');
    EXPECT_EQ(0, alarms.CachePluginAlarm(std::string(63, 't'), "123", full, full));
    EXPECT_EQ(0, alarms.CachePluginAlarm("t", "1", "l", ""));
    EXPECT_EQ(2, alarms.CachePluginAlarm("t", "1", "", "d"));
    EXPECT_EQ(2u, alarms.GetHeldAlarms().size());
    alarms.SendAlarmCacheToGvx();
    EXPECT_EQ(2u, Sent().size());
    const std::string tooLong[][4] = {{std::string(64, 't'), "1", "l", "d"},
                                      {"t", "1234", "l", "d"},
                                      {"t", "1", full + "x", "d"},
                                      {"t", "1", "l", full + "x"}};
    for (const auto& [type, inType, location, description] : tooLong) {
        EXPECT_EQ(1, alarms.CachePluginAlarm(type, inType, location, description));
        alarms.SetGvxBPAlarmRepMsg(type, inType, location, description, false);
    }
    EXPECT_EQ(0u, alarms.GetHeldAlarms().size());
    EXPECT_EQ(1, alarms.AddAlarmStatusItem("1234567890", "x"));
    EXPECT_EQ(1, alarms.AddAlarmStatusItem("1", full + "x"));
    EXPECT_EQ(1, alarms.IsAlarmStatusItemExist("1", full + "x"));
    GvxConnectionMgr()->SetGvxAlarmRepMsg(std::string(64, 't'), "1", "l", "d");
    EXPECT_EQ(Texts{}, Sent());
}

TEST_F(AlarmState, FiftyThreadsRaiseAndClear) {
    constexpr int kThreads = 50;
    CEmergencyProtection& alarms = *CEmergencyProtection::Instance();
    ASSERT_EQ(1, alarms.LoadAlarmStatus(m_store));
    RunThreads(kThreads, [&alarms](int t) {
        const std::string own = std::to_string(t);
        alarms.OnLogWarn(500, "/l", own.c_str());
        alarms.OnLogWarn(502, "/l", "shared");
        alarms.SetGvxBPAlarmRepMsg("ALARM_T", GVX_ALARM_DEV_TYPE, own, "", false);
        alarms.IsAlarmStatusItemExist(ALARM_GVX_LOG_RECORD_FAIL, own);
        alarms.CachePluginAlarm("ALARM_C", GVX_ALARM_DEV_TYPE, own, "");
        alarms.SendAlarmCacheToGvx();
        alarms.OnLogWarn(550, "/l", own.c_str());
    });
    alarms.OnLogWarn(552, "/l", "shared");
    EXPECT_EQ(0, Stored());
    std::map<std::string, int> count;
    for (const std::string& text : Sent()) {
        ++count[text];
    }
    // A raise and a clear, an alarm sent and an alarm held for each thread; one pair for the file that they share.
    EXPECT_EQ(4u * kThreads + 2u, count.size());
    for (const auto& entry : count) {
        EXPECT_EQ(1, entry.second) << entry.first;
    }
}

}  // namespace
