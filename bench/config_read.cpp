// Reads of settings, against what cannot be left out: one lookup in a map and a copy of the value.

#include "bench_support.h"

#include "gvx_common/config/gvx_config_mgr.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

namespace {

constexpr int kReads = 2000000;
constexpr int kRounds = 7;
constexpr int kManyKeys = 100000;

std::filesystem::path ShippedFolder() {
    return std::filesystem::path(GVX_SOURCE_TREE) / "conf";
}

// A copy of the shipped configuration, with more keys behind it.
class BenchFolder {
public:
    explicit BenchFolder(int moreKeys) {
        std::string pattern = (std::filesystem::temp_directory_path() / "gvx_bench_XXXXXX").string();
        m_path = mkdtemp(pattern.data());
        const auto recursive = std::filesystem::copy_options::recursive;
        std::filesystem::copy(ShippedFolder(), m_path, recursive | std::filesystem::copy_options::overwrite_existing);
        std::ofstream file(m_path / "zvs_gvx.conf", std::ios::app);
        for (int i = 0; i < moreKeys; ++i) {
            file << "BENCH_KEY_" << i << "=value " << i << "\n";
        }
        setenv("GVX_CONFIG_DIR", m_path.c_str(), 1);
        setenv("GVX_ROOT", (m_path / "root").c_str(), 1);
    }
    ~BenchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

private:
    std::filesystem::path m_path;
};

// Nanoseconds of one read, with each of so many threads doing kReads of them; the median of the rounds.
double ReadCost(int threads, const std::function<void(std::size_t&)>& reads) {
    std::vector<double> costs;
    for (int round = 0; round < kRounds; ++round) {
        std::atomic<int> ready{0};
        std::atomic<std::size_t> bytes{0};
        std::vector<std::int64_t> took(static_cast<std::size_t>(threads));
        std::vector<std::thread> all;
        for (int i = 0; i < threads; ++i) {
            all.emplace_back([&, i] {
                std::size_t sum = 0;
                ++ready;
                while (ready < threads) {
                }
                const std::int64_t begin = bench::ThreadCpuNs();
                reads(sum);
                took[static_cast<std::size_t>(i)] = bench::ThreadCpuNs() - begin;
                bytes += sum;
            });
        }
        for (std::thread& thread : all) {
            thread.join();
        }
        std::int64_t total = 0;
        for (const std::int64_t one : took) {
            total += one;
        }
        costs.push_back(static_cast<double>(total) / threads / kReads);
        if (bytes == 0) {
            std::abort();
        }
    }
    return bench::Median(costs);
}

void BenchReads(bench::Table& table) {
    const MapCfgKeyValue bare = GvxConfigMgr()->GetMapCfgKeyValue();
    const std::string keys[] = {"MU_NSS_TIMEOUT", "OTHERS_NSS_TIMEOUT", "NEVER_TIMEOUT_MESSAGE_TYPE",
                                "MAX_DEV_REACTOR_NUM"};
    const std::string fallback = "10";
    const auto settings = [&](std::size_t& sum) {
        for (int i = 0; i < kReads; ++i) {
            sum += GvxConfigMgr()->GetConfValue(keys[i % 4], fallback).size();
        }
    };
    const auto lookups = [&](std::size_t& sum) {
        for (int i = 0; i < kReads; ++i) {
            const auto found = bare.find(keys[i % 4]);
            const std::string copy = found != bare.end() ? found->second : fallback;
            sum += copy.size();
        }
    };
    for (const int threads : {1, 2}) {
        const double floor = ReadCost(threads, lookups);
        const double value = ReadCost(threads, settings);
        table.Row("GetConfValue, " + std::to_string(threads) + " thread(s)", value, floor, "ns", bench::Goal::AtMost,
                  1.3);
    }
}

double InitCost(int moreKeys) {
    const BenchFolder folder(moreKeys);
    std::vector<double> costs;
    for (int round = 0; round < kRounds; ++round) {
        const std::int64_t begin = bench::NowNs();
        if (GvxConfigMgr()->Init() != 0) {
            std::fprintf(stderr, "the configuration is refused\n");
            std::exit(1);
        }
        costs.push_back(static_cast<double>(bench::NowNs() - begin) / 1e6);
    }
    return bench::Median(costs);
}

}  // namespace

int main() {
    bench::Table table("settings");
    const double shipped = InitCost(0);
    BenchReads(table);
    table.Plain("Init, shipped configuration", shipped, "ms");
    table.Plain("Init, with 100,000 keys more", InitCost(kManyKeys), "ms");
    return table.Print() ? 0 : 1;
}
