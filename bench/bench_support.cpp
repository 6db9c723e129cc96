#include "bench_support.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

// glibc's own entry points, under the names that it gives them for programs that put themselves in front of malloc.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace {

// A count for each thread or few, so that counting does not make the threads wait for one cache line.
struct alignas(64) Shard {
    std::atomic<std::uint64_t> count{0};
};
constexpr unsigned kShards = 256;
Shard g_allocations[kShards];
std::atomic<unsigned> g_threads{0};
thread_local unsigned t_shard = kShards;

void CountAllocation() {
    if (t_shard == kShards) {
        t_shard = g_threads.fetch_add(1, std::memory_order_relaxed) % kShards;
    }
    g_allocations[t_shard].count.fetch_add(1, std::memory_order_relaxed);
}

std::int64_t ClockNs(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

std::string Figure(double value, const std::string& unit) {
    char text[64];
    std::snprintf(text, sizeof(text), value < 100 ? "%.2f %s" : "%.0f %s", value, unit.c_str());
    return text;
}

}  // namespace

// operator new comes here as well.
extern "C" void* malloc(std::size_t size) {
    CountAllocation();
    return __libc_malloc(size);
}
extern "C" void* calloc(std::size_t count, std::size_t size) {
    CountAllocation();
    return __libc_calloc(count, size);
}
extern "C" void* realloc(void* block, std::size_t size) {
    CountAllocation();
    return __libc_realloc(block, size);
}

namespace bench {

std::int64_t ProcessCpuNs() {
    return ClockNs(CLOCK_PROCESS_CPUTIME_ID);
}

std::int64_t ThreadCpuNs() {
    return ClockNs(CLOCK_THREAD_CPUTIME_ID);
}

std::int64_t NowNs() {
    return ClockNs(CLOCK_MONOTONIC);
}

std::uint64_t Allocations() {
    std::uint64_t total = 0;
    for (const Shard& shard : g_allocations) {
        total += shard.count.load(std::memory_order_relaxed);
    }
    return total;
}

std::int64_t Percentile(std::vector<std::int64_t>& samples, double part) {
    if (samples.empty()) {
        return 0;
    }
    std::sort(samples.begin(), samples.end());
    const auto index = static_cast<std::size_t>(part * static_cast<double>(samples.size()));
    return samples[std::min(index, samples.size() - 1)];
}

double Median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

Table::Table(std::string title) : m_title(std::move(title)) {}

void Table::Row(const std::string& path, double value, double floor, const std::string& unit, Goal goal, double limit) {
    Add(path, value, floor, floor != 0 ? value / floor : 0, unit, goal, limit);
}

void Table::Paired(const std::string& path, const std::vector<double>& values, const std::vector<double>& floors,
                   const std::string& unit, Goal goal, double limit) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < values.size() && i < floors.size(); ++i) {
        ratios.push_back(floors[i] != 0 ? values[i] / floors[i] : 0);
    }
    Add(path, Median(values), Median(floors), Median(ratios), unit, goal, limit);
}

void Table::Add(const std::string& path, double value, double floor, double ratio, const std::string& unit, Goal goal,
                double limit) {
    const bool met = goal == Goal::None || (goal == Goal::AtLeast ? ratio >= limit : ratio <= limit);
    char goalText[64] = "-";
    if (goal != Goal::None) {
        std::snprintf(goalText, sizeof(goalText), "%s %.2f: %s", goal == Goal::AtLeast ? ">=" : "<=", limit,
                      met ? "met" : "MISSED");
    }
    m_lines.push_back({path, Figure(value, unit), Figure(floor, unit), Figure(ratio, ""), goalText, met});
}

void Table::Plain(const std::string& path, double value, const std::string& unit) {
    m_lines.push_back({path, Figure(value, unit), "-", "-", "-", true});
}

bool Table::Print() const {
    std::printf("\n%s\n", m_title.c_str());
    std::printf("%-44s | %-20s | %-20s | %-6s | %s\n", "path", "value", "floor", "ratio", "goal");
    bool met = true;
    for (const Line& line : m_lines) {
        std::printf("%-44s | %-20s | %-20s | %-6s | %s\n", line.path.c_str(), line.value.c_str(), line.floor.c_str(),
                    line.ratio.c_str(), line.goal.c_str());
        met = met && line.met;
    }
    std::fflush(stdout);
    return met;
}

}  // namespace bench
