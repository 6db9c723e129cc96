#include "base/shortage.h"

#include "base/zvs_error.h"

#include <atomic>
#include <cerrno>
#include <cstdint>

#include <sys/mman.h>

namespace gvx {

namespace {

constexpr const char* kWords[] = {"no thread to be had", "no descriptor to be had", "no memory to be had"};
constexpr std::uint64_t kNone = ~std::uint64_t{0};
constexpr int kResourceShift = 32;

// The resource in the upper half, the error in the lower.
std::atomic<std::uint64_t> g_last{kNone};

}  // namespace

void NoteShortage(Resource resource, int error) noexcept {
    g_last = static_cast<std::uint64_t>(resource) << kResourceShift | static_cast<std::uint32_t>(error);
}

void NoteShortage(int error) noexcept {
    if (error == EMFILE || error == ENFILE) {
        NoteShortage(Resource::Descriptor, error);
    } else if (error == ENOMEM || error == ENOBUFS) {
        NoteShortage(Resource::Memory, error);
    }
}

bool FindsMemory(std::size_t bytes) noexcept {
    constexpr std::size_t kBeside = 4 * 1024 * 1024;  // the allocator takes 1 MiB at a time where it cannot grow
    void* const tried =
        mmap(nullptr, bytes + kBeside, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (tried == MAP_FAILED) {
        NoteShortage(Resource::Memory, errno);
        return false;
    }
    munmap(tried, bytes + kBeside);
    return true;
}

void ForgetShortage() noexcept {
    g_last = kNone;
}

std::string LastShortage() {
    const std::uint64_t last = g_last;
    return last == kNone
               ? std::string()
               : ErrnoText(kWords[last >> kResourceShift], static_cast<int>(static_cast<std::uint32_t>(last)));
}

}  // namespace gvx
