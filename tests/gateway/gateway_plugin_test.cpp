#include "gateway/gateway_fixture.h"

#include "base/zvs_error.h"
#include "gateway/plugins/plugin_guard.h"
#include "gateway/process/process_signals.h"
#include "nss/nss_msg_type.h"
#include "support/failing_allocator.h"
#include "support/wait_until.h"

#include <csignal>

#include <spawn.h>
#include <sys/wait.h>

namespace {

constexpr unsigned kThrew = ZVS_GVX_PLUGIN_EXCEPTION;
constexpr unsigned kError = ZVS_GVX_UNAUTHORIZED;  // what a moody operation answers

}  // namespace

TEST_F(GatewayTest, DeviceWhosePluginFailsWhileItIsMadeIsUndone) {
    const char* operations[] = {"CreateDevice", "Init", "GetDeviceAbility", "CreateLens", "LensInit"};
    for (const std::string operation : operations) {
        EXPECT_EQ(AddDevice("CAM1", operation + "=error").code, kError) << operation;
        EXPECT_EQ(AddDevice("CAM1", operation + "=throw").code, kThrew) << operation;
        EXPECT_EQ(AddDevice("CAM1", operation + "=throw-int").code, kThrew) << operation;
        EXPECT_EQ(moody->alive, 0) << operation;
    }
    EXPECT_TRUE(log->Contains("plug-in moody: CreateDevice of device CAM1 failed."));
    EXPECT_TRUE(log->Contains("plug-in moody: Init of device CAM1 threw: not a std::exception"));
    EXPECT_NE(AddDevice("CAM1", "CreateDevice=null").code, 0u);
    EXPECT_NE(AddDevice("CAM1", "CreateLens=null").code, 0u);
    EXPECT_EQ(moody->alive, 0);
    EXPECT_EQ(AddDevice("CAM1").code, 0u);
}

TEST_F(GatewayTest, DeviceWhoseAnswerFindsNoMemoryIsTakenOutAgain) {
    {
        const ScopedFailingAllocator noRoom(320);  // for the answer with its lenses; requests and refusals have it
        EXPECT_EQ(AddDevice("CAM1").code, static_cast<unsigned>(ZVS_ALLOC_MEMORY_ERROR));
    }
    EXPECT_EQ(moody->alive, 0);
    EXPECT_TRUE(log->Contains("ZVS_ALLOC_MEMORY_ERROR] Encode message fail")) << log->Dump();
    EXPECT_EQ(AddDevice("CAM1").code, 0u);
}

TEST_F(GatewayTest, StreamWhosePluginFailsWhileItStartsIsUndone) {
    const std::pair<const char*, unsigned> rows[] = {
        {"CreateStreamParam=throw", ZVS_ALLOC_MEMORY_ERROR},
        {"CreateStreamParam=null", ZVS_ALLOC_MEMORY_ERROR},
        {"NegotiateStreamParam=error", kError},
        {"NegotiateStreamParam=throw", kThrew},
        {"CheckSpecialCase=error", kError},
        {"CheckSpecialCase=throw", kThrew},
        {"StartStream=error", kError},
        {"StartStream=error-later", kError},
    };
    ASSERT_EQ(AddDevice("GOOD").code, 0u);
    for (const auto& [moods, code] : rows) {
        ASSERT_EQ(AddDevice("CAM1", moods).code, 0u);
        const Answer answer = Start("CAM1", "live");
        EXPECT_EQ(answer.code, code) << moods;
        EXPECT_FALSE(answer.json["Reason"].asString().empty()) << moods;
        EXPECT_EQ(Stop("CAM1", "live").code, static_cast<unsigned>(ZVS_GVX_STREAM_NOT_EXIST));
        EXPECT_EQ(Start("GOOD", "live").code, 0u) << "the identifier is free again";
        EXPECT_EQ(Stop("GOOD", "live").code, 0u);
        EXPECT_EQ(DeleteDevice("CAM1").code, 0u);
    }
    EXPECT_EQ(moody->alive, 3) << "the good device with its two lenses";

    // Nor does a plug-in that fails keep a device that goes.
    for (const std::string mood : {"error", "throw"}) {
        ASSERT_EQ(AddDevice("CAM1", "Uninit=" + mood + " ClearAdapterInfo=" + mood + " RequestKeyframe=" + mood).code,
                  0u);
        ASSERT_EQ(Start("CAM1", "live").code, 0u);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(AskJson(NSS_GET_IFRAME_REQ, R"({"DevCode":"CAM1","ServiceID":"live"})").code,
                      mood == "throw" ? kThrew : kError);
        }
        const auto kind = mood == "throw" ? gvx::PluginTrouble::Kind::Throws : gvx::PluginTrouble::Kind::Fails;
        EXPECT_TRUE(HasTrouble(kind, "CAM1", 2));
        EXPECT_EQ(log->Count("plug-in moody: RequestKeyframe of device CAM1"), 1u) << "one line for an episode";
        log->Clear();
        EXPECT_EQ(DeleteDevice("CAM1").code, 0u);
        EXPECT_FALSE(HasTrouble(kind, "CAM1"));
        EXPECT_EQ(moody->alive, 3);
    }
}

TEST_F(TimelessGatewayTest, PluginThatHangsHarmsItsOwnDeviceAlone) {
    ASSERT_EQ(AddDevice("STUCK", "StopStream=hang").code, 0u);
    ASSERT_EQ(AddDevice("GOOD").code, 0u);
    ASSERT_EQ(Start("STUCK", "stuck").code, 0u);
    const std::uint32_t stop = SendJson(NSS_STOP_STREAM_REQ, R"({"DevCode":"STUCK","ServiceID":"stuck"})");
    ASSERT_EQ(Start("GOOD", "live").code, 0u);
    ASSERT_EQ(Stop("GOOD", "live").code, 0u);
    EXPECT_EQ(AddDevice("MORE").code, 0u);
    ASSERT_TRUE(WaitUntil([] { return !gvx::PluginCallWatch::Instance().OpenCalls().empty(); }));
    clock->AdvanceMs(999);
    EXPECT_EQ(gvx::PluginCallWatch::Instance().NameOverdue(1000), 0u);
    clock->AdvanceMs(1);
    ASSERT_TRUE(log->WaitFor("plug-in moody: StopStream of device STUCK has not returned for 1 s")) << log->Dump();
    EXPECT_EQ(gvx::PluginCallWatch::Instance().NameOverdue(1000), 0u) << "it is named once";
    EXPECT_TRUE(HasTrouble(gvx::PluginTrouble::Kind::DoesNotReturn, "STUCK"));
    moody->release = true;
    EXPECT_EQ(WaitAnswer(NSS_STOP_STREAM_REQ, stop).code, 0u);
    EXPECT_TRUE(WaitUntil([] { return !HasTrouble(gvx::PluginTrouble::Kind::DoesNotReturn, "STUCK"); }));
    EXPECT_EQ(DeleteDevice("STUCK").code, 0u);
}

TEST_F(GatewayTest, RequestThatFindsTheQueueFullIsAnsweredAtOnce) {
    constexpr int kRequests = 540;
    const std::string stuck = R"({"DevCode":"STUCK","ServiceID":"stuck"})";
    ASSERT_EQ(AddDevice("STUCK", "RequestKeyframe=hang").code, 0u);
    ASSERT_EQ(Start("STUCK", "stuck").code, 0u);
    for (int i = 0; i < kRequests; ++i) {
        SendJson(NSS_GET_IFRAME_REQ, stuck);
    }
    int refused = 0;
    int served = 0;
    while (refused + served < kRequests) {
        const auto frame = peer->ReadFrame();
        ASSERT_TRUE(frame.has_value()) << refused << " refused, " << served << " served";
        if (frame->head.usiMsgType == NSS_GET_IFRAME_RSP) {
            frame->head.uiRspCode == 0 ? ++served : ++refused;
            moody->release = true;  // while the device hangs, refusals alone are answers
        }
    }
    EXPECT_GT(refused, 0);
    EXPECT_GE(served, 512);
    EXPECT_EQ(log->Count("device cmd queue excceed max size. [dev:STUCK]"), 1u) << "one line for all of them";
}

TEST_F(GatewayTest, StopNamesAndLeavesWhatHangs) {
    ASSERT_EQ(AddDevice("STUCK", "StopStream=hang").code, 0u);
    ASSERT_EQ(AddDevice("GOOD").code, 0u);
    ASSERT_EQ(Start("STUCK", "stuck").code, 0u);
    ASSERT_EQ(Start("GOOD", "live").code, 0u);
    SendXml(NSS_ADD_MAIN_DEV_REQ, "<DevCode>LATE</DevCode><PluginName>moody</PluginName><Extend>Init=hang</Extend>");
    ASSERT_TRUE(WaitUntil([] { return !gvx::PluginCallWatch::Instance().OpenCalls().empty(); }));
    EXPECT_FALSE(gateway->Stop());
    EXPECT_TRUE(log->Contains("plug-in moody: StopStream of device STUCK has not returned for"));
    EXPECT_TRUE(log->Contains("of device LATE is left behind: it is still being served."));
    EXPECT_FALSE(gateway->Context().devices.Contains("GOOD")) << "the others are torn down";
    EndLeftBehind(0);  // no device is taken in behind the stop
}

TEST_F(GatewayTest, StopThatThrowsFindsItsObjectsStillThere) {
    ASSERT_EQ(AddDevice("WILD", "thread=endless StopStream=throw").code, 0u);
    ASSERT_EQ(Start("WILD", "wild").code, 0u);
    const Answer stop = Stop("WILD", "wild");
    EXPECT_EQ(stop.code, kThrew);
    EXPECT_FALSE(stop.json["Reason"].asString().empty());
    EXPECT_TRUE(WaitUntil([] { return HasTrouble(gvx::PluginTrouble::Kind::CallsLate, "WILD"); }));
    EXPECT_EQ(DeleteDevice("WILD").code, 0u);
    EXPECT_TRUE(HasTrouble(gvx::PluginTrouble::Kind::LeftBehind, "WILD"));
    EXPECT_TRUE(log->Contains("plug-in moody: it may still use device WILD, its objects are kept."));
    EXPECT_EQ(AddDevice("WILD").code, 0u) << "the platform may go on with the device";
    EXPECT_EQ(Start("WILD", "wild").code, 0u);
    EXPECT_FALSE(gateway->Stop()) << "what is left behind forbids an end through destructors";
    EndLeftBehind(3);  // the device with its lenses, no thread
}

TEST_F(GatewayTest, CaptureThatHangsIsLeftBehindWithItsDevice) {
    ASSERT_EQ(AddDevice("STUCK", "VcuSnapShotReqInfo=hang").code, 0u);
    ASSERT_EQ(AskJson(NSS_SNAPSHOT_REQ, R"({"DevCode":"STUCK"})").code, 0u);
    ASSERT_TRUE(WaitUntil([this] { return moody->hanging == 1; }));
    EXPECT_EQ(DeleteDevice("STUCK").code, 0u) << "after GVX_PLUGIN_CALL_LIMIT";
    EXPECT_TRUE(HasTrouble(gvx::PluginTrouble::Kind::LeftBehind, "STUCK"));
    EXPECT_TRUE(
        log->Contains("plug-in moody: StopSnapQueueThread of device STUCK failed. A capture of lens STUCK_0 has "
                      "not returned for 1 s"))
        << log->Dump();
    EXPECT_EQ(AddDevice("STUCK").code, 0u) << "the platform may go on with the device";
    EXPECT_FALSE(gateway->Stop());
    EndLeftBehind(2);  // the device with the lens; the other lens went
}

TEST_F(GatewayTest, ARefusalCarriesWhatThePluginReportedOnce) {
    const std::string report = "<DevInfo><DevCode>CAM1</DevCode><ChannelCode>3</ChannelCode></DevInfo>";
    const Answer added = AddDevice("CAM1", "Init=report");
    EXPECT_EQ(added.code, static_cast<unsigned>(ZVS_GVX_UNAUTHORIZED));
    EXPECT_NE(added.text.find(report), std::string::npos) << added.text;
    EXPECT_NE(added.text.find("<ErrorDetail>Init failed because of its mood.</ErrorDetail>"), std::string::npos);
    EXPECT_NE(
        added.text.find("<DevCode>CAM1</DevCode><Reason>The device could not be initialised. Init is in a bad mood."),
        std::string::npos)
        << added.text;

    ASSERT_EQ(AddDevice("CAM1", "StartStream=report").code, 0u);
    const Answer started = Start("CAM1", "s");
    EXPECT_EQ(started.code, static_cast<unsigned>(ZVS_GVX_UNAUTHORIZED));
    EXPECT_EQ(started.json["Reason"].asString(), "The plug-in did not start the stream. StartStream is in a bad mood.");
    EXPECT_NE(started.json["ErrorReport"].asString().find("StartStream failed because of its mood."), std::string::npos)
        << started.text;
    // Without a plug-in's words the gateway's own go; what it said of another request does not.
    const std::string own = Stop("CAM1", "s").json["ErrorReport"].asString();
    EXPECT_NE(own.find("<DevCode>CAM1</DevCode>"), std::string::npos) << own;
    EXPECT_NE(own.find("<ErrorDetail>stopping the stream failed because "), std::string::npos) << own;
    EXPECT_EQ(own.find("mood"), std::string::npos) << own;
}

TEST(PluginProgram, CanBeEndedBySignalsThatTheGatewayBlocks) {
    const gvx::ProcessSignals signals;
    ASSERT_TRUE(signals.Ok());
    int status = 0;
    gvx::GuardPluginCall<int>("moody", "Init", "", 0, [&status] {
        const char* const words[] = {"sh", "-c", "kill -TERM $$", nullptr};
        pid_t program = 0;
        EXPECT_EQ(posix_spawn(&program, "/bin/sh", nullptr, nullptr, const_cast<char* const*>(words), environ), 0);
        return waitpid(program, &status, 0);
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
}
