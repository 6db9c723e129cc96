#include "gvxctl/progress.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace gvxctl {
namespace {

constexpr int kSilentSeconds = 2;
std::atomic<bool> g_spoken{false};  // one at a time

void TakeLineAway(bool& shown) {
    if (shown) {
        std::fputs("\r\033[K", stderr);
        shown = false;
    }
}

}  // namespace

Progress::Progress(std::string what, Reached reached) : m_what(std::move(what)), m_reached(std::move(reached)) {
    if (::isatty(STDERR_FILENO) == 0 || g_spoken.exchange(true)) {
        return;
    }
    m_speaks = true;
    try {
        m_thread = std::thread([this] { Run(); });
    } catch (const std::system_error&) {
        m_over = true;  // without a thread the command goes on silently
    }
}

Progress::~Progress() {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_over = true;
        TakeLineAway(m_shown);
    }
    m_wake.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
    if (m_speaks) {
        g_spoken = false;
    }
}

void Progress::Hide() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    TakeLineAway(m_shown);
}

void Progress::Run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (int seconds = 1; !m_wake.wait_for(lock, std::chrono::seconds(1), [this] { return m_over; }); ++seconds) {
        if (seconds < kSilentSeconds) {
            continue;
        }
        lock.unlock();  // what tells how far it is may hold a lock under which Hide is called
        const std::string reached = m_reached ? ": " + m_reached() : std::string();
        lock.lock();
        if (!m_over) {
            std::fprintf(stderr, "\r\033[K%s, %d s%s", m_what.c_str(), seconds, reached.c_str());
            m_shown = true;
        }
    }
}

}  // namespace gvxctl
