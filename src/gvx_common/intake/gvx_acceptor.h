#pragma once

#include "gvx_common/intake/gvx_receiver.h"

#include <ace/Acceptor.h>
#include <ace/INET_Addr.h>
#include <ace/SOCK_Acceptor.h>

// Listens for devices that push bytes and gives each connection a CGVXReceiver. The reactor is an ordinary one with an
// implementation of its own; it must serve descriptors of any number, as one over epoll does.
//
// start, stop and the destructor are called while no thread serves the reactor, or on the thread that does.
class CGVXAcceptor : public ACE_Strategy_Acceptor<CGVXReceiver, ACE_SOCK_Acceptor> {
public:
    CGVXAcceptor();
    // Listens at once, as the base does; reports a failure through ACE_Log_Msg.
    explicit CGVXAcceptor(const ACE_INET_Addr& address, ACE_Reactor* reactor = ACE_Reactor::instance(),
                          ACE_Creation_Strategy<CGVXReceiver>* creation = nullptr,
                          ACE_Accept_Strategy<CGVXReceiver, ACE_SOCK_Acceptor>* accept = nullptr,
                          ACE_Concurrency_Strategy<CGVXReceiver>* concurrency = nullptr,
                          ACE_Scheduling_Strategy<CGVXReceiver>* scheduling = nullptr,
                          const ACE_TCHAR serviceName[] = nullptr, const ACE_TCHAR serviceDescription[] = nullptr,
                          int useSelect = ACE_DEFAULT_ACCEPTOR_USE_SELECT, int reuseAddr = 1);
    CGVXAcceptor(const CGVXAcceptor&) = delete;
    CGVXAcceptor& operator=(const CGVXAcceptor&) = delete;
    ~CGVXAcceptor() override;

    // Where the receivers post; not owned. Before the first connection: without a queue, data closes its connection.
    void SetMsgQueue(GvxReceiverQueue* queue) { m_pQueue = queue; }

    // Listens. 0, or 1 with errno when the address cannot be taken or there is no memory; it may then be tried again.
    int start(const ACE_INET_Addr& address, ACE_Reactor* reactor);
    // Listens no more. Receivers go on. May be called twice.
    void stop();

    int make_svc_handler(CGVXReceiver*& receiver) override;

private:
    using Base = ACE_Strategy_Acceptor<CGVXReceiver, ACE_SOCK_Acceptor>;

    void DeleteStrategy();
    void StopListening();

    GvxReceiverQueue* m_pQueue = nullptr;                                     // not owned
    ACE_Concurrency_Strategy<CGVXReceiver>* m_concurrencyStrategy = nullptr;  // owned
    ACE_Reactor* m_pReactor = nullptr;                                        // not owned
};
