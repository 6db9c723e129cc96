#include "gvx_common/media_memory/MediaMemPool.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "base/zvs_error.h"
#include "gvx_common/media_memory/MediaMemPool_tracking.h"
#include "gvx_common/media_memory/block_stack.h"

#include <ace/Message_Block.h>

#include <exception>
#include <new>

MediaMemPool g_mediaPool;

namespace {

// Set by a debugger alone, to have losses tracked; volatile keeps the word and its one read a call.
volatile int g_debugFlag = 0;

// The level of a block stands in bits 8 to 11 of its flags.
unsigned int LevelOf(const ACE_Message_Block& mb) {
    return static_cast<unsigned int>((mb.self_flags() & 0xFF0) >> 8);
}

unsigned long AddressOf(const ACE_Message_Block* mb) {
    return reinterpret_cast<unsigned long>(mb);
}

// Marks a block as one of the pool; its level stands beside it.
constexpr unsigned int kPooledFlag = 0x2000;
constexpr float kStackRoom = 1.2f;
constexpr float kHighWater = 0.9f;
constexpr float kLowWater = 0.3f;

float HighMark(unsigned int level) {
    return kHighWater * static_cast<float>(MediaMemPool::GetPacketSize(level));
}

// What is free while level 0 is the current one: a tenth of it at least.
static_assert(gvx::ThreadCache::kSlots * gvx::ThreadCache::kSlotBlocks < MediaMemPool::GetPacketSize(0) / 10,
              "the slots must not keep all that is free");

}  // namespace

MediaMemPool::MediaMemPool()
    : m_memStackSize{},
      m_usedPacketSize(0),
      m_level(0),
      m_timeToDecLevel(true),
      m_spinLock(),
      m_cache(m_memStackSize[0], m_usedPacketSize, m_spinLock) {
    // As many bytes as there are levels: Init clears the rest.
    if (memset_s(static_cast<void*>(m_memStackSize.data()), kLevels, 0, kLevels) != 0) {
        GVX_LOG_ERR("MediaMemPool constructor", "m_memStackSize memset failed");
    }
}

MediaMemPool::~MediaMemPool() {
    UnInit();
}

// The totals are exact only together with the cache's counts, which are added up when the totals alone leave it open.
// The lock, which holds back every move between them, then makes the marks exact.
inline bool MediaMemPool::CertainlyNotAbove(float mark) const {
    return static_cast<float>(static_cast<int>(m_usedPacketSize.load()) + gvx::ThreadCache::kSlack) <= mark;
}

bool MediaMemPool::CertainlyAbove(float mark) const {
    return static_cast<float>(static_cast<int>(m_usedPacketSize.load()) - gvx::ThreadCache::kSlack) >= mark;
}

inline bool MediaMemPool::MayTakeFromLevelZero() const {
    return m_level.load() == 0 && CertainlyNotAbove(HighMark(0));
}

inline bool MediaMemPool::Push(unsigned int level, ACE_Message_Block* mb) {
    return m_memoryStack[level] != nullptr && m_memoryStack[level]->Push(mb);
}

inline ACE_Message_Block* MediaMemPool::Pop(unsigned int level) {
    return m_memoryStack[level] == nullptr ? nullptr : m_memoryStack[level]->Pop();
}

// Chooses the level to take a block from, as one step with counting that block as out of the level, unless it is level
// 0, which is never freed.
//
// A level is freed only when none of its blocks is counted and it is no longer the current one. A caller that has
// counted itself and then still sees its level as the current one may therefore pop from it in peace: whoever frees the
// level has either seen that count or has already published another level. So the common case needs no lock.
unsigned int MediaMemPool::ReserveLevel(bool& justRefused) {
    const unsigned int seen = m_level.load();
    const bool mayRise = seen < kTopLevel && !CertainlyNotAbove(HighMark(seen));
    const bool reserved = seen != 0 && !mayRise;
    if (reserved) {
        m_memStackSize[seen].fetch_add(1);
        if (m_level.load() == seen) {
            return seen;
        }
    }
    const SpinlockGuard guard(m_spinLock);
    if (reserved) {
        m_memStackSize[seen].fetch_sub(1);
        DestroyIfLeft(seen);
    }
    const bool refusedBefore = m_refused;
    TryIncLevel();
    justRefused = m_refused && !refusedBefore;
    const unsigned int level = m_level.load();
    if (level != 0) {
        m_memStackSize[level].fetch_add(1);
    }
    return level;
}

ACE_Message_Block* MediaMemPool::TakeReserved() {
    bool justRefused = false;
    const unsigned int level = ReserveLevel(justRefused);
    if (level == 0) {
        return m_cache.Take(m_memoryStack[0].get());
    }
    ACE_Message_Block* block = Pop(level);
    if (block == nullptr) {
        // While it was counted, the last block of a level that has been left may have come back.
        bool refused = false;
        {
            const SpinlockGuard guard(m_spinLock);
            m_memStackSize[level].fetch_sub(1);
            DestroyIfLeft(level);
            refused = m_refused;
        }
        return refused && !justRefused ? TakeWithoutLevel() : nullptr;
    }
    m_usedPacketSize.fetch_add(1);
    return block;
}

// No block of the current level can come back and lower it, since it has none. So what a returning block would do is
// done here, and the level is tried again.
ACE_Message_Block* MediaMemPool::TakeWithoutLevel() {
    {
        const SpinlockGuard guard(m_spinLock);
        const unsigned int current = m_level.load();
        if (LowWaterLevel(current)) {
            TryDecLevel();
        } else if (m_memory[current] != nullptr || CreateMem(current)) {
            m_refused = false;
        }
        for (unsigned int level = m_level.load(); level != 0; --level) {
            ACE_Message_Block* const block = m_memory[level] == nullptr ? nullptr : Pop(level);
            if (block != nullptr) {
                m_memStackSize[level].fetch_add(1);
                m_usedPacketSize.fetch_add(1);
                return block;
            }
        }
    }
    return m_cache.Take(m_memoryStack[0].get());
}

ACE_Message_Block* MediaMemPool::Alloc(const char* file, int line) {
    // Level 0 is never freed while the pool runs, so nothing needs to be announced ahead of taking a block.
    ACE_Message_Block* block = MayTakeFromLevelZero() ? m_cache.Take(m_memoryStack[0].get()) : TakeReserved();
    if (block == nullptr) {
        return nullptr;
    }
    if (g_debugFlag != 0) {
        PUSH(AddressOf(block), Format("addr:%p file:%s line:%d", static_cast<void*>(block), file, line));
    }
    return block;
}

int MediaMemPool::Free(ACE_Message_Block* mb, const char*, int) {
    if (mb == nullptr) {
        return 1;
    }
    ACE_Message_Block* next = nullptr;
    for (ACE_Message_Block* current = mb; current != nullptr; current = next) {
        if (g_debugFlag != 0) {
            POP(AddressOf(current));
        }
        const unsigned int level = LevelOf(*current);
        if (level > kTopLevel) {
            // next is not looked up on this path: a chain that holds a foreign block is left as it is.
            GVX_LOG_WARN("invlaid mb flag", "level[%u] maxLevel[%u]", level, kLevels);
            continue;
        }
        next = current->cont();
        current->cont(nullptr);
        if (level == 0) {
            m_cache.Give(current, m_memoryStack[0].get());
            continue;
        }
        if (!Push(level, current)) {
            continue;
        }
        m_memStackSize[level].fetch_sub(1);
        m_usedPacketSize.fetch_sub(1);
        FallBack(level);
    }
    return 0;
}

int MediaMemPool::free_1mb(ACE_Message_Block* mb, const char* file, int line) {
    if (mb == nullptr) {
        return 1;
    }
    mb->cont(nullptr);
    return Free(mb, file, line);
}

int MediaMemPool::AddRef(ACE_Message_Block* mb) {
    return mb == nullptr ? 1 : 0;
}

bool MediaMemPool::Isfull() {
    const unsigned int level = m_level.load();
    const gvx::BlockStack* stack = m_memoryStack[level].get();
    return stack == nullptr || (stack->IsEmpty() && !(level == 0 && m_cache.HasBatches()));
}

unsigned int MediaMemPool::GetRTPBufferCount() {
    unsigned int count = 0;
    for (unsigned int level = 0; level < kLevels; ++level) {
        count += GetPacketSize(level);
    }
    return count;
}

unsigned int MediaMemPool::GetUsedCount() const {
    return m_usedPacketSize.load(std::memory_order_relaxed) + static_cast<unsigned int>(m_cache.Out());
}

void MediaMemPool::ShowDebugInfo() {
    if (g_debugFlag != 0) {
        PRINT();
    }
    const SpinlockGuard guard(m_spinLock);
    const auto inSlots = static_cast<unsigned int>(m_cache.Out());
    GVX_LOG_INFO("MediaMemPool MEDIABUF STATUS", "m_usedPacketSize:%u,m_level:%u", m_usedPacketSize.load() + inSlots,
                 m_level.load());
    for (unsigned int level = 0; level < kLevels; ++level) {
        const unsigned int out = m_memStackSize[level].load() + (level == 0 ? inSlots : 0);
        GVX_LOG_INFO("MediaMemPool MEDIABUF STATUS", "i:[%u %p %p %p %u]", level,
                     static_cast<void*>(m_memory[level].get()), static_cast<void*>(m_mbArray[level].get()),
                     static_cast<void*>(m_memoryStack[level].get()), out);
    }
}

// The levels: made, freed, risen to and fallen back from.

bool MediaMemPool::Init() {
    spinlock_init(m_spinLock);
    m_usedPacketSize += static_cast<unsigned int>(m_cache.TakeOut());
    m_cache.Drop();
    for (unsigned int level = 0; level < kLevels; ++level) {
        ReleaseMem(level);
        ReleaseStack(level);
        m_memStackSize[level] = 0;
        const auto nodes = static_cast<std::size_t>(static_cast<float>(GetPacketSize(level)) * kStackRoom);
        try {
            m_memoryStack[level].reset(new (std::nothrow) gvx::BlockStack(nodes));
        } catch (const std::exception&) {
            return false;  // the nodes are made one by one, and memory ran out among them
        }
        if (m_memoryStack[level] == nullptr) {
            return false;
        }
        ++g_bp_memstat;
    }
    m_refused = false;
    return m_cache.Start(GetPacketSize(0)) && CreateMem(m_level.load());
}

void MediaMemPool::UnInit() {
    m_cache.Drop();
    for (unsigned int level = 0; level < kLevels; ++level) {
        DestroyMem(level);
        ReleaseStack(level);
    }
    spinlock_destroy(m_spinLock);
    m_spinLock = Spinlock();  // may be destroyed once more, or used by Init
}

bool MediaMemPool::CreateMem(unsigned int level) {
    if (m_memory[level] != nullptr || m_mbArray[level] != nullptr) {
        // Usual: both directions ask for levels that may still stand.
        GVX_LOG_ERR("MediaMemPool::CreateMem", "failed, old level[%u] is exist", level);
        return false;
    }
    const unsigned int count = GetPacketSize(level);
    m_memory[level].reset(new (std::nothrow) char[static_cast<std::size_t>(count) << 11]);
    if (m_memory[level] != nullptr) {
        m_mbArray[level].reset(new (std::nothrow) ACE_Message_Block[count]);
    }
    if (m_memory[level] == nullptr || m_mbArray[level] == nullptr) {
        m_memory[level].reset();
        m_mbArray[level].reset();
        return false;
    }
    g_bp_memstat += 2;
    if (!FillLevel(level, count)) {
        DestroyMem(level);
        return false;
    }
    GVX_LOG_INFO("MediaMemPool::CreateMem", "success, level[%u]", level);
    return true;
}

bool MediaMemPool::FillLevel(unsigned int level, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
        ACE_Message_Block& header = m_mbArray[level][i];
        if (header.init(m_memory[level].get() + (static_cast<std::size_t>(i) << 11), kBlockSize) != 0) {
            GVX_LOG_ERR("MediaMemPool", "mb init failed");
            return false;
        }
        header.set_self_flags((level << 8) | kPooledFlag);
        header.next(nullptr);
        header.prev(nullptr);
        header.cont(nullptr);
        if (!Push(level, &header)) {
            return false;
        }
    }
    return true;
}

void MediaMemPool::DestroyMem(unsigned int level) {
    while (Pop(level) != nullptr) {
    }
    ReleaseMem(level);
    GVX_LOG_INFO("MediaMemPool::DestroyMem", "success, level[%u]", level);
}

void MediaMemPool::ReleaseMem(unsigned int level) {
    if (m_memory[level] != nullptr) {
        m_memory[level].reset();
        --g_bp_memstat;
    }
    if (m_mbArray[level] != nullptr) {
        m_mbArray[level].reset();
        --g_bp_memstat;
    }
}

void MediaMemPool::ReleaseStack(unsigned int level) {
    if (m_memoryStack[level] != nullptr) {
        m_memoryStack[level].reset();
        --g_bp_memstat;
    }
}

// The new level is published when it stands, so that a caller that reads the level without the lock finds its blocks.
bool MediaMemPool::TryIncLevel() {
    const unsigned int level = m_level.load();
    if (level >= kTopLevel || !HighWaterLevel(level)) {
        return true;
    }
    const bool created = CreateMem(level + 1);
    m_level.store(level + 1);
    m_refused = m_memory[level + 1] == nullptr;
    if (m_refused) {
        GVX_LOG_ERR_CODE("MediaMemPool", ZVS_ALLOC_MEMORY_ERROR,
                         "no memory for level[%u], blocks come from the levels below until there is", level + 1);
    }
    return created;
}

void MediaMemPool::TryDecLevel() {
    const unsigned int level = m_level.load();
    if (level != 0 && LowWaterLevel(level)) {
        CreateMem(level - 1);  // may have been freed while the pool stood above it
        m_level.store(level - 1);
        m_refused = m_memory[level - 1] == nullptr;
        m_timeToDecLevel = false;
    }
}

bool MediaMemPool::HighWaterLevel(unsigned int level) const {
    const float mark = HighMark(level);
    if (CertainlyNotAbove(mark)) {
        return false;
    }
    return static_cast<float>(static_cast<int>(m_usedPacketSize.load()) + m_cache.Out()) > mark;
}

bool MediaMemPool::LowWaterLevel(unsigned int level) const {
    const float mark = kLowWater * static_cast<float>(GetPacketSize(level));
    if (CertainlyAbove(mark)) {
        return false;
    }
    return mark > static_cast<float>(static_cast<int>(m_usedPacketSize.load()) + m_cache.Out());
}

bool MediaMemPool::EmptyWaterLevel(unsigned int level) const {
    return m_memStackSize[level].load() == 0;
}

void MediaMemPool::DestroyIfLeft(unsigned int level) {
    if (level != 0 && m_memory[level] != nullptr && EmptyWaterLevel(level) && m_level.load() != level) {
        DestroyMem(level);
    }
}

void MediaMemPool::FallBack(unsigned int level) {
    unsigned int current = 0;
    {
        const SpinlockGuard guard(m_spinLock);
        TryDecLevel();
        DestroyIfLeft(level);
        current = m_level.load();
    }
    // Written behind the lock, so that nobody waits for the log.
    GVX_LOG_INFO("MediaMemPool::Free", "TryDecLevel, level[%u],TryDecLevel[%u]", level, current);
}
