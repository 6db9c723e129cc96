#pragma once

#include <ace/Malloc_Allocator.h>

#include <atomic>
#include <cstddef>

// For a scope, message blocks of that size and more get no memory for their data.
class ScopedFailingAllocator {
public:
    explicit ScopedFailingAllocator(std::size_t leastRefused) {
        Shared().leastRefused = leastRefused;
        ACE_Allocator::instance();  // makes the default, so that there is one to come back to
        m_former = ACE_Allocator::instance(&Shared());
    }
    ~ScopedFailingAllocator() { ACE_Allocator::instance(m_former); }
    ScopedFailingAllocator(const ScopedFailingAllocator&) = delete;
    ScopedFailingAllocator& operator=(const ScopedFailingAllocator&) = delete;

private:
    struct Allocator : ACE_New_Allocator {
        void* malloc(std::size_t size) override {
            return size >= leastRefused ? nullptr : ACE_New_Allocator::malloc(size);
        }
        std::atomic<std::size_t> leastRefused{0};
    };
    // Never destroyed: a block remembers the allocator that it came from.
    static Allocator& Shared() {
        static auto* const allocator = new Allocator;
        return *allocator;
    }

    ACE_Allocator* m_former;
};
