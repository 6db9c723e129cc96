#include "gateway/links/link_events.h"

#include "gateway/gateway_fixture.h"
#include "gateway/plugins/plugin_host.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "gvx_common/media/media_test_support.h"
#include "nss/nss_msg_type.h"
#include "support/wait_until.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <new>
#include <string>
#include <vector>

TEST(LinkEventThreadTest, ServesInOrderAndHoldsBackWhatCouldNotBeAnswered) {
    const ScopedRecordingLogger log;
    std::vector<std::string> diary;  // written on the thread of link events, read when it has ended
    std::promise<void> waits;
    std::promise<void> begin;
    std::promise<void> waited;
    const std::shared_future<void> mayBegin = begin.get_future().share();
    const std::shared_future<void> hasWaited = waited.get_future().share();
    gvx::LinkEventThread thread;
    const auto note = [&](const char* what) {
        return [&, what](const std::string&, int, const std::string& link, const std::string&, unsigned int) {
            diary.push_back(what + link);
            if (link == "SCU#1") {
                mayBegin.wait();
            } else if (link == "GVX#1" && *what == 'o') {
                thread.LetFramesIn();
                diary.emplace_back("waits");
                if (std::count(diary.begin(), diary.end(), "waits") == 1) {
                    waits.set_value();
                }
                hasWaited.wait();
            }
        };
    };
    const auto hold = [&](const char* link, const char* trans) {
        auto cmd = std::make_unique<BP::CCmd>();
        cmd->SetNetLinkID(link);
        cmd->SetTransID(trans);
        int result = -1;
        return thread.Hold(cmd, result) && result == 0 && cmd == nullptr;
    };
    ASSERT_TRUE(thread.Start({note("opened "), note("closed ")}, [&](const BP::CCmd& cmd) {
        diary.push_back("frame " + cmd.GetTransID());
        return 0;
    }));
    const BP::LinkEvents events = thread.Callbacks();
    events.opened("", kElementSCU, "SCU#1", "127.0.0.1", 1);
    events.opened("", kElementGVX, "GVX#1", "127.0.0.1", 2);
    EXPECT_FALSE(hold("SCU#1", "x")) << "the main service's frames alone depend on its opening";
    EXPECT_TRUE(hold("GVX#1", "1"));
    EXPECT_TRUE(hold("GVX#1", "2"));
    begin.set_value();
    EXPECT_EQ(waits.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_FALSE(hold("GVX#1", "3")) << "the opening that waits for an answer holds up no further frame";
    events.closed("", kElementGVX, "GVX#1", "127.0.0.1", 2);
    events.opened("", kElementGVX, "GVX#1", "127.0.0.1", 3);
    EXPECT_TRUE(hold("GVX#1", "4"));
    waited.set_value();
    thread.Stop();
    const std::vector<std::string> expected{"opened SCU#1", "opened GVX#1", "frame 1", "frame 2", "waits",
                                            "closed GVX#1", "opened GVX#1", "frame 4", "waits"};
    EXPECT_EQ(diary, expected) << "a stop serves what is queued";
}

TEST(LinkEventThreadTest, AnOpeningThatWaitsForItsPeerDelaysThatPeerAlone) {
    const ScopedRecordingLogger log;
    std::promise<void> answered;
    const std::shared_future<void> answer = answered.get_future().share();
    std::mutex mutex;
    std::vector<std::string> diary;  // Guarded by mutex.
    std::size_t dropped = 0;
    const auto write = [&](const std::string& line) {
        const std::lock_guard<std::mutex> guard(mutex);
        diary.push_back(line);
    };
    const auto has = [&](const std::string& line) {
        const std::lock_guard<std::mutex> guard(mutex);
        return std::count(diary.begin(), diary.end(), line) != 0;
    };
    gvx::LinkEventThread thread;
    ASSERT_TRUE(thread.Start({[&](const std::string&, int, const std::string& link, const std::string&, unsigned int) {
                                  write("opened " + link);
                                  if (link == "GVX#silent") {
                                      thread.Aside([&] {
                                          answer.wait();
                                          write("answered");
                                      });
                                  }
                              },
                              [&](const std::string&, int, const std::string& link, const std::string&, unsigned int) {
                                  write("closed " + link);
                              }},
                             [&](const BP::CCmd&) {
                                 ++dropped;
                                 return 0;
                             }));
    const BP::LinkEvents events = thread.Callbacks();
    events.opened("", kElementGVX, "GVX#silent", "127.0.0.1", 1);
    ASSERT_TRUE(WaitUntil([&] { return has("opened GVX#silent"); }));
    events.closed("", kElementGVX, "GVX#silent", "127.0.0.1", 1);
    events.opened("", kElementGVX, "GVX#silent", "127.0.0.1", 2);
    auto cmd = std::make_unique<BP::CCmd>();
    cmd->SetNetLinkID("GVX#silent");
    int result = -1;
    EXPECT_TRUE(thread.Hold(cmd, result));
    events.closed("", kElementGVX, "GVX#silent", "127.0.0.1", 2);
    events.opened("", kElementSCU, "SCU#1", "127.0.0.1", 3);
    EXPECT_TRUE(WaitUntil([&] { return has("opened SCU#1"); }));
    EXPECT_FALSE(has("closed GVX#silent"));
    // While it waits, its link comes and goes, and the queue stays bounded.
    for (std::size_t flap = 0; flap < 3 * gvx::LinkEventThread::kMaxEvents; ++flap) {
        events.opened("", kElementGVX, "GVX#silent", "127.0.0.1", 4);
        events.closed("", kElementGVX, "GVX#silent", "127.0.0.1", 4);
    }
    answered.set_value();
    thread.Stop();
    EXPECT_EQ(diary[0], "opened GVX#silent");
    EXPECT_EQ(diary[2], "answered");
    EXPECT_EQ(diary[3], "closed GVX#silent");
    diary.erase(std::remove(diary.begin(), diary.end(), "answered"), diary.end());
    EXPECT_LE(diary.size(), gvx::LinkEventThread::kMaxEvents + 5);
    EXPECT_EQ(dropped, 0u) << "nothing is kept for a link that has gone";
    EXPECT_EQ(log->Count("are passed over"), 1u);
}

TEST(LinkEventThreadTest, NeitherSilentMainServicesNorOneThatFloodsHoldUpTheOthers) {
    const ScopedRecordingLogger log;
    std::promise<void> answered;
    const std::shared_future<void> answer = answered.get_future().share();
    std::atomic<std::size_t> silent{0};
    std::atomic<std::size_t> fed{0};
    std::atomic<bool> served{false};
    gvx::LinkEventThread thread;
    const auto hold = [&thread](int count) {
        for (int frame = 0; frame < count; ++frame) {
            auto cmd = std::make_unique<BP::CCmd>();
            cmd->SetNetLinkID("GVX#flood");
            int result = -1;
            EXPECT_TRUE(thread.Hold(cmd, result));
        }
    };
    const auto opened = [&](const std::string&, int, const std::string& link, const std::string&, unsigned int) {
        if (link == "SCU#1") {
            served = true;
        } else if (link != "GVX#flood") {
            ++silent;
            thread.Aside([&] { answer.wait(); });
        }
    };
    const auto closed = [](const std::string&, int, const std::string&, const std::string&, unsigned int) {};
    // Each frame that is handed on is followed by two, until the other's event is served.
    ASSERT_TRUE(thread.Start({opened, closed}, [&](const BP::CCmd&) {
        ++fed;
        hold(served ? 0 : 2);
        return 0;
    }));
    const BP::LinkEvents events = thread.Callbacks();
    const std::size_t many = gvx::LinkEventThread::kMaxAside + 10;
    for (std::size_t number = 0; number < many; ++number) {
        events.opened("", kElementGVX, "GVX#" + std::to_string(number), "127.0.0.1", 1);
    }
    events.opened("", kElementGVX, "GVX#flood", "127.0.0.1", 1);
    hold(1);
    events.opened("", kElementSCU, "SCU#1", "127.0.0.1", 1);
    EXPECT_TRUE(WaitUntil([&] { return served.load(); }));
    EXPECT_EQ(silent, many);
    EXPECT_GT(fed, 0u);
    answered.set_value();
    thread.Stop();
}

TEST(LinkEventThreadTest, AHeldFrameThatFindsNoMemoryTakesNeitherOthersNorTheOpeningWithIt) {
    const ScopedRecordingLogger log;
    std::promise<void> held;
    std::atomic<int> taken{0};
    gvx::LinkEventThread thread;
    gvx::PluginHost plugins;
    plugins.OnRegistered([&thread] { thread.LetFramesIn(); });
    const auto opened = [&](const std::string&, int, const std::string&, const std::string&, unsigned int) {
        held.get_future().wait();
        EXPECT_NO_THROW(plugins.RegisterPlugin());
    };
    ASSERT_TRUE(thread.Start({opened, {}}, [&taken](const BP::CCmd&) {
        if (++taken == 1) {
            throw std::bad_alloc();
        }
        return 0;
    }));
    thread.Callbacks().opened("", kElementGVX, "GVX#1", "127.0.0.1", 1);
    for (int frame = 0; frame < 3; ++frame) {
        auto cmd = std::make_unique<BP::CCmd>();
        cmd->SetNetLinkID("GVX#1");
        int result = -1;
        EXPECT_TRUE(thread.Hold(cmd, result));
    }
    held.set_value();
    EXPECT_TRUE(WaitUntil([&taken] { return taken == 3; })) << taken;
    thread.Stop();
}

namespace {

// Streams take their local ports from the main service. What waits, waits for ever here.
class PortGatewayTest : public TimelessGatewayTest {
protected:
    PortGatewayTest() {
        folder.Settings("GVX_PLUGIN_LIST=moody\nGVX_MEDIA_PORT_EXCHANGE=1\n[MEDIA]\nTRANSMISSION_THREAD_NUM=1\n");
    }
};

}  // namespace

// What waits for an answer waits for ever here.
TEST_F(TimelessGatewayTest, AReportThatIsNeverAnsweredHoldsUpNeitherCommandsNorTheStop) {
    const std::uint32_t seq = SendXml(NSS_DEL_MAIN_DEV_REQ, "<DevCode>NOBODY</DevCode>");
    bool reported = false;
    bool answered = false;
    while (!(reported && answered)) {
        const auto frame = peer->ReadFrame();
        ASSERT_TRUE(frame.has_value()) << log->Dump();
        reported = reported || frame->head.usiMsgType == NSS_PLUGIN_SEND_PORTLIST_DATA_REQ;
        answered = answered || frame->head.uiSeqID == seq;
    }
    // The next main service opens when the first one has gone, and its report is not answered either.
    peer->Close();
    ASSERT_TRUE(log->WaitFor("The main service is away"));
    const auto second = Link("GVX#901");
    EXPECT_TRUE(log->Contains("The link closed before the answer."));
    EXPECT_TRUE(log->WaitFor("[NSS_PLUGIN_SEND_PORTLIST_DATA_REQ]gvxLinkID GVX#901"));
    stopped = true;
    EXPECT_TRUE(gateway->Stop()) << log->Dump();
    EXPECT_EQ(log->Count("The main service is away"), 2u) << "the links' end is served before the devices' table goes";
}

TEST_F(PortGatewayTest, StreamTakesItsPortFromTheMainServiceAndGivesItBack) {
    const unsigned int offered = FakeListener().Port();  // free over UDP as well, as far as a test can tell
    std::string answer = R"({"ApplyPortReturnList":[)" + std::to_string(offered) + R"(],"ApplyPortReturnType":1})";
    onOtherFrame = [&](const FakePeer::Frame& frame) {
        if (frame.head.usiMsgType == NSS_PLUGIN_APPLY_PORTLIST_DATA_REQ) {
            peer->SendFrame(NSS_PLUGIN_APPLY_PORTLIST_DATA_RSP, 1, frame.Transaction(), 0, answer);
            answer = "{}";  // nothing else is offered
        }
    };
    ASSERT_EQ(AddDevice("CAM1").code, 0u);
    EXPECT_EQ(Start("CAM1", "live").json["SrcVideoPort"].asUInt(), offered);
    EXPECT_EQ(Start("CAM1", "sub", R"(,"StreamType":1)").code, static_cast<unsigned>(ZVS_GVX_OPEN_SOCKET_ERROR));
    // A transmission thread has a packet of the stream, and with it the socket, when the next one starts.
    CStreamTransmission::Queue* const queue = CStreamTransMgr::Instance()->GetMediaQueue();
    std::future<Answer> again;
    {
        const HeldThreads held({queue});
        ASSERT_TRUE(WaitUntil([queue] { return queue->message_count() != 0; }));
        ASSERT_EQ(Stop("CAM1", "live").code, 0u);
        again = std::async(std::launch::async, [this] { return Start("CAM1", "again"); });
        again.wait_for(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(again.get().json["SrcVideoPort"].asUInt(), offered) << log->Dump();
    CStreamTransMgr::Instance()->ReleaseMediaQueue(queue);
}
