#include "gvx_common/media_memory/media_block_buffer.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

namespace {

constexpr unsigned int kReserved = 8;

TEST(MediaBlockBuffer, BlocksHoldTheirSizeBehindTheHeadroomUntilThereAreNone) {
    CMediaBlockBuffer pool;
    ASSERT_EQ(pool.init(GVX_MEDIA_BLOCK_SIZE, 2, kReserved), 0);
    EXPECT_EQ(pool.getBlockSize(), 2012u);
    ACE_Message_Block* first = pool.allocMediaBlock();
    ACE_Message_Block* second = pool.allocMediaBlock();
    ASSERT_TRUE(first != nullptr && second != nullptr && first != second);
    EXPECT_EQ(first->rd_ptr() - first->base(), static_cast<std::ptrdiff_t>(kReserved));
    EXPECT_EQ(first->space(), 2012u);
    EXPECT_EQ(pool.allocMediaBlock(), nullptr);
    EXPECT_EQ(pool.getFailureTimes(), 1u);
    pool.freeMediaBlock(first);
    EXPECT_EQ(first, nullptr);
    pool.freeMediaBlock(second);
    EXPECT_EQ(pool.getRemainBlockNum(), 2u);
    EXPECT_EQ(pool.init(64, 2, kReserved), 1);  // it is filled
    first = pool.allocMediaBlock();
    pool.close();
    EXPECT_EQ(pool.allocMediaBlock(), nullptr);
    pool.freeMediaBlock(first);  // no queue to go to
    EXPECT_EQ(first, nullptr);
    EXPECT_EQ(pool.init(64, 2, kReserved), 0);
    EXPECT_EQ(pool.getRemainBlockNum(), 2u);
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
    ACE_Message_Block* taken[3] = {};
    for (ACE_Message_Block*& block : taken) {
        block = pool.allocMediaBlock();
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(block->cont(), nullptr);
        EXPECT_EQ(block->length(), 0u);
        EXPECT_EQ(block->rd_ptr() - block->base(), static_cast<std::ptrdiff_t>(kReserved));
    }
    for (ACE_Message_Block*& block : taken) {
        pool.freeMediaBlock(block);
    }
}

}  // namespace
