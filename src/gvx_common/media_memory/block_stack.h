#pragma once

#include <boost/lockfree/stack.hpp>

#include <cstddef>
#include <exception>

class ACE_Message_Block;

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

namespace gvx {

// A lock-free stack of pointers. Any thread.
template <typename T>
class PointerStack {
public:
    // Makes the nodes at once, and throws when there is no memory for one.
    explicit PointerStack(std::size_t nodes) : m_items(nodes) {}

    // False when no node is left and there is no memory for one.
    bool Push(T* item) {
        const SpeculativeReads scope;
        try {
            return m_items.push(item);
        } catch (const std::exception&) {
            return false;
        }
    }
    // Null when it is empty.
    T* Pop() {
        const SpeculativeReads scope;
        T* item = nullptr;
        return m_items.pop(item) ? item : nullptr;
    }
    bool IsEmpty() const { return m_items.empty(); }

private:
    boost::lockfree::stack<T*> m_items;
};

// The free blocks of one level of the pool, but for those that threads keep. Grows beyond its first nodes only for
// blocks that the pool does not know.
class BlockStack : public PointerStack<ACE_Message_Block> {
public:
    using PointerStack::PointerStack;
};

}  // namespace gvx
