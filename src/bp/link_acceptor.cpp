#include "bp/link_acceptor.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/shortage.h"
#include "bp/poll_reactor.h"

#include <ace/Reactor.h>

#include <cerrno>
#include <new>
#include <utility>

#include <sys/socket.h>

namespace BP {

namespace {

constexpr int kBacklog = 128;
constexpr int kAcceptsPerWake = 16;
constexpr std::int64_t kPauseMs = 1000;

}  // namespace

gvx::UniqueFd OpenListener(const NetAddress& local, NetAddress& bound) {
    gvx::UniqueFd socket(::socket(local.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    struct sockaddr_storage name = {};
    socklen_t length = sizeof(name);
    if (!socket.Valid() || ::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        ::bind(socket.Get(), local.Get(), local.length) != 0 || ::listen(socket.Get(), kBacklog) != 0 ||
        ::getsockname(socket.Get(), reinterpret_cast<struct sockaddr*>(&name), &length) != 0 ||
        !NetAddress::FromSystem(name, length, bound)) {
        const int error = errno;
        gvx::NoteShortage(error);
        socket.Reset();
        errno = error;
    }
    return socket;
}

LinkAcceptor::~LinkAcceptor() {
    if (reactor() != nullptr) {
        TakeOut(*reactor(), *this);
    }
}

int LinkAcceptor::Begin(ACE_Reactor& reactor) {
    if (reactor.register_handler(this, ACE_Event_Handler::ACCEPT_MASK) != 0) {
        const int error = errno != 0 ? errno : ENOMEM;
        gvx::NoteShortage(error == ENOSPC ? ENOMEM : error);
        GVX_LOG_ERR("Link listener", "[%s:%u] %s", m_local.ip.c_str(), m_local.port,
                    gvx::ErrnoText("the socket cannot be watched", error).c_str());
        return error;
    }
    this->reactor(&reactor);
    return 0;
}

int LinkAcceptor::handle_input(ACE_HANDLE) {
    for (int count = 0; count < kAcceptsPerWake; ++count) {
        struct sockaddr_storage name = {};
        socklen_t length = sizeof(name);
        gvx::UniqueFd socket(::accept4(m_socket.Get(), reinterpret_cast<struct sockaddr*>(&name), &length,
                                       SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!socket.Valid()) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                Pause(errno);
            }
            break;  // nobody left, or a peer that has gone again
        }
        m_pauseLogged = false;
        try {
            NetAddress peer;
            if (NetAddress::FromSystem(name, length, peer)) {
                m_owner.PeerArrived(std::move(socket), peer);
            }
        } catch (const std::bad_alloc&) {
            Pause(ENOMEM);
            break;
        }
    }
    return 0;
}

// Without descriptors the peer stays in the backlog and the socket readable: to go on at once would only spin.
void LinkAcceptor::Pause(int error) {
    if (!m_pauseLogged) {
        m_pauseLogged = true;
        GVX_LOG_ERR("Link listener", "[%s:%u] %s", m_local.ip.c_str(), m_local.port,
                    gvx::ErrnoText("peers have to wait", error).c_str());
    }
    reactor()->cancel_wakeup(this, ACE_Event_Handler::ACCEPT_MASK);
    m_pausedUntilMs = gvx::MonotonicMilliseconds() + kPauseMs;
    m_owner.WakeBy(m_pausedUntilMs);
}

void LinkAcceptor::CheckDeadlines(std::int64_t nowMs) {
    if (m_pausedUntilMs == 0) {
        return;
    }
    if (nowMs < m_pausedUntilMs) {
        m_owner.WakeBy(m_pausedUntilMs);
        return;
    }
    m_pausedUntilMs = 0;
    reactor()->schedule_wakeup(this, ACE_Event_Handler::ACCEPT_MASK);
}

}  // namespace BP
