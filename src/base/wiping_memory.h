#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

// Heap memory that is wiped when it is given back, for parsers whose buffers may hold a password. Any thread.
namespace gvx {

namespace wiping {

constexpr std::size_t kHeadBytes = alignof(std::max_align_t);

inline std::size_t& SizeOf(void* memory) {
    return *reinterpret_cast<std::size_t*>(static_cast<char*>(memory) - kHeadBytes);
}

}  // namespace wiping

// Null when there is no memory.
inline void* WipingAlloc(std::size_t bytes) noexcept {
    if (bytes > static_cast<std::size_t>(-1) - wiping::kHeadBytes) {
        return nullptr;
    }
    auto* const head = static_cast<char*>(std::malloc(wiping::kHeadBytes + bytes));
    if (head == nullptr) {
        return nullptr;
    }
    void* const memory = head + wiping::kHeadBytes;
    wiping::SizeOf(memory) = bytes;
    return memory;
}

// Only for what WipingAlloc or WipingRealloc gave; null is allowed.
inline void WipingFree(void* memory) noexcept {
    if (memory != nullptr) {
        OPENSSL_cleanse(memory, wiping::SizeOf(memory));
        std::free(static_cast<char*>(memory) - wiping::kHeadBytes);
    }
}

// As realloc. On failure the old memory stays.
inline void* WipingRealloc(void* memory, std::size_t bytes) noexcept {
    void* const moved = WipingAlloc(bytes);
    if (moved == nullptr || memory == nullptr) {
        return moved;
    }
    const std::size_t kept = wiping::SizeOf(memory) < bytes ? wiping::SizeOf(memory) : bytes;
    std::memcpy(moved, memory, kept);
    WipingFree(memory);
    return moved;
}

}  // namespace gvx
