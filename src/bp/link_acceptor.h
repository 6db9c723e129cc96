#pragma once

#include "base/unique_fd.h"
#include "bp/net_address.h"

#include <ace/Event_Handler.h>

#include <cstdint>

namespace BP {

// Opens a listening TCP socket: non-blocking, close-on-exec. Not valid on failure, with errno kept.
gvx::UniqueFd OpenListener(const NetAddress& local, NetAddress& bound);

// What an acceptor needs of the engine, on the I/O thread.
class AcceptorOwner {
public:
    virtual ~AcceptorOwner() = default;
    virtual void PeerArrived(gvx::UniqueFd socket, const NetAddress& peer) = 0;
    virtual void WakeBy(std::int64_t deadlineMs) = 0;
};

// Accepts peers on one listening socket. I/O thread only.
class LinkAcceptor : public ACE_Event_Handler {
public:
    LinkAcceptor(AcceptorOwner& owner, gvx::UniqueFd socket, const NetAddress& local)
        : m_owner(owner), m_socket(std::move(socket)), m_local(local) {}
    ~LinkAcceptor() override;

    // 0, or the errno with which the reactor refuses the socket, with a log line.
    int Begin(ACE_Reactor& reactor);
    // Accepts again when a pause is over.
    void CheckDeadlines(std::int64_t nowMs);

    ACE_HANDLE get_handle() const override { return m_socket.Get(); }
    int handle_input(ACE_HANDLE) override;

private:
    void Pause(int error);

    AcceptorOwner& m_owner;
    gvx::UniqueFd m_socket;
    const NetAddress m_local;
    bool m_pauseLogged = false;
    std::int64_t m_pausedUntilMs = 0;  // 0: not paused
};

}  // namespace BP
