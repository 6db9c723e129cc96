// Push to service of device commands, beside a floor that does only what cannot be avoided.

#include "command_spine.h"

#include "bench_support.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sched.h>
#include <semaphore.h>
#include <time.h>

namespace {

constexpr int kRuns = 5;
constexpr int kTurns = 5;  // of path and floor in a run: short ones, so that what else the machine does falls on both
constexpr std::int64_t kPaceNs = 100000;
constexpr int kPacedCmds = 8000;

using MakePath = std::unique_ptr<CommandPath> (*)(int, ServedListener&);

// How many devices, how many threads push, and how many commands a device gets at once.
struct Load {
    int devices;
    int producers;
    int burst;
    int rounds;
};

struct Throughput {
    double cmdsPerCpuSecond = 0;
    double allocationsPerCmd = 0;
};

struct Latency {
    double p50 = 0;
    double p99 = 0;
};

// Counts a round down and wakes the producer at its end.
class RoundListener : public ServedListener {
public:
    RoundListener() { sem_init(&m_done, 0, 0); }
    ~RoundListener() override { sem_destroy(&m_done); }
    void Begin(int cmds) { m_left = cmds; }
    void OnServed(int) override {
        if (m_left.fetch_sub(1) == 1) {
            sem_post(&m_done);
        }
    }
    void WaitForEnd() {
        while (sem_wait(&m_done) != 0) {
        }
    }

private:
    std::atomic<int> m_left{0};
    sem_t m_done;
};

void PushBurst(CommandPath& path, const Load& load, int producer) {
    for (int i = 0; i < load.burst; ++i) {
        for (int device = producer; device < load.devices; device += load.producers) {
            path.Push(device);
        }
    }
}

void PushRound(CommandPath& path, const Load& load) {
    std::vector<std::thread> others;
    for (int producer = 1; producer < load.producers; ++producer) {
        others.emplace_back([&path, &load, producer] { PushBurst(path, load, producer); });
    }
    PushBurst(path, load, 0);
    for (std::thread& other : others) {
        other.join();
    }
}

Throughput MeasureThroughput(MakePath make, const Load& load) {
    RoundListener listener;
    const auto path = make(load.devices, listener);
    const int cmdsPerRound = load.devices * load.burst;
    const auto round = [&] {
        listener.Begin(cmdsPerRound);
        PushRound(*path, load);
        listener.WaitForEnd();
    };
    round();  // warms caches, pools and thread stacks
    const std::int64_t cpu = bench::ProcessCpuNs();
    const std::uint64_t allocations = bench::Allocations();
    for (int i = 0; i < load.rounds; ++i) {
        round();
    }
    const double cmds = static_cast<double>(cmdsPerRound) * load.rounds;
    Throughput result;
    result.cmdsPerCpuSecond = cmds / (static_cast<double>(bench::ProcessCpuNs() - cpu) / 1e9);
    result.allocationsPerCmd = static_cast<double>(bench::Allocations() - allocations) / cmds;
    return result;
}

// One command of a device at a time; its time of push stays with the device.
class LatencyListener : public ServedListener {
public:
    explicit LatencyListener(int devices) : m_devices(static_cast<std::size_t>(devices)) {
        for (Device& device : m_devices) {
            device.samples.reserve(static_cast<std::size_t>(kPacedCmds));
        }
    }
    bool Busy(int device) const { return At(device).busy.load(std::memory_order_acquire); }
    void Pushing(int device) {
        At(device).busy.store(true, std::memory_order_relaxed);
        At(device).pushedNs = bench::NowNs();
    }
    void OnServed(int device) override {
        Device& served = At(device);
        served.samples.push_back(bench::NowNs() - served.pushedNs);
        served.busy.store(false, std::memory_order_release);
    }
    std::vector<std::int64_t> Samples() const {
        std::vector<std::int64_t> all;
        for (const Device& device : m_devices) {
            all.insert(all.end(), device.samples.begin(), device.samples.end());
        }
        return all;
    }

private:
    struct Device {
        std::atomic<bool> busy{false};
        std::int64_t pushedNs = 0;
        std::vector<std::int64_t> samples;
    };
    Device& At(int device) { return m_devices[static_cast<std::size_t>(device)]; }
    const Device& At(int device) const { return m_devices[static_cast<std::size_t>(device)]; }
    std::vector<Device> m_devices;
};

void SleepUntil(std::int64_t ns) {
    timespec at{};
    at.tv_sec = ns / 1000000000;
    at.tv_nsec = ns % 1000000000;
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr);
}

// Puts this thread, and the threads that it makes from then on, on some of the machine's CPUs.
class ScopedCpus {
public:
    ScopedCpus() { sched_getaffinity(0, sizeof(m_former), &m_former); }
    ~ScopedCpus() { sched_setaffinity(0, sizeof(m_former), &m_former); }
    ScopedCpus(const ScopedCpus&) = delete;
    ScopedCpus& operator=(const ScopedCpus&) = delete;

    // The first CPU that this process may use, or all the others. Nothing happens where there is one only.
    void First() { Choose(true); }
    void Others() { Choose(false); }

private:
    void Choose(bool first) {
        if (CPU_COUNT(&m_former) < 2) {
            return;
        }
        int lowest = 0;
        while (!CPU_ISSET(lowest, &m_former)) {
            ++lowest;
        }
        cpu_set_t chosen = m_former;
        CPU_CLR(lowest, &chosen);
        if (first) {
            CPU_ZERO(&chosen);
            CPU_SET(lowest, &chosen);
        }
        sched_setaffinity(0, sizeof(chosen), &chosen);
    }
    cpu_set_t m_former{};
};

// One of the two ways in a run of paced commands.
class PacedPath {
public:
    PacedPath(MakePath make, const Load& load)
        : m_devices(load.devices), m_listener(load.devices), m_path(make(load.devices, m_listener)) {}
    void Push(std::int64_t at, int device) {
        SleepUntil(at);
        WaitIdle(device);
        m_listener.Pushing(device);
        m_path->Push(device);
    }
    Latency Result() {
        for (int device = 0; device < m_devices; ++device) {
            WaitIdle(device);
        }
        std::vector<std::int64_t> samples = m_listener.Samples();
        return {static_cast<double>(bench::Percentile(samples, 0.5)) / 1000,
                static_cast<double>(bench::Percentile(samples, 0.99)) / 1000};
    }

private:
    void WaitIdle(int device) const {
        while (m_listener.Busy(device)) {
            std::this_thread::yield();
        }
    }
    const int m_devices;
    LatencyListener m_listener;
    std::unique_ptr<CommandPath> m_path;
};

// The pusher and the consumers stay on CPUs of their own: whether a wake-up crosses CPUs changes the figure by a
// factor of three, and the scheduler would decide it anew for each path. The two take turns command by command, so
// that what else the machine does at a moment falls on both.
std::pair<Latency, Latency> MeasureLatencies(const Load& load) {
    ScopedCpus cpus;
    cpus.Others();
    PacedPath path(&MakeReactorPath, load);
    PacedPath floor(&MakeFloorPath, load);
    cpus.First();
    std::int64_t next = bench::NowNs();
    for (int i = 0; i < kPacedCmds; ++i) {
        for (PacedPath* turn : {&path, &floor}) {
            next = std::max(next + kPaceNs, bench::NowNs());
            turn->Push(next, i % load.devices);
        }
    }
    return {path.Result(), floor.Result()};
}

struct Figures {
    std::vector<double> perCpuSecond, allocations, p50, p99;

    void Add(const Throughput& throughput) {
        perCpuSecond.push_back(throughput.cmdsPerCpuSecond);
        allocations.push_back(throughput.allocationsPerCmd);
    }
    void Add(const Latency& latency) {
        p50.push_back(latency.p50);
        p99.push_back(latency.p99);
    }
};

void Measure(const Load& load, bench::Table& table) {
    Figures path;
    Figures floor;
    for (int run = 0; run < kRuns; ++run) {
        for (int turn = 0; turn < kTurns; ++turn) {
            floor.Add(MeasureThroughput(&MakeFloorPath, load));
            path.Add(MeasureThroughput(&MakeReactorPath, load));
        }
        const auto [pathLatency, floorLatency] = MeasureLatencies(load);
        floor.Add(floorLatency);
        path.Add(pathLatency);
    }
    using bench::Goal;
    using bench::Median;
    const std::string name = std::to_string(load.devices) + (load.devices == 1 ? " device" : " devices");
    table.Paired("push to service, " + name + ", throughput", path.perCpuSecond, floor.perCpuSecond, "cmd/cpu-s",
                 Goal::AtLeast, 0.55);
    table.Row("push to service, " + name + ", p50", Median(path.p50), Median(floor.p50), "us", Goal::AtMost, 1.4);
    table.Row("push to service, " + name + ", p99", Median(path.p99), Median(floor.p99), "us");
    table.Row("heap allocations per command, " + name, Median(path.allocations), Median(floor.allocations), "");
}

}  // namespace

int main() {
    bench::Table table("command spine (medians of " + std::to_string(kRuns) + " runs)");
    Measure({1, 1, 256, 200}, table);
    Measure({64, 2, 64, 12}, table);
    return table.Print() ? 0 : 1;
}
