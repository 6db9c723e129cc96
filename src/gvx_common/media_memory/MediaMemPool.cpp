#include "gvx_common/media_memory/MediaMemPool.h"

#include "base/bounded_string.h"
#include "base/log.h"
#include "gvx_common/media_memory/MediaMemPool_inline.h"
#include "gvx_common/media_memory/MediaMemPool_tracking.h"

#include <ace/Message_Block.h>

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

}  // namespace

MediaMemPool::MediaMemPool() : m_memStackSize{}, m_usedPacketSize(0), m_level(0), m_timeToDecLevel(true), m_spinLock() {
    // As many bytes as there are levels: Init clears the rest.
    if (memset_s(static_cast<void*>(m_memStackSize.data()), kLevels, 0, kLevels) != 0) {
        GVX_LOG_ERR("MediaMemPool constructor", "m_memStackSize memset failed");
    }
}

MediaMemPool::~MediaMemPool() {
    UnInit();
}

// Chooses the level to take a block from, as one step with counting that block as out of the level, unless it is level
// 0, which is never freed.
//
// A level is freed only when none of its blocks is counted and it is no longer the current one. A caller that has
// counted itself and then still sees its level as the current one may therefore pop from it in peace: whoever frees the
// level has either seen that count or has already published another level. So the common case needs no lock.
unsigned int MediaMemPool::ReserveLevel() {
    const unsigned int seen = m_level.load();
    const bool mayRise =
        seen < kTopLevel && !CertainlyNotAbove(GVX_POOL_HIGH_WATER * static_cast<float>(GetPacketSize(seen)));
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
    TryIncLevel();
    const unsigned int level = m_level.load();
    if (level != 0) {
        m_memStackSize[level].fetch_add(1);
    }
    return level;
}

ACE_Message_Block* MediaMemPool::TakeReserved() {
    const unsigned int level = ReserveLevel();
    if (level == 0) {
        return TakeLevelZero();
    }
    ACE_Message_Block* block = Pop(level);
    if (block == nullptr) {
        // While it was counted, the last block of a level that has been left may have come back.
        const SpinlockGuard guard(m_spinLock);
        m_memStackSize[level].fetch_sub(1);
        DestroyIfLeft(level);
        return nullptr;
    }
    m_usedPacketSize.fetch_add(1);
    return block;
}

ACE_Message_Block* MediaMemPool::Alloc(const char* file, int line) {
    ACE_Message_Block* block = MayTakeFromLevelZero() ? TakeLevelZero() : TakeReserved();
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
            GiveLevelZero(current);
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
    const Stack* stack = m_memoryStack[level].get();
    return stack == nullptr || (stack->blocks.empty() && !(level == 0 && HasBatches()));
}

unsigned int MediaMemPool::GetRTPBufferCount() {
    unsigned int count = 0;
    for (unsigned int level = 0; level < kLevels; ++level) {
        count += GetPacketSize(level);
    }
    return count;
}

void MediaMemPool::ShowDebugInfo() {
    if (g_debugFlag != 0) {
        PRINT();
    }
    const SpinlockGuard guard(m_spinLock);
    const auto inSlots = static_cast<unsigned int>(OutInSlots());
    GVX_LOG_INFO("MediaMemPool MEDIABUF STATUS", "m_usedPacketSize:%u,m_level:%u", m_usedPacketSize.load() + inSlots,
                 m_level.load());
    for (unsigned int level = 0; level < kLevels; ++level) {
        const unsigned int out = m_memStackSize[level].load() + (level == 0 ? inSlots : 0);
        GVX_LOG_INFO("MediaMemPool MEDIABUF STATUS", "i:[%u %p %p %p %u]", level,
                     static_cast<void*>(m_memory[level].get()), static_cast<void*>(m_mbArray[level].get()),
                     static_cast<void*>(m_memoryStack[level].get()), out);
    }
}
