#include "bp/link_engine.h"

#include "base/clock.h"
#include "base/log.h"
#include "bp/errno_text.h"
#include "bp/link_thread.h"
#include "bp/poll_reactor.h"

#include <ace/OS_NS_Thread.h>
#include <ace/Reactor.h>
#include <ace/Time_Value.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

#include <pthread.h>

namespace BP {

namespace {

// The longest sleep: a clock that is set does not end a wait.
constexpr std::int64_t kLongestWaitMs = 500;
// Deadlines are looked at no more often than this, however many links there are.
constexpr std::int64_t kCheckGapMs = 10;
constexpr int kPauseAfterFaultMs = 100;

}  // namespace

LinkEngine::LinkEngine(const LinkOptions& options, LinkEvents events)
    : m_options(options), m_events(std::move(events)) {}

LinkEngine::~LinkEngine() {
    Stop();
}

int LinkEngine::Start() {
    m_reactor = MakePollReactor();
    if (m_reactor == nullptr || !m_wake.Valid() ||
        m_reactor->register_handler(&m_wake, ACE_Event_Handler::READ_MASK) != 0) {
        GVX_LOG_ERR("Link engine", "%s", ErrnoText("the links have no reactor", errno).c_str());
        return ZVS_FAIL;
    }
    try {
        m_thread = std::thread(&LinkEngine::Run, this);
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Link engine", "The link thread could not be started: %s", fault.what());
        return ZVS_FAIL;
    }
    return ZVS_SUCCEED;
}

void LinkEngine::Stop() {
    m_stopping = true;
    if (m_thread.joinable()) {
        m_wake.Ring();
        m_thread.join();
    }
}

void LinkEngine::Post(Work work) {
    std::unique_lock<std::mutex> lock(m_mutexWork);
    m_work.push_back(std::move(work));
    lock.unlock();
    m_wake.Ring();
}

void LinkEngine::Run() {
    const LinkThreadMark mark;
    ::pthread_setname_np(::pthread_self(), "gvx-link");
    m_reactor->owner(ACE_OS::thr_self());
    while (!m_stopping) {
        try {
            Turn();
        } catch (const std::exception& fault) {
            GVX_LOG_ERR("Link engine", "A turn of the link thread ended early: %s", fault.what());
        }
    }
    Shutdown();
}

void LinkEngine::Turn() {
    WaitForEvents();
    RunWork();
    const std::int64_t now = gvx::MonotonicMilliseconds();
    if (now >= m_nextCheckMs) {
        CheckDeadlines(now);
    }
    Bury();
}

void LinkEngine::WaitForEvents() {
    const std::int64_t untilCheck = m_nextCheckMs - gvx::MonotonicMilliseconds();
    const std::int64_t waitMs = std::clamp<std::int64_t>(untilCheck, 0, kLongestWaitMs);
    ACE_Time_Value wait(0, static_cast<suseconds_t>(waitMs * 1000));
    if (m_reactor->handle_events(wait) < 0 && errno != EINTR) {
        GVX_LOG_ERR("Link engine", "%s", ErrnoText("waiting for the links failed", errno).c_str());
        m_wake.WaitAside(kPauseAfterFaultMs);
    }
}

void LinkEngine::RunWork() {
    std::vector<Work> work;
    std::unique_lock<std::mutex> lock(m_mutexWork);
    work.swap(m_work);
    m_flushing.swap(m_flushes);
    lock.unlock();
    for (const Work& item : work) {
        item();
    }
    for (const std::shared_ptr<Link>& link : m_flushing) {
        link->Flush();
    }
    m_flushing.clear();
}

void LinkEngine::WakeBy(std::int64_t deadlineMs) {
    m_nextCheckMs = std::min(m_nextCheckMs, deadlineMs);
}

void LinkEngine::CheckDeadlines(std::int64_t nowMs) {
    m_nextCheckMs = nowMs + kLongestWaitMs;
    std::vector<std::shared_ptr<Link>> links;
    links.reserve(m_links.size());
    for (const auto& entry : m_links) {
        links.push_back(entry.second.link);
    }
    for (const std::shared_ptr<Link>& link : links) {
        link->CheckDeadlines(nowMs);
    }
    for (const std::unique_ptr<LinkAcceptor>& acceptor : m_acceptors) {
        acceptor->CheckDeadlines(nowMs);
    }
    for (const std::shared_ptr<LinkConnector>& connector : Connectors()) {
        if (!connector->Idle()) {
            continue;
        }
        if (nowMs >= connector->NextAttemptMs()) {
            Attempt(connector, nowMs);
        } else {
            WakeBy(connector->NextAttemptMs());
        }
    }
    m_nextCheckMs = std::max(m_nextCheckMs, nowMs + kCheckGapMs);
}

void LinkEngine::Bury() {
    for (const std::shared_ptr<Link>& link : m_dead) {
        link->ReleaseSocket();
    }
    m_dead.clear();
}

void LinkEngine::Shutdown() {
    RunWork();  // the answers that were given last still leave, as far as the sockets take them
    m_acceptors.clear();
    while (!m_links.empty()) {
        const std::shared_ptr<Link> link = m_links.begin()->second.link;
        link->Close(OM_LOG_INFO, "this side stops");
    }
    Bury();
    m_reactor->remove_handler(&m_wake, ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL);
    std::lock_guard<std::mutex> guard(m_mutexWork);
    m_work.clear();
    m_flushes.clear();
}

}  // namespace BP
