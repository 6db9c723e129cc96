#include "media_memory.h"

#include "base/om_adapter.h"
#include "gvx_common/media_memory/MediaMemPool.h"

#include <ace/Message_Block.h>
#include <boost/lockfree/stack.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>

extern "C" {
void* __libc_malloc(std::size_t size);
void __libc_free(void* block);
}

namespace {

constexpr std::size_t kBlockBytes = 2048;
constexpr unsigned int kBatch = 64;
constexpr std::uint64_t kBlocks = 2000000;
constexpr std::uint64_t kManyBlocks = 50000000;
constexpr int kRounds = 7;

// Each way of getting a block. What is given out is written to and read again, as any use of it would be.
struct Pool {
    static void* Take() {
        ACE_Message_Block* block = g_mediaPool.Alloc(__FILE__, __LINE__);
        block->reset();
        return block;
    }
    static void Give(void* block) { g_mediaPool.Free(static_cast<ACE_Message_Block*>(block), __FILE__, __LINE__); }
    static char* Memory(void* block) { return static_cast<ACE_Message_Block*>(block)->base(); }
};

// The stack of the pool and its blocks, and nothing else.
struct BareStack {
    static boost::lockfree::stack<ACE_Message_Block*>* stack;
    static void* Take() {
        ACE_Message_Block* block = nullptr;
        stack->pop(block);
        block->reset();
        return block;
    }
    static void Give(void* block) { stack->push(static_cast<ACE_Message_Block*>(block)); }
    static char* Memory(void* block) { return static_cast<ACE_Message_Block*>(block)->base(); }
};
boost::lockfree::stack<ACE_Message_Block*>* BareStack::stack = nullptr;

struct Glibc {
    static void* Take() { return __libc_malloc(kBlockBytes); }
    static void Give(void* block) { __libc_free(block); }
    static char* Memory(void* block) { return static_cast<char*>(block); }
};

// An allocator of a library, by its own names, so that the process keeps its malloc.
template <int Which>
struct Library {
    static void* (*take)(std::size_t);
    static void (*give)(void*);
    static void* Take() { return take(kBlockBytes); }
    static void Give(void* block) { give(block); }
    static char* Memory(void* block) { return static_cast<char*>(block); }

    static bool Open(const char* file, const char* mallocName, const char* freeName) {
        void* library = dlopen(file, RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
        if (library == nullptr) {
            std::printf("%s: skipped: %s\n", file, dlerror());
            return false;
        }
        take = reinterpret_cast<void* (*)(std::size_t)>(dlsym(library, mallocName));
        give = reinterpret_cast<void (*)(void*)>(dlsym(library, freeName));
        return take != nullptr && give != nullptr;
    }
};
template <int Which>
void* (*Library<Which>::take)(std::size_t) = nullptr;
template <int Which>
void (*Library<Which>::give)(void*) = nullptr;
using Jemalloc = Library<0>;
using Mimalloc = Library<1>;

// Hands blocks from one thread to one other, one by one.
class Ring {
public:
    void Put(void* block) {
        const std::size_t put = m_put.load(std::memory_order_relaxed);
        while (put - m_seenTaken == m_slots.size()) {
            m_seenTaken = m_taken.load(std::memory_order_acquire);
            if (put - m_seenTaken == m_slots.size()) {
                std::this_thread::yield();
            }
        }
        m_slots[put % m_slots.size()] = block;
        m_put.store(put + 1, std::memory_order_release);
    }
    void* Take() {
        const std::size_t taken = m_taken.load(std::memory_order_relaxed);
        while (taken == m_seenPut) {
            m_seenPut = m_put.load(std::memory_order_acquire);
            if (taken == m_seenPut) {
                std::this_thread::yield();
            }
        }
        void* block = m_slots[taken % m_slots.size()];
        m_taken.store(taken + 1, std::memory_order_release);
        return block;
    }

private:
    alignas(64) std::atomic<std::size_t> m_put{0};
    std::size_t m_seenTaken = 0;  // the putting thread's
    alignas(64) std::atomic<std::size_t> m_taken{0};
    std::size_t m_seenPut = 0;  // the taking thread's
    alignas(64) std::array<void*, 1024> m_slots{};
};

template <typename Source>
void* Use(std::uint64_t mark) {
    void* block = Source::Take();
    *reinterpret_cast<std::uint64_t*>(Source::Memory(block)) = mark;
    return block;
}

template <typename Source>
std::uint64_t GiveBack(void* block) {
    const std::uint64_t mark = *reinterpret_cast<std::uint64_t*>(Source::Memory(block));
    Source::Give(block);
    return mark;
}

std::atomic<std::uint64_t> g_sum{0};

// Spreads the threads of a run over the processors, so that it does not depend on where they happen to be put.
void PinTo(unsigned int index) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(index % std::max(1u, std::thread::hardware_concurrency()), &set);
    pthread_setaffinity_np(pthread_self(), sizeof(set), &set);
}

// Every thread gives back what it took itself, a batch at a time.
template <typename Source>
void SameThread(std::uint64_t blocks) {
    std::array<void*, kBatch> batch;
    std::uint64_t sum = 0;
    for (std::uint64_t i = 0; i < blocks / kBatch; ++i) {
        for (void*& block : batch) {
            block = Use<Source>(i);
        }
        for (void* block : batch) {
            sum += GiveBack<Source>(block);
        }
    }
    g_sum += sum;
}

// CPU nanoseconds a block, with that many threads.
template <typename Source>
double RunSameThread(unsigned int threads) {
    std::vector<std::thread> running;
    const std::int64_t before = bench::ProcessCpuNs();
    for (unsigned int t = 0; t < threads; ++t) {
        running.emplace_back([t, threads] {
            PinTo(t);
            SameThread<Source>(kBlocks / threads);
        });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
    return static_cast<double>(bench::ProcessCpuNs() - before) / static_cast<double>(kBlocks);
}

// Half of the threads take, each giving to one of the other half, which gives back.
template <typename Source>
double PassOn(unsigned int threads, std::uint64_t all) {
    const unsigned int pairs = threads / 2;
    const std::uint64_t blocks = all / pairs;
    std::vector<Ring> rings(pairs);
    std::vector<std::thread> running;
    const std::int64_t before = bench::ProcessCpuNs();
    for (Ring& ring : rings) {
        running.emplace_back([&ring, blocks] {
            PinTo(0);
            for (std::uint64_t i = 0; i < blocks; ++i) {
                ring.Put(Use<Source>(i));
            }
        });
        running.emplace_back([&ring, blocks] {
            PinTo(1);
            std::uint64_t sum = 0;
            for (std::uint64_t i = 0; i < blocks; ++i) {
                sum += GiveBack<Source>(ring.Take());
            }
            g_sum += sum;
        });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
    return static_cast<double>(bench::ProcessCpuNs() - before) / static_cast<double>(all);
}

template <typename Source>
double RunProducerToConsumer(unsigned int threads) {
    return PassOn<Source>(threads, kBlocks);
}

using Run = double (*)(unsigned int threads);
struct Candidate {
    const char* name;
    Run sameThread;
    Run producerToConsumer;
};

template <typename Source>
Candidate Make(const char* name) {
    return {name, &RunSameThread<Source>, &RunProducerToConsumer<Source>};
}

// The median round of each candidate. They take turns, so that a disturbance of the machine meets all of them.
std::vector<double> MedianRounds(const std::vector<Candidate>& candidates, Run Candidate::*run, unsigned int threads) {
    std::vector<std::vector<double>> rounds(candidates.size());
    for (int round = 0; round < kRounds; ++round) {
        for (std::size_t i = 0; i < candidates.size(); ++i) {
            rounds[i].push_back((candidates[i].*run)(threads));
        }
    }
    std::vector<double> medians;
    for (const std::vector<double>& ofOne : rounds) {
        medians.push_back(bench::Median(ofOne));
    }
    return medians;
}

void AddRows(bench::Table& table, const std::vector<Candidate>& candidates, Run Candidate::*run, const char* what,
             unsigned int threads) {
    const std::vector<double> medians = MedianRounds(candidates, run, threads);
    const std::string name =
        std::string(what) + ", " + std::to_string(threads) + (threads == 1 ? " thread" : " threads");
    const bool goals = run == &Candidate::producerToConsumer && threads == 2;
    for (std::size_t i = 1; i < candidates.size(); ++i) {
        const bool isStack = i == 1;
        const bool isGlibc = i == 2;
        table.Row(name + ": pool / " + candidates[i].name, medians[0], medians[i], "ns",
                  goals && (isStack || isGlibc) ? bench::Goal::AtMost : bench::Goal::None, isStack ? 1.3 : 1.0 / 3);
    }
}

// Takes the counters of the pool from what it tells the log: blocks out over all, and added up level by level.
class UseReader : public IOMLogger {
public:
    bool IsEnabled(int level) const noexcept override { return level == OM_LOG_INFO; }
    void VLog(int, const char*, const OMLogPlace&, const char* format, va_list args) override {
        char text[256];
        std::vsnprintf(text, sizeof(text), format, args);
        unsigned int out = 0;
        std::sscanf(text, "m_usedPacketSize:%u", &used);
        if (std::sscanf(text, "i:[%*u %*s %*s %*s %u]", &out) == 1) {
            ofLevels += out;
        }
    }
    void VDebug(const OMLogPlace&, const char*, va_list) override {}

    unsigned int used = ~0u;
    unsigned int ofLevels = 0;
};

// Blocks out by either counter.
std::pair<unsigned int, unsigned int> BlocksOut() {
    const auto reader = std::make_shared<UseReader>();
    const std::shared_ptr<IOMLogger> former = OMAdapter::getInstance()->getSharedLogger();
    OMAdapter::getInstance()->setLogger(reader);
    g_mediaPool.ShowDebugInfo();
    OMAdapter::getInstance()->setLogger(former);
    return {reader->used, reader->ofLevels};
}

}  // namespace

bool MeasureBlocks(bench::Table& table) {
    constexpr unsigned int kCount = 32768;
    std::vector<char> arena(kCount * kBlockBytes);
    std::vector<ACE_Message_Block> headers(kCount);
    boost::lockfree::stack<ACE_Message_Block*> stack(static_cast<std::size_t>(kCount * 1.2));
    for (unsigned int i = 0; i < kCount; ++i) {
        headers[i].init(&arena[i * kBlockBytes], kBlockBytes);
        stack.push(&headers[i]);
    }
    BareStack::stack = &stack;
    std::vector<Candidate> candidates = {Make<Pool>("pool"), Make<BareStack>("bare lock-free stack"),
                                         Make<Glibc>("glibc")};
    if (Jemalloc::Open("libjemalloc.so.2", "malloc", "free")) {
        candidates.push_back(Make<Jemalloc>("jemalloc"));
    }
    if (Mimalloc::Open("libmimalloc.so.2", "mi_malloc", "mi_free")) {
        candidates.push_back(Make<Mimalloc>("mimalloc"));
    }
    for (const unsigned int threads : {1u, 2u, 4u}) {
        AddRows(table, candidates, &Candidate::sameThread, "same thread", threads);
    }
    for (const unsigned int threads : {2u, 4u}) {
        AddRows(table, candidates, &Candidate::producerToConsumer, "producer to consumer", threads);
    }
    const double each = PassOn<Pool>(4, kManyBlocks);
    const auto [out, ofLevels] = BlocksOut();
    table.Plain("2 threads take 50 million, 2 give back: each", each, "ns");
    table.Plain("  blocks out at the end", out, "");
    table.Plain("  blocks out of the levels at the end", ofLevels, "");
    return out == 0 && ofLevels == 0;
}
