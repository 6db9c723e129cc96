#include "gateway/process/stop_signal.h"

#include "base/log.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

namespace gvx {

namespace {

constexpr int kStopSignals[] = {SIGTERM, SIGINT};

// Written by the handler, which may run on any thread: lock-free atomics and write() alone.
std::atomic<int> g_firstSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "a handler must not wait for a lock");
int g_wakeFd = -1;

extern "C" void OnStopSignal(int signal) {
    int none = 0;
    if (!g_firstSignal.compare_exchange_strong(none, signal)) {
        _exit(128 + signal);
    }
    const int savedErrno = errno;
    const std::uint64_t one = 1;
    const ssize_t written = write(g_wakeFd, &one, sizeof(one));
    static_cast<void>(written);  // a full counter means that the waiter is woken already
    errno = savedErrno;
}

bool Install(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    return sigaction(signal, &action, nullptr) == 0;
}

}  // namespace

StopSignal::StopSignal() {
    g_firstSignal = 0;
    g_wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_ok = g_wakeFd >= 0 && Install(SIGPIPE, SIG_IGN);
    for (const int signal : kStopSignals) {
        m_ok = m_ok && Install(signal, &OnStopSignal);
    }
}

StopSignal::~StopSignal() {
    for (const int signal : kStopSignals) {
        Install(signal, SIG_DFL);
    }
    if (g_wakeFd >= 0) {
        close(g_wakeFd);
        g_wakeFd = -1;
    }
}

int StopSignal::First() const {
    return g_firstSignal;
}

int StopSignal::Wait() {
    while (g_firstSignal == 0) {
        pollfd wake{g_wakeFd, POLLIN, 0};
        poll(&wake, 1, -1);
    }
    return g_firstSignal;
}

void RaiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        GVX_LOG_WARN("Descriptor limit", "cannot be read, errno[%d].", errno);
        return;
    }
    const rlim_t before = limit.rlim_cur;
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        GVX_LOG_WARN("Descriptor limit", "stays at %llu, errno[%d].", static_cast<unsigned long long>(before), errno);
        return;
    }
    GVX_LOG_INFO("Descriptor limit", "%llu descriptors, raised from %llu.",
                 static_cast<unsigned long long>(limit.rlim_cur), static_cast<unsigned long long>(before));
}

}  // namespace gvx
