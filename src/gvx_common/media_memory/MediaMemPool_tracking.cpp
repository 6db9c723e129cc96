#include "gvx_common/media_memory/MediaMemPool_tracking.h"

#include "base/bounded_string.h"
#include "base/log.h"

#include <cstdarg>

std::map<unsigned long, std::string> g_lostPacketMap;
Spinlock g_lock;

void PUSH(unsigned long key, const std::string& value) {
    const SpinlockGuard guard(g_lock);
    if (!g_lostPacketMap.emplace(key, value).second) {
        GVX_LOG_INFO("g_lostPacketMap PUSH failed", "key[%lu] value[%s]", key, value.c_str());
    }
}

void POP(unsigned long key) {
    const SpinlockGuard guard(g_lock);
    if (g_lostPacketMap.erase(key) == 0) {
        GVX_LOG_INFO("g_lostPacketMap POP failed", "key[%lu]", key);
    }
}

void PRINT() {
    const SpinlockGuard guard(g_lock);
    GVX_LOG_INFO("g_lostPacketMap", "size[%lu]", static_cast<unsigned long>(g_lostPacketMap.size()));
    for (const auto& [key, value] : g_lostPacketMap) {
        GVX_LOG_INFO("g_lostPacketMap", "key[%lu] value[%s]", key, value.c_str());
    }
}

std::string Format(const char* fmt, ...) {
    constexpr std::size_t kLimit = 2048;
    char text[kLimit + 1];
    va_list args;
    va_start(args, fmt);
    const int length = vsnprintf_s(text, sizeof(text), kLimit, fmt, args);
    va_end(args);
    return length < 0 ? std::string() : std::string(text);
}
