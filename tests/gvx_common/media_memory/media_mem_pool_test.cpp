#include "gvx_common/media_memory/MediaMemPool.h"

#include "base/log.h"
#include "pool_state.h"
#include "support/recording_logger.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace {

using Blocks = std::vector<ACE_Message_Block*>;

class MediaMemPoolTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(pool.Init()); }

    ACE_Message_Block* Take() { return pool.Alloc("test", __LINE__); }

    // Takes blocks until that many are out.
    void TakeUntil(unsigned int used, Blocks& blocks) {
        while (total < used) {
            ACE_Message_Block* block = Take();
            ASSERT_NE(block, nullptr);
            blocks.push_back(block);
            ++total;
        }
    }

    // Gives blocks back from the end until that many are out.
    void GiveBackUntil(unsigned int used, Blocks& blocks) {
        while (total > used) {
            ASSERT_FALSE(blocks.empty());
            ASSERT_EQ(pool.free_1mb(blocks.back(), "test", __LINE__), 0);
            blocks.pop_back();
            --total;
        }
    }

    const long before = g_bp_memstat;
    MediaMemPool pool;
    unsigned int total = 0;
};

// For a scope, the process gets no more memory than that beside what it has.
class ScopedAddressLimit {
public:
    explicit ScopedAddressLimit(rlim_t more) {
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        getrlimit(RLIMIT_AS, &m_former);
        struct rlimit limit = m_former;
        limit.rlim_cur = static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + more;
        setrlimit(RLIMIT_AS, &limit);
    }
    ~ScopedAddressLimit() { setrlimit(RLIMIT_AS, &m_former); }
    ScopedAddressLimit(const ScopedAddressLimit&) = delete;
    ScopedAddressLimit& operator=(const ScopedAddressLimit&) = delete;

private:
    struct rlimit m_former = {};
};

unsigned int LevelFlags(const ACE_Message_Block* block) {
    return static_cast<unsigned int>(block->self_flags());
}

// The greatest use with which a block is still taken from the level, and the use at which a level falls back.
constexpr unsigned int kHigh[] = {29491, 58982, 117964, 235929};
constexpr unsigned int kLow[] = {0, 19660, 39321, 78643, 157286};

TEST_F(MediaMemPoolTest, LevelsOpenAndCloseAtTheirMarks) {
    Blocks of[MediaMemPool::kLevels];
    for (int round = 0; round < 2; ++round) {  // hardly a block is then where it was at first
        TakeUntil(kHigh[0] + 1, of[0]);
        GiveBackUntil(0, of[0]);
    }
    for (unsigned int level = 0; level < MediaMemPool::kTopLevel; ++level) {
        TakeUntil(kHigh[level] + 1, of[level]);
        EXPECT_EQ(StateOf(pool).level, level);
        TakeUntil(kHigh[level] + 2, of[level + 1]);
        const PoolState state = StateOf(pool);
        EXPECT_EQ(state.level, level + 1);
        EXPECT_EQ(state.out[level + 1], 1u);
        EXPECT_EQ(LevelFlags(of[level + 1].front()), 0x2000u | (level + 1) << 8);
    }
    TakeUntil(total + 2, of[MediaMemPool::kTopLevel]);

    for (unsigned int level = MediaMemPool::kTopLevel; level != 0; --level) {
        // Three blocks of the level stay out until the use is two above its mark. It falls back with the second, and
        // is freed with the last, which comes back when the pool has left it.
        GiveBackUntil(std::max(kLow[level] + 2, total - static_cast<unsigned int>(of[level].size()) + 3), of[level]);
        GiveBackUntil(kLow[level] + 2, of[level - 1]);
        GiveBackUntil(kLow[level] + 1, of[level]);
        EXPECT_EQ(StateOf(pool).level, level);
        GiveBackUntil(kLow[level], of[level]);
        const PoolState state = StateOf(pool);
        EXPECT_EQ(state.level, level - 1);
        EXPECT_TRUE(state.open[level]);
        GiveBackUntil(kLow[level] - 1, of[level]);
        EXPECT_FALSE(StateOf(pool).open[level]);
    }
    GiveBackUntil(0, of[0]);
    const PoolState state = StateOf(pool);
    EXPECT_EQ(state.used, 0u);
    EXPECT_EQ(state.OutOfAllLevels(), 0u);
    EXPECT_TRUE(state.open[0]);
}

TEST_F(MediaMemPoolTest, BlocksOfLevelZeroNeverLowerTheLevelAndALowerLevelIsReopened) {
    Blocks of[3];
    TakeUntil(29492, of[0]);
    TakeUntil(58983, of[1]);
    TakeUntil(58983 + 20000, of[2]);
    GiveBackUntil(20000 + 29492, of[1]);  // all of level 1, which the pool is not on
    EXPECT_FALSE(StateOf(pool).open[1]);
    GiveBackUntil(20000, of[0]);
    EXPECT_EQ(StateOf(pool).level, 2u);
    GiveBackUntil(19999, of[2]);
    EXPECT_EQ(StateOf(pool).level, 1u);
    EXPECT_TRUE(StateOf(pool).open[1]);
    TakeUntil(20000, of[1]);
    EXPECT_EQ(LevelFlags(of[1].front()), 0x2100u);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they need room of their own
TEST_F(MediaMemPoolTest, ALevelWithoutMemoryIsTriedAgainAndTheLevelsBelowServe) {
    Blocks blocks;
    TakeUntil(kHigh[0] + 1, blocks);
    const ScopedRecordingLogger log;
    {
        const ScopedAddressLimit limit(64u << 20);  // a level 1 takes 128 MiB
        EXPECT_EQ(Take(), nullptr) << "the one that finds it out";
        EXPECT_EQ(StateOf(pool).level, 1u);
        TakeUntil(MediaMemPool::GetPacketSize(0), blocks);
        EXPECT_EQ(LevelFlags(blocks.back()), 0x2000u);
        EXPECT_EQ(Take(), nullptr) << "all are out";
        GiveBackUntil(25000, blocks);
        TakeUntil(25001, blocks);
        EXPECT_EQ(1u, log->Count("no memory for level[1]", "MediaMemPool"));
    }
    Blocks above;
    TakeUntil(25002, above);
    EXPECT_EQ(LevelFlags(above.front()), 0x2100u) << "there is memory again";
    GiveBackUntil(25001, above);
    GiveBackUntil(0, blocks);
}

TEST_F(MediaMemPoolTest, ALevelWithoutMemoryIsLeftWhenAllCameBack) {
    Blocks blocks;
    TakeUntil(kHigh[0] + 1, blocks);
    const ScopedAddressLimit limit(64u << 20);
    EXPECT_EQ(Take(), nullptr);
    GiveBackUntil(0, blocks);
    TakeUntil(1, blocks);
    EXPECT_EQ(StateOf(pool).level, 0u);
    GiveBackUntil(0, blocks);
}
#endif

TEST_F(MediaMemPoolTest, FreeReturnsAChainAndFree1mbOneBlock) {
    Blocks blocks;
    TakeUntil(4, blocks);
    for (std::size_t i = 0; i + 1 < blocks.size(); ++i) {
        blocks[i]->cont(blocks[i + 1]);
    }
    EXPECT_EQ(pool.free_1mb(blocks[1], "test", __LINE__), 0);
    EXPECT_EQ(StateOf(pool).used, 3u);
    blocks[0]->cont(blocks[2]);
    EXPECT_EQ(pool.Free(blocks[0], "test", __LINE__), 0);
    EXPECT_EQ(StateOf(pool).used, 0u);
    for (const ACE_Message_Block* block : blocks) {
        EXPECT_EQ(block->cont(), nullptr) << "whoever takes it next must not find a chain";
    }
    EXPECT_EQ(pool.Free(nullptr, "test", __LINE__), 1);
    EXPECT_EQ(pool.free_1mb(nullptr, "test", __LINE__), 1);
    // A foreign block at the head ends the walk.
    ACE_Message_Block foreign;
    foreign.set_self_flags(0x500);
    foreign.cont(Take());
    EXPECT_EQ(pool.Free(&foreign, "test", __LINE__), 0);
    EXPECT_EQ(StateOf(pool).used, 1u);
    foreign.cont(nullptr);
    // What is still out goes with the pool, which may be started again.
    pool.UnInit();
    EXPECT_EQ(Take(), nullptr);
    EXPECT_TRUE(pool.Isfull());
    EXPECT_EQ(g_bp_memstat, before);
    ASSERT_TRUE(pool.Init());
    EXPECT_FALSE(pool.Isfull());
}

}  // namespace
