// Preloaded into a process: notes which locks a thread holds while it takes another one, or while it waits. At the end
// each pair is appended to the file of GVX_LOCK_RECORD, as places of the code; lock_order.py turns them into names.
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>
#include <execinfo.h>
#include <pthread.h>

namespace {

constexpr std::size_t kFrames = 14;
constexpr std::size_t kHeld = 16;
constexpr std::size_t kPlaces = 4096;
constexpr std::size_t kPairs = 8192;

// Return addresses on the way to a lock, innermost first.
struct Place {
    std::atomic<std::uint64_t> hash{0};  // 0: free
    std::array<void*, kFrames> frames{};
    int depth = 0;
};

struct Held {
    const void* lock;
    std::uint32_t place;
    unsigned count;
};

Place g_places[kPlaces];
std::atomic<std::uint64_t> g_pairs[kPairs];  // outer place, inner place, both plus one
std::atomic<bool> g_on{false};

thread_local Held t_held[kHeld];
thread_local std::size_t t_heldCount = 0;
thread_local bool t_inside = false;

template <typename Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

std::uint32_t PlaceOfCaller() {
    std::array<void*, kFrames + 2> all{};
    const int depth = backtrace(all.data(), static_cast<int>(all.size()));
    std::uint64_t hash = 1469598103934665603u;
    for (int i = 2; i < depth; ++i) {
        hash = (hash ^ reinterpret_cast<std::uintptr_t>(all[static_cast<std::size_t>(i)])) * 1099511628211u;
    }
    hash |= 1;
    for (std::size_t at = hash % kPlaces, tries = 0; tries < kPlaces; at = (at + 1) % kPlaces, ++tries) {
        std::uint64_t seen = g_places[at].hash.load();
        if (seen == 0 && g_places[at].hash.compare_exchange_strong(seen, hash)) {
            std::copy(all.begin() + 2, all.end(), g_places[at].frames.begin());
            g_places[at].depth = depth - 2;
            return static_cast<std::uint32_t>(at);
        }
        if (seen == hash) {
            return static_cast<std::uint32_t>(at);
        }
    }
    return kPlaces - 1;
}

void NotePair(std::uint32_t outer, std::uint32_t inner) {
    const std::uint64_t pair = (static_cast<std::uint64_t>(outer + 1) << 32) | (inner + 1);
    for (std::size_t at = (pair * 11400714819323198485u) % kPairs, tries = 0; tries < kPairs;
         at = (at + 1) % kPairs, ++tries) {
        std::uint64_t seen = g_pairs[at].load();
        if (seen == 0 && g_pairs[at].compare_exchange_strong(seen, pair)) {
            return;
        }
        if (seen == pair) {
            return;
        }
    }
}

void Taken(const void* lock) {
    if (t_inside || !g_on) {
        return;
    }
    t_inside = true;
    for (std::size_t i = 0; i < t_heldCount; ++i) {
        if (t_held[i].lock == lock) {
            ++t_held[i].count;  // a recursive lock, taken again
            t_inside = false;
            return;
        }
    }
    const std::uint32_t place = PlaceOfCaller();
    for (std::size_t i = 0; i < t_heldCount; ++i) {
        NotePair(t_held[i].place, place);
    }
    if (t_heldCount < kHeld) {
        t_held[t_heldCount++] = {lock, place, 1};
    }
    t_inside = false;
}

void Released(const void* lock) {
    for (std::size_t i = t_heldCount; i-- > 0;) {
        if (t_held[i].lock == lock) {
            if (--t_held[i].count == 0) {
                std::copy(t_held + i + 1, t_held + t_heldCount, t_held + i);
                --t_heldCount;
            }
            return;
        }
    }
}

void WritePlace(std::FILE* out, std::uint32_t index) {
    const Place& place = g_places[index];
    for (int i = 0; i < place.depth; ++i) {
        Dl_info info{};
        void* const frame = place.frames[static_cast<std::size_t>(i)];
        if (dladdr(frame, &info) != 0 && info.dli_fname != nullptr) {
            std::fprintf(out, " %s+%zx", info.dli_fname,
                         static_cast<std::size_t>(static_cast<char*>(frame) - static_cast<char*>(info.dli_fbase)));
        }
    }
}

struct Recorder {
    Recorder() {
        void* warm[2];
        backtrace(warm, 2);  // loads the unwinder ahead of the first lock
        g_on = std::getenv("GVX_LOCK_RECORD") != nullptr;
    }
    ~Recorder() {
        const char* const path = std::getenv("GVX_LOCK_RECORD");
        g_on = false;
        std::FILE* const out = path == nullptr ? nullptr : std::fopen(path, "ae");
        if (out == nullptr) {
            return;
        }
        for (const std::atomic<std::uint64_t>& entry : g_pairs) {
            if (const std::uint64_t pair = entry.load(); pair != 0) {
                WritePlace(out, static_cast<std::uint32_t>(pair >> 32) - 1);
                std::fputs(" |", out);
                WritePlace(out, static_cast<std::uint32_t>(pair) - 1);
                std::fputc('\n', out);
            }
        }
        std::fclose(out);
    }
} g_recorder;

}  // namespace

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) {
    static const auto real = Real<int (*)(pthread_mutex_t*)>("pthread_mutex_lock");
    const int result = real(mutex);
    if (result == 0) {
        Taken(mutex);
    }
    return result;
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) {
    static const auto real = Real<int (*)(pthread_mutex_t*)>("pthread_mutex_trylock");
    const int result = real(mutex);
    if (result == 0) {
        Taken(mutex);
    }
    return result;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) {
    static const auto real = Real<int (*)(pthread_mutex_t*)>("pthread_mutex_unlock");
    Released(mutex);
    return real(mutex);
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock) {
    static const auto real = Real<int (*)(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
    const int result = real(lock);
    if (result == 0) {
        Taken(lock);
    }
    return result;
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock) {
    static const auto real = Real<int (*)(pthread_rwlock_t*)>("pthread_rwlock_wrlock");
    const int result = real(lock);
    if (result == 0) {
        Taken(lock);
    }
    return result;
}

int pthread_rwlock_unlock(pthread_rwlock_t* lock) {
    static const auto real = Real<int (*)(pthread_rwlock_t*)>("pthread_rwlock_unlock");
    Released(lock);
    return real(lock);
}

}  // extern "C"
