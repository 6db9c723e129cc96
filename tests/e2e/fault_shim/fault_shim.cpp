// Preloaded into a program whose calls are to fail as they do on a system that has run out of something.
//   FAULT_SHIM=<kind>:<first>:<count>   fails that many calls of the kind, from the first-th on; count 0: all of them
//   FAULT_SHIM_COUNTS=<file>            of 8 bytes for each kind, in their order: how many calls there were
// Calls count from the begin of the program's main to its end. The kinds: memory thread socket epoll open write fsync
// rename mmap. "write" is one to a regular file; "socket" is any call that makes a descriptor of another kind than a
// file.

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

enum Kind { kMemory, kThread, kSocket, kEpoll, kOpen, kWrite, kFsync, kRename, kMmap, kKinds };
constexpr const char* kNames[kKinds] = {"memory", "thread", "socket", "epoll", "open",
                                        "write",  "fsync",  "rename", "mmap"};

using Counts = std::atomic<std::uint64_t>[kKinds];

std::atomic<bool> g_mainRuns{false};
Counts g_ownCounts;
Counts* g_counts = &g_ownCounts;
int g_kind = kKinds;
std::uint64_t g_first = 0;
std::uint64_t g_last = UINT64_MAX;

template <typename Function>
Function* Real(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Whether this call is to fail, with errno set then.
bool Fails(Kind kind, int error) {
    if (!g_mainRuns.load(std::memory_order_relaxed)) {
        return false;
    }
    const std::uint64_t number = (*g_counts)[kind].fetch_add(1, std::memory_order_relaxed) + 1;
    if (kind != g_kind || number < g_first || number > g_last) {
        return false;
    }
    errno = error;
    return true;
}

void ReadOrders() {
    const char* const order = std::getenv("FAULT_SHIM");
    char name[16] = {0};
    unsigned long long first = 0;
    unsigned long long count = 0;
    if (order != nullptr && std::sscanf(order, "%15[a-z]:%llu:%llu", name, &first, &count) == 3) {
        for (int kind = 0; kind < kKinds; ++kind) {
            g_kind = std::strcmp(name, kNames[kind]) == 0 ? kind : g_kind;
        }
        g_first = first;
        g_last = count == 0 ? UINT64_MAX : first + count - 1;
    }
    const char* const file = std::getenv("FAULT_SHIM_COUNTS");
    const int fd = file == nullptr ? -1 : open(file, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd >= 0 && ftruncate(fd, sizeof(Counts)) == 0) {
        void* const shared = mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        g_counts = shared == MAP_FAILED ? g_counts : static_cast<Counts*>(shared);
    }
    if (fd >= 0) {
        close(fd);
    }
}

int (*g_main)(int, char**, char**) = nullptr;

int MainBetweenMarks(int argc, char** argv, char** environment) {
    ReadOrders();
    unsetenv("LD_PRELOAD");  // programs that this one runs are left alone
    g_mainRuns = true;
    const int code = g_main(argc, argv, environment);
    g_mainRuns = false;
    return code;
}

}  // namespace

extern "C" {

int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*loaderFini)(), void* stackEnd) {
    g_main = main;
    const auto real = reinterpret_cast<decltype(&__libc_start_main)>(dlsym(RTLD_NEXT, "__libc_start_main"));
    return real(&MainBetweenMarks, argc, argv, init, fini, loaderFini, stackEnd);
}

void* malloc(std::size_t size) noexcept {
    return Fails(kMemory, ENOMEM) ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    return Fails(kMemory, ENOMEM) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) noexcept {
    return Fails(kMemory, ENOMEM) ? nullptr : __libc_realloc(block, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return Fails(kMemory, ENOMEM) ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
    void* const made = Fails(kMemory, ENOMEM) ? nullptr : __libc_memalign(alignment, size);
    *block = made != nullptr ? made : *block;
    return made != nullptr ? 0 : ENOMEM;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) noexcept {
    static const auto real = Real(&pthread_create, "pthread_create");
    return Fails(kThread, EAGAIN) ? EAGAIN : real(thread, attributes, body, argument);
}

int epoll_ctl(int fd, int operation, int watched, epoll_event* event) noexcept {
    static const auto real = Real(&epoll_ctl, "epoll_ctl");
    return operation == EPOLL_CTL_ADD && Fails(kEpoll, ENOSPC) ? -1 : real(fd, operation, watched, event);
}

ssize_t write(int fd, const void* data, std::size_t length) {
    static const auto real = Real(&write, "write");
    struct stat status {};
    const bool file = g_mainRuns && fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    return file && Fails(kWrite, ENOSPC) ? -1 : real(fd, data, length);
}

// A call that fails with an errno, and without a look at its arguments.
#define CALL_THAT_FAILS(result, name, parameters, specifier, arguments, kind, error, failure) \
    result name parameters specifier {                                                        \
        static const auto real = Real(static_cast<result(*) parameters>(&name), #name);       \
        return Fails(kind, error) ? failure : real arguments;                                 \
    }

CALL_THAT_FAILS(int, socket, (int domain, int type, int protocol), noexcept, (domain, type, protocol), kSocket, EMFILE,
                -1)
CALL_THAT_FAILS(int, accept, (int fd, sockaddr* name, socklen_t* length), , (fd, name, length), kSocket, EMFILE, -1)
CALL_THAT_FAILS(int, accept4, (int fd, sockaddr* name, socklen_t* length, int flags), , (fd, name, length, flags),
                kSocket, EMFILE, -1)
CALL_THAT_FAILS(int, socketpair, (int domain, int type, int protocol, int* pair), noexcept,
                (domain, type, protocol, pair), kSocket, EMFILE, -1)
CALL_THAT_FAILS(int, pipe2, (int* pair, int flags), noexcept, (pair, flags), kSocket, EMFILE, -1)
CALL_THAT_FAILS(int, eventfd, (unsigned int count, int flags), noexcept, (count, flags), kSocket, EMFILE, -1)
CALL_THAT_FAILS(int, inotify_init1, (int flags), noexcept, (flags), kSocket, EMFILE, -1)
CALL_THAT_FAILS(int, epoll_create, (int size), noexcept, (size), kEpoll, EMFILE, -1)
CALL_THAT_FAILS(int, epoll_create1, (int flags), noexcept, (flags), kEpoll, EMFILE, -1)
CALL_THAT_FAILS(FILE*, fopen, (const char* path, const char* mode), , (path, mode), kOpen, EMFILE, nullptr)
CALL_THAT_FAILS(FILE*, fopen64, (const char* path, const char* mode), , (path, mode), kOpen, EMFILE, nullptr)
CALL_THAT_FAILS(int, fsync, (int fd), , (fd), kFsync, EIO, -1)
CALL_THAT_FAILS(int, fdatasync, (int fd), , (fd), kFsync, EIO, -1)
CALL_THAT_FAILS(int, rename, (const char* from, const char* to), noexcept, (from, to), kRename, ENOSPC, -1)
CALL_THAT_FAILS(void*, mmap, (void* at, std::size_t length, int protection, int flags, int fd, off_t offset), noexcept,
                (at, length, protection, flags, fd, offset), kMmap, ENOMEM, MAP_FAILED)

// open and open64 take a mode where they make a file.
#define OPEN_THAT_FAILS(name)                                                                                  \
    int name(const char* path, int flags, ...) {                                                               \
        static const auto real = reinterpret_cast<int (*)(const char*, int, mode_t)>(dlsym(RTLD_NEXT, #name)); \
        va_list arguments;                                                                                     \
        va_start(arguments, flags);                                                                            \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;              \
        va_end(arguments);                                                                                     \
        return Fails(kOpen, EMFILE) ? -1 : real(path, flags, mode);                                            \
    }
OPEN_THAT_FAILS(open)
OPEN_THAT_FAILS(open64)

}  // extern "C"
