#include "gvx_common/media_memory/MediaMemPool_slots.h"

#include <atomic>
#include <cstdint>

namespace gvx {

__thread unsigned int t_threadSlot __attribute__((tls_model("initial-exec"))) = kThreadSlotUnknown;

namespace {

static_assert(kThreadSlots == 64, "one bit for each slot");
std::atomic<std::uint64_t> g_takenSlots{0};

// Gives the slot back when its thread ends.
struct SlotHolder {
    unsigned int slot = kNoThreadSlot;
    ~SlotHolder() {
        t_threadSlot = kNoThreadSlot;
        if (slot != kNoThreadSlot) {
            g_takenSlots.fetch_and(~(std::uint64_t{1} << slot), std::memory_order_release);
        }
    }
};
thread_local SlotHolder t_holder;

}  // namespace

unsigned int ClaimThreadSlot() {
    std::uint64_t taken = g_takenSlots.load();
    unsigned int slot = kNoThreadSlot;
    while (~taken != 0) {
        slot = static_cast<unsigned int>(__builtin_ctzll(~taken));
        if (g_takenSlots.compare_exchange_weak(taken, taken | std::uint64_t{1} << slot, std::memory_order_acq_rel)) {
            break;
        }
        slot = kNoThreadSlot;
    }
    t_holder.slot = slot;
    t_threadSlot = slot;
    return slot;
}

}  // namespace gvx
