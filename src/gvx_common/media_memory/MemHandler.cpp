#include "gvx_common/media_memory/MemHandler.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "gvx_common/media_memory/MediaMemPool.h"

#include <ace/Message_Block.h>

#include <new>

namespace {

constexpr unsigned int kPageSize = MediaMemPool::kBlockSize;
constexpr unsigned int kPageShift = 11;
constexpr unsigned int kPageMask = kPageSize - 1;
static_assert(1u << kPageShift == kPageSize, "a position splits into page number and offset");

bool IsLegalLength(unsigned int len) {
    return len != 0 && len <= MemHandler::kMaxLength;
}

unsigned int OffsetIn(const PosPtrPair& pair) {
    return static_cast<unsigned int>(pair.second - pair.first->rd_ptr());
}

// The page that many steps further on; null when the chain ends before.
ACE_Message_Block* Walk(ACE_Message_Block* page, unsigned int steps) {
    while (steps != 0 && page != nullptr) {
        page = page->cont();
        --steps;
    }
    return page;
}

// A page of the pool, ready to be filled; null when the pool is exhausted.
ACE_Message_Block* NewPage(int line) {
    ACE_Message_Block* page = g_mediaPool.Alloc("MemHandler.cpp", line);
    if (page != nullptr) {
        page->reset();
    }
    return page;
}

}  // namespace

void MemHandler::Init() {
    m_headPage = nullptr;
    m_presentPage = nullptr;
    m_allocLen = 0;
}

unsigned int MemHandler::AllocMem(unsigned int len, unsigned int& pos) {
    pos = 0;
    if (!IsLegalLength(len)) {
        GVX_LOG_ERR("MemHandler::AllocMem", "allocLen = %u", len);
        return 1;
    }
    pos = m_allocLen;
    const unsigned int room = m_allocLen != 0 ? kPageSize - (m_allocLen & kPageMask) : 0;
    // A length that just fills the room opens a further page: the length itself has a page behind it.
    const unsigned int pages = len >= room ? ((len - room) >> kPageShift) + 1 : 0;
    ACE_Message_Block* last = m_presentPage;
    for (unsigned int i = 0; i < pages; ++i) {
        ACE_Message_Block* page = NewPage(__LINE__);
        if (page == nullptr) {
            return 1;
        }
        if (m_headPage == nullptr) {
            m_headPage = page;
            m_presentPage = page;
        } else {
            last->cont(page);
        }
        last = page;
    }
    m_presentPage = last;
    m_allocLen += len;
    return 0;
}

void MemHandler::FreeMem() {
    ACE_Message_Block* page = m_headPage;
    while (page != nullptr) {
        ACE_Message_Block* next = page->cont();
        g_mediaPool.free_1mb(page, "MemHandler.cpp", __LINE__);
        page = next;
    }
    m_headPage = nullptr;
    m_presentPage = nullptr;
    GVX_LOG_INFO("MemHandler::FreeMem", "Free success.m_allocLen:%u.", m_allocLen);
    m_allocLen = 0;
}

unsigned int MemHandler::Pos2Ptr(unsigned int pos, PosPtrPair& out) const {
    out = PosPtrPair(nullptr, nullptr);
    if (pos > m_allocLen) {
        GVX_LOG_ERR("MemHandler::Pos2Ptr", "pos invalid. pos:%u,m_allocLen:%u", pos, m_allocLen);
        return 1;
    }
    if (pos == 0 && m_allocLen == 0) {
        GVX_LOG_ERR("MemHandler::Pos2Ptr", "no mem. pos:%u,m_allocLen:%u", pos, m_allocLen);
        return 1;
    }
    out.first = Walk(m_headPage, pos >> kPageShift);
    if (out.first == nullptr) {
        GVX_LOG_ERR("MemHandler::Pos2Ptr", "page is NULL. pos:%u,m_allocLen:%u", pos, m_allocLen);
        return 1;
    }
    out.second = out.first->rd_ptr() + (pos & kPageMask);
    return 0;
}

// True with the position when the pair's page is one of the buffer; otherwise pos is what the chain adds up to.
bool MemHandler::FindPage(const PosPtrPair& pair, unsigned int& pos) const {
    pos = 0;
    for (const ACE_Message_Block* page = m_headPage; page != nullptr; page = page->cont()) {
        if (page == pair.first) {
            pos += OffsetIn(pair);
            return true;
        }
        pos += kPageSize;
    }
    return false;
}

unsigned int MemHandler::Ptr2Pos(PosPtrPair& pair) const {
    if (!CheckPtrPair(pair)) {
        GVX_LOG_ERR("MemHandler::Ptr2Pos", "CheckPtrPair Fail.ptrPair.first:%p,ptrPair.second:%p",
                    static_cast<void*>(pair.first), static_cast<void*>(pair.second));
        return 0;
    }
    unsigned int pos = 0;
    if (!FindPage(pair, pos)) {
        GVX_LOG_ERR("MemHandler::Ptr2Pos", "CheckPtrPair Fail.Cannot find page.ptrPair.first:%p,ptrPair.second:%p",
                    static_cast<void*>(pair.first), static_cast<void*>(pair.second));
    }
    return pos;
}

bool MemHandler::CheckPtrPair(PosPtrPair& pair) const {
    if (pair.first == nullptr || pair.second == nullptr) {
        return false;
    }
    // An offset of a whole page passes: a pair may stand just behind a full page.
    return pair.second >= pair.first->rd_ptr() && pair.second - pair.first->rd_ptr() <= kPageSize;
}

bool MemHandler::CheckLength(unsigned int pos, unsigned int len) {
    return pos < kMaxLength && pos <= m_allocLen && len <= m_allocLen - pos;
}

unsigned int MemHandler::Forward(PosPtrPair& pair, unsigned int len) {
    if (!IsLegalLength(len)) {
        GVX_LOG_ERR("MemHandler::Forward", "length is invalid.length:%u", len);
        return 1;
    }
    if (!CheckPtrPair(pair)) {
        GVX_LOG_ERR("MemHandler::Forward", "CheckPtrPair Fail.posPtr.first:%p,posPtr.second:%p",
                    static_cast<void*>(pair.first), static_cast<void*>(pair.second));
        return 1;
    }
    const unsigned int pos = Ptr2Pos(pair);
    if (!CheckLength(pos, len)) {
        GVX_LOG_ERR("MemHandler::Forward", "CheckLength Fail.pos:%u,length:%u", pos, len);
        return 1;
    }
    const unsigned int left = kPageSize - OffsetIn(pair);
    if (left > len) {
        pair.second += len;
        return 0;
    }
    const unsigned int rest = len - left;
    ACE_Message_Block* page = Walk(pair.first, (rest >> kPageShift) + 1);
    if (page == nullptr) {
        GVX_LOG_ERR("MemHandler::Forward", "CheckLength Fail.pos:%u,length:%u", pos, len);
        return 1;
    }
    pair = PosPtrPair(page, page->rd_ptr() + (rest & kPageMask));
    return 0;
}

unsigned int CreateMemHandler(ACE_Message_Block** mb) {
    *mb = nullptr;
    ACE_Message_Block* block = NewPage(__LINE__);
    if (block == nullptr) {
        return 1;
    }
    static_assert(sizeof(MemHandler) <= kPageSize, "the buffer lives in one block");
    new (block->base()) MemHandler;
    *mb = block;
    return 0;
}

unsigned int CreateMemHandlerAndAlloc(ACE_Message_Block** mb, unsigned int len, unsigned int pos) {
    if (CreateMemHandler(mb) != 0) {
        return 1;
    }
    unsigned int start = 0;
    MemHandler* handler = GetMemHandler(*mb);
    if (handler->AllocMem(len, start) == 0) {
        return 0;
    }
    GVX_LOG_ERR("CreateMemHandlerAndAlloc", "AllocMem failed.length:%u,pos:%u", len, pos);
    if (handler->GetHead() != nullptr) {
        handler->FreeMem();  // pages taken before the pool was exhausted
    }
    g_mediaPool.free_1mb(*mb, "MemHandler.cpp", __LINE__);
    *mb = nullptr;
    return 1;
}

unsigned int ReleaseMemHandler(ACE_Message_Block** mb) {
    if (*mb == nullptr) {
        GVX_LOG_ERR("ReleaseMemHandler", "mb is NULL.");
        return 1;
    }
    GetMemHandler(*mb)->FreeMem();
    g_mediaPool.free_1mb(*mb, "MemHandler.cpp", __LINE__);
    *mb = nullptr;
    return 0;
}

MemHandler* GetMemHandler(ACE_Message_Block* mb) {
    return std::launder(reinterpret_cast<MemHandler*>(mb->base()));
}
