#include "gvx_common/media_memory/thread_cache.h"

#include "base/log.h"
#include "base/thread_own.h"
#include "gvx_common/media_memory/block_stack.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <new>

namespace gvx {

namespace {

static_assert(ThreadCache::kSlots == 64, "one bit for each slot");
std::atomic<std::uint64_t> g_takenSlots{0};

}  // namespace

__thread unsigned int ThreadCache::t_slot __attribute__((tls_model("initial-exec"))) = ThreadCache::kSlotUnknown;

// Gives the slot back when its thread ends.
struct ThreadCache::SlotHolder {
    unsigned int slot = kNoSlot;
    ~SlotHolder() {
        t_slot = kNoSlot;
        if (slot != kNoSlot) {
            g_takenSlots.fetch_and(~(std::uint64_t{1} << slot), std::memory_order_release);
        }
    }
};

unsigned int ThreadCache::ClaimSlot() {
    static ThreadOwn<SlotHolder> holders;
    SlotHolder* const holder = holders.Get();
    if (holder == nullptr) {
        return kNoSlot;
    }
    std::uint64_t taken = g_takenSlots.load();
    unsigned int slot = kNoSlot;
    while (~taken != 0) {
        slot = static_cast<unsigned int>(__builtin_ctzll(~taken));
        if (g_takenSlots.compare_exchange_weak(taken, taken | std::uint64_t{1} << slot, std::memory_order_acq_rel)) {
            break;
        }
        slot = kNoSlot;
    }
    holder->slot = slot;
    t_slot = slot;
    return slot;
}

// Free blocks that go from one thread to another at one exchange.
struct ThreadCache::Batch {
    std::array<ACE_Message_Block*, kBatchBlocks> blocks;
};

// The batches that hold blocks, and those that hold none. There are enough for all blocks of the level, and one for
// each slot that is just emptying one; each stack has a node for every one of them.
struct ThreadCache::Depot {
    explicit Depot(std::size_t count) : batches(new Batch[count]), full(count), empty(count) {
        for (std::size_t i = 0; i < count; ++i) {
            empty.Push(&batches[i]);
        }
    }
    std::unique_ptr<Batch[]> batches;
    PointerStack<Batch> full;
    PointerStack<Batch> empty;
};

ThreadCache::ThreadCache(std::atomic<unsigned int>& levelOut, std::atomic<unsigned int>& poolOut, Spinlock& lock)
    : m_levelOut(levelOut), m_poolOut(poolOut), m_lock(lock) {}

ThreadCache::~ThreadCache() = default;

bool ThreadCache::Start(unsigned int levelBlocks) {
    try {
        m_depot.reset(new (std::nothrow) Depot(levelBlocks / kBatchBlocks + kSlots));
    } catch (const std::exception&) {
        return false;
    }
    if (m_depot == nullptr) {
        return false;
    }
    ++g_bp_memstat;
    return true;
}

void ThreadCache::Drop() {
    for (Slot& slot : m_slots) {
        slot.kept = 0;
    }
    if (m_depot != nullptr) {
        m_depot.reset();
        --g_bp_memstat;
    }
}

bool ThreadCache::HasBatches() const {
    return m_depot != nullptr && !m_depot->full.IsEmpty();
}

// Puts blocks into an empty slot: a batch that another thread has given back, else one block of the stack. False when
// there is none.
bool ThreadCache::Refill(Slot& slot, BlockStack* level) {
    if (m_depot == nullptr) {
        return false;
    }
    if (Batch* batch = m_depot->full.Pop()) {
        std::copy(batch->blocks.begin(), batch->blocks.end(), slot.free.begin());
        slot.kept = kBatchBlocks;
        m_depot->empty.Push(batch);
        return true;
    }
    slot.free[0] = level == nullptr ? nullptr : level->Pop();
    slot.kept = slot.free[0] == nullptr ? 0 : 1;
    return slot.kept != 0;
}

// Makes room in a full slot: the blocks that came first go into a batch. False when there is no batch.
bool ThreadCache::Spill(Slot& slot) {
    Batch* batch = m_depot == nullptr ? nullptr : m_depot->empty.Pop();
    if (batch == nullptr) {
        return false;
    }
    const auto rest = slot.free.begin() + kBatchBlocks;
    std::copy(slot.free.begin(), rest, batch->blocks.begin());
    std::copy(rest, slot.free.end(), slot.free.begin());
    slot.kept = kSlotBlocks - kBatchBlocks;
    m_depot->full.Push(batch);
    return true;
}

// By the stack, onto which a batch is put when it is empty.
ACE_Message_Block* ThreadCache::TakeWithoutSlot(BlockStack* level) {
    ACE_Message_Block* block = level == nullptr ? nullptr : level->Pop();
    if (block == nullptr && m_depot != nullptr) {
        if (Batch* batch = m_depot->full.Pop()) {
            block = batch->blocks.front();
            for (auto rest = batch->blocks.begin() + 1; rest != batch->blocks.end(); ++rest) {
                PushTo(level, *rest);
            }
            m_depot->empty.Push(batch);
        }
    }
    if (block != nullptr) {
        CountInTotals(1);
    }
    return block;
}

bool ThreadCache::GiveWithoutSlot(ACE_Message_Block* block, BlockStack* level) {
    if (!PushTo(level, block)) {
        return false;
    }
    CountInTotals(-1);
    return true;
}

bool ThreadCache::PushTo(BlockStack* level, ACE_Message_Block* block) {
    return level != nullptr && level->Push(block);
}

void ThreadCache::CountInTotals(int blocks) {
    m_levelOut.fetch_add(static_cast<unsigned int>(blocks));
    m_poolOut.fetch_add(static_cast<unsigned int>(blocks));
}

void ThreadCache::MoveToTotals(Slot& slot) {
    const SpinlockGuard guard(m_lock);
    CountInTotals(slot.out.load(std::memory_order_relaxed));
    slot.out.store(0, std::memory_order_release);
}

int ThreadCache::Out() const {
    int out = 0;
    for (const Slot& slot : m_slots) {
        out += slot.out.load(std::memory_order_acquire);
    }
    return out;
}

int ThreadCache::TakeOut() {
    const int out = Out();
    for (Slot& slot : m_slots) {
        slot.out = 0;
    }
    return out;
}

}  // namespace gvx
