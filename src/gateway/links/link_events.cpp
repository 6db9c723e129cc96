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
        NoteShortage(Resource::Thread, EAGAIN);
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
    const auto callback = [this](bool opened) {
        return [this, opened](const std::string& devName, int elementType, const std::string& linkID,
                              const std::string& ip, unsigned int port) {
            Queue({opened, devName, elementType, linkID, ip, port});
        };
    };
    return {callback(true), callback(false)};
}

void LinkEventThread::Queue(Event event) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto entrance = m_entrances.find(event.linkID);
        if (!event.opened && entrance != m_entrances.end()) {
            entrance->second.frames.clear();
            entrance->second.bytes = 0;
        }
        if (!event.opened && PassOver(event)) {
            return;
        }
        if (event.opened && event.elementType == kElementGVX) {
            ++m_entrances[event.linkID].openings;
        }
        m_events.push_back(std::move(event));
    }
    m_changed.notify_one();
}

// The mutex is held. Links that come and go faster than they can be served would fill the queue.
bool LinkEventThread::PassOver(const Event& closed) {
    if (m_events.size() < kMaxEvents) {
        return false;
    }
    const auto last = std::find_if(m_events.rbegin(), m_events.rend(),
                                   [&closed](const Event& event) { return event.linkID == closed.linkID; });
    if (last == m_events.rend() || !last->opened) {
        return false;
    }
    const auto entrance = m_entrances.find(closed.linkID);
    if (entrance != m_entrances.end() && entrance->second.openings != 0 && --entrance->second.openings == 0) {
        m_entrances.erase(entrance);
    }
    m_events.erase(std::next(last).base());
    if (++m_passedOver == 1) {
        GVX_LOG_WARN("Link events", "%zu wait: links that open and close before their turn are passed over. [link:%s]",
                     m_events.size(), closed.linkID.c_str());
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
            entrance.bytes += bytes;
            entrance.frames.push_back(std::move(cmd));
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
            return !m_ended.empty() || NextEvent() != m_events.end() ||
                   (m_stopping && m_events.empty() && m_aside.empty());
        });
        JoinEnded(lock);
        const auto next = NextEvent();
        if (next == m_events.end()) {
            if (m_stopping && m_events.empty() && m_aside.empty()) {
                return;
            }
            continue;
        }
        const Event event = std::move(*next);
        m_events.erase(next);
        if (m_events.empty() && m_passedOver != 0) {
            GVX_LOG_WARN("Link events", "%llu links have been passed over.",
                         static_cast<unsigned long long>(std::exchange(m_passedOver, 0)));
        }
        m_servingSinceMs = MonotonicMilliseconds();
        lock.unlock();
        Serve(event);
        lock.lock();
        m_servingSinceMs = 0;
    }
}

// The mutex is held. The first event whose link waits for nothing.
std::deque<LinkEventThread::Event>::iterator LinkEventThread::NextEvent() {
    return std::find_if(m_events.begin(), m_events.end(),
                        [this](const Event& event) { return m_aside.count(event.linkID) == 0; });
}

LinkEventThread::Progress LinkEventThread::GetProgress() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_events.size(), m_servingSinceMs};
}

void LinkEventThread::Aside(std::function<void()> work) {
    const bool here = std::this_thread::get_id() == m_thread.get_id() && m_serving != nullptr;
    if (!here || !StartAside(m_serving->linkID, work)) {
        work();
    }
}

bool LinkEventThread::StartAside(const std::string& linkID, std::function<void()> work) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_aside.size() >= kMaxAside || m_aside.count(linkID) != 0) {
        return false;
    }
    std::thread& thread = m_aside[linkID];
    try {
        thread = std::thread([this, linkID, aside = std::move(work)] { RunAside(linkID, aside); });
        return true;
    } catch (const std::exception& fault) {
        m_aside.erase(linkID);
        GVX_LOG_ERR("Link events", "No thread for link[%s], its opening holds up the others: %s", linkID.c_str(),
                    fault.what());
        return false;
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
        m_ended.push_back(linkID);
    }
    m_changed.notify_one();
}

void LinkEventThread::JoinEnded(std::unique_lock<std::mutex>& lock) {
    while (!m_ended.empty()) {
        const auto found = m_aside.find(m_ended.back());
        m_ended.pop_back();
        std::thread thread = std::move(found->second);
        m_aside.erase(found);
        lock.unlock();
        thread.join();
        lock.lock();
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

// The entrance stays until it is empty: a frame that comes meanwhile joins the others, and none overtakes them.
void LinkEventThread::FeedHeldFrames(const std::string& linkID) {
    std::vector<std::unique_ptr<BP::CCmd>> frames;
    while (TakeHeldFrames(linkID, frames)) {
        for (const std::unique_ptr<BP::CCmd>& frame : frames) {
            m_takeFrame(*frame);
        }
        frames.clear();
    }
}

bool LinkEventThread::TakeHeldFrames(const std::string& linkID, std::vector<std::unique_ptr<BP::CCmd>>& frames) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_entrances.find(linkID);
    if (found == m_entrances.end() || found->second.openings != 0) {
        return false;
    }
    found->second.frames.swap(frames);
    found->second.bytes = 0;
    if (frames.empty()) {
        m_entrances.erase(found);
    }
    return !frames.empty();
}

}  // namespace gvx
