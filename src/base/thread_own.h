#pragma once

#include <climits>
#include <memory>
#include <new>

#include <pthread.h>

namespace gvx {

// An object of each thread, made when the thread first asks for it and destroyed when the thread ends; main's never is.
// In place of a thread_local with a destructor, for which the C library takes memory and ends the process where it
// finds none. Of static storage; T's default constructor does not throw. Not in a plug-in: a thread may end behind the
// library that destroys its object.
template <typename T>
class ThreadOwn {
public:
    ThreadOwn() noexcept {
        if (pthread_key_create(&m_key, [](void* own) { delete static_cast<T*>(own); }) != 0) {
            m_key = PTHREAD_KEYS_MAX;
        }
    }

    // The calling thread's; null without memory.
    T* Get() noexcept {
        void* const own = pthread_getspecific(m_key);
        return own != nullptr ? static_cast<T*>(own) : Make();
    }

private:
    T* Make() noexcept {
        std::unique_ptr<T> made(new (std::nothrow) T());
        return made != nullptr && pthread_setspecific(m_key, made.get()) == 0 ? made.release() : nullptr;
    }

    pthread_key_t m_key = PTHREAD_KEYS_MAX;
};

}  // namespace gvx
