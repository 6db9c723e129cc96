#include "gateway/links/link_events.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/shortage.h"
#include "base/zvs_error.h"
#include "gvx_common/link/gvx_connection_mgr.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <iterator>
#include <utility>

#include <pthread.h>

namespace gvx {

namespace {

constexpr std::size_t kBytesBesideAFrame = 512;

std::size_t BytesOf(const BP::CCmd& cmd) {
    const ACE_Message_Block* block = cmd.GetMsgBlock();
    return kBytesBesideAFrame + (block != nullptr ? block->length() : 0);
}

}  // namespace

LinkEventThread::~LinkEventThread() {
    Stop();
}

bool LinkEventThread::Start(BP::LinkEvents handlers, FrameTaker takeFrame) {
    m_handlers = std::move(handlers);
    m_takeFrame = std::move(takeFrame);
    m_stopping = false;
    try {
        m_thread = std::thread(&LinkEventThread::Run, this);
    } catch (const std::exception& fault) {
        NoteShortage(fault);
        GVX_LOG_ERR("Link events", "Their thread could not be started: %s", fault.what());
        return false;
    }
    return true;
}

void LinkEventThread::Stop() {
    if (!m_thread.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_one();
    m_thread.join();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_entrances.clear();
}

BP::LinkEvents LinkEventThread::Callbacks() {
    return {[this](const std::string& devName, int elementType, const std::string& linkID, const std::string& ip,
                   unsigned int port) {
                QueueOpened({true, devName, elementType, linkID, ip, port});
            },
            [this](const std::string&, int, const std::string& linkID, const std::string&, unsigned int) {
                QueueClosed(linkID);
            }};
}

// Throws where there is no memory; nothing has happened then, and the link layer closes the link.
void LinkEventThread::QueueOpened(const Event& event) {
    Events opened{event};
    Events closing{event};
    closing.front().opened = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        Events& made = m_closings[event.linkID];
        if (event.elementType == kElementGVX) {
            ++m_entrances[event.linkID].openings;
        }
        made.swap(closing);
        m_events.splice(m_events.end(), opened);
    }
    m_changed.notify_one();
}

void LinkEventThread::QueueClosed(const std::string& linkID) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto entrance = m_entrances.find(linkID);
        if (entrance != m_entrances.end()) {
            entrance->second.frames.clear();
            entrance->second.bytes = 0;
        }
        m_asideWaits.erase(linkID);
        const auto closing = m_closings.find(linkID);
        if (closing == m_closings.end()) {
            return;
        }
        if (!PassOver(linkID)) {
            m_events.splice(m_events.end(), closing->second);
        }
        m_closings.erase(closing);
    }
    m_changed.notify_one();
}

// The mutex is held. Links that come and go faster than they can be served would fill the queue.
bool LinkEventThread::PassOver(const std::string& closed) {
    if (m_events.size() < kMaxEvents) {
        return false;
    }
    const auto last = std::find_if(m_events.rbegin(), m_events.rend(),
                                   [&closed](const Event& event) { return event.linkID == closed; });
    if (last == m_events.rend() || !last->opened) {
        return false;
    }
    const auto entrance = m_entrances.find(closed);
    if (entrance != m_entrances.end() && entrance->second.openings != 0 && --entrance->second.openings == 0) {
        m_entrances.erase(entrance);
    }
    m_events.erase(std::next(last).base());
    if (++m_passedOver == 1) {
        GVX_LOG_WARN("Link events", "%zu wait: links that open and close before their turn are passed over. [link:%s]",
                     m_events.size(), closed.c_str());
    }
    return true;
}

bool LinkEventThread::Hold(std::unique_ptr<BP::CCmd>& cmd, int& result) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_entrances.find(cmd->GetNetLinkID());
        if (found == m_entrances.end()) {
            return false;
        }
        Entrance& entrance = found->second;
        const std::size_t bytes = BytesOf(*cmd);
        result = entrance.bytes + bytes > kMaxHeldBytes ? ZVS_FAIL : ZVS_SUCCEED;
        if (result == ZVS_SUCCEED) {
            entrance.frames.push_back(std::move(cmd));
            entrance.bytes += bytes;
            return true;
        }
    }
    // Nothing can be answered yet, so this line is all that tells of it.
    GVX_LOG_ERR_CODE("Link events", result, "cmd[0x%04x] is refused, too much waits for the link's opening. [link:%s]",
                     cmd->GetReqID(), cmd->GetNetLinkID().c_str());
    return true;
}

void LinkEventThread::Run() {
    ::pthread_setname_np(::pthread_self(), "LinkEvents");
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] {
            return m_someEnded || NextEvent() != m_events.end() || NextToFeed() != m_entrances.end() || AtEnd();
        });
        if (AtEnd()) {
            return;
        }
        try {
            Turn(lock);
        } catch (const std::exception& fault) {
            GVX_LOG_ERR("Link events", "A turn ended early: %s", fault.what());
            if (!lock.owns_lock()) {
                lock.lock();
            }
            m_servingSinceMs = 0;
        }
    }
}

// The mutex is held, but not while anything is served.
void LinkEventThread::Turn(std::unique_lock<std::mutex>& lock) {
    JoinEnded(lock);
    StartWaiting(lock);
    if (const auto next = NextEvent(); next != m_events.end()) {
        Events served;
        served.splice(served.begin(), m_events, next);
        if (m_events.empty() && m_passedOver != 0) {
            GVX_LOG_WARN("Link events", "%llu links have been passed over.",
                         static_cast<unsigned long long>(std::exchange(m_passedOver, 0)));
        }
        m_servingSinceMs = MonotonicMilliseconds();
        lock.unlock();
        Serve(served.front());
        lock.lock();
        m_servingSinceMs = 0;
    }
    if (const auto next = NextToFeed(); next != m_entrances.end()) {
        m_lastFed = next->first;
        m_servingSinceMs = MonotonicMilliseconds();
        lock.unlock();
        FeedHeldFrames(m_lastFed);
        lock.lock();
        m_servingSinceMs = 0;
    }
}

// The mutex is held. The first event whose link waits for nothing.
LinkEventThread::Events::iterator LinkEventThread::NextEvent() {
    return std::find_if(m_events.begin(), m_events.end(), [this](const Event& event) {
        return m_aside.count(event.linkID) == 0 && m_asideWaits.count(event.linkID) == 0;
    });
}

// The mutex is held. The next link, in turn, that has been let in and whose held frames are not through yet.
std::map<std::string, LinkEventThread::Entrance>::iterator LinkEventThread::NextToFeed() {
    const auto letIn = [](const auto& entry) { return entry.second.openings == 0; };
    const auto behind = std::find_if(m_entrances.upper_bound(m_lastFed), m_entrances.end(), letIn);
    return behind != m_entrances.end() ? behind : std::find_if(m_entrances.begin(), m_entrances.end(), letIn);
}

// The mutex is held.
bool LinkEventThread::AtEnd() const {
    return m_stopping && m_events.empty() && m_aside.empty() && m_asideWaits.empty();
}

LinkEventThread::Progress LinkEventThread::GetProgress() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_events.size(), m_servingSinceMs};
}

void LinkEventThread::Aside(std::function<void()> work) {
    const bool here = std::this_thread::get_id() == m_thread.get_id() && m_serving != nullptr;
    if (!here || !PutAside(m_serving->linkID, work)) {
        work();
    }
}

// False: to be done at once.
bool LinkEventThread::PutAside(const std::string& linkID, const std::function<void()>& work) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_aside.count(linkID) != 0) {
        return false;
    }
    if (m_asideWaits.empty() && m_aside.size() < kMaxAside && StartAside(linkID, work)) {
        return true;
    }
    return !m_aside.empty() && m_asideWaits.emplace(linkID, WaitingWork{++m_turns, work}).second;
}

// The mutex is held. False, with a line, when there is no thread.
bool LinkEventThread::StartAside(const std::string& linkID, const std::function<void()>& work) {
    AsideThread& aside = m_aside[linkID];
    try {
        aside.thread = std::thread([this, linkID, work] { RunAside(linkID, work); });
        return true;
    } catch (const std::exception& fault) {
        m_aside.erase(linkID);
        GVX_LOG_ERR("Link events", "No thread for the opening of link[%s]: %s", linkID.c_str(), fault.what());
        return false;
    }
}

// The mutex is held, but not while work is done here, for want of a single thread.
void LinkEventThread::StartWaiting(std::unique_lock<std::mutex>& lock) {
    while (!m_asideWaits.empty() && m_aside.size() < kMaxAside) {
        const auto first =
            std::min_element(m_asideWaits.begin(), m_asideWaits.end(),
                             [](const auto& one, const auto& other) { return one.second.turn < other.second.turn; });
        if (StartAside(first->first, first->second.work)) {
            m_asideWaits.erase(first);
        } else if (!m_aside.empty()) {
            return;
        } else {
            const std::function<void()> work = std::move(first->second.work);
            m_asideWaits.erase(first);
            lock.unlock();
            work();
            lock.lock();
        }
    }
}

void LinkEventThread::RunAside(const std::string& linkID, const std::function<void()>& work) {
    ::pthread_setname_np(::pthread_self(), "LinkOpening");
    try {
        work();
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Link events", "The opening of link[%s] threw: %s", linkID.c_str(), fault.what());
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_aside.find(linkID)->second.ended = true;
        m_someEnded = true;
    }
    m_changed.notify_one();
}

void LinkEventThread::JoinEnded(std::unique_lock<std::mutex>& lock) {
    while (std::exchange(m_someEnded, false)) {
        const auto ended = [](const auto& entry) { return entry.second.ended; };
        for (auto found = std::find_if(m_aside.begin(), m_aside.end(), ended); found != m_aside.end();
             found = std::find_if(m_aside.begin(), m_aside.end(), ended)) {
            std::thread thread = std::move(found->second.thread);
            m_aside.erase(found);
            lock.unlock();
            thread.join();
            lock.lock();
        }
    }
}

void LinkEventThread::Serve(const Event& event) {
    m_serving = &event;
    m_opening = event.opened && event.elementType == kElementGVX ? &event : nullptr;
    try {
        const BP::LinkEvents::Event& handler = event.opened ? m_handlers.opened : m_handlers.closed;
        handler(event.devName, event.elementType, event.linkID, event.ip, event.port);
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Link events", "An event of link[%s] threw: %s", event.linkID.c_str(), fault.what());
    }
    LetFramesIn();
    m_serving = nullptr;
}

void LinkEventThread::LetFramesIn() {
    const Event* const opening = std::exchange(m_opening, nullptr);
    if (opening == nullptr) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_entrances.find(opening->linkID);
        if (found == m_entrances.end() || --found->second.openings != 0) {
            return;  // the link has opened anew meanwhile, and that opening makes it known again
        }
    }
    FeedHeldFrames(opening->linkID);
}

// The entrance stays until it is empty: a frame that comes meanwhile joins the others, and none overtakes them. Whoever
// sends without end has the events of others served in between.
void LinkEventThread::FeedHeldFrames(const std::string& linkID) {
    for (std::size_t fed = 0; fed < kFramesInARow; ++fed) {
        const std::unique_ptr<BP::CCmd> frame = TakeHeldFrame(linkID);
        if (frame == nullptr) {
            return;
        }
        m_takeFrame(*frame);
    }
}

// One at a time: where one finds no memory, the others stay held. Null when there is none, or none that may go.
std::unique_ptr<BP::CCmd> LinkEventThread::TakeHeldFrame(const std::string& linkID) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_entrances.find(linkID);
    if (found == m_entrances.end() || found->second.openings != 0) {
        return nullptr;
    }
    Entrance& entrance = found->second;
    if (entrance.frames.empty()) {
        m_entrances.erase(found);
        return nullptr;
    }
    std::unique_ptr<BP::CCmd> frame = std::move(entrance.frames.front());
    entrance.frames.pop_front();
    entrance.bytes -= BytesOf(*frame);
    return frame;
}

}  // namespace gvx
