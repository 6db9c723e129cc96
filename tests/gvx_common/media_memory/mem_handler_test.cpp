#include "gvx_common/media_memory/MemHandler.h"

#include "gvx_common/media_memory/MediaMemPool.h"
#include "pool_state.h"

#include <ace/Message_Block.h>
#include <gtest/gtest.h>

#include <array>
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

    static unsigned int Pages(const MemHandler& of) {
        unsigned int pages = 0;
        for (const ACE_Message_Block* page = of.GetHead(); page != nullptr; page = page->cont()) {
            ++pages;
        }
        return pages;
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

TEST_F(MemHandlerTest, PagesAreOneMoreThanTheLengthFills) {
    const std::array<unsigned int, 3> rows[] = {{2047, 0, 1},    {2048, 0, 2},        {1, 0, 1},      {4096, 0, 3},
                                                {100, 1947, 1},  {100, 1948, 2},      {100, 1949, 2}, {2048, 2047, 2},
                                                {2048, 2048, 3}, {300000, 10000, 152}};
    for (const auto& [first, second, pages] : rows) {
        ASSERT_EQ(handler.AllocMem(first, start), 0u);
        EXPECT_EQ(start, 0u);
        if (second != 0) {
            ASSERT_EQ(handler.AllocMem(second, start), 0u);
            EXPECT_EQ(start, first);
        }
        EXPECT_EQ(handler.GetLength(), first + second);
        EXPECT_EQ(Pages(handler), pages) << first << " + " << second;
        handler.FreeMem();
        EXPECT_EQ(handler.GetHead(), nullptr);
        EXPECT_EQ(handler.GetLength(), 0u);
    }
}

TEST_F(MemHandlerTest, PositionsAndPairsAreTheSame) {
    PosPtrPair pair;
    EXPECT_EQ(handler.Pos2Ptr(0, pair), 1u);
    ASSERT_EQ(handler.AllocMem(5000, start), 0u);
    for (const unsigned int pos : {0u, 1u, 2047u, 2048u, 4095u, 4096u, 5000u}) {
        ASSERT_EQ(handler.Pos2Ptr(pos, pair), 0u);
        EXPECT_EQ(handler.Ptr2Pos(pair), pos);
    }
    EXPECT_EQ(handler.Pos2Ptr(5001, pair), 1u);
    ASSERT_EQ(handler.Pos2Ptr(0, pair), 0u);
    pair.second += 2048;
    EXPECT_TRUE(handler.CheckPtrPair(pair)) << "just behind a full page";
    ++pair.second;
    EXPECT_FALSE(handler.CheckPtrPair(pair));
    EXPECT_TRUE(handler.CheckLength(1000, 4000));
    EXPECT_FALSE(handler.CheckLength(1000, 4001));
    EXPECT_FALSE(handler.CheckLength(5001, 0xFFFFFFF0u));
    const std::array<unsigned int, 3> steps[] = {{0, 1, 0},      {0, 2048, 0}, {100, 1948, 0}, {100, 4900, 0},
                                                 {100, 4901, 1}, {0, 0, 1},    {5000, 1, 1}};
    for (const auto& [from, by, result] : steps) {
        ASSERT_EQ(handler.Pos2Ptr(from, pair), 0u);
        EXPECT_EQ(handler.Forward(pair, by), result) << from << " by " << by;
        const unsigned int to = result == 0 ? from + by : from;
        EXPECT_EQ(handler.Ptr2Pos(pair), to);
        EXPECT_EQ(pair.second - pair.first->rd_ptr(), to % 2048) << "the start of the next page, not the end of one";
    }
}

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
