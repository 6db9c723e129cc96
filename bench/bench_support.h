#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// What the benches share: clocks, percentiles, an allocation count and the table. A program that links
// bench_support.cpp has every call of operator new and malloc of the whole process counted.
namespace bench {

// CPU time used by all threads of this process, in nanoseconds.
std::int64_t ProcessCpuNs();
// Of the calling thread.
std::int64_t ThreadCpuNs();
// Monotonic time in nanoseconds.
std::int64_t NowNs();

// Heap allocations of all threads since the start of the process.
std::uint64_t Allocations();

// The sample below which that part of the samples lies: Percentile(v, 0.5) is the median. Sorts the samples.
// 0 without samples.
std::int64_t Percentile(std::vector<std::int64_t>& samples, double part);
double Median(std::vector<double> values);

// Which way a goal lies.
enum class Goal { None, AtLeast, AtMost };

// The rows of a table "path | value | floor | ratio | goal", printed to standard output.
class Table {
public:
    explicit Table(std::string title);
    // A figure beside its floor, and what their ratio is to reach.
    void Row(const std::string& path, double value, double floor, const std::string& unit, Goal goal = Goal::None,
             double limit = 0.0);
    // Paired runs: the medians, and the median of the ratios pair by pair.
    void Paired(const std::string& path, const std::vector<double>& values, const std::vector<double>& floors,
                const std::string& unit, Goal goal = Goal::None, double limit = 0.0);
    // A figure that has no floor.
    void Plain(const std::string& path, double value, const std::string& unit);
    // Prints; true when every goal is met.
    bool Print() const;

private:
    void Add(const std::string& path, double value, double floor, double ratio, const std::string& unit, Goal goal,
             double limit);

    struct Line {
        std::string path, value, floor, ratio, goal;
        bool met;
    };
    std::string m_title;
    std::vector<Line> m_lines;
};

}  // namespace bench
