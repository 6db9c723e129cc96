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

// The free blocks of one level. Grows beyond its first nodes only for blocks that the pool does not know.
struct MediaMemPool::Stack {
    explicit Stack(std::size_t nodes) : blocks(nodes) {}
    boost::lockfree::stack<ACE_Message_Block*> blocks;
};
