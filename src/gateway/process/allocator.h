#pragma once

#include <cstdint>

namespace gvx {

// How the allocator of the process deals with the system's memory. Before the first thread is started.
void TuneAllocator();

// Gives the system back what the allocator keeps after a burst: pieces between those that are in use stay in memory
// otherwise. For a thread that has nothing else to do, since it takes milliseconds. One thread.
class SpareMemory {
public:
    // To be called from time to time; looks every few seconds, and gives back once a minute at most, when memory
    // without use has become much more than it was at some time since it last did, and stays as much.
    void Look(std::int64_t nowMs);

private:
    std::int64_t m_nextLookMs = 0;
    std::int64_t m_nextGivingMs = 0;
    std::int64_t m_spare = 0;
    std::int64_t m_leastSpare = INT64_MAX;
};

}  // namespace gvx
