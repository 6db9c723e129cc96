#include "bp/link.h"

#include "base/clock.h"
#include "base/log.h"
#include "bp/errno_text.h"
#include "bp/registration.h"

#include <ace/Reactor.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace BP {

namespace {

void SendSmallFramesAtOnce(int fd) {
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

}  // namespace

Link::Link(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket, const NetAddress& peer)
    : m_owner(owner),
      m_options(options),
      m_socket(std::move(socket)),
      m_peer(peer),
      m_localID(options.localID),
      m_queue(options.maxQueuedBytes),
      m_lastHeardMs(gvx::MonotonicMilliseconds()),
      m_lastSaidMs(m_lastHeardMs) {
    m_reader.SetMaxFrameBytes(std::min(kMaxRegistrationBytes, options.maxFrameBytes));
    SendSmallFramesAtOnce(m_socket.Get());
}

std::shared_ptr<Link> Link::Accepted(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket,
                                     const NetAddress& peer) {
    std::shared_ptr<Link> link(new Link(owner, options, std::move(socket), peer));
    link->m_setupDeadlineMs = link->m_lastHeardMs + options.registerTimeoutMs;
    return link;
}

std::shared_ptr<Link> Link::Connecting(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket,
                                       const NetAddress& peer, const std::string& localID,
                                       std::int64_t connectDeadlineMs, int connectLogLevel) {
    std::shared_ptr<Link> link(new Link(owner, options, std::move(socket), peer));
    link->m_localID = localID;
    link->m_outgoing = true;
    link->m_state = State::Connecting;
    link->m_connectLogLevel = connectLogLevel;
    link->m_setupDeadlineMs = connectDeadlineMs;
    return link;
}

bool Link::Begin(ACE_Reactor& reactor) {
    m_writeWatched = m_state == State::Connecting;
    const ACE_Reactor_Mask mask = m_writeWatched ? ACE_Event_Handler::WRITE_MASK : ACE_Event_Handler::READ_MASK;
    if (reactor.register_handler(this, mask) != 0) {
        Close(OM_LOG_WARNING, ErrnoText("the descriptor is beyond what this process can watch", errno));
        return false;
    }
    this->reactor(&reactor);
    m_owner.WakeBy(m_setupDeadlineMs);
    return true;
}

// After a pause of the whole process, such as a stopped virtual machine, peers that did speak must not be lost.
bool Link::BytesWaitUnread() const {
    char byte;
    return ::recv(m_socket.Get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
}

void Link::CheckDeadlines(std::int64_t nowMs) {
    if (m_state == State::Open) {
        CheckOpenDeadlines(nowMs);
    } else if (m_state != State::Closed) {
        if (nowMs < m_setupDeadlineMs || (m_state == State::Registering && BytesWaitUnread())) {
            m_owner.WakeBy(std::max(m_setupDeadlineMs, nowMs + 1));
        } else if (m_state == State::Connecting) {
            Close(m_connectLogLevel, "connect failed: no answer in time");
        } else {
            Close(OM_LOG_WARNING, m_reader.Partial()
                                      ? "never registered: half a frame, and its rest did not come in time"
                                      : "never registered: silence");
        }
    }
}

void Link::CheckOpenDeadlines(std::int64_t nowMs) {
    const std::int64_t end = std::min(m_frameDeadlineMs, m_lastHeardMs + m_options.silenceTimeoutMs);
    if (nowMs >= end && !BytesWaitUnread()) {
        Close(OM_LOG_WARNING,
              m_frameDeadlineMs <= nowMs ? "half a frame, and its rest did not come in time" : "silence of the peer");
        return;
    }
    if (nowMs - m_lastSaidMs >= m_options.keepAliveMs && m_queue.Bytes() == 0) {
        SendControl(MakeKeepAliveRequest());
        m_lastSaidMs = nowMs;
    }
    const std::int64_t quiet = std::max(m_lastSaidMs + m_options.keepAliveMs, nowMs + 1);
    m_owner.WakeBy(std::min(quiet, std::max(end, nowMs + 1)));
}

void Link::Close(int logLevel, const std::string& reason) {
    if (m_state == State::Closed) {
        return;
    }
    const bool wasOpen = m_state == State::Open;
    const std::shared_ptr<Link> self = shared_from_this();
    m_state = State::Closed;
    GVX_LOG(logLevel, "Link closed", "[peer:%s:%u, link:%s] %s", m_peer.ip.c_str(), m_peer.port, m_linkID.c_str(),
            reason.c_str());
    if (reactor() != nullptr) {
        reactor()->remove_handler(this, ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL);
    }
    ::shutdown(m_socket.Get(), SHUT_RDWR);
    m_queue.Close();
    m_owner.LinkClosed(*this, wasOpen);
}

void Link::ReleaseSocket() {
    reactor(nullptr);  // a thread that still sends may be the last to let go of this link, after the reactor's end
    m_socket.Reset();
}

LinkInfo Link::Describe() const {
    LinkInfo info;
    info.linkID = m_linkID;
    info.ip = m_peer.ip;
    info.port = m_peer.port;
    info.outgoing = m_outgoing;
    info.queuedBytes = m_queue.Bytes();
    info.framesIn = m_framesIn;
    info.framesOut = m_queue.FramesOut();
    info.framesRefused = m_queue.FramesRefused();
    return info;
}

}  // namespace BP
