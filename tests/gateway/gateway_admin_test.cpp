#include "base/clock.h"
#include "base/json_io.h"
#include "base/unique_fd.h"
#include "gateway/admin/admin.h"
#include "gateway/admin/control_commands.h"
#include "gateway/admin/control_socket.h"
#include "gateway/admin/event_feed.h"
#include "gateway/admin/heartbeat.h"
#include "gateway/admin/metrics.h"
#include "gateway/admin/request_check.h"
#include "gateway/admin/status.h"
#include "gateway/admin/status_json.h"
#include "gateway/admin/status_port.h"
#include "gateway/gateway_fixture.h"
#include "nss/nss_msg_type.h"
#include "support/test_clock.h"
#include "support/wait_until.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

gvx::StatusEvent EventOf(const std::vector<gvx::StatusEvent>& events, const std::string& kind) {
    const auto found =
        std::find_if(events.begin(), events.end(), [&](const auto& event) { return event.kind == kind; });
    return found == events.end() ? gvx::StatusEvent{} : *found;
}

// A connection to a port of the loopback with a request for the page under way.
gvx::UniqueFd Ask(std::uint16_t port, const std::string& page) {
    gvx::UniqueFd client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string request = "GET " + page + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
    EXPECT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    EXPECT_EQ(send(client.Get(), request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    return client;
}

std::string StatusLine(const gvx::UniqueFd& client) {
    char line[13] = {};
    recv(client.Get(), line, sizeof line - 1, MSG_WAITALL);
    return line;
}

}  // namespace

TEST_F(GatewayTest, StatusTellsWhatRunsAndTotalsKeepWhatHasEnded) {
    const auto collect = [this] { return gvx::CollectStatus(gateway->Context(), nullptr); };
    gvx::GatewayStatus before;
    ASSERT_TRUE(WaitUntil([&] {
        before = collect();
        return before.ready.Ready() && before.links.size() == 1 && before.links[0].mainService;
    })) << log->Dump();
    ASSERT_EQ(AddDevice("CAM1").code, 0u);
    ASSERT_EQ(Start("CAM1", "live").code, 0u);
    gvx::GatewayStatus status;
    ASSERT_TRUE(WaitUntil([&] {
        status = collect();
        return status.streams.size() == 1 && status.streams[0].frames > 0;
    }));
    const gvx::StreamStatus& stream = status.streams[0];
    EXPECT_EQ(stream.id + stream.device + stream.lens + stream.plugin, "liveCAM1CAM1_0moody");
    EXPECT_EQ(stream.service + stream.video + stream.transport + stream.destination, "liveH.264UDP127.0.0.1:9");
    EXPECT_EQ(stream.link, "GVX#900");
    EXPECT_TRUE(stream.delivering);
    EXPECT_GE(stream.lastFrameMs, 0);
    ASSERT_EQ(status.devices.size(), 1u);
    EXPECT_EQ(status.devices[0].streams, 1u);
    EXPECT_TRUE(status.devices[0].well) << status.devices[0].reason;
    status.devices[0].reason = "\"a\\b\"\n\xC3\xA9";
    const std::string text = gvx::WholeStatusText(status);
    Json::Value read;
    ASSERT_TRUE(gvx::ParseJson(text.data(), text.size(), read, nullptr)) << text;
    EXPECT_EQ(gvx::WriteJson(read), gvx::WriteJson(gvx::WholeStatus(status)));
    EXPECT_EQ(status.plugins.at(0).devices, 1u);
    EXPECT_GT(status.links[0].info.framesIn, before.links[0].info.framesIn);
    const std::string metrics = gvx::MetricsText(status, true);
    EXPECT_NE(metrics.find("gvx_device_up{device=\"CAM1\"} 1"), std::string::npos) << metrics;

    const std::vector<gvx::StatusEvent> events = gvx::CompareStatus(before, status);
    EXPECT_EQ(EventOf(events, "device").subject, "CAM1");
    EXPECT_EQ(EventOf(events, "stream").text, "live of CAM1 to 127.0.0.1:9");

    ASSERT_EQ(Stop("CAM1", "live").code, 0u);
    const gvx::GatewayStatus after = collect();
    EXPECT_TRUE(after.streams.empty());
    EXPECT_GE(after.streamTotals.frames, stream.frames) << "counts rise only";
    EXPECT_EQ(after.devices.at(0).totals.frames, after.streamTotals.frames - before.streamTotals.frames);
    EXPECT_STREQ(EventOf(gvx::CompareStatus(status, after), "stream").what, "ended");
}

TEST_F(GatewayTest, StuckPluginCallIsNamedAndTheOthersAreServed) {
    ASSERT_EQ(AddDevice("STUCK", "StartStream=hang").code, 0u);
    gvx::Heartbeats heartbeats(gateway->Context(), std::chrono::milliseconds(1000));
    EXPECT_TRUE(gvx::LivenessFaults(heartbeats.Threads()).empty());
    const std::uint32_t stuck =
        SendJson(NSS_START_STREAM_REQ, R"({"DevCode":"STUCK","ServiceID":"s","DstIP":"127.0.0.1","DstVideoPort":9})");
    std::vector<std::string> faults;
    ASSERT_TRUE(WaitUntil([&] {
        // A busy machine may keep other threads waiting as well, for a while.
        faults = gvx::LivenessFaults(heartbeats.Threads());
        return faults.size() == 2 && faults[1].find("The event thread Device") == 0 && heartbeats.SharedThreadsAlive();
    })) << log->Dump();
    EXPECT_NE(faults[0].find("Plug-in moody: StartStream of device STUCK has not returned for "), std::string::npos);
    EXPECT_EQ(AddDevice("CAM1").code, 0u);
    gvx::WriteStatusToLog();
    EXPECT_TRUE(log->Contains("StartStream of device STUCK has not returned for ")) << log->Dump();
    moody->release = true;
    EXPECT_EQ(WaitAnswer(NSS_START_STREAM_REQ, stuck).code, 0u);
    EXPECT_TRUE(WaitUntil([&] { return gvx::LivenessFaults(heartbeats.Threads()).empty(); }));
}

TEST_F(GatewayTest, StreamThatThePlatformHasPausedDelivers) {
    const auto entry = std::make_shared<gvx::StreamEntry>();
    entry->startedMs = gvx::MonotonicMilliseconds() - 60000;
    entry->media = std::make_shared<CMediaSendStream>();
    gvx::StreamLedger::Instance().Enter(entry);
    const auto state = [&](std::int64_t flowsSinceMs) {
        entry->flowsSinceMs = flowsSinceMs;
        const gvx::GatewayStatus status = gvx::CollectStatus(gateway->Context(), nullptr);
        return gvx::StatusList(status, "streams")[0]["state"].asString() + (status.streams[0].delivering ? "" : "!");
    };
    EXPECT_EQ(state(0), "silent!");
    EXPECT_EQ(state(gvx::StreamEntry::kPaused), "paused");
    EXPECT_EQ(state(gvx::MonotonicMilliseconds()), "delivering") << "the first frame is under way";
    EXPECT_EQ(state(entry->startedMs + 1), "silent!");
    gvx::StreamLedger::Instance().Leave(entry);
}

TEST(StatusPort, ReadersShareAPageAndThoseThatAreSlowDoNotKeepWithoutEnd) {
    gvx::UniqueFd taken(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in local{};
    socklen_t size = sizeof local;
    ASSERT_EQ(bind(taken.Get(), reinterpret_cast<sockaddr*>(&local), size), 0);  // to any port, which is free then
    ASSERT_EQ(getsockname(taken.Get(), reinterpret_cast<sockaddr*>(&local), &size), 0);
    const std::uint16_t number = ntohs(local.sin_port);
    const auto made = [] {
        gvx::GatewayStatus status;
        status.devices.emplace_back().reason.assign(gvx::StatusPort::kMaxHeldBytes / 4, 'x');
        return std::make_shared<const gvx::GatewayStatus>(std::move(status));
    };
    ScopedTestClock clock;
    std::shared_ptr<const gvx::GatewayStatus> look = made();
    const auto lookAnew = [&] {
        look = made();
        clock->AdvanceSeconds(1);  // for which a page stands at least
    };
    std::string reason;
    gvx::StatusPort port;
    ASSERT_FALSE(port.Start("127.0.0.1", number, {}, reason)) << "somebody has it";
    taken.Reset();
    ASSERT_TRUE(port.Start("127.0.0.1", number, {[&look] { return look; }, {}, nullptr}, reason)) << reason;
    std::vector<gvx::UniqueFd> slow;
    for (int reader = 0; reader < 20; ++reader) {
        slow.push_back(Ask(number, "/status.json"));
        EXPECT_EQ(StatusLine(slow.back()), "HTTP/1.1 200");
    }
    for (int earlier = 0; earlier < 3; ++earlier) {  // each is held by a reader of its own
        lookAnew();
        slow.push_back(Ask(number, "/status.json"));
        EXPECT_EQ(StatusLine(slow.back()), "HTTP/1.1 200");
    }
    lookAnew();
    EXPECT_EQ(StatusLine(Ask(number, "/status.json")), "HTTP/1.1 503");
    EXPECT_EQ(StatusLine(Ask(number, "/metrics")), "HTTP/1.1 200");
    slow.clear();
    EXPECT_TRUE(WaitUntil([&] { return StatusLine(Ask(number, "/status.json")) == "HTTP/1.1 200"; }));
    port.Stop();
}

TEST(ControlSocket, AnAnswerThatComesLaterHoldsUpNoOther) {
    const TempFolder folder;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    folder.Path("control.sock").copy(address.sun_path, sizeof address.sun_path - 1);
    std::atomic<bool> ready{false};
    const std::function<gvx::ControlAnswer()> wait = [&] {
        return ready ? gvx::ControlAnswer{"late", nullptr} : gvx::ControlAnswer{Json::Value(), wait};
    };
    gvx::ControlSocket control;
    std::string reason;
    ASSERT_TRUE(control.Start(
        address.sun_path,
        [&](const std::string& request) {
            return request == "wait" ? wait() : gvx::ControlAnswer{"early", nullptr};
        },
        reason))
        << reason;
    const auto ask = [&](const std::string& line) {
        gvx::UniqueFd client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(send(client.Get(), line.data(), line.size(), 0), static_cast<ssize_t>(line.size()));
        return client;
    };
    const auto answer = [](const gvx::UniqueFd& client) {
        char text[16] = {};
        return std::string(text, static_cast<std::size_t>(std::max<ssize_t>(0, recv(client.Get(), text, 16, 0))));
    };
    const gvx::UniqueFd waits = ask("wait\n");
    ask("wait\n");  // goes at once
    EXPECT_EQ(answer(ask("now\n")), "\"early\"\n");
    ready = true;
    EXPECT_EQ(answer(waits), "\"late\"\n");
}

TEST(ControlSocket, NeverTakesAnothersFileAway) {
    const TempFolder folder;
    const std::string path = folder.Path("control.sock");
    const auto answer = [](const std::string&) { return gvx::ControlAnswer(); };
    std::string reason;
    gvx::ControlSocket first;
    gvx::ControlSocket second;
    ASSERT_TRUE(first.Start(path, answer, reason)) << reason;
    EXPECT_FALSE(second.Start(path, answer, reason));
    EXPECT_EQ(reason, "another process answers there");
    std::filesystem::remove(path);
    ASSERT_TRUE(second.Start(path, answer, reason)) << reason;
    first.Stop();
    EXPECT_TRUE(std::filesystem::exists(path)) << "it is the second one's";
    second.Stop();
    EXPECT_FALSE(std::filesystem::exists(path));
    // What cannot be asked may live.
    const gvx::UniqueFd other(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(other.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_FALSE(first.Start(path, answer, reason));
    EXPECT_EQ(reason.find("whether another process answers there cannot be found out: "), 0u) << reason;
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(ControlCommands, RefuseWhatIsNoneWithoutCollecting) {
    gvx::TraceDesk traces("/nowhere", "test");
    const auto refuseStatus = []() -> gvx::GatewayStatus {
        ADD_FAILURE();
        return {};
    };
    const auto devices = [] { return std::vector<std::string>{"CAM1"}; };
    for (const char* request : {"", "devices all", "DEVICES", "log", "log level 8", "log level loud", "log level 1 2",
                                "trace", "trace start", "trace start CAM1 0", "trace start CAM1 3601",
                                "trace start CAM1 1s", "trace stop CAM1", "trace list all", "trace fetch ../x.pcapng 0",
                                "trace fetch CAM1.pcapng 0", "trace fetch CAM1.pcapng -1", "trace dialogue CAM1"}) {
        const Json::Value answer = gvx::AnswerControl(request, {refuseStatus, devices, traces}).value;
        EXPECT_FALSE(gvx::JsonText(answer, "error").empty()) << request;
    }
    const Json::Value answer = gvx::AnswerControl("trace start CAM2", {refuseStatus, devices, traces}).value;
    EXPECT_EQ("There is no device CAM2. Is it CAM1?", gvx::JsonText(answer, "error"));
}

TEST(StatusRequests, AreTakenUnderOurOwnNameForOurPathsAlone) {
    struct Row {
        unsigned int code;
        const char* host;
        const char* target;
        const char* method = "GET";
        bool body = false;
        const char* address = "127.0.0.1";
    };
    const Row rows[] = {{200, "localhost:9620", "/metrics"},
                        {200, "LocalHost", "/"},
                        {200, "127.0.0.1:9620", "/events?last=1", "HEAD"},
                        {200, "127.9.9.9", "/livez"},
                        {200, "[::1]:9620", "/"},
                        {200, "10.0.0.7:9620", "/", "GET", false, "10.0.0.7"},
                        {200, "192.168.1.2:9620", "/", "GET", false, "0.0.0.0"},
                        {421, "192.168.1.2:9620", "/"},
                        {421, "evil.example:9620", "/", "GET", false, "0.0.0.0"},
                        {421, "localhost.evil.example", "/"},
                        {200, "127.0.0.1:9621", "/"},
                        {421, "127.0.0.1:9620:9620", "/"},
                        {421, "127.0.0.1:", "/"},
                        {421, "localhost:9x", "/"},
                        {421, "2130706433:9620", "/"},
                        {421, "", "/"},
                        {404, "localhost", "/metrics/"},
                        {404, "localhost", "//metrics"},
                        {404, "localhost", "/../metrics"},
                        {404, "localhost", "/%6detrics"},
                        {404, "localhost", "http://localhost/metrics"},
                        {404, "localhost", ""},
                        {405, "localhost", "/metrics", "POST"},
                        {405, "localhost", "/metrics", "get"},
                        {413, "localhost", "/metrics", "GET", true}};
    for (const Row& row : rows) {
        const gvx::StatusRequest request{row.method, row.target, {row.host}, row.body};
        EXPECT_EQ(gvx::CheckRequest(request, row.address).code, row.code)
            << row.method << " " << row.target << " of " << row.host << " at " << row.address;
    }
    EXPECT_EQ(gvx::CheckRequest({"GET", "/", {"localhost", "localhost"}, false}, "127.0.0.1").code, 400u);
    EXPECT_EQ(gvx::CheckRequest({"GET", "/", {}, false}, "127.0.0.1").code, 421u);
    EXPECT_EQ(gvx::CheckRequest({"GET", "/", {}, false, true}, "127.0.0.1").code, 200u);
    EXPECT_EQ(gvx::CheckRequest({"GET", "/", {"evil.example"}, false, true}, "127.0.0.1").code, 421u);
}

TEST(EventFeed, DropsWhoDoesNotKeepUpAndGivesTheKeptEventsToWhoComesLater) {
    gvx::EventFeed feed;
    std::string reason;
    int suspended = 0;
    int resumed = 0;
    const auto join = [&](const std::string& last) {
        return feed.Join(
            last, [&] { ++suspended; }, [&] { ++resumed; });
    };
    EXPECT_EQ(join(""), nullptr) << "nobody would wake it";
    ASSERT_TRUE(feed.Start([] { return gvx::GatewayStatus{}; }, [] {}, reason));
    const auto drain = [](gvx::EventFeed::Reader& reader) {
        std::string all;
        char bytes[1000];
        for (long count = 0; (count = reader.Read(bytes, sizeof(bytes))) > 0;) {
            all.append(bytes, static_cast<std::size_t>(count));
        }
        return all;
    };
    const auto slow = join("");
    const auto quick = join("");
    std::size_t seen = 0;
    for (int turn = 0; turn < 400; ++turn) {
        feed.Publish({{"device", "added", std::string(500, 'x'), "", false}});
        seen += drain(*quick).size();
    }
    EXPECT_EQ(feed.CountDropped(), 1u);
    EXPECT_GT(seen, 400u * 500u) << "the other one got all";
    EXPECT_GT(suspended, 0);
    EXPECT_EQ(resumed, suspended - 1) << "it waits again";
    char byte = 0;
    EXPECT_EQ(slow->Read(&byte, 1), -1);
    const std::string all = drain(*join(""));
    const std::string first = all.substr(all.find("id: ") + 4, all.find("-301\n") - all.find("id: ") - 4);  // its run
    const std::string later = drain(*join(first + "-350"));
    EXPECT_EQ(later.find("-350\n"), std::string::npos) << first;
    EXPECT_NE(later.find("-351\n"), std::string::npos);
    EXPECT_EQ(drain(*join("1600000000.7-350")), all) << "of a gateway that has ended";
    feed.Publish(std::vector<gvx::StatusEvent>(1000, gvx::StatusEvent{"link", "opened", "SCU#001", "", false}));
    EXPECT_NE(drain(*quick).find("901 further changes at once"), std::string::npos);
    feed.Stop();
    EXPECT_EQ(quick->Read(&byte, 1), -1);
}
