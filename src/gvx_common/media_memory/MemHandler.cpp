#include "gvx_common/media_memory/MemHandler.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "gvx_common/media_memory/MediaMemPool.h"

#include <ace/Message_Block.h>

#include <algorithm>
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

bool IsLegalCopy(const void* memory, unsigned int len) {
    return memory != nullptr && len != 0 && len <= MemHandler::kMaxLength;
}

// Copies the following len bytes out of page at `from`, and the whole of the pages behind it, whatever their wr_ptr
// says. Ends with success when the chain does. page and from are left where the copy ended, page null behind the last.
unsigned int CopyOut(const char* title, ACE_Message_Block*& page, char*& from, char* dst, unsigned int len) {
    const unsigned int room = kPageSize - static_cast<unsigned int>(from - page->rd_ptr());
    if (len <= room) {
        if (memcpy_s(dst, len, from, len) != 0) {
            GVX_LOG_ERR(title, "memcpy_s Fail.copylen:%u, dst:%p, posPtr.second:%p", len, static_cast<void*>(dst),
                        static_cast<void*>(from));
            return 1;
        }
        from += len;
        if (len == room) {
            page = page->cont();
            from = page == nullptr ? nullptr : page->rd_ptr();
        }
        return 0;
    }
    if (room != 0 && memcpy_s(dst, room, from, room) != 0) {
        GVX_LOG_ERR(title, "memcpy_s Fail.cpyLen:%u, dst:%p, posPtr.second:%p", room, static_cast<void*>(dst),
                    static_cast<void*>(from));
        return 1;
    }
    unsigned int done = room;
    for (page = page->cont(); page != nullptr; page = page->cont()) {
        const unsigned int chunk = std::min(len - done, kPageSize);
        if (chunk != 0 && memcpy_s(dst + done, chunk, page->rd_ptr(), chunk) != 0) {
            GVX_LOG_ERR(title, "memcpy_s Fail.cpyLen:%u,alreadyCpy:%u, dst:%p, page", chunk, done,
                        static_cast<void*>(dst));
            return 1;
        }
        done += chunk;
        if (chunk < kPageSize) {
            from = page->rd_ptr() + chunk;
            break;
        }
    }
    return 0;
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

// A copy looks its position up once, by a walk from the first page, and goes from page to page from there.

unsigned int MemHandler::MemcpyToChar(char* dst, unsigned int len, unsigned int pos) const {
    if (!IsLegalCopy(dst, len)) {
        GVX_LOG_ERR("MemHandler::MemcpyToChar", "invalid Para.dst:%p,copylen:%u", static_cast<void*>(dst), len);
        return 1;
    }
    PosPtrPair pair;
    if (Pos2Ptr(pos, pair) != 0) {
        GVX_LOG_ERR("MemHandler::MemcpyToChar", "Pos2Ptr Fail.pos:%u", pos);
        return 1;
    }
    if (!CheckPtrPair(pair)) {
        GVX_LOG_ERR("MemHandler::MemcpyToChar", "CheckPtrPair Fail.posPtr.first:%p,posPtr.second:%p",
                    static_cast<void*>(pair.first), static_cast<void*>(pair.second));
        return 1;
    }
    return CopyOut("MemHandler::MemcpyToChar", pair.first, pair.second, dst, len);
}

unsigned int MemHandler::MemcpyFromChar(PosPtrPair& dst, const char* src, unsigned int len) {
    if (!CheckPtrPair(dst)) {
        GVX_LOG_ERR("MemHandler::MemcpyFromChar", "CheckPtrPair Fail.dstPair.first:%p,dstPair.second:%p",
                    static_cast<void*>(dst.first), static_cast<void*>(dst.second));
        return 1;
    }
    if (!IsLegalCopy(src, len)) {
        GVX_LOG_ERR("MemHandler::MemcpyFromChar", "invalid Para.src:%p,copylen:%u", static_cast<const void*>(src), len);
        return 1;
    }
    ACE_Message_Block* page = dst.first;
    page->wr_ptr(dst.second);
    std::size_t chunk = std::min<std::size_t>(len, page->space());
    page->copy(src, chunk);
    std::size_t done = chunk;
    for (page = page->cont(); done < len && page != nullptr; page = page->cont()) {
        page->reset();
        chunk = std::min<std::size_t>(len - done, kPageSize);
        page->copy(src + done, chunk);
        done += chunk;
    }
    return 0;
}

// Moves dst on behind a copied chunk, as Pos2Ptr(dstPos) would, from where it stands.
unsigned int MemHandler::MoveOn(PosPtrPair& dst, unsigned int chunk, unsigned int dstPos) const {
    if (dstPos > m_allocLen) {
        return Pos2Ptr(dstPos, dst);
    }
    std::size_t offset = static_cast<std::size_t>(dst.second - dst.first->rd_ptr()) + chunk;
    ACE_Message_Block* page = dst.first;
    for (; offset >= kPageSize && page != nullptr; offset -= kPageSize) {
        page = page->cont();
    }
    if (page == nullptr) {
        return Pos2Ptr(dstPos, dst);
    }
    dst = PosPtrPair(page, page->rd_ptr() + offset);
    return 0;
}

unsigned int MemHandler::MemcpyFromPtr(PosPtrPair& dst, PosPtrPair& src, unsigned int len) {
    if (!CheckPtrPair(dst)) {
        GVX_LOG_ERR("MemHandler::MemcpyFromPtr", "CheckPtrPair Fail.dstPtr.first:%p,dstPtr.second:%p",
                    static_cast<void*>(dst.first), static_cast<void*>(dst.second));
        return 1;
    }
    if (!CheckPtrPair(src)) {
        GVX_LOG_ERR("MemHandler::MemcpyFromPtr", "CheckPtrPair Fail.srcPtr.first:%p,srcPtr.second:%p",
                    static_cast<void*>(src.first), static_cast<void*>(src.second));
        return 1;
    }
    unsigned int dstPos = 0;
    const bool ours = FindPage(dst, dstPos);
    if (!ours) {
        dstPos = Ptr2Pos(dst);
    }
    unsigned int left = len;
    for (ACE_Message_Block* page = src.first; page != nullptr && left != 0; page = page->cont()) {
        char* const pagePos = page == src.first ? src.second : page->rd_ptr();
        // Nothing stands behind wr_ptr; a chunk of nothing is refused below.
        const auto filled = pagePos < page->wr_ptr() ? static_cast<unsigned int>(page->wr_ptr() - pagePos) : 0;
        const unsigned int chunk = std::min(left, filled);
        if (MemcpyFromChar(dst, pagePos, chunk) != 0) {
            GVX_LOG_ERR("MemHandler::MemcpyFromPtr",
                        "CheckLength failed.page:%p,pagePos:%p,dstPtr.first:%p,dstPtr.second:%p,pagePos:%p,copylen:%u",
                        static_cast<void*>(page), static_cast<void*>(pagePos), static_cast<void*>(dst.first),
                        static_cast<void*>(dst.second), static_cast<void*>(pagePos), chunk);
            return 1;
        }
        dstPos += chunk;
        left -= chunk;
        if ((ours ? MoveOn(dst, chunk, dstPos) : Pos2Ptr(dstPos, dst)) != 0) {
            GVX_LOG_ERR("MemHandler::MemcpyFromPtr",
                        "Pos2Ptr Fail.page:%p,pagePos:%p,dstPtr.first:%p,dstPtr.second:%p,pagePos:%p,copylen:%u",
                        static_cast<void*>(page), static_cast<void*>(pagePos), static_cast<void*>(dst.first),
                        static_cast<void*>(dst.second), static_cast<void*>(pagePos), chunk);
            return 1;
        }
    }
    return 0;
}

unsigned int MemHandler::AddCharBuf(const char* src, unsigned int len, unsigned int& pos) {
    if (!IsLegalCopy(src, len)) {
        GVX_LOG_ERR("MemHandler::AddCharBuf", "invalid Para.src:%p,copylen:%u", static_cast<const void*>(src), len);
        return 1;
    }
    if (AllocMem(len, pos) != 0) {
        GVX_LOG_ERR("MemHandler::AddCharBuf", "AllocMem failed.copylen:%u,pos:%u", len, pos);
        return 1;
    }
    PosPtrPair pair;
    if (Pos2Ptr(pos, pair) != 0) {
        GVX_LOG_ERR("MemHandler::AddCharBuf", "Pos2Ptr Fail.pos:%u", pos);
        return 1;
    }
    if (!CheckLength(pos, len)) {
        GVX_LOG_ERR("MemHandler::AddCharBuf", "CheckLength failed.copylen:%u,pos:%u", len, pos);
        return 1;
    }
    if (MemcpyFromChar(pair, src, len) != 0) {
        GVX_LOG_ERR("MemHandler::AddCharBuf", "CheckLength failed.retPair.first:%p,retPair.second:%p,src:%p,copylen:%u",
                    static_cast<void*>(pair.first), static_cast<void*>(pair.second), static_cast<const void*>(src),
                    len);
        return 1;
    }
    return 0;
}

unsigned int MemHandler::AddPtrBuf(const MemHandler& src, unsigned int srcPos, unsigned int len, unsigned int& pos) {
    PosPtrPair srcPair;
    if (src.Pos2Ptr(srcPos, srcPair) != 0) {
        GVX_LOG_ERR("MemHandler::AddPtrBuf", "srcMem Pos2Ptr Fail.srcPos:%u", srcPos);
        return 1;
    }
    if (!src.CheckPtrPair(srcPair)) {
        GVX_LOG_ERR("MemHandler::AddPtrBuf", "CheckPtrPair Fail.srcPtr.first:%p,srcPtr.second:%p",
                    static_cast<void*>(srcPair.first), static_cast<void*>(srcPair.second));
        return 1;
    }
    if (AllocMem(len, pos) != 0) {
        GVX_LOG_ERR("MemHandler::AddPtrBuf", "AllocMem invalid.len:%u,pos:%u", len, pos);
        return 1;
    }
    PosPtrPair dstPair;
    if (Pos2Ptr(pos, dstPair) != 0) {
        GVX_LOG_ERR("MemHandler::AddPtrBuf", "Pos2Ptr Fail.Pos:%u", pos);
        return 1;
    }
    if (!CheckLength(pos, len)) {
        GVX_LOG_ERR("MemHandler::AddPtrBuf", "CheckLength invalid.len:%u,pos:%u", len, pos);
        return 1;
    }
    if (MemcpyFromPtr(dstPair, srcPair, len) != 0) {
        GVX_LOG_ERR("MemHandler::AddPtrBuf", "MemcpyFromPtr failed.len:%u", len);
        return 1;
    }
    return 0;
}

MemReader::MemReader(const MemHandler& handler, unsigned int pos) : m_handler(handler), m_pos(pos) {}

unsigned int MemReader::Read(char* dst, unsigned int len) {
    if (m_place.first == nullptr || !IsLegalCopy(dst, len) || len > m_handler.GetLength() - m_pos) {
        const unsigned int result = m_handler.MemcpyToChar(dst, len, m_pos);
        m_pos += len;
        m_place = PosPtrPair(nullptr, nullptr);
        if (result == 0 && m_pos < m_handler.GetLength()) {
            m_handler.Pos2Ptr(m_pos, m_place);
        }
        return result;
    }
    m_pos += len;
    return CopyOut("MemHandler::MemcpyToChar", m_place.first, m_place.second, dst, len);
}
