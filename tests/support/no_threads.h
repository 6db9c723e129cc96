#pragma once

#include <cstddef>

#include <pthread.h>

// For a scope, no thread is to be had that does not name the size of its stack: the usual one fits no address space.
class ScopedNoThreads {
public:
    ScopedNoThreads() {
        constexpr std::size_t kTooMuch = std::size_t{1} << 47U;
        pthread_getattr_default_np(&m_former);
        pthread_attr_t none = m_former;
        pthread_attr_setstacksize(&none, kTooMuch);
        pthread_setattr_default_np(&none);
    }
    ~ScopedNoThreads() { pthread_setattr_default_np(&m_former); }
    ScopedNoThreads(const ScopedNoThreads&) = delete;
    ScopedNoThreads& operator=(const ScopedNoThreads&) = delete;

private:
    pthread_attr_t m_former{};
};
