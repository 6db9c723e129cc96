#include "base/shortage.h"

#include "base/unique_fd.h"
#include "base/zvs_error.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <new>
#include <system_error>

#include <fcntl.h>
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

bool NoteShortage(int error) noexcept {
    const bool descriptor = error == EMFILE || error == ENFILE;
    const bool memory = error == ENOMEM || error == ENOBUFS;
    if (descriptor || memory) {
        NoteShortage(descriptor ? Resource::Descriptor : Resource::Memory, error);
    }
    return descriptor || memory;
}

void NoteShortage(const std::exception& fault) noexcept {
    if (dynamic_cast<const std::bad_alloc*>(&fault) != nullptr) {
        NoteShortage(Resource::Memory, ENOMEM);
    } else if (const auto* const error = dynamic_cast<const std::system_error*>(&fault)) {
        const int number = error->code().value();
        if (number == EAGAIN) {
            NoteShortage(Resource::Thread, number);
        } else {
            NoteShortage(number);
        }
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

bool FindsDescriptor() noexcept {
    const UniqueFd tried(open("/dev/null", O_RDONLY | O_CLOEXEC));
    return tried.Valid() || !NoteShortage(errno);
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
