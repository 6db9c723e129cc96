#include "gvx_common/media_memory/media_block_buffer.h"

#include "support/failing_allocator.h"
#include "support/recording_logger.h"
#include "support/wait_until.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr unsigned int kReserved = 8;

TEST(MediaBlockBuffer, BlocksHoldTheirSizeBehindTheHeadroom) {
    ScopedRecordingLogger log;
    CMediaBlockBuffer pool;
    ASSERT_EQ(pool.init(GVX_MEDIA_BLOCK_SIZE, 3, kReserved), 0);
    EXPECT_TRUE(log->Contains("Media Block Buffer init success."));
    EXPECT_EQ(pool.getBlockSize(), 2012u);
    EXPECT_EQ(pool.getMaxBlockNum(), 3u);
    EXPECT_EQ(pool.getRemainBlockNum(), 3u);

    ACE_Message_Block* block = pool.allocMediaBlock();
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(log->Contains("allocMediaBlock, media block count = 3"));
    EXPECT_EQ(block->rd_ptr() - block->base(), static_cast<std::ptrdiff_t>(kReserved));
    EXPECT_EQ(block->length(), 0u);
    EXPECT_EQ(block->space(), 2012u);
    pool.freeMediaBlock(block);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(pool.getRemainBlockNum(), 3u);
}

TEST(MediaBlockBuffer, ExhaustionGivesNullAndIsCounted) {
    CMediaBlockBuffer pool;
    ASSERT_EQ(pool.init(64, 2, kReserved), 0);
    ACE_Message_Block* first = pool.allocMediaBlock();
    ACE_Message_Block* second = pool.allocMediaBlock();
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(pool.allocMediaBlock(), nullptr);
    EXPECT_EQ(pool.getFailureTimes(), 1u);
    pool.freeMediaBlock(first);
    first = pool.allocMediaBlock();
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(pool.getFailureTimes(), 1u);
    pool.freeMediaBlock(first);
    pool.freeMediaBlock(second);
}

TEST(MediaBlockBuffer, AFreedChainComesBackAsFreshBlocks) {
    CMediaBlockBuffer pool;
    ASSERT_EQ(pool.init(64, 3, kReserved), 0);
    ACE_Message_Block* head = pool.allocMediaBlock();
    ACE_Message_Block* tail = pool.allocMediaBlock();
    head->copy("0123456789", 10);
    head->rd_ptr(4);
    tail->rd_ptr(tail->base());
    tail->copy("tail", 4);
    head->cont(tail);
    pool.freeMediaBlock(head);
    EXPECT_EQ(pool.getRemainBlockNum(), 3u);
    std::vector<ACE_Message_Block*> taken;
    for (int i = 0; i < 3; ++i) {
        taken.push_back(pool.allocMediaBlock());
        ASSERT_NE(taken.back(), nullptr);
        EXPECT_EQ(taken.back()->cont(), nullptr);
        EXPECT_EQ(taken.back()->length(), 0u);
        EXPECT_EQ(taken.back()->rd_ptr() - taken.back()->base(), static_cast<std::ptrdiff_t>(kReserved));
    }
    for (ACE_Message_Block*& block : taken) {
        pool.freeMediaBlock(block);
    }
}

TEST(MediaBlockBuffer, AClosedPoolRefusesAndReleases) {
    ScopedRecordingLogger log;
    CMediaBlockBuffer pool;
    ASSERT_EQ(pool.init(64, 2, kReserved), 0);
    EXPECT_EQ(pool.init(64, 2, kReserved), 1);  // it is filled
    ACE_Message_Block* block = pool.allocMediaBlock();
    pool.close();
    EXPECT_EQ(pool.allocMediaBlock(), nullptr);
    EXPECT_TRUE(log->Contains("Media queue state null.", "Alloc media block fail."));
    pool.freeMediaBlock(block);  // no queue to go to
    EXPECT_EQ(block, nullptr);
    EXPECT_TRUE(log->Contains("message_bytes", "Media Block Buffer freeMediaBlock fail, enqueue fail."));
    EXPECT_EQ(pool.init(64, 2, kReserved), 0);
    EXPECT_EQ(pool.getRemainBlockNum(), 2u);
}

TEST(MediaBlockBuffer, WithoutMemoryItStaysEmptyAndSaysSo) {
    ScopedRecordingLogger log;
    CMediaBlockBuffer pool;
    {
        const ScopedFailingAllocator noMemory(4096);
        EXPECT_EQ(pool.init(4096, 2, kReserved), 1);
    }
    EXPECT_EQ(log->Count("data block is NULL."), 1u);
    EXPECT_TRUE(log->Contains("109100004"));
    EXPECT_TRUE(log->Contains("Create mb fail, index[0]."));
    EXPECT_EQ(pool.getMaxBlockNum(), 0u);
    EXPECT_EQ(pool.allocMediaBlock(), nullptr);
    EXPECT_EQ(pool.init(4096, 2, kReserved), 0);
    EXPECT_EQ(pool.getRemainBlockNum(), 2u);
}

TEST(MediaBlockBuffer, NoBlockIsEverHandedOutTwice) {
    CMediaBlockBuffer pool;
    constexpr unsigned int kBlocks = 8;
    ASSERT_EQ(pool.init(64, kBlocks, kReserved), 0);
    std::atomic<int> overwritten{0};
    std::vector<std::thread> users;
    for (char mark = 'a'; mark < 'e'; ++mark) {
        users.emplace_back([&pool, &overwritten, mark] {
            for (int i = 0; i < 2000; ++i) {
                ACE_Message_Block* block = pool.allocMediaBlock();
                if (block == nullptr) {
                    continue;
                }
                const std::string text(32, mark);
                block->copy(text.data(), text.size());
                overwritten += std::memcmp(block->rd_ptr(), text.data(), text.size()) != 0;
                pool.freeMediaBlock(block);
            }
        });
    }
    for (std::thread& user : users) {
        user.join();
    }
    EXPECT_EQ(overwritten, 0);
    EXPECT_EQ(pool.getRemainBlockNum(), kBlocks);
}

TEST(DataUnit, GrowsAndKeepsWhatWasThere) {
    CDataUnit unit;
    EXPECT_EQ(unit.length(), 0u);
    EXPECT_EQ(unit.append(nullptr, 1), 1);
    EXPECT_EQ(unit.append(nullptr, 0), 0);
    std::string expected;
    for (int i = 0; i < 300; ++i) {
        const std::string part(static_cast<std::size_t>(i % 7), static_cast<char>('a' + i % 26));
        ASSERT_EQ(unit.append(part.data(), static_cast<unsigned int>(part.size())), 0);
        expected += part;
    }
    ASSERT_EQ(unit.length(), expected.size());
    EXPECT_EQ(std::string(unit.base(), unit.length()), expected);
    ASSERT_EQ(unit.append(unit.base(), unit.length()), 0);  // its own content
    EXPECT_EQ(std::string(unit.base(), unit.length()), expected + expected);
    EXPECT_EQ(unit.append("x", 0xFFFFFFFFu), 1);
    EXPECT_EQ(unit.length(), 2 * expected.size());
    unit.reset();
    EXPECT_EQ(unit.length(), 0u);
}

}  // namespace
