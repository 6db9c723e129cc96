#pragma once

#include <pthread.h>

// A mutex under a fixed name. It must not spin: whole arenas are allocated and initialised under it. A zero-initialised
// one is ready for use without spinlock_init.
struct Spinlock {
    pthread_mutex_t spinlock;
};

// The pthread calls of the same meaning, with their results.
inline int spinlock_init(Spinlock& lock) {
    return pthread_mutex_init(&lock.spinlock, nullptr);
}
inline int spinlock_lock(Spinlock& lock) {
    return pthread_mutex_lock(&lock.spinlock);
}
inline int spinlock_unlock(Spinlock& lock) {
    return pthread_mutex_unlock(&lock.spinlock);
}
inline int spinlock_destroy(Spinlock& lock) {
    return pthread_mutex_destroy(&lock.spinlock);
}

// Holds a Spinlock for a scope.
class SpinlockGuard {
public:
    explicit SpinlockGuard(Spinlock& lock) : m_lock(lock) { spinlock_lock(m_lock); }
    ~SpinlockGuard() { spinlock_unlock(m_lock); }
    SpinlockGuard(const SpinlockGuard&) = delete;
    SpinlockGuard& operator=(const SpinlockGuard&) = delete;

private:
    Spinlock& m_lock;
};
