#pragma once

#include "base/log.h"

#include <memory>
#include <new>
#include <utility>

// Owners of objects that live long: each object is counted in g_bp_memstat from its making to its deletion. Any thread.
namespace gvx {

struct CountedDelete {
    template <typename T>
    void operator()(T* object) const {
        delete object;
        --g_bp_memstat;
    }
};

template <typename T>
using CountedPtr = std::unique_ptr<T, CountedDelete>;

// Null when there is no memory.
template <typename T, typename... Args>
CountedPtr<T> MakeCounted(Args&&... args) {
    T* object = new (std::nothrow) T(std::forward<Args>(args)...);
    if (object != nullptr) {
        ++g_bp_memstat;
    }
    return CountedPtr<T>(object);
}

}  // namespace gvx
