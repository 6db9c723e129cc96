#include "gateway/process/process_signals.h"

#include "base/log.h"
#include "base/shortage.h"
#include "gateway/plugins/plugin_guard.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

namespace gvx {

namespace {

constexpr int kStopSignals[] = {SIGTERM, SIGINT};
constexpr int kOtherSignals[] = {SIGHUP, SIGUSR1};
// SIGXFSZ: a file that may grow no more is a write that fails, as on a full disk.
constexpr int kIgnoredSignals[] = {SIGPIPE, SIGXFSZ, SIGUSR2};

// Written by the handlers, which may run on any thread: lock-free atomics and write() alone.
std::atomic<int> g_firstStop{0};
std::atomic<bool> g_reload{false};
std::atomic<bool> g_status{false};
static_assert(std::atomic<int>::is_always_lock_free, "a handler must not wait for a lock");
int g_wakeFd = -1;

void Wake() {
    const int savedErrno = errno;
    const std::uint64_t one = 1;
    const ssize_t written = write(g_wakeFd, &one, sizeof(one));
    static_cast<void>(written);  // a full counter means that the waiter is woken already
    errno = savedErrno;
}

extern "C" void OnStopSignal(int signal) {
    int none = 0;
    if (!g_firstStop.compare_exchange_strong(none, signal)) {
        _exit(128 + signal);
    }
    Wake();
}

extern "C" void OnOtherSignal(int signal) {
    (signal == SIGHUP ? g_reload : g_status) = true;
    Wake();
}

bool Install(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    return sigaction(signal, &action, nullptr) == 0;
}

// former gets the mask before, and may be null.
bool Mask(int how, sigset_t* former = nullptr) {
    sigset_t ours;
    sigemptyset(&ours);
    for (const int signal : kStopSignals) {
        sigaddset(&ours, signal);
    }
    for (const int signal : kOtherSignals) {
        sigaddset(&ours, signal);
    }
    return pthread_sigmask(how, &ours, former) == 0;
}

}  // namespace

ProcessSignals::ProcessSignals() {
    g_firstStop = 0;
    g_reload = g_status = false;
    g_wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_ok = g_wakeFd >= 0;
    if (!m_ok) {
        NoteShortage(errno);
    }
    for (const int signal : kIgnoredSignals) {
        m_ok = m_ok && Install(signal, SIG_IGN);
    }
    for (const int signal : kStopSignals) {
        m_ok = m_ok && Install(signal, &OnStopSignal);
    }
    for (const int signal : kOtherSignals) {
        m_ok = m_ok && Install(signal, &OnOtherSignal);
    }
    sigset_t former;
    m_ok = m_ok && Mask(SIG_BLOCK, &former);
    if (m_ok) {
        PluginCallScope::SetMask(former);
    }
}

ProcessSignals::~ProcessSignals() {
    for (const int signal : kStopSignals) {
        Install(signal, SIG_DFL);
    }
    for (const int signal : kOtherSignals) {
        Install(signal, SIG_IGN);  // what asks for no end must not end what is left of the process
    }
    Mask(SIG_UNBLOCK);
    if (g_wakeFd >= 0) {
        close(g_wakeFd);
        g_wakeFd = -1;
    }
}

void ProcessSignals::TakeHere() {
    Mask(SIG_UNBLOCK);
}

int ProcessSignals::First() const {
    return g_firstStop;
}

ProcessSignals::Event ProcessSignals::Wait(std::chrono::milliseconds limit) {
    // The system gives a signal to the thread that waits here before all others that do not block it: plug-ins' threads
    // are not disturbed.
    pollfd wake{g_wakeFd, POLLIN, 0};
    const timespec time{limit.count() / 1000, limit.count() % 1000 * 1000000};
    sigset_t none;
    sigemptyset(&none);
    if (g_firstStop == 0 && !g_reload && !g_status && ppoll(&wake, 1, &time, &none) > 0) {
        std::uint64_t count = 0;
        const ssize_t got = read(g_wakeFd, &count, sizeof(count));
        static_cast<void>(got);  // empty already: what is asked for stands in the marks
    }
    if (g_firstStop != 0) {
        return Event::Stop;
    }
    return g_reload.exchange(false) ? Event::Reload : g_status.exchange(false) ? Event::Status : Event::None;
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
    GVX_LOG(before < limit.rlim_cur ? OM_LOG_INFO : OM_LOG_DEBUG, "Descriptor limit",
            "%llu descriptors, raised from %llu.", static_cast<unsigned long long>(limit.rlim_cur),
            static_cast<unsigned long long>(before));
}

}  // namespace gvx
