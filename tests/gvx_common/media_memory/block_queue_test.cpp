#include "gvx_common/media_memory/block_queue.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kArray = 8;

ACE_Message_Block* Block(int number) {
    auto* const block = new ACE_Message_Block(16);
    block->msg_priority(static_cast<unsigned long>(number));
    *block->wr_ptr() = static_cast<char>('a' + number);
    block->wr_ptr(1);
    return block;
}

char Mark(ACE_Message_Block* block) {
    const char mark = *block->rd_ptr();
    block->release();
    return mark;
}

std::string Marks(gvx::BlockQueue& queue, std::size_t room, bool last = false) {
    std::vector<ACE_Message_Block*> blocks(room);
    blocks.resize(last ? queue.TakeLast(blocks.data(), room, ACE_Time_Value::zero)
                       : queue.TakeFirst(blocks.data(), room, ACE_Time_Value::zero));
    std::string marks;
    for (ACE_Message_Block* block : blocks) {
        marks += Mark(block);
    }
    return marks;
}

TEST(BlockQueue, ArrayAndListAreOneQueueForEveryOperation) {
    gvx::BlockQueue queue(1000000, 1000000);
    queue.Reserve(kArray);
    const auto fill = [&queue](int count) {
        for (int i = 0; i < count; ++i) {
            ASSERT_EQ(queue.Append(Block(i)), 0);
        }
    };
    ACE_Message_Block* block = nullptr;
    ACE_Time_Value now = ACE_Time_Value::zero;
    for (int round = 0; round < 3; ++round) {  // the array's places are used in turn
        fill(12);                              // four of them behind the array
        EXPECT_EQ(queue.message_count(), 12u);
        EXPECT_EQ(queue.message_length(), 12u);
        EXPECT_EQ(Marks(queue, 3), "abc");
        ASSERT_NE(queue.dequeue_head(block, &now), -1);
        EXPECT_EQ(Mark(block), 'd');
        queue.enqueue_tail(Block(12), &now);
        EXPECT_EQ(Marks(queue, 2, true), "ml");
        ASSERT_NE(queue.dequeue_tail(block, &now), -1);
        EXPECT_EQ(Mark(block), 'k');
        EXPECT_EQ(Marks(queue, 100), "efghij");
        EXPECT_TRUE(queue.is_empty());
        EXPECT_EQ(queue.message_bytes(), 0u);
    }
    fill(12);
    EXPECT_EQ(queue.flush(), 12);
    EXPECT_TRUE(queue.is_empty());
    fill(6);
    ASSERT_NE(queue.dequeue_prio(block, &now), -1);
    EXPECT_EQ(Mark(block), 'a') << "the one of the lowest priority";
    queue.enqueue_head(Block(25), &now);
    ASSERT_NE(queue.peek_dequeue_head(block, &now), -1);
    EXPECT_EQ(*block->rd_ptr(), 'z');
    queue.enqueue_prio(Block(24), &now);
    EXPECT_EQ(Marks(queue, 100), "zybcdef");
    EXPECT_EQ(queue.dequeue_head(block, &now), -1);
    EXPECT_EQ(errno, EWOULDBLOCK);
    fill(3);  // what is left is freed with the queue
}

TEST(BlockQueue, AFullOrClosedQueueTakesNothingAndLeavesTheBlockToItsOwner) {
    gvx::BlockQueue queue(40, 40);
    queue.Reserve(kArray);
    std::vector<ACE_Message_Block*> blocks{Block(0), Block(1), Block(2), Block(3)};
    EXPECT_EQ(queue.AppendSome(blocks.data(), blocks.size()), 3u);  // full when it holds 40 bytes or more
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_EQ(Marks(queue, 100), "abc");
    queue.close();
    EXPECT_EQ(queue.Append(blocks[3]), -1);
    EXPECT_EQ(errno, ESHUTDOWN);
    EXPECT_EQ(Mark(blocks[3]), 'd');
    EXPECT_EQ(Marks(queue, 1), "");
}

}  // namespace
