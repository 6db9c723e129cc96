#include "gvx_common/media_memory/MediaMemPool.h"

#include "pool_state.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr unsigned int kBlocksPerThread = 50000;
constexpr int kRounds = 3;
#else
constexpr unsigned int kBlocksPerThread = 300000;
constexpr int kRounds = 6;
#endif

TEST(MediaMemPoolThreadsTest, TwoAllocateWhileTwoFree) {
    MediaMemPool pool;
    ASSERT_TRUE(pool.Init());
    // Each pair of threads hands its blocks over here, in turn from place to place.
    std::array<std::array<std::atomic<ACE_Message_Block*>, 512>, 2> rings{};
    std::atomic<unsigned int> wrong{0};
    std::vector<std::thread> threads;
    for (auto& ring : rings) {
        threads.emplace_back([&pool, &ring] {
            for (unsigned int i = 0; i < kBlocksPerThread; ++i) {
                ACE_Message_Block* block = pool.Alloc("test", __LINE__);
                block->reset();
                block->copy(reinterpret_cast<const char*>(&i), sizeof(i));
                while (ring[i % ring.size()] != nullptr) {
                    std::this_thread::yield();
                }
                ring[i % ring.size()] = block;
            }
        });
        threads.emplace_back([&pool, &ring, &wrong] {
            for (unsigned int i = 0; i < kBlocksPerThread; ++i) {
                ACE_Message_Block* block = nullptr;
                while ((block = ring[i % ring.size()].exchange(nullptr)) == nullptr) {
                    std::this_thread::yield();
                }
                // Of a block that two threads were given, one finds the other's number.
                wrong += std::memcmp(block->rd_ptr(), &i, sizeof(i)) == 0 ? 0 : 1;
                pool.Free(block, "test", __LINE__);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0u);
    const PoolState state = StateOf(pool);
    EXPECT_EQ(state.used, 0u);
    EXPECT_EQ(state.OutOfAllLevels(), 0u);
    EXPECT_EQ(state.level, 0u);
}

// Together the threads hold more than level 0 allows and then nothing, so that level 1 comes and goes under them.
TEST(MediaMemPoolThreadsTest, LevelsComeAndGoUnderThreads) {
    MediaMemPool pool;
    ASSERT_TRUE(pool.Init());
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < 4; ++t) {
        threads.emplace_back([&pool] {
            std::vector<ACE_Message_Block*> held(11000);
            for (int round = 0; round < kRounds; ++round) {
                for (ACE_Message_Block*& block : held) {
                    block = pool.Alloc("test", __LINE__);
                    block->reset();
                }
                for (ACE_Message_Block* block : held) {
                    pool.Free(block, "test", __LINE__);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const PoolState state = StateOf(pool);
    EXPECT_EQ(state.used, 0u);
    EXPECT_EQ(state.OutOfAllLevels(), 0u);
}

// More threads than can count for themselves, each of which keeps free blocks when it ends: what they have counted
// stays right, and what they keep is missed by nobody, also when another thread gives the blocks back.
TEST(MediaMemPoolThreadsTest, TheMarkIsMetWhoeverTookTheBlocks) {
    constexpr unsigned int kThreads = 100;
    constexpr unsigned int kEach = 262;  // no multiple of what a thread counts for itself
    MediaMemPool pool;
    ASSERT_TRUE(pool.Init());
    std::vector<std::vector<ACE_Message_Block*>> held(kThreads);
    std::atomic<unsigned int> ready{0};
    std::vector<std::thread> threads;
    for (auto& blocks : held) {
        threads.emplace_back([&pool, &blocks, &ready] {
            for (unsigned int i = 0; i < kEach + 32; ++i) {
                blocks.push_back(pool.Alloc("test", __LINE__));
            }
            for (; blocks.size() > kEach; blocks.pop_back()) {
                pool.Free(blocks.back(), "test", __LINE__);
            }
            ++ready;
            while (ready < kThreads) {  // all of them are alive at once
                std::this_thread::yield();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    PoolState state = StateOf(pool);
    EXPECT_EQ(state.used, kThreads * kEach);
    EXPECT_EQ(state.level, 0u);

    std::vector<ACE_Message_Block*>& mine = held.front();
    while (mine.size() < kEach + 29492 - kThreads * kEach) {
        mine.push_back(pool.Alloc("test", __LINE__));
        ASSERT_NE(mine.back(), nullptr);
    }
    EXPECT_EQ(StateOf(pool).level, 0u);
    EXPECT_FALSE(pool.Isfull());
    mine.push_back(pool.Alloc("test", __LINE__));
    EXPECT_EQ(StateOf(pool).level, 1u);

    for (const auto& blocks : held) {
        for (ACE_Message_Block* block : blocks) {
            pool.Free(block, "test", __LINE__);
        }
    }
    state = StateOf(pool);
    EXPECT_EQ(state.used, 0u);
    EXPECT_EQ(state.OutOfAllLevels(), 0u);
}

}  // namespace
