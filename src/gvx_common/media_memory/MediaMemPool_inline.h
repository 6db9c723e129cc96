#pragma once

#include "gvx_common/media_memory/MediaMemPool.h"
#include "gvx_common/media_memory/MediaMemPool_stack.h"

#include <exception>

// What every call of Alloc and Free runs through.
//
// A thread with a slot counts blocks of level 0 there, without an atomic exchange, and moves the count to the totals
// when it reaches kSlotLimit either way. The totals alone therefore tell the use to within kSlotSlack. Near a mark the
// slots are added up under m_spinLock, which also holds back every move, so that the marks are met exactly.
//
// It keeps free blocks of level 0 there as well, which count as free like those on the level's stack. All slots
// together keep fewer than are free whenever level 0 is the current one, so that none of its callers ever finds
// nothing.

namespace gvx {

constexpr int kSlotLimit = 32;
constexpr int kSlotSlack = kSlotLimit * static_cast<int>(kThreadSlots);

}  // namespace gvx

constexpr float GVX_POOL_HIGH_WATER = 0.9f;

inline bool MediaMemPool::CertainlyNotAbove(float mark) const {
    return static_cast<float>(static_cast<int>(m_usedPacketSize.load()) + gvx::kSlotSlack) <= mark;
}

inline bool MediaMemPool::CertainlyAbove(float mark) const {
    return static_cast<float>(static_cast<int>(m_usedPacketSize.load()) - gvx::kSlotSlack) >= mark;
}

inline bool MediaMemPool::MayTakeFromLevelZero() const {
    return m_level.load() == 0 && CertainlyNotAbove(GVX_POOL_HIGH_WATER * static_cast<float>(GetPacketSize(0)));
}

inline void MediaMemPool::CountInTotals(int blocks) {
    m_memStackSize[0].fetch_add(static_cast<unsigned int>(blocks));
    m_usedPacketSize.fetch_add(static_cast<unsigned int>(blocks));
}

inline void MediaMemPool::CountIn(Slot& slot, int blocks) {
    const int out = slot.out.load(std::memory_order_relaxed) + blocks;
    slot.out.store(out, std::memory_order_release);
    if (out >= gvx::kSlotLimit || out <= -gvx::kSlotLimit) {
        MoveToTotals(slot);
    }
}

inline bool MediaMemPool::Push(unsigned int level, ACE_Message_Block* mb) {
    Stack* stack = m_memoryStack[level].get();
    if (stack == nullptr) {
        return false;
    }
    const SpeculativeReads scope;
    try {
        return stack->blocks.push(mb);
    } catch (const std::exception&) {
        return false;  // the stack has no node left, and there is no memory for one
    }
}

inline ACE_Message_Block* MediaMemPool::Pop(unsigned int level) {
    Stack* stack = m_memoryStack[level].get();
    if (stack == nullptr) {
        return nullptr;
    }
    const SpeculativeReads scope;
    ACE_Message_Block* block = nullptr;
    return stack->blocks.pop(block) ? block : nullptr;
}

// Level 0 is never freed while the pool runs, so nothing needs to be announced ahead of taking a block.
inline ACE_Message_Block* MediaMemPool::TakeLevelZero() {
    const unsigned int index = gvx::ThreadSlot();
    if (index == gvx::kNoThreadSlot) {
        return TakeWithoutSlot();
    }
    Slot& slot = m_slots[index];
    if (slot.kept == 0 && !Refill(slot)) {
        return nullptr;
    }
    ACE_Message_Block* block = slot.free[--slot.kept];
    CountIn(slot, 1);
    return block;
}

// False when the block found no place; it is then not counted.
inline bool MediaMemPool::GiveLevelZero(ACE_Message_Block* mb) {
    const unsigned int index = gvx::ThreadSlot();
    if (index == gvx::kNoThreadSlot) {
        if (!Push(0, mb)) {
            return false;
        }
        CountInTotals(-1);
        return true;
    }
    Slot& slot = m_slots[index];
    const bool hasRoom = slot.kept < gvx::kSlotBlocks || Spill(slot);
    if (hasRoom && m_depot != nullptr) {
        slot.free[slot.kept++] = mb;
    } else if (!Push(0, mb)) {
        return false;
    }
    CountIn(slot, -1);
    return true;
}
