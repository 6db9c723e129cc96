#pragma once

#include "gvx_common/media_memory/spinlock.h"

#include <array>
#include <atomic>
#include <memory>

class ACE_Message_Block;

namespace gvx {

class BlockStack;

// What threads keep of level 0 of the pool, so that taking a block and giving it back costs no atomic exchange.
//
// A thread takes one of the slots with its first call and is the only one that uses it until the thread ends; a later
// thread goes on with what stands there. In its slot it keeps free blocks, and counts the blocks that it has taken less
// those that it has given back. Sixteen blocks at a time go from one thread to another as a batch, or come from the
// stack of the level. A thread that finds every slot taken uses the stack itself.
//
// A count moves to the pool's totals when it reaches kCountLimit either way, so the totals alone tell the use to within
// kSlack. All slots together keep fewer blocks than are free whenever level 0 is the pool's current one, so that none
// of its callers ever finds nothing.
//
// Take and Give come from any thread; Start, Drop and TakeOut from the thread that starts and stops the pool.
class ThreadCache {
public:
    static constexpr unsigned int kSlots = 64;
    // Free blocks that a slot keeps at most, and how many of them change hands at a time.
    static constexpr unsigned int kSlotBlocks = 32;
    static constexpr unsigned int kBatchBlocks = kSlotBlocks / 2;
    static constexpr int kCountLimit = 32;
    static constexpr int kSlack = kCountLimit * static_cast<int>(kSlots);

    // The totals of the level and of the pool, and the lock under which counts move to them; all outlive the cache.
    ThreadCache(std::atomic<unsigned int>& levelOut, std::atomic<unsigned int>& poolOut, Spinlock& lock);
    ~ThreadCache();
    ThreadCache(const ThreadCache&) = delete;
    ThreadCache& operator=(const ThreadCache&) = delete;

    // Makes the batches for a level of so many blocks. False without memory.
    bool Start(unsigned int levelBlocks);
    // Forgets all free blocks and the batches.
    void Drop();

    // A free block, taken from the level's stack if need be; null when there is none.
    ACE_Message_Block* Take(BlockStack* level) {
        const unsigned int index = ThreadSlot();
        if (index == kNoSlot) {
            return TakeWithoutSlot(level);
        }
        Slot& slot = m_slots[index];
        if (slot.kept == 0 && !Refill(slot, level)) {
            return nullptr;
        }
        ACE_Message_Block* block = slot.free[--slot.kept];
        Count(slot, 1);
        return block;
    }

    // False when the block found no place; it is then not counted.
    bool Give(ACE_Message_Block* block, BlockStack* level) {
        const unsigned int index = ThreadSlot();
        if (index == kNoSlot) {
            return GiveWithoutSlot(block, level);
        }
        Slot& slot = m_slots[index];
        const bool hasRoom = slot.kept < kSlotBlocks || Spill(slot);
        if (hasRoom && m_depot != nullptr) {
            slot.free[slot.kept++] = block;
        } else if (!PushTo(level, block)) {
            return false;
        }
        Count(slot, -1);
        return true;
    }

    // Whether a batch of free blocks waits for a taker.
    bool HasBatches() const;

    // What all slots count. Exact under the lock, which holds back every move to the totals, as long as no block is
    // taken or given meanwhile.
    int Out() const;
    // The same, and puts the counts to 0.
    int TakeOut();

private:
    struct Batch;
    struct Depot;

    // Used by the slot's thread alone, but for out, which others may read.
    struct alignas(64) Slot {
        std::atomic<int> out{0};
        unsigned int kept = 0;  // the last given back behind the others
        std::array<ACE_Message_Block*, kSlotBlocks> free;
    };

    // The answer for a thread that found every slot taken, and in a thread that is ending.
    static constexpr unsigned int kNoSlot = kSlots;
    static constexpr unsigned int kSlotUnknown = kSlots + 1;
    // The calling thread's slot as far as it is known. In the static part of the thread's memory, so that reading it
    // costs one instruction.
    static __thread unsigned int t_slot __attribute__((tls_model("initial-exec")));
    struct SlotHolder;

    static unsigned int ClaimSlot();
    static unsigned int ThreadSlot() { return __builtin_expect(t_slot == kSlotUnknown, 0) ? ClaimSlot() : t_slot; }

    void Count(Slot& slot, int blocks) {
        const int out = slot.out.load(std::memory_order_relaxed) + blocks;
        slot.out.store(out, std::memory_order_release);
        if (out >= kCountLimit || out <= -kCountLimit) {
            MoveToTotals(slot);
        }
    }
    void CountInTotals(int blocks);
    void MoveToTotals(Slot& slot);
    bool Refill(Slot& slot, BlockStack* level);
    bool Spill(Slot& slot);
    ACE_Message_Block* TakeWithoutSlot(BlockStack* level);
    bool GiveWithoutSlot(ACE_Message_Block* block, BlockStack* level);
    static bool PushTo(BlockStack* level, ACE_Message_Block* block);

    std::atomic<unsigned int>& m_levelOut;
    std::atomic<unsigned int>& m_poolOut;
    Spinlock& m_lock;
    std::unique_ptr<Depot> m_depot;  // null until Start
    std::array<Slot, kSlots> m_slots;
};

}  // namespace gvx
