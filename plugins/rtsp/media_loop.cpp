#include "rtsp/media_loop.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/shortage.h"
#include "base/zvs_error.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <memory>
#include <system_error>
#include <utility>

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace gvxrtsp {
namespace {

constexpr const char* kTitle = "rtsp plug-in";
constexpr std::int64_t kLongestWaitUs = 1000000;

std::int64_t NowUs() {
    return gvx::CurrentClock().MonotonicMicroseconds();
}

// A descriptor's number is used again as soon as it is closed: what was reported for the former one is told apart.
std::uint64_t KeyOf(int fd, std::uint64_t number) {
    return number << 32 | static_cast<std::uint32_t>(fd);
}

}  // namespace

bool MediaLoop::Start(std::string& error) {
    m_epoll.Reset(epoll_create1(EPOLL_CLOEXEC));
    m_wake.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    epoll_event event{};
    event.events = EPOLLIN;
    if (!m_epoll.Valid() || !m_wake.Valid() || epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, m_wake.Get(), &event) != 0) {
        gvx::NoteShortage(errno == ENOSPC ? ENOMEM : errno);
        error = std::string("The loop of the cameras has no descriptors: ") + std::strerror(errno) + ".";
        return false;
    }
    try {
        m_thread = std::thread(&MediaLoop::Run, this);
    } catch (const std::system_error& fault) {
        gvx::NoteShortage(fault);
        error = std::string("A thread for the cameras cannot be started: ") + fault.what() + ".";
        return false;
    }
    pthread_setname_np(m_thread.native_handle(), "GvxRtspLoop");
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_running = true;
    return true;
}

void MediaLoop::Stop() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_running = false;
    }
    m_stop = true;
    if (m_thread.joinable()) {
        Wake();
        m_thread.join();
    }
    DoWork();
}

void MediaLoop::Post(std::function<void()> work) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_work.push_back(std::move(work));
    }
    Wake();
}

void MediaLoop::Call(const std::function<void()>& work) {
    struct Signal {
        std::mutex mutex;
        std::condition_variable done;
        bool isDone = false;
        std::exception_ptr fault;
    };
    if (std::this_thread::get_id() == m_thread.get_id()) {
        work();
        return;
    }
    const auto signal = std::make_shared<Signal>();
    bool isQueued = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_running) {
            isQueued = true;
            m_work.push_back([&work, signal] {
                std::exception_ptr fault;
                try {
                    work();
                } catch (...) {
                    fault = std::current_exception();
                }
                const std::lock_guard<std::mutex> done(signal->mutex);
                signal->isDone = true;
                signal->fault = fault;
                signal->done.notify_all();
            });
        }
    }
    if (!isQueued) {
        work();
        return;
    }
    Wake();
    std::unique_lock<std::mutex> lock(signal->mutex);
    signal->done.wait(lock, [&] { return signal->isDone; });
    if (signal->fault != nullptr) {
        std::rethrow_exception(signal->fault);
    }
}

void MediaLoop::Wake() {
    const std::uint64_t one = 1;
    if (m_wake.Valid() && write(m_wake.Get(), &one, sizeof(one)) < 0 && errno != EAGAIN) {
        GVX_LOG_ERR(kTitle, "The loop of the cameras cannot be woken: %s", std::strerror(errno));
    }
}

bool MediaLoop::Watch(int fd, std::uint32_t events, ILoopWatcher* watcher) {
    const auto found = m_entries.find(fd);
    const bool known = found != m_entries.end();
    const std::uint64_t number = known ? found->second.number : m_nextNumber++ & 0xFFFFFFFF;
    epoll_event event{};
    event.events = events;
    event.data.u64 = KeyOf(fd, number);
    if (epoll_ctl(m_epoll.Get(), known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd, &event) != 0) {
        GVX_LOG_ERR(kTitle, "A descriptor cannot be watched: %s", std::strerror(errno));
        return false;
    }
    m_entries[fd] = {watcher, number};
    return true;
}

void MediaLoop::Unwatch(int fd) {
    if (m_entries.erase(fd) != 0) {
        epoll_ctl(m_epoll.Get(), EPOLL_CTL_DEL, fd, nullptr);
    }
}

void MediaLoop::RemoveTimer(ILoopTimer* timer) {
    // The place stays while the timers are walked; RunTimers closes the gaps.
    std::replace(m_timers.begin(), m_timers.end(), timer, static_cast<ILoopTimer*>(nullptr));
}

void MediaLoop::Run() {
    while (!m_stop) {
        try {
            Turn();
        } catch (const std::exception& fault) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_FAIL, "The loop of the cameras goes on behind a fault: %s.", fault.what());
        }
    }
}

void MediaLoop::Turn() {
    const std::int64_t restUs = m_lastReadUs + kRestUs - NowUs();
    if (m_hasRead && restUs > 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(restUs));
    }
    DoWork();
    const std::int64_t dueUs = RunTimers();
    const std::int64_t waitUs = std::clamp<std::int64_t>(dueUs - NowUs(), 0, kLongestWaitUs);
    std::array<epoll_event, 128> events;
    const int count = epoll_wait(m_epoll.Get(), events.data(), static_cast<int>(events.size()),
                                 static_cast<int>((waitUs + 999) / 1000));
    for (int i = 0; i < count; ++i) {
        const std::uint64_t key = events[static_cast<std::size_t>(i)].data.u64;
        if (key == 0) {
            std::uint64_t times = 0;
            [[maybe_unused]] const ssize_t got = read(m_wake.Get(), &times, sizeof(times));
            continue;
        }
        const int fd = static_cast<int>(key & 0xFFFFFFFF);
        const auto entry = m_entries.find(fd);
        if (entry != m_entries.end() && KeyOf(fd, entry->second.number) == key) {
            entry->second.watcher->OnReady(fd, events[static_cast<std::size_t>(i)].events);
        }
    }
    m_hasRead = count > 0;
    m_lastReadUs = NowUs();
}

void MediaLoop::DoWork() {
    std::vector<std::function<void()>> work;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        work.swap(m_work);
    }
    for (const std::function<void()>& one : work) {
        try {
            one();
        } catch (const std::exception& fault) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_FAIL, "Work of the cameras ended by a fault: %s.", fault.what());
        }
    }
}

std::int64_t MediaLoop::RunTimers() {
    const std::int64_t nowUs = NowUs();
    std::int64_t nextUs = ILoopTimer::kNever;
    std::size_t first = 0;
    Refusal worst = Refusal::None;
    // By number: a timer may add others, which may move the list.
    for (std::size_t i = 0; i < m_timers.size(); ++i) {
        if (m_timers[i] != nullptr && m_timers[i]->DueUs() <= nowUs) {
            m_refusal = Refusal::None;
            m_timers[i]->OnTimer(nowUs);
            if (m_refusal > worst) {
                worst = m_refusal;
                first = i;
            }
        }
        if (m_timers[i] != nullptr) {
            nextUs = std::min(nextUs, m_timers[i]->DueUs());
        }
    }
    // Whoever found no room for a connection comes first in the next walk, so that nobody is passed over for ever.
    std::rotate(m_timers.begin(), m_timers.begin() + static_cast<std::ptrdiff_t>(first), m_timers.end());
    m_timers.erase(std::remove(m_timers.begin(), m_timers.end(), nullptr), m_timers.end());
    return nextUs == ILoopTimer::kNever ? nowUs + kLongestWaitUs : nextUs;
}

}  // namespace gvxrtsp
