#include "gvx_common/intake/gvx_acceptor.h"

#include "base/log.h"

#include <ace/Log_Msg.h>
#include <ace/Strategies_T.h>

#include <cerrno>
#include <new>

#include <fcntl.h>

namespace {

constexpr ACE_Reactor_Mask kAllMasks = 0x1FF;

}  // namespace

CGVXAcceptor::CGVXAcceptor() = default;

CGVXAcceptor::CGVXAcceptor(const ACE_INET_Addr& address, ACE_Reactor* reactor,
                           ACE_Creation_Strategy<CGVXReceiver>* creation,
                           ACE_Accept_Strategy<CGVXReceiver, ACE_SOCK_Acceptor>* accept,
                           ACE_Concurrency_Strategy<CGVXReceiver>* concurrency,
                           ACE_Scheduling_Strategy<CGVXReceiver>* scheduling, const ACE_TCHAR serviceName[],
                           const ACE_TCHAR serviceDescription[], int useSelect, int reuseAddr)
    : Base(address, reactor, creation, accept, concurrency, scheduling, serviceName, serviceDescription, useSelect,
           reuseAddr),
      m_pReactor(reactor) {
    if (accept_strategy_ != nullptr) {
        ::fcntl(get_handle(), F_SETFD, FD_CLOEXEC);
    }
}

CGVXAcceptor::~CGVXAcceptor() {
    GVX_LOG(OM_LOG_DEBUG, "CGVXAcceptor", "~CGVXAcceptor is called!");
    stop();
}

int CGVXAcceptor::start(const ACE_INET_Addr& address, ACE_Reactor* reactor) {
    GVX_LOG(OM_LOG_DEBUG, "CGVXAcceptor", "start the alarm service accpetor.");
    if (m_concurrencyStrategy != nullptr) {
        errno = EALREADY;
        return 1;
    }
    m_concurrencyStrategy =
        new (std::nothrow) ACE_Reactive_Strategy<CGVXReceiver>(reactor, ACE_Event_Handler::READ_MASK, 0);
    if (m_concurrencyStrategy == nullptr) {
        errno = ENOMEM;
        return 1;
    }
    ++g_bp_memstat;
    if (open(address, reactor, nullptr, nullptr, m_concurrencyStrategy) < 0) {
        const int error = errno;
        ACE_ERROR((LM_ERROR, ACE_TEXT("(%P|%t) Acceptor::start () - open failed")));
        StopListening();
        DeleteStrategy();
        errno = error;
        return 1;
    }
    ::fcntl(get_handle(), F_SETFD, FD_CLOEXEC);
    m_pReactor = reactor;
    return 0;
}

void CGVXAcceptor::stop() {
    GVX_LOG(OM_LOG_DEBUG, "CGVXAcceptor", "stop() is called!");
    StopListening();
    DeleteStrategy();
}

// Takes the socket out of the reactor here, because the base closes it first, and epoll does not know the number of a
// socket that is closed.
void CGVXAcceptor::StopListening() {
    if (reactor() != nullptr && accept_strategy_ != nullptr) {
        reactor()->remove_handler(get_handle(), ACE_Event_Handler::ACCEPT_MASK | ACE_Event_Handler::DONT_CALL);
    }
    handle_close(ACE_INVALID_HANDLE, kAllMasks);
}

void CGVXAcceptor::DeleteStrategy() {
    if (m_concurrencyStrategy != nullptr) {
        delete m_concurrencyStrategy;
        m_concurrencyStrategy = nullptr;
        --g_bp_memstat;
    }
}

int CGVXAcceptor::make_svc_handler(CGVXReceiver*& receiver) {
    receiver = new (std::nothrow) CGVXReceiver(m_pQueue, m_pReactor);
    if (receiver == nullptr) {
        errno = ENOMEM;
        return -1;
    }
    return 0;
}
