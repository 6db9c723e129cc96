#include "gvx_common/media_memory/MemHandler.h"

#include "gvx_common/media_memory/MediaMemPool.h"
#include "pool_state.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class MemHandlerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(g_mediaPool.Init()); }
    static void TearDownTestSuite() { g_mediaPool.UnInit(); }

    void TearDown() override {
        handler.FreeMem();
        other.FreeMem();
        EXPECT_EQ(StateOf(g_mediaPool).used, 0u) << "pages were lost";
    }

    static std::string Pattern(std::size_t size) {
        std::string text(size, '\0');
        for (std::size_t i = 0; i < size; ++i) {
            text[i] = static_cast<char>(i * 31 + i / 251);
        }
        return text;
    }

    static std::string Content(const MemHandler& of, unsigned int pos, unsigned int len) {
        std::string text(len, '?');
        EXPECT_EQ(of.MemcpyToChar(text.data(), len, pos), 0u);
        return text;
    }

    MemHandler handler;
    MemHandler other;
    unsigned int start = 0;
};

// What a caller gets wrong is refused, and nothing outside the pages is touched.
TEST_F(MemHandlerTest, CopiesStayWithinThePages) {
    EXPECT_EQ(handler.AllocMem(0, start) + handler.AllocMem(0x40000001, start), 2u);
    ASSERT_EQ(handler.AllocMem(2049, start), 0u);  // two pages, never filled
    EXPECT_EQ(other.AddPtrBuf(handler, 0, 100, start), 1u);
    EXPECT_EQ(other.AddPtrBuf(handler, 2050, 1, start), 1u);
    EXPECT_EQ(other.GetLength(), 100u) << "what was reserved stays reserved";
    const std::string text = Pattern(9000);
    PosPtrPair pair;
    ASSERT_EQ(handler.Pos2Ptr(2000, pair), 0u);
    EXPECT_EQ(handler.MemcpyFromChar(pair, text.data(), 9000), 0u);
    EXPECT_EQ(Content(handler, 2000, 49), text.substr(0, 49));
    std::string out(6000, '?');
    EXPECT_EQ(handler.MemcpyToChar(out.data(), 6000, 0), 0u);
    EXPECT_EQ(out.substr(4096), std::string(6000 - 4096, '?'));
    EXPECT_EQ(handler.MemcpyToChar(nullptr, 1, 0), 1u);
    EXPECT_EQ(handler.MemcpyToChar(out.data(), 0, 0), 1u);
    EXPECT_EQ(handler.MemcpyToChar(out.data(), 1, 2050), 1u);
    EXPECT_EQ(handler.AddCharBuf(nullptr, 5, start), 1u);
    ACE_Message_Block* mb = nullptr;
    EXPECT_EQ(CreateMemHandlerAndAlloc(&mb, 0, 9) + ReleaseMemHandler(&mb), 2u);
}

TEST_F(MemHandlerTest, BytesComeBackFromEveryPlace) {
    std::string all;
    for (const std::size_t size : {1u, 2047u, 2048u, 2049u, 1u, 300000u, 7u, 1390u}) {
        const std::string text = Pattern(size);
        ASSERT_EQ(handler.AddCharBuf(text.data(), static_cast<unsigned int>(size), start), 0u);
        EXPECT_EQ(start, all.size());
        all += text;
    }
    ASSERT_EQ(handler.GetLength(), all.size());
    EXPECT_EQ(Content(handler, 0, handler.GetLength()), all);
    // From any place into another's pages.
    std::string copied;
    for (const unsigned int pos : {0u, 1u, 2046u, 2047u, 2048u, 150001u}) {
        for (const unsigned int len : {1u, 2u, 2047u, 2048u, 2049u, 9999u}) {
            ASSERT_EQ(Content(handler, pos, len), all.substr(pos, len)) << pos << " " << len;
            ASSERT_EQ(other.AddPtrBuf(handler, pos, len, start), 0u);
            EXPECT_EQ(start, copied.size());
            copied += all.substr(pos, len);
        }
    }
    EXPECT_TRUE(Content(other, 0, other.GetLength()) == copied);
    // In pieces of any size, as packets are cut.
    for (const unsigned int piece : {1390u, 2048u, 4096u, 5u, 100000u}) {
        MemReader reader(handler, 3);
        std::string joined;
        while (joined.size() < all.size() - 3) {
            std::string part(std::min<std::size_t>(piece, all.size() - 3 - joined.size()), '?');
            ASSERT_EQ(reader.Read(part.data(), static_cast<unsigned int>(part.size())), 0u);
            joined += part;
        }
        ASSERT_TRUE(joined == all.substr(3)) << piece;
    }
}

TEST_F(MemHandlerTest, APoolThatRunsOutAtItsTopLevelLosesNoPage) {
    std::vector<ACE_Message_Block*> blocks;
    while (ACE_Message_Block* block = g_mediaPool.Alloc("test", __LINE__)) {
        blocks.push_back(block);
    }
    const PoolState full = StateOf(g_mediaPool);
    EXPECT_EQ(full.level, 4u);
    EXPECT_EQ(full.used, 235930u + 524288u);
    EXPECT_TRUE(g_mediaPool.Isfull());
    for (int i = 0; i < 3; ++i) {
        g_mediaPool.Free(blocks.back(), "test", __LINE__);
        blocks.pop_back();
    }
    EXPECT_FALSE(g_mediaPool.Isfull());
    const std::string text(5 * 2048, 'x');
    EXPECT_EQ(handler.AddCharBuf(text.data(), 5 * 2048, start), 1u);
    EXPECT_EQ(handler.GetLength(), 0u);
    EXPECT_EQ(StateOf(g_mediaPool).used, full.used);
    ACE_Message_Block* mb = nullptr;
    EXPECT_EQ(CreateMemHandler(&mb), 1u);
    EXPECT_EQ(mb, nullptr);
    handler.FreeMem();
    EXPECT_EQ(CreateMemHandlerAndAlloc(&mb, 5 * 2048, 0), 1u);
    EXPECT_EQ(mb, nullptr);
    EXPECT_EQ(StateOf(g_mediaPool).used, full.used - 3);
    for (ACE_Message_Block* block : blocks) {
        g_mediaPool.Free(block, "test", __LINE__);
    }
    EXPECT_EQ(StateOf(g_mediaPool).level, 0u);
}

}  // namespace
