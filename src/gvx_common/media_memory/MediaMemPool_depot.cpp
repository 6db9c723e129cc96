#include "gvx_common/media_memory/MediaMemPool.h"

#include "base/log.h"
#include "gvx_common/media_memory/MediaMemPool_inline.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <exception>
#include <new>

// The slots of the threads, and how blocks of level 0 get from one to another.

namespace {

using gvx::kBatchBlocks;
using gvx::kSlotBlocks;
using gvx::kThreadSlots;

// Batches for every block of level 0, and one for each slot that is just emptying one.
constexpr std::size_t kBatches = MediaMemPool::GetPacketSize(0) / kBatchBlocks + kThreadSlots;

// What is free while level 0 is the current one: a tenth of it at least.
static_assert(kThreadSlots * kSlotBlocks < MediaMemPool::GetPacketSize(0) / 10,
              "the slots must not keep all that is free");

template <typename Batches, typename Batch>
bool PopFrom(Batches& batches, Batch*& batch) {
    const SpeculativeReads scope;
    return batches.pop(batch);
}

template <typename Batches, typename Batch>
void PushTo(Batches& batches, Batch* batch) {
    const SpeculativeReads scope;
    batches.push(batch);
}

}  // namespace

bool MediaMemPool::MakeDepot() {
    try {
        m_depot.reset(new (std::nothrow) Depot(kBatches));
    } catch (const std::exception&) {
        return false;
    }
    if (m_depot == nullptr) {
        return false;
    }
    ++g_bp_memstat;
    return true;
}

void MediaMemPool::DropDepot() {
    for (Slot& slot : m_slots) {
        slot.kept = 0;
    }
    if (m_depot != nullptr) {
        m_depot.reset();
        --g_bp_memstat;
    }
}

bool MediaMemPool::HasBatches() const {
    return m_depot != nullptr && !m_depot->full.empty();
}

// Puts blocks into an empty slot: a batch that another thread has given back, else one block of the stack. False when
// there is none.
bool MediaMemPool::Refill(Slot& slot) {
    if (m_depot == nullptr) {
        return false;
    }
    Batch* batch = nullptr;
    if (PopFrom(m_depot->full, batch)) {
        std::copy(batch->blocks.begin(), batch->blocks.end(), slot.free.begin());
        slot.kept = kBatchBlocks;
        PushTo(m_depot->empty, batch);
        return true;
    }
    slot.free[0] = Pop(0);
    slot.kept = slot.free[0] == nullptr ? 0 : 1;
    return slot.kept != 0;
}

// Makes room in a full slot: the blocks that came first go into a batch. False when there is no batch.
bool MediaMemPool::Spill(Slot& slot) {
    Batch* batch = nullptr;
    if (m_depot == nullptr || !PopFrom(m_depot->empty, batch)) {
        return false;
    }
    const auto rest = slot.free.begin() + kBatchBlocks;
    std::copy(slot.free.begin(), rest, batch->blocks.begin());
    std::copy(rest, slot.free.end(), slot.free.begin());
    slot.kept = kSlotBlocks - kBatchBlocks;
    PushTo(m_depot->full, batch);
    return true;
}

// For a thread that found every slot taken: by the stack, onto which a batch is put when it is empty.
ACE_Message_Block* MediaMemPool::TakeWithoutSlot() {
    ACE_Message_Block* block = Pop(0);
    if (block == nullptr && m_depot != nullptr) {
        Batch* batch = nullptr;
        if (PopFrom(m_depot->full, batch)) {
            block = batch->blocks.front();
            for (auto rest = batch->blocks.begin() + 1; rest != batch->blocks.end(); ++rest) {
                Push(0, *rest);
            }
            PushTo(m_depot->empty, batch);
        }
    }
    if (block != nullptr) {
        CountInTotals(1);
    }
    return block;
}

int MediaMemPool::OutInSlots() const {
    int out = 0;
    for (const Slot& slot : m_slots) {
        out += slot.out.load(std::memory_order_acquire);
    }
    return out;
}

void MediaMemPool::MoveToTotals(Slot& slot) {
    const SpinlockGuard guard(m_spinLock);
    const auto out = static_cast<unsigned int>(slot.out.load(std::memory_order_relaxed));
    m_memStackSize[0].fetch_add(out);
    m_usedPacketSize.fetch_add(out);
    slot.out.store(0, std::memory_order_release);
}
