#pragma once

// Threads that count their blocks, and keep some free ones, for themselves. A thread that has taken a slot is the only
// one that uses it, until the thread ends; a later thread goes on with what stands there.
namespace gvx {

constexpr unsigned int kThreadSlots = 64;
// Free blocks that a slot keeps at most, and how many of them change hands at a time.
constexpr unsigned int kSlotBlocks = 32;
constexpr unsigned int kBatchBlocks = kSlotBlocks / 2;
// The answer for a thread that found every slot taken, and in a thread that is ending.
constexpr unsigned int kNoThreadSlot = kThreadSlots;
constexpr unsigned int kThreadSlotUnknown = kThreadSlots + 1;

// The calling thread's slot as far as it is known. In the static part of the thread's memory, so that reading it costs
// one instruction.
extern __thread unsigned int t_threadSlot __attribute__((tls_model("initial-exec")));

// Takes a slot for the calling thread.
unsigned int ClaimThreadSlot();

inline unsigned int ThreadSlot() {
    return __builtin_expect(t_threadSlot == kThreadSlotUnknown, 0) ? ClaimThreadSlot() : t_threadSlot;
}

}  // namespace gvx
