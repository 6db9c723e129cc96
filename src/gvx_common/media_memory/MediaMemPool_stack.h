#pragma once

#include "gvx_common/media_memory/MediaMemPool.h"

#include <boost/lockfree/stack.hpp>

#if defined(__SANITIZE_THREAD__)
#define GVX_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define GVX_THREAD_SANITIZER 1
#endif
#endif

#ifdef GVX_THREAD_SANITIZER
extern "C" void AnnotateIgnoreReadsBegin(const char* file, int line);
extern "C" void AnnotateIgnoreReadsEnd(const char* file, int line);
#endif

// The lock-free stack reads the link of a node that another thread may be reusing, and throws the value away when the
// exchange behind it fails. The thread sanitizer cannot know that; for this scope it looks at the exchanges alone.
class SpeculativeReads {
public:
#ifdef GVX_THREAD_SANITIZER
    SpeculativeReads() {
        AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    }
    ~SpeculativeReads() {
        AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
    }
#else
    SpeculativeReads() {}
#endif
    SpeculativeReads(const SpeculativeReads&) = delete;
    SpeculativeReads& operator=(const SpeculativeReads&) = delete;
};

// The free blocks of one level, but for those of level 0 that are kept in slots or batches. Grows beyond its first
// nodes only for blocks that the pool does not know.
struct MediaMemPool::Stack {
    explicit Stack(std::size_t nodes) : blocks(nodes) {}
    boost::lockfree::stack<ACE_Message_Block*> blocks;
};

// Free blocks of level 0 that go from one thread to another at one exchange.
struct MediaMemPool::Batch {
    std::array<ACE_Message_Block*, gvx::kBatchBlocks> blocks;
};

// The batches that hold blocks, and those that hold none. There are enough for all blocks of the level, and each stack
// has a node for every one of them.
struct MediaMemPool::Depot {
    explicit Depot(std::size_t count) : batches(new Batch[count]), full(count), empty(count) {
        for (std::size_t i = 0; i < count; ++i) {
            empty.push(&batches[i]);
        }
    }
    std::unique_ptr<Batch[]> batches;
    boost::lockfree::stack<Batch*> full;
    boost::lockfree::stack<Batch*> empty;
};
