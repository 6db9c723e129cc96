#include "gvxctl/terminal.h"

#include "base/clock.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

namespace gvxctl {
namespace {

std::atomic<bool> g_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set in a signal handler");

void OnSignal(int) {
    g_interrupted = true;
}

}  // namespace

std::atomic<bool>& Interrupted() {
    return g_interrupted;
}

void CatchInterrupts() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &action, nullptr);
}

bool SleepUnlessInterrupted(int milliseconds) {
    const std::int64_t end = gvx::MonotonicMilliseconds() + milliseconds;
    while (!g_interrupted && gvx::MonotonicMilliseconds() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return !g_interrupted;
}

void Print(const std::string& text) {
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

int Fail(int code, const std::string& error) {
    std::fprintf(stderr, "gvxctl: %s\n", error.c_str());
    return code;
}

}  // namespace gvxctl
