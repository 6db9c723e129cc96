#pragma once

#include "bp/link.h"
#include "bp/link_acceptor.h"
#include "bp/link_connector.h"
#include "bp/link_memory.h"
#include "bp/net_factory.h"
#include "bp/poll_reactor.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

class ACE_Reactor;

namespace BP {

// Whether the calling thread is one that serves links, and so must not wait for a peer. Any thread.
bool OnLinkThread() noexcept;

// Marks the calling thread as one that serves links for as long as the object lives.
class LinkThreadMark {
public:
    LinkThreadMark() noexcept;
    ~LinkThreadMark();
    LinkThreadMark(const LinkThreadMark&) = delete;
    LinkThreadMark& operator=(const LinkThreadMark&) = delete;
};

// All links of the process and the one thread that serves them. What other threads want done is queued as work and
// the thread is woken; events and the dispatcher's sink are called on it with no lock held.
//
// Locks: m_mutexOpen, m_mutexConnectors and m_mutexWork each guard what is marked with them; none is taken while
// another is held.
class LinkEngine final : public LinkOwner, public AcceptorOwner {
public:
    LinkEngine(const LinkOptions& options, LinkEvents events);
    ~LinkEngine() override;

    // Makes the reactor and starts the thread. 0, ZVS_FAIL, or ZVS_OPEN_FILE_ERROR for the files of TLS; logged.
    int Start();
    // Closes every link and ends the thread. Not on the I/O thread.
    void Stop();

    // Any thread, as in CNetFactory.
    int Listen(const char* ip, std::uint16_t port, std::uint16_t* boundPort);
    int AddConnector(const ConnectorKey& key, ConnectorOptions options);
    int RemoveConnector(const ConnectorKey& key);
    int Send(const std::string& linkID, ACE_Message_Block* block);
    LinkRoom RoomOf(const std::string& linkID) const;
    std::shared_ptr<const LinkProgress> ProgressOf(const std::string& linkID) const;
    std::vector<LinkInfo> Links(LinkTotals& totals) const;
    void Post(std::function<void()> work);
    const LinkOptions& Options() const { return m_options; }

    // LinkOwner and AcceptorOwner.
    void LinkRegistered(Link& link) override;
    void FrameReceived(Link& link, MessageBlockPtr frame) override;
    void LinkClosed(Link& link, bool wasOpen) override;
    void BacklogWaits(std::shared_ptr<Link> link) override;
    void ShedMemory() override;
    void WakeBy(std::int64_t deadlineMs) override;
    void RequestFlush(std::shared_ptr<Link> link) override;
    void RequestShed() override;
    void PeerArrived(gvx::UniqueFd socket, const NetAddress& peer) override;

private:
    struct LiveLink {
        std::shared_ptr<Link> link;
        std::shared_ptr<LinkConnector> connector;  // null for a link that the peer made
        std::uint64_t arrival;                     // of a peer that has not registered yet; otherwise 0
    };
    using Work = std::function<void()>;
    // Peers that were turned away for one reason: a line now and then tells of them all.
    struct Refusals {
        std::int64_t toldMs = -1;  // -1: never
        std::uint64_t since = 0;   // not told yet
    };

    int Watch(gvx::UniqueFd socket, const NetAddress& bound);
    void Run();
    void Turn();
    bool WaitForEvents();
    void ServeBacklog(bool eventServed);
    void RunWork();
    void RunFlushes(std::shared_ptr<Link> first);
    void CheckDeadlines(std::int64_t nowMs);
    void Bury();
    void Shutdown();

    bool MayConnect(const NetAddress& peer) const;
    static void Refuse(Refusals& refusals, const NetAddress& peer, const std::string& reason);
    void Adopt(const std::shared_ptr<Link>& link, std::shared_ptr<LinkConnector> connector, std::uint64_t arrival);
    bool EvictNewcomer();
    void NoNewcomer(LiveLink& live);
    std::shared_ptr<Link> FindOpen(const std::string& linkID) const;
    bool Report(const LinkEvents::Event& event, const char* name, const Link& link);
    void Attempt(const std::shared_ptr<LinkConnector>& connector, std::int64_t nowMs);
    void BeginAttempt(const std::shared_ptr<LinkConnector>& connector, std::int64_t nowMs);
    void AttemptEnded(const std::shared_ptr<LinkConnector>& connector);
    void EndConnector(const std::shared_ptr<LinkConnector>& connector);
    std::vector<std::shared_ptr<LinkConnector>> Connectors() const;

    const LinkOptions m_options;
    const std::shared_ptr<LinkMemory> m_memory;  // frames that wait to be served may outlive the engine
    const LinkEvents m_events;
    std::unique_ptr<LinkTls> m_tls;  // null: links are plain. I/O thread, once it runs.
    std::unique_ptr<ACE_Reactor> m_reactor;
    WakeHandler m_wake;
    std::thread m_thread;
    std::atomic<bool> m_stopping{false};
    std::atomic<bool> m_shedAsked{false};

    // I/O thread only.
    std::unordered_map<const Link*, LiveLink> m_links;
    std::vector<std::shared_ptr<Link>> m_dead;  // closed in this turn; an upcall of theirs may still be under way
    std::vector<std::unique_ptr<LinkAcceptor>> m_acceptors;
    std::size_t m_incoming = 0;
    // Peers that have not registered, by their sites, in the order in which they came.
    std::map<std::string, std::map<std::uint64_t, Link*>> m_newcomers;
    std::uint64_t m_arrivals = 0;
    std::deque<std::shared_ptr<Link>> m_backlogs;    // of open links, in the order of their turns
    std::deque<std::shared_ptr<Link>> m_handshakes;  // the same of links that are not open yet
    bool m_handshakeIsNext = false;
    std::chrono::steady_clock::time_point m_backlogNotBefore;
    Refusals m_strangers;
    Refusals m_tooMany;
    Refusals m_evicted;
    std::int64_t m_nextCheckMs = 0;

    mutable std::mutex m_mutexOpen;
    std::map<std::string, std::shared_ptr<Link>> m_open;  // Guarded by m_mutexOpen. By identifier.
    LinkTotals m_ended;                                   // Guarded by m_mutexOpen. Of links that have closed.
    mutable std::mutex m_mutexConnectors;
    std::map<ConnectorKey, std::shared_ptr<LinkConnector>> m_connectors;  // Guarded by m_mutexConnectors.
    std::mutex m_mutexWork;
    bool m_workEnded = false;  // Guarded by m_mutexWork. Nothing is served any more.
    std::vector<Work> m_work;  // Guarded by m_mutexWork.
    // Links that want a flush, chained through m_nextToFlush, so that to send needs no memory. Guarded by m_mutexWork.
    std::shared_ptr<Link> m_firstToFlush;
    Link* m_lastToFlush = nullptr;
};

}  // namespace BP
