#include "rtsp/media_loop.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/shortage.h"
#include "base/zvs_error.h"
#include "gvx_common/media/media_send_stream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace gvxrtsp {
namespace {

constexpr const char* kTitle = "rtsp plug-in";
constexpr std::int64_t kLongestWaitUs = 1000000;
constexpr std::int64_t kUntoldUs = 1000000;
// What is read from so many descriptors leaves together: one waking of the thread that sends, and no long wait.
constexpr int kReadsTogether = 16;

std::int64_t NowUs() {
    return gvx::CurrentClock().MonotonicMicroseconds();
}

// A descriptor's number is used again as soon as it is closed: what was reported for the former one is told apart.
std::uint64_t KeyOf(int fd, std::uint64_t number) {
    return number << 32 | static_cast<std::uint32_t>(fd);
}

}  // namespace

LoopTimer::LoopTimer(MediaLoop& loop)
    : m_loop(loop), m_place(loop.m_timers.insert({kNever, ++loop.m_timerNumber, this}).first) {}

LoopTimer::~LoopTimer() {
    MediaLoop::LeaveQueue(*this);
    m_loop.m_timers.erase(m_place);
}

// Whoever is due again at once comes behind all others that are due.
void LoopTimer::SetDue(std::int64_t dueUs) {
    dueUs = std::max(dueUs, m_loop.m_timersUs);
    if (dueUs != m_place->dueUs) {
        auto node = m_loop.m_timers.extract(m_place);  // its memory stays
        node.value() = {dueUs, ++m_loop.m_timerNumber, this};
        m_place = m_loop.m_timers.insert(std::move(node)).position;
    }
}

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
    const auto place = static_cast<std::size_t>(fd);
    m_entries.resize(std::max(m_entries.size(), place + 1));
    Entry& entry = m_entries[place];
    const bool known = entry.watcher != nullptr;
    const std::uint64_t number = known ? entry.number : m_nextNumber++ & 0xFFFFFFFF;
    epoll_event event{};
    event.events = events;
    event.data.u64 = KeyOf(fd, number);
    if (epoll_ctl(m_epoll.Get(), known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd, &event) != 0) {
        GVX_LOG_ERR(kTitle, "A descriptor cannot be watched: %s", std::strerror(errno));
        return false;
    }
    entry = {watcher, number};
    return true;
}

void MediaLoop::Unwatch(int fd) {
    const auto place = static_cast<std::size_t>(fd);
    if (place < m_entries.size() && m_entries[place].watcher != nullptr) {
        m_entries[place] = Entry();
        epoll_ctl(m_epoll.Get(), EPOLL_CTL_DEL, fd, nullptr);
    }
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
    Rest();
    DoWork();
    const std::int64_t dueUs = RunTimers();
    const std::int64_t waitUs = std::clamp<std::int64_t>(dueUs - NowUs(), 0, kLongestWaitUs);
    std::array<epoll_event, 128> events;
    const int count = epoll_wait(m_epoll.Get(), events.data(), static_cast<int>(events.size()),
                                 static_cast<int>((waitUs + 999) / 1000));
    m_hasRead = false;
    std::optional<CMediaSendStream::SendTurn> together;
    for (int i = 0; i < count; ++i) {
        if (i % kReadsTogether == 0) {
            together.emplace();
        }
        const std::uint64_t key = events[static_cast<std::size_t>(i)].data.u64;
        if (key == 0) {
            std::uint64_t times = 0;
            [[maybe_unused]] const ssize_t got = read(m_wake.Get(), &times, sizeof(times));
            continue;
        }
        const int fd = static_cast<int>(key & 0xFFFFFFFF);
        const Entry entry = m_entries[static_cast<std::size_t>(fd)];
        if (entry.watcher != nullptr && KeyOf(fd, entry.number) == key) {
            m_hasRead = true;
            entry.watcher->OnReady(fd, events[static_cast<std::size_t>(i)].events);
        }
    }
    if (m_hasRead) {
        m_lastReadUs = NowUs();
    }
}

// Ends early when there is work: who calls waits for it.
void MediaLoop::Rest() {
    const std::int64_t restUs = m_hasRead ? m_lastReadUs + kRestUs - NowUs() : 0;
    if (restUs > 0) {
        pollfd wake{m_wake.Get(), POLLIN, 0};
        const timespec rest{0, static_cast<long>(restUs * 1000)};
        ppoll(&wake, 1, &rest, nullptr);
    }
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
    m_timersUs = nowUs;
    m_turn = nullptr;
    // Each once a turn, whatever it does: what is told meanwhile has a later number, and comes behind them.
    const std::uint64_t last = m_timerNumber;
    while (!m_timers.empty() && m_timers.begin()->dueUs <= nowUs && m_timers.begin()->number <= last) {
        CallTimer(*m_timers.begin()->timer, nowUs);
    }
    for (const bool wanted : {true, false}) {
        for (std::size_t left = m_waiting[wanted].size(); left != 0 && !m_waiting[wanted].empty() && HasRoom(wanted);
             --left) {
            LoopTimer& timer = *m_waiting[wanted].front();
            LeaveQueue(timer);
            m_turn = &timer;
            CallTimer(timer, nowUs);
            m_turn = nullptr;
        }
    }
    return m_timers.empty() ? LoopTimer::kNever : m_timers.begin()->dueUs;
}

void MediaLoop::CallTimer(LoopTimer& timer, std::int64_t nowUs) {
    timer.SetDue(nowUs + kUntoldUs);
    timer.OnTimer(nowUs);
}

bool MediaLoop::MayConnect(LoopTimer& timer, bool wanted) {
    const bool first = m_waiting[true].empty() && (wanted || m_waiting[false].empty());
    if (HasRoom(wanted) && (first || m_turn == &timer)) {
        LeaveQueue(timer);
        return true;
    }
    if (timer.m_queue != &m_waiting[wanted]) {
        LeaveQueue(timer);
        timer.m_queuePlace = m_waiting[wanted].insert(m_waiting[wanted].end(), &timer);
        timer.m_queue = &m_waiting[wanted];
    }
    return false;
}

void MediaLoop::LeaveQueue(LoopTimer& timer) {
    if (timer.m_queue != nullptr) {
        timer.m_queue->erase(timer.m_queuePlace);
        timer.m_queue = nullptr;
    }
}

}  // namespace gvxrtsp
