// Frames of a link: in from the socket to PushMessage, out from SendRespMsgWithJson to the socket, each as frames a CPU
// second of the threads that do it; and how long a request takes from the peer's write to the session of its device,
// with 10,000 devices on one link. The floor reads and writes the same frames on the same kind of sockets and does not
// look into them.

#include "link_frames.h"

#include "bench_support.h"
#include "bp/dispatcher.h"
#include "bp/message_block_ptr.h"
#include "bp/net_factory.h"
#include "bp/session.h"
#include "gateway/requests/frame_sink.h"
#include "gateway/requests/gateway_context.h"
#include "gvx_common/event/gvx_reactor.h"
#include "gvx_common/link/gvx_connection_mgr.h"
#include "nss/nss_msg_type.h"

#include <json/value.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

using bench_link::Feed;
using bench_link::kFrameBytes;
using bench_link::SharedCount;

constexpr const char* kMainService = "GVX#000";
constexpr const char* kRequester = "SCU#001";
constexpr int kRounds = 5;
constexpr std::uint64_t kFrames = 200000;
constexpr std::uint64_t kWarmUp = kFrames / 10;
constexpr int kThroughputDevices = 64;
constexpr int kManyDevices = 10000;
constexpr std::size_t kReadBytes = 64 * 1024;  // as much as a link reads at once
constexpr std::size_t kGathered = 64;          // as many frames as a link writes at once
constexpr std::uint64_t kMostInFlight = 8192;

const Feed kFlatOut{kFrames, kThroughputDevices, 16, 2048, 0};
const Feed kPaced{kManyDevices, kManyDevices, 1, 0, 200000};
const Feed kBurst{kManyDevices, kManyDevices, 100, 0, 0};

[[noreturn]] void GiveUp(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(2);
}

class Signal {
public:
    Signal() { sem_init(&m_semaphore, 0, 0); }
    ~Signal() { sem_destroy(&m_semaphore); }
    void Post() { sem_post(&m_semaphore); }
    void Wait() {
        while (sem_wait(&m_semaphore) != 0) {
        }
    }

private:
    sem_t m_semaphore;
};

std::int64_t ClockNs(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

double PerCpuSecond(std::uint64_t frames, std::int64_t cpuNs) {
    return static_cast<double>(frames) / (static_cast<double>(cpuNs) / 1e9);
}

// The gateway's own parts between its socket and its sessions.
class Links {
public:
    Links() : m_sink(m_context) {
        BP::LinkOptions options;
        options.localID = "GVX#001";
        BP::LinkEvents events;
        events.opened = [this](const std::string&, int type, const std::string& id, const std::string& ip,
                               unsigned int port) {
            pthread_getcpuclockid(pthread_self(), &m_linkClock);
            if (id == kMainService) {
                GvxConnectionMgr()->OnLinkOpened("", type, id, ip, port);
            }
            m_opened.Post();
        };
        GvxConnectionMgr()->SetException([](ADAPTER_COMMON_MESSAGE&) {});
        if (BP::CNetFactory::Start(options, events) != 0 || BP::CNetFactory::Listen("127.0.0.1", 0, &m_port) != 0 ||
            m_context.binder.InitPool(8) != 0) {
            GiveUp("the links cannot be started");
        }
        m_context.gatewayReactor = m_context.binder.Bind(gvx::kGatewayKey);
        for (int device = 0; device < kManyDevices; ++device) {
            std::string reason;
            if (m_context.binder.BindForAddition(bench_link::DeviceID(device), reason) == nullptr) {
                GiveUp(reason.c_str());
            }
            m_context.binder.SettleAddition(bench_link::DeviceID(device), true);
        }
    }
    ~Links() { BP::CNetFactory::Stop(); }
    std::uint16_t Port() const { return m_port; }
    void WaitOpened() { m_opened.Wait(); }
    std::int64_t LinkThreadCpuNs() const { return ClockNs(m_linkClock); }
    int Take(BP::CCmd& cmd) { return m_sink.Take(cmd); }

private:
    gvx::GatewayContext m_context;
    gvx::FrameSink m_sink;
    std::uint16_t m_port = 0;
    Signal m_opened;
    clockid_t m_linkClock{};
};

// Reads what the peer sends, as a link does, without a look at it. Tells of each read how many frames have come so far.
template <typename Told>
void ReadBare(int socket, std::uint64_t frames, Told told) {
    std::vector<char> buffer(kReadBytes);
    std::size_t held = 0;
    for (std::uint64_t come = 0; come < frames;) {
        pollfd waiting{socket, POLLIN, 0};
        ::poll(&waiting, 1, -1);
        const ssize_t got = ::recv(socket, buffer.data() + held, buffer.size() - held, MSG_DONTWAIT);
        if (got <= 0) {
            GiveUp("the peer is gone");
        }
        const std::size_t bytes = held + static_cast<std::size_t>(got);
        const std::size_t whole = bytes / kFrameBytes;
        told(buffer.data(), whole);
        come += whole;
        held = bytes - whole * kFrameBytes;
        std::copy(buffer.data() + bytes - held, buffer.data() + bytes, buffer.data());
    }
}

double FramesIn(Links& links) {
    SharedCount served;
    Signal end;
    std::uint64_t taken = 0;
    std::int64_t begin = 0;
    std::int64_t cpu = 0;
    BP::RegisterSessionWork(NSS_PTZ_CONTROL_REQ, [&served](BP::CGvxSessionBase&, const BP::CCmd&) {
        served.Add(1);
        return 0;
    });
    BP::CDispatcher::SetSink([&](std::unique_ptr<BP::CCmd> cmd) -> int {
        if (cmd->GetReqID() != NSS_PTZ_CONTROL_REQ) {
            return ZVS_FAIL;
        }
        const int result = links.Take(*cmd);
        cmd.reset();
        if (++taken == kWarmUp) {
            begin = bench::ThreadCpuNs();
        } else if (taken == kFrames) {
            cpu = bench::ThreadCpuNs() - begin;
            end.Post();
        }
        return result;
    });
    const bench_link::PeerProcess peer([&] {
        bench_link::SendFeed(bench_link::LinkedSocket(links.Port(), kRequester), kFlatOut, served);
    });
    links.WaitOpened();
    end.Wait();
    while (served.Get() < kFrames) {
        std::this_thread::yield();
    }
    BP::CDispatcher::SetSink({});
    return PerCpuSecond(kFrames - kWarmUp, cpu);
}

double FramesInFloor() {
    SharedCount served;
    bench_link::Listener listener;
    const bench_link::PeerProcess peer([&] {
        bench_link::SendFeed(bench_link::LinkedSocket(listener.Port(), kRequester), kFlatOut, served);
    });
    const int socket = listener.AcceptRegistered();
    std::uint64_t come = 0;
    std::uint64_t before = 0;
    std::int64_t begin = 0;
    ReadBare(socket, kFrames, [&](const char*, std::size_t whole) {
        come += whole;
        served.Add(whole);
        if (begin == 0 && come >= kWarmUp) {
            begin = bench::ThreadCpuNs();
            before = come;
        }
    });
    const std::int64_t cpu = bench::ThreadCpuNs() - begin;
    ::close(socket);
    return PerCpuSecond(kFrames - before, cpu);
}

// Runs in the peer: takes all that comes.
void DrainSocket(int socket, SharedCount& frames) {
    std::vector<char> buffer(1 << 20);
    std::size_t held = 0;
    for (ssize_t got = 0; (got = ::recv(socket, buffer.data(), buffer.size(), 0)) > 0;) {
        held += static_cast<std::size_t>(got);
        frames.Add(held / kFrameBytes);
        held %= kFrameBytes;
    }
}

void WaitForRoom(std::uint64_t sent, const SharedCount& drained) {
    while (sent > drained.Get() + kMostInFlight) {
        bench_link::SleepUntil(bench::NowNs() + 50000);
    }
}

// A body of 200 bytes, the line feed of its writer included.
Json::Value ResponseBody() {
    Json::Value value;
    value["DevCode"] = bench_link::DeviceID(7);
    value["Packets"] = 123456;
    value["Text"] = "";
    const std::size_t bare = std::string("{\"DevCode\":\"\",\"Packets\":123456,\"Text\":\"\"}\n").size() +
                             value["DevCode"].asString().size();
    value["Text"] = std::string(bench_link::kBodyBytes - bare, 'x');
    return value;
}

struct Out {
    double framesPerCpuSecond;
    double allocationsPerFrame;
};

Out FramesOut(Links& links) {
    SharedCount drained;
    const bench_link::PeerProcess peer([&] {
        DrainSocket(bench_link::LinkedSocket(links.Port(), kMainService), drained);
    });
    links.WaitOpened();
    const std::string request = bench_link::RequestFrame(7, 0);
    BP::MessageBlockPtr block = BP::MakeMessageBlock(request.size());
    block->copy(request.data(), request.size());
    BP::CCmd cmd;
    cmd.SetReqID(NSS_PTZ_CONTROL_REQ);
    cmd.SetServiceID(7);
    cmd.SetTransID("bench-transaction");
    cmd.SetMsgBlock(block.release());
    const Json::Value value = ResponseBody();
    std::int64_t begin = 0;
    std::uint64_t allocations = 0;
    for (std::uint64_t sent = 0; sent < kFrames; ++sent) {
        if (sent == kWarmUp) {
            begin = bench::ThreadCpuNs() + links.LinkThreadCpuNs();
            allocations = bench::Allocations();
        }
        if (sent % kGathered == 0) {
            WaitForRoom(sent, drained);
        }
        GvxConnectionMgr()->SendRespMsgWithJson(&cmd, value, 0);
    }
    while (drained.Get() < kFrames) {
        bench_link::SleepUntil(bench::NowNs() + 50000);
    }
    const std::int64_t cpu = bench::ThreadCpuNs() + links.LinkThreadCpuNs() - begin;
    const std::uint64_t frames = kFrames - kWarmUp;
    return {PerCpuSecond(frames, cpu),
            static_cast<double>(bench::Allocations() - allocations) / static_cast<double>(frames)};
}

double FramesOutFloor() {
    SharedCount drained;
    bench_link::Listener listener;
    const bench_link::PeerProcess peer([&] {
        DrainSocket(bench_link::LinkedSocket(listener.Port(), kMainService), drained);
    });
    const int socket = listener.AcceptRegistered();
    std::string frame = bench_link::RequestFrame(7, 0);
    std::array<iovec, kGathered> parts;
    parts.fill({&frame[0], frame.size()});
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    const std::int64_t begin = bench::ThreadCpuNs();
    std::uint64_t sent = 0;
    for (; sent < kFrames; sent += kGathered) {
        WaitForRoom(sent, drained);
        if (::sendmsg(socket, &message, MSG_NOSIGNAL) != static_cast<ssize_t>(kGathered * kFrameBytes)) {
            GiveUp("a write was cut");
        }
    }
    const std::int64_t cpu = bench::ThreadCpuNs() - begin;
    ::close(socket);
    return PerCpuSecond(sent, cpu);
}

// Nanoseconds from the peer's write to here, one sample a request.
class Latencies {
public:
    explicit Latencies(std::uint64_t count) : m_samples(count) {}
    // Any thread.
    void Add(const char* frame) {
        const std::int64_t took = bench::NowNs() - bench_link::StampOf(frame);
        const std::uint64_t at = m_next.fetch_add(1);
        if (at < m_samples.size()) {
            m_samples[at] = took;
        }
        if (at + 1 == m_samples.size()) {
            m_end.Post();
        }
    }
    void Wait() { m_end.Wait(); }
    double Us(double part) { return static_cast<double>(bench::Percentile(m_samples, part)) / 1000; }

private:
    std::vector<std::int64_t> m_samples;
    std::atomic<std::uint64_t> m_next{0};
    Signal m_end;
};

void SocketToSession(Links& links, const Feed& feed, Latencies& latencies) {
    SharedCount unused;
    BP::RegisterSessionWork(NSS_PTZ_CONTROL_REQ, [&latencies](BP::CGvxSessionBase&, const BP::CCmd& cmd) {
        latencies.Add(cmd.GetMsgBlock()->rd_ptr());
        return 0;
    });
    BP::CDispatcher::SetSink([&links](std::unique_ptr<BP::CCmd> cmd) { return links.Take(*cmd); });
    const bench_link::PeerProcess peer(
        [&] { bench_link::SendFeed(bench_link::LinkedSocket(links.Port(), kRequester), feed, unused); });
    links.WaitOpened();
    latencies.Wait();
    BP::CDispatcher::SetSink({});
}

void SocketToThread(const Feed& feed, Latencies& latencies) {
    SharedCount unused;
    bench_link::Listener listener;
    const bench_link::PeerProcess peer(
        [&] { bench_link::SendFeed(bench_link::LinkedSocket(listener.Port(), kRequester), feed, unused); });
    const int socket = listener.AcceptRegistered();
    ReadBare(socket, feed.frames, [&](const char* frames, std::size_t whole) {
        for (std::size_t i = 0; i < whole; ++i) {
            latencies.Add(frames + i * kFrameBytes);
        }
    });
    ::close(socket);
}

void MeasureThroughput(Links& links, bench::Table& table) {
    std::vector<double> in, inFloor, out, outFloor, allocations;
    for (int round = 0; round < kRounds; ++round) {
        inFloor.push_back(FramesInFloor());
        in.push_back(FramesIn(links));
        outFloor.push_back(FramesOutFloor());
        const Out measured = FramesOut(links);
        out.push_back(measured.framesPerCpuSecond);
        allocations.push_back(measured.allocationsPerFrame);
    }
    using bench::Median;
    table.Row("frames in, socket to PushMessage", Median(in), Median(inFloor), "frames/cpu-s");
    table.Row("frames out, response to socket", Median(out), Median(outFloor), "frames/cpu-s");
    table.Plain("heap allocations per frame out", Median(allocations), "");
}

void MeasureLatency(Links& links, const char* name, const Feed& feed, bench::Table& table) {
    std::vector<double> p50, p99, p50Floor, p99Floor;
    for (int round = 0; round < kRounds; ++round) {
        Latencies floor(feed.frames);
        SocketToThread(feed, floor);
        Latencies path(feed.frames);
        SocketToSession(links, feed, path);
        p50.push_back(path.Us(0.5));
        p99.push_back(path.Us(0.99));
        p50Floor.push_back(floor.Us(0.5));
        p99Floor.push_back(floor.Us(0.99));
    }
    using bench::Median;
    table.Row("socket to session, " + std::string(name) + ", p50", Median(p50), Median(p50Floor), "us");
    table.Row("socket to session, " + std::string(name) + ", p99", Median(p99), Median(p99Floor), "us");
}

}  // namespace

int main() {
    Links links;
    bench::Table table("links: one link, bodies of 200 bytes, sessions of 10,000 devices (medians of " +
                       std::to_string(kRounds) + " runs)");
    MeasureThroughput(links, table);
    MeasureLatency(links, "5,000 a second", kPaced, table);
    MeasureLatency(links, "all at once", kBurst, table);
    return table.Print() ? 0 : 1;
}
