#include "gvx_common/media_memory/MediaMemPool.h"

#include "base/log.h"
#include "gvx_common/media_memory/MediaMemPool_inline.h"

#include <ace/Message_Block.h>

#include <exception>
#include <new>

namespace {

// Marks a block as one of the pool; its level stands beside it.
constexpr unsigned int kPooledFlag = 0x2000;
constexpr float kStackRoom = 1.2f;
constexpr float kLowWater = 0.3f;

float HighMark(unsigned int level) {
    return GVX_POOL_HIGH_WATER * static_cast<float>(MediaMemPool::GetPacketSize(level));
}

}  // namespace

bool MediaMemPool::Init() {
    spinlock_init(m_spinLock);
    m_usedPacketSize += static_cast<unsigned int>(OutInSlots());
    for (Slot& slot : m_slots) {
        slot.out = 0;
    }
    DropDepot();
    for (unsigned int level = 0; level < kLevels; ++level) {
        ReleaseMem(level);
        ReleaseStack(level);
        m_memStackSize[level] = 0;
        const auto nodes = static_cast<std::size_t>(static_cast<float>(GetPacketSize(level)) * kStackRoom);
        try {
            m_memoryStack[level].reset(new (std::nothrow) Stack(nodes));
        } catch (const std::exception&) {
            return false;  // the nodes are made one by one, and memory ran out among them
        }
        if (m_memoryStack[level] == nullptr) {
            return false;
        }
        ++g_bp_memstat;
    }
    if (!MakeDepot()) {
        return false;
    }
    return CreateMem(m_level.load());
}

void MediaMemPool::UnInit() {
    DropDepot();
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
    m_mbArray[level].reset(new (std::nothrow) ACE_Message_Block[count]);
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
    return created;
}

void MediaMemPool::TryDecLevel() {
    const unsigned int level = m_level.load();
    if (level != 0 && LowWaterLevel(level)) {
        CreateMem(level - 1);  // may have been freed while the pool stood above it
        m_level.store(level - 1);
        m_timeToDecLevel = false;
    }
}

bool MediaMemPool::HighWaterLevel(unsigned int level) const {
    const float mark = HighMark(level);
    if (CertainlyNotAbove(mark)) {
        return false;
    }
    return static_cast<float>(static_cast<int>(m_usedPacketSize.load()) + OutInSlots()) > mark;
}

bool MediaMemPool::LowWaterLevel(unsigned int level) const {
    const float mark = kLowWater * static_cast<float>(GetPacketSize(level));
    if (CertainlyAbove(mark)) {
        return false;
    }
    return mark > static_cast<float>(static_cast<int>(m_usedPacketSize.load()) + OutInSlots());
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
