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

int socket(int domain, int type, int protocol) noexcept {
    static const auto real = Real(&socket, "socket");
    return Fails(kSocket, EMFILE) ? -1 : real(domain, type, protocol);
}

int accept(int fd, sockaddr* name, socklen_t* length) {
    static const auto real = Real(&accept, "accept");
    return Fails(kSocket, EMFILE) ? -1 : real(fd, name, length);
}

int accept4(int fd, sockaddr* name, socklen_t* length, int flags) {
    static const auto real = Real(&accept4, "accept4");
    return Fails(kSocket, EMFILE) ? -1 : real(fd, name, length, flags);
}

int socketpair(int domain, int type, int protocol, int* pair) noexcept {
    static const auto real = Real(&socketpair, "socketpair");
    return Fails(kSocket, EMFILE) ? -1 : real(domain, type, protocol, pair);
}

int pipe2(int* pair, int flags) noexcept {
    static const auto real = Real(&pipe2, "pipe2");
    return Fails(kSocket, EMFILE) ? -1 : real(pair, flags);
}

int eventfd(unsigned int count, int flags) noexcept {
    static const auto real = Real(static_cast<int (*)(unsigned int, int)>(&eventfd), "eventfd");
    return Fails(kSocket, EMFILE) ? -1 : real(count, flags);
}

int inotify_init1(int flags) noexcept {
    static const auto real = Real(&inotify_init1, "inotify_init1");
    return Fails(kSocket, EMFILE) ? -1 : real(flags);
}

int epoll_create(int size) noexcept {
    static const auto real = Real(&epoll_create, "epoll_create");
    return Fails(kEpoll, EMFILE) ? -1 : real(size);
}

int epoll_create1(int flags) noexcept {
    static const auto real = Real(&epoll_create1, "epoll_create1");
    return Fails(kEpoll, EMFILE) ? -1 : real(flags);
}

int epoll_ctl(int fd, int operation, int watched, epoll_event* event) noexcept {
    static const auto real = Real(&epoll_ctl, "epoll_ctl");
    return operation == EPOLL_CTL_ADD && Fails(kEpoll, ENOSPC) ? -1 : real(fd, operation, watched, event);
}

int open(const char* path, int flags, ...) {
    static const auto real = reinterpret_cast<int (*)(const char*, int, mode_t)>(dlsym(RTLD_NEXT, "open"));
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return Fails(kOpen, EMFILE) ? -1 : real(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    static const auto real = reinterpret_cast<int (*)(const char*, int, mode_t)>(dlsym(RTLD_NEXT, "open64"));
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return Fails(kOpen, EMFILE) ? -1 : real(path, flags, mode);
}

FILE* fopen(const char* path, const char* mode) {
    static const auto real = Real(&fopen, "fopen");
    return Fails(kOpen, EMFILE) ? nullptr : real(path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
    static const auto real = Real(&fopen64, "fopen64");
    return Fails(kOpen, EMFILE) ? nullptr : real(path, mode);
}

ssize_t write(int fd, const void* data, std::size_t length) {
    static const auto real = Real(&write, "write");
    struct stat status {};
    const bool file = g_mainRuns && fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    return file && Fails(kWrite, ENOSPC) ? -1 : real(fd, data, length);
}

int fsync(int fd) {
    static const auto real = Real(&fsync, "fsync");
    return Fails(kFsync, EIO) ? -1 : real(fd);
}

int fdatasync(int fd) {
    static const auto real = Real(&fdatasync, "fdatasync");
    return Fails(kFsync, EIO) ? -1 : real(fd);
}

int rename(const char* from, const char* to) noexcept {
    static const auto real = Real(&rename, "rename");
    return Fails(kRename, ENOSPC) ? -1 : real(from, to);
}

void* mmap(void* at, std::size_t length, int protection, int flags, int fd, off_t offset) noexcept {
    static const auto real = Real(&mmap, "mmap");
    return Fails(kMmap, ENOMEM) ? MAP_FAILED : real(at, length, protection, flags, fd, offset);
}

}  // extern "C"
