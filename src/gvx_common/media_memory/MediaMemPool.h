#pragma once

#include "gvx_common/media_memory/spinlock.h"
#include "gvx_common/media_memory/thread_cache.h"

#include <array>
#include <atomic>
#include <memory>

class ACE_Message_Block;

// The process-wide pool of 2048-byte media blocks, cut from large arenas, so that the media path never calls the heap.
//
// The pool has five levels of 64 MiB to 1 GiB. Blocks are taken from the current level only. When more than nine tenths
// of that level's count are out, over all levels, the next one is opened; when fewer than three tenths are out while a
// block of a level above 0 comes back, the pool falls back by one. A level that has been left is freed when one of its
// own blocks comes back as the last; one that was left with none out stays, and serves the next rise. Level 0 stays
// until UnInit. So a gateway that was never busy holds level 0 (64 MiB, with heads about 70 MiB) and the nodes of all
// five free lists, and one that was busy may keep more when it is quiet again.
//
// A level whose memory cannot be had stays the current one. The call that found it out answers null; each one behind it
// tries again, and takes a block of the levels below while that fails. One line tells of each such time.
//
// Any thread may allocate and free. Init and UnInit belong to the thread that starts and stops the process.
class MediaMemPool {
public:
    static constexpr unsigned int kBlockSize = 2048;
    static constexpr unsigned int kLevels = 5;
    static constexpr unsigned int kTopLevel = kLevels - 1;

    MediaMemPool();
    ~MediaMemPool();
    MediaMemPool(const MediaMemPool&) = delete;
    MediaMemPool& operator=(const MediaMemPool&) = delete;

    // Builds the free lists of all levels and the arena of the current one. False when memory runs out.
    bool Init();

    // Gives all memory back, that of blocks still out included: nobody may use the pool or its blocks any more. May be
    // called again, and Init may follow.
    void UnInit();

    // A block that is the caller's until Free, not reset: the caller calls reset() on it. Null, without a log line,
    // when the current level is exhausted, or could not be opened and those below it are exhausted. Reaches the heap
    // only when this call opens a level; every other caller that needs that level waits meanwhile. file and line are
    // kept while losses are tracked.
    ACE_Message_Block* Alloc(const char* file, int line);

    // Gives a block back, with all behind it through cont(). 0; 1 for a null block. A block whose flags carry no level
    // of the pool is logged and ends the walk when it is the first; further along, the walk stays at it for ever.
    int Free(ACE_Message_Block* mb, const char* file, int line);

    // Gives back this one block and forgets what is behind it. 0; 1 for a null block.
    int free_1mb(ACE_Message_Block* mb, const char* file, int line);

    // Blocks are not counted: 0, or 1 for a null block.
    int AddRef(ACE_Message_Block* mb);

    // True when the current level has no free block.
    bool Isfull();

    // Blocks of all five levels together, whatever is open.
    unsigned int GetRTPBufferCount();
    // Blocks out, and the level that is open: a moment's figures, read without a lock.
    unsigned int GetUsedCount() const;
    unsigned int GetLevel() const { return m_level.load(std::memory_order_relaxed); }

    // Writes the state of all levels to the log and, while losses are tracked, what has been taken and not returned.
    void ShowDebugInfo();

    void SetTimeToDecLevel(bool timeToDecLevel) { m_timeToDecLevel = timeToDecLevel; }

    // Blocks of a level: 32768 times two to the power of the level.
    static constexpr unsigned int GetPacketSize(unsigned int level) {
        return level == 0 ? 32768u : (2u << (level - 1)) << 15;
    }

private:
    bool CreateMem(unsigned int level);             // m_spinLock is held, or the process is starting
    void DestroyMem(unsigned int level);            // the same
    bool TryIncLevel();                             // m_spinLock is held
    void TryDecLevel();                             // the same
    bool HighWaterLevel(unsigned int level) const;  // the same
    bool LowWaterLevel(unsigned int level) const;   // the same
    bool EmptyWaterLevel(unsigned int level) const;
    bool CertainlyNotAbove(float mark) const;
    bool CertainlyAbove(float mark) const;

    bool MayTakeFromLevelZero() const;
    unsigned int ReserveLevel(bool& justRefused);
    ACE_Message_Block* TakeReserved();
    ACE_Message_Block* TakeWithoutLevel();
    bool Push(unsigned int level, ACE_Message_Block* mb);
    ACE_Message_Block* Pop(unsigned int level);
    bool FillLevel(unsigned int level, unsigned int count);
    void ReleaseMem(unsigned int level);
    void ReleaseStack(unsigned int level);
    void DestroyIfLeft(unsigned int level);  // m_spinLock is held
    void FallBack(unsigned int level);       // behind the return of a block of a level above 0

    // What every call reads, then what is written. The totals are without what stands in the threads' cache.
    alignas(64) std::array<std::unique_ptr<char[]>, kLevels> m_memory;    // arenas. Guarded by m_spinLock.
    std::array<std::unique_ptr<ACE_Message_Block[]>, kLevels> m_mbArray;  // block headers. Guarded by m_spinLock.
    std::array<std::unique_ptr<gvx::BlockStack>, kLevels> m_memoryStack;  // free blocks, from Init to UnInit
    std::array<std::atomic<unsigned int>, kLevels> m_memStackSize;        // blocks out, of each level
    std::atomic<unsigned int> m_usedPacketSize;                           // blocks out, of all levels
    std::atomic<unsigned int> m_level;  // where Alloc takes from. Written under m_spinLock.
    bool m_timeToDecLevel;              // read by nobody
    // Guards m_level, CreateMem and DestroyMem, and the moves from the cache's counts. Innermost: only the log is
    // called under it.
    Spinlock m_spinLock;
    bool m_refused = false;    // the current level has no memory. Guarded by m_spinLock.
    gvx::ThreadCache m_cache;  // of level 0
};

// The pool of the process. Init is called once by whoever loads the library, before any media flows.
extern MediaMemPool g_mediaPool;
