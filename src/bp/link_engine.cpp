#include "bp/link_engine.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/shortage.h"
#include "bp/dispatcher.h"
#include "bp/registration.h"
#include "bp/transactions.h"

#include <ace/OS_NS_Thread.h>
#include <ace/Reactor.h>
#include <ace/Time_Value.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <future>
#include <new>
#include <system_error>
#include <utility>

#include <pthread.h>

namespace BP {

namespace {

thread_local bool t_onLinkThread = false;

// No sleep is longer, because a sleep does not end when the clock is set.
constexpr std::int64_t kLongestWaitMs = 500;
// Deadlines are looked at no more often than this, however many links there are.
constexpr std::int64_t kCheckGapMs = 10;
constexpr int kPauseAfterFaultMs = 100;
// What a sender of much may leave in a queue, so that answers behind it do not wait long.
constexpr std::size_t kRoomyBytes = 1u << 20;
// While bytes wait on the sockets of other links, what takes long gets a third of the thread's time.
constexpr int kShareOfOthers = 2;
constexpr std::int64_t kRefusalLineMs = 60000;

void AddUp(LinkTotals& totals, const LinkInfo& link) {
    ++totals.opened;
    totals.framesIn += link.framesIn;
    totals.framesOut += link.framesOut;
    totals.framesRefused += link.framesRefused;
    totals.framesDropped += link.framesDropped;
}

}  // namespace

bool OnLinkThread() noexcept {
    return t_onLinkThread;
}

LinkThreadMark::LinkThreadMark() noexcept {
    t_onLinkThread = true;
}

LinkThreadMark::~LinkThreadMark() {
    t_onLinkThread = false;
}

LinkEngine::LinkEngine(const LinkOptions& options, LinkEvents events)
    : m_options(options), m_memory(std::make_shared<LinkMemory>(options.maxMemoryBytes)), m_events(std::move(events)) {}

LinkEngine::~LinkEngine() {
    Stop();
}

int LinkEngine::Start() {
    if (m_options.tls.Given()) {
        std::string fault;
        m_tls = LinkTls::Load(m_options.tls, &fault);
        if (m_tls == nullptr) {
            GVX_LOG_ERR_CODE("Link TLS", ZVS_OPEN_FILE_ERROR, "%s", fault.c_str());
            return ZVS_OPEN_FILE_ERROR;
        }
    }
    m_reactor = MakePollReactor();
    if (m_reactor == nullptr || !m_wake.Valid() ||
        m_reactor->register_handler(&m_wake, ACE_Event_Handler::READ_MASK) != 0) {
        const int error = errno;
        gvx::NoteShortage(error == ENOSPC ? ENOMEM : error);
        GVX_LOG_ERR("Link engine", "%s", gvx::ErrnoText("the links have no reactor", error).c_str());
        return ZVS_FAIL;
    }
    try {
        m_thread = std::thread(&LinkEngine::Run, this);
    } catch (const std::system_error& fault) {
        gvx::NoteShortage(fault);
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

void LinkEngine::Post(std::function<void()> work) {
    std::unique_lock<std::mutex> lock(m_mutexWork);
    if (m_workEnded) {
        return;
    }
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
    const bool eventServed = WaitForEvents();
    RunWork();
    const std::int64_t now = gvx::MonotonicMilliseconds();
    if (now >= m_nextCheckMs) {
        CheckDeadlines(now);
    }
    ServeBacklog(eventServed);
    Bury();
}

// Serves one event, if there is one: the reactor dispatches one at a time, each ready link in its turn.
bool LinkEngine::WaitForEvents() {
    const std::int64_t untilCheck = m_nextCheckMs - gvx::MonotonicMilliseconds();
    const bool idle = m_backlogs.empty() && m_handshakes.empty();
    const std::int64_t waitMs = idle ? std::clamp<std::int64_t>(untilCheck, 0, kLongestWaitMs) : 0;
    ACE_Time_Value wait(0, static_cast<suseconds_t>(waitMs * 1000));
    const int served = m_reactor->handle_events(wait);
    if (served < 0 && errno != EINTR) {
        GVX_LOG_ERR("Link engine", "%s", gvx::ErrnoText("waiting for the links failed", errno).c_str());
        m_wake.WaitAside(kPauseAfterFaultMs);
    }
    return served > 0;
}

void LinkEngine::BacklogWaits(std::shared_ptr<Link> link) {
    (link->Open() ? m_backlogs : m_handshakes).push_back(std::move(link));
}

void LinkEngine::ServeBacklog(bool eventServed) {
    const auto begun = std::chrono::steady_clock::now();
    if ((m_backlogs.empty() && m_handshakes.empty()) || (eventServed && begun < m_backlogNotBefore)) {
        return;
    }
    // In turn, so that many handshakes do not hold up who has come in.
    m_handshakeIsNext = m_backlogs.empty() || (m_handshakeIsNext && !m_handshakes.empty());
    std::deque<std::shared_ptr<Link>>& waiting = m_handshakeIsNext ? m_handshakes : m_backlogs;
    m_handshakeIsNext = !m_handshakeIsNext;
    const std::shared_ptr<Link> link = std::move(waiting.front());
    waiting.pop_front();
    link->ServeBacklog();
    const auto ended = std::chrono::steady_clock::now();
    m_backlogNotBefore = ended + kShareOfOthers * (ended - begun);
}

// A link that holds less than an equal part is never closed for what others hold.
void LinkEngine::ShedMemory() {
    while (m_memory->OpenLinksAreOver()) {
        const auto debtor = std::max_element(m_links.begin(), m_links.end(), [](const auto& one, const auto& other) {
            return one.second.link->MemoryBytes() < other.second.link->MemoryBytes();
        });
        const std::size_t share = std::max(LinkAccount::kAlwaysBytes, m_memory->Limit() / (m_links.size() + 1));
        const std::size_t held = debtor == m_links.end() ? 0 : debtor->second.link->MemoryBytes();
        if (held <= share) {
            return;
        }
        const std::shared_ptr<Link> link = debtor->second.link;
        link->Close(OM_LOG_WARNING, "the links hold more than " + std::to_string(m_memory->Limit()) +
                                        " bytes, and this one most of all: " + std::to_string(held));
    }
}

void LinkEngine::RequestShed() {
    if (!m_shedAsked.exchange(true)) {
        m_wake.Ring();
    }
}

void LinkEngine::RunWork() {
    std::vector<Work> work;
    std::unique_lock<std::mutex> lock(m_mutexWork);
    work.swap(m_work);
    std::shared_ptr<Link> toFlush = std::move(m_firstToFlush);
    m_lastToFlush = nullptr;
    lock.unlock();
    for (const Work& item : work) {
        try {
            item();
        } catch (const std::exception& fault) {  // the others are still done
            GVX_LOG_ERR("Link engine", "Work of the link thread ended early: %s", fault.what());
        }
    }
    RunFlushes(std::move(toFlush));
    if (m_shedAsked.exchange(false)) {
        ShedMemory();
    }
}

// A link is taken out of the chain ahead of its flush, since it may want another at once.
void LinkEngine::RunFlushes(std::shared_ptr<Link> first) {
    while (first != nullptr) {
        const std::shared_ptr<Link> link = std::move(first);
        first = std::move(link->m_nextToFlush);
        link->Flush();
    }
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
    try {
        RunWork();  // the answers that were given last still leave, as far as the sockets take them
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Link engine", "The last answers did not leave: %s", fault.what());
    }
    m_acceptors.clear();
    while (!m_links.empty()) {
        const std::shared_ptr<Link> link = m_links.begin()->second.link;
        link->Close(OM_LOG_INFO, "this side stops");
    }
    Bury();
    m_reactor->remove_handler(&m_wake, ACE_Event_Handler::ALL_EVENTS_MASK | ACE_Event_Handler::DONT_CALL);
    std::unique_lock<std::mutex> lock(m_mutexWork);
    m_workEnded = true;
    m_work.clear();
    std::shared_ptr<Link> left = std::move(m_firstToFlush);
    m_lastToFlush = nullptr;
    lock.unlock();
    RunFlushes(std::move(left));  // closed links do nothing
}

int LinkEngine::Listen(const char* ip, std::uint16_t port, std::uint16_t* boundPort) {
    NetAddress local;
    NetAddress bound;
    gvx::UniqueFd socket;
    if (NetAddress::Parse(ip, port, local)) {
        socket = OpenListener(local, bound);
    } else {
        errno = EINVAL;
    }
    if (!socket.Valid()) {
        const int kept = errno;
        GVX_LOG_ERR_CODE("Link listener", ZVS_NET_BIND_ERROR, "[%s:%u] %s", ip != nullptr ? ip : "", port,
                         gvx::ErrnoText("cannot listen", kept).c_str());
        errno = kept;
        return ZVS_NET_BIND_ERROR;
    }
    errno = Watch(std::move(socket), bound);
    if (errno != 0) {
        return ZVS_NET_BIND_ERROR;
    }
    if (boundPort != nullptr) {
        *boundPort = static_cast<std::uint16_t>(bound.port);
    }
    GVX_LOG_INFO("Link listener", "[%s:%u] listening", bound.ip.c_str(), bound.port);
    return ZVS_SUCCEED;
}

// Has the link thread accept on a socket. Gives 0, or the error with which the reactor has refused it: a listener that
// nobody watches would be deaf.
int LinkEngine::Watch(gvx::UniqueFd socket, const NetAddress& bound) {
    auto outcome = std::make_shared<std::promise<int>>();
    std::future<int> known = outcome->get_future();
    // Whoever drops the work breaks the promise, since nobody else holds it.
    Work work = [this, bound, outcome = std::move(outcome), held = std::make_shared<gvx::UniqueFd>(std::move(socket))] {
        m_acceptors.reserve(m_acceptors.size() + 1);
        auto acceptor = std::make_unique<LinkAcceptor>(*this, std::move(*held), bound);
        const int error = acceptor->Begin(*m_reactor);
        if (error == 0) {
            m_acceptors.push_back(std::move(acceptor));
        }
        outcome->set_value(error);
    };
    if (OnLinkThread()) {
        work();
    } else {
        Post(std::exchange(work, nullptr));
    }
    try {
        return known.get();
    } catch (const std::future_error&) {  // the links have stopped, or there was no memory
        return m_stopping ? ESHUTDOWN : ENOMEM;
    }
}

int LinkEngine::AddConnector(const ConnectorKey& key, ConnectorOptions options) {
    options.backoffMinMs = m_options.backoffMinMs;
    options.backoffMaxMs = std::max(m_options.backoffMinMs, m_options.backoffMaxMs);
    const auto connector = std::make_shared<LinkConnector>(key, options);
    std::unique_lock<std::mutex> lock(m_mutexConnectors);
    if (m_stopping || !m_connectors.emplace(key, connector).second) {
        return ZVS_FAIL;
    }
    lock.unlock();
    Post([this, connector] { Attempt(connector, gvx::MonotonicMilliseconds()); });
    return ZVS_SUCCEED;
}

int LinkEngine::RemoveConnector(const ConnectorKey& key) {
    std::unique_lock<std::mutex> lock(m_mutexConnectors);
    const auto found = m_connectors.find(key);
    if (found == m_connectors.end()) {
        return ZVS_FAIL;
    }
    const std::shared_ptr<LinkConnector> connector = found->second;
    m_connectors.erase(found);
    lock.unlock();
    Post([this, connector] { EndConnector(connector); });
    return ZVS_SUCCEED;
}

void LinkEngine::EndConnector(const std::shared_ptr<LinkConnector>& connector) {
    connector->End();
    for (const auto& entry : m_links) {
        if (entry.second.connector == connector) {
            const std::shared_ptr<Link> link = entry.second.link;
            link->Close(OM_LOG_INFO, "this side gives the link up");
            return;
        }
    }
}

void LinkEngine::Attempt(const std::shared_ptr<LinkConnector>& connector, std::int64_t nowMs) {
    if (m_stopping || !connector->Idle()) {
        return;
    }
    connector->AttemptBegins();
    try {
        BeginAttempt(connector, nowMs);
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR("Link connector", "No memory for a link to %s:%u.", connector->Options().peer.ip.c_str(),
                    connector->Options().peer.port);
        AttemptEnded(connector);
    }
}

void LinkEngine::BeginAttempt(const std::shared_ptr<LinkConnector>& connector, std::int64_t nowMs) {
    const ConnectorOptions& options = connector->Options();
    gvx::UniqueFd socket = connector->BeginConnect();
    if (!socket.Valid()) {
        GVX_LOG(connector->FailureLogLevel(), "Link closed", "[peer:%s:%u, link:] %s", options.peer.ip.c_str(),
                options.peer.port, gvx::ErrnoText("connect failed", errno).c_str());
        AttemptEnded(connector);
        return;
    }
    Link::Attempt attempt;
    attempt.localID = options.localID;
    attempt.peerType = connector->Key().type;
    attempt.connectDeadlineMs = nowMs + options.connectTimeoutMs;
    attempt.logLevel = connector->FailureLogLevel();
    Adopt(Link::Connecting(*this, m_options, std::move(socket), options.peer, m_memory, m_tls.get(), attempt),
          connector, 0);
}

void LinkEngine::AttemptEnded(const std::shared_ptr<LinkConnector>& connector) {
    connector->AttemptEnded(gvx::MonotonicMilliseconds());
    if (connector->Options().retry) {
        WakeBy(connector->NextAttemptMs());
        return;
    }
    connector->End();
    std::lock_guard<std::mutex> guard(m_mutexConnectors);
    const auto found = m_connectors.find(connector->Key());
    if (found != m_connectors.end() && found->second == connector) {
        m_connectors.erase(found);
    }
}

std::vector<std::shared_ptr<LinkConnector>> LinkEngine::Connectors() const {
    std::vector<std::shared_ptr<LinkConnector>> connectors;
    std::lock_guard<std::mutex> guard(m_mutexConnectors);
    connectors.reserve(m_connectors.size());
    for (const auto& entry : m_connectors) {
        connectors.push_back(entry.second);
    }
    return connectors;
}

void LinkEngine::Adopt(const std::shared_ptr<Link>& link, std::shared_ptr<LinkConnector> connector,
                       std::uint64_t arrival) {
    const std::size_t mayDie = m_dead.size() + m_links.size() + 1;
    if (m_dead.capacity() < mayDie) {
        m_dead.reserve(2 * mayDie);  // a close needs no memory
    }
    m_links.emplace(link.get(), LiveLink{link, std::move(connector), arrival});
    m_incoming += link->Outgoing() ? 0 : 1;
    if (arrival != 0) {
        m_newcomers[link->Peer().Site()].emplace(arrival, link.get());
    }
    link->Begin(*m_reactor);
}

// Of the peers that have not registered, the oldest of the site from which most have come gives its place away.
bool LinkEngine::EvictNewcomer() {
    const auto greediest =
        std::max_element(m_newcomers.begin(), m_newcomers.end(),
                         [](const auto& one, const auto& other) { return one.second.size() < other.second.size(); });
    if (greediest == m_newcomers.end() || greediest->second.empty()) {
        return false;
    }
    Link& oldest = *greediest->second.begin()->second;
    Refuse(m_evicted, oldest.Peer(), "no registration yet, and its place is needed");
    oldest.Close(OM_LOG_DEBUG, "no registration yet, and its place is needed");
    return true;
}

void LinkEngine::NoNewcomer(LiveLink& live) {
    const std::uint64_t arrival = std::exchange(live.arrival, 0);
    const auto site = arrival == 0 ? m_newcomers.end() : m_newcomers.find(live.link->Peer().Site());
    if (site != m_newcomers.end() && site->second.erase(arrival) != 0 && site->second.empty()) {
        m_newcomers.erase(site);
    }
}

bool LinkEngine::MayConnect(const NetAddress& peer) const {
    return m_options.peers.empty() ||
           std::any_of(m_options.peers.begin(), m_options.peers.end(),
                       [&peer](const NetNetwork& network) { return network.Contains(peer); });
}

void LinkEngine::Refuse(Refusals& refusals, const NetAddress& peer, const std::string& reason) {
    const std::int64_t now = gvx::MonotonicMilliseconds();
    if (refusals.toldMs >= 0 && now - refusals.toldMs < kRefusalLineMs) {
        ++refusals.since;
        return;
    }
    GVX_LOG_WARN(
        "Link closed", "[peer:%s:%u, link:] %s%s", peer.ip.c_str(), peer.port, reason.c_str(),
        refusals.since == 0 ? "" : (", " + std::to_string(refusals.since) + " more since the last line").c_str());
    refusals.toldMs = now;
    refusals.since = 0;
}

void LinkEngine::PeerArrived(gvx::UniqueFd socket, const NetAddress& peer) {
    if (!MayConnect(peer)) {
        Refuse(m_strangers, peer, "not one of the networks that may connect");
    } else if (m_incoming >= m_options.maxLinks && !EvictNewcomer()) {
        Refuse(m_tooMany, peer, "too many links, the limit is " + std::to_string(m_options.maxLinks));
    } else {
        Adopt(Link::Accepted(*this, m_options, std::move(socket), peer, m_memory, m_tls.get()), nullptr, ++m_arrivals);
    }
}

void LinkEngine::LinkRegistered(Link& link) {
    const std::shared_ptr<Link> older = FindOpen(link.ID());
    if (older != nullptr) {
        older->Close(OM_LOG_WARNING, "replaced: the identifier registered anew from " + link.Peer().ip + ":" +
                                         std::to_string(link.Peer().port));
    }
    LiveLink& live = m_links.at(&link);
    NoNewcomer(live);
    if (live.connector != nullptr) {
        live.connector->LinkOpened(gvx::MonotonicMilliseconds());
    }
    std::unique_lock<std::mutex> lock(m_mutexOpen);
    m_open[link.ID()] = live.link;
    lock.unlock();
    if (!Report(m_events.opened, "opened", link)) {
        link.Close(OM_LOG_WARNING, "its opening could not be told");
    }
}

void LinkEngine::FrameReceived(Link& link, MessageBlockPtr frame) {
    if (CDispatcher::FrameArrived(ElementTypeOf(link.ID()), link.ID(), frame.release()) == ZVS_ALLOC_MEMORY_ERROR) {
        throw std::bad_alloc();  // closes the link: whoever waits for an answer learns that none comes
    }
}

void LinkEngine::LinkClosed(Link& link, bool wasOpen) {
    const auto found = m_links.find(&link);
    if (found == m_links.end()) {
        return;
    }
    LiveLink live = std::move(found->second);
    m_links.erase(found);
    NoNewcomer(live);
    m_dead.push_back(live.link);
    m_incoming -= link.Outgoing() ? 0 : 1;
    if (live.connector != nullptr) {
        AttemptEnded(live.connector);
    }
    if (wasOpen) {
        const LinkInfo last = link.Numbers();
        std::unique_lock<std::mutex> lock(m_mutexOpen);
        m_open.erase(link.ID());
        AddUp(m_ended, last);
        ++m_ended.closed;
        lock.unlock();
        TransactionTable::Instance().LinkClosed(link.ID());
        Report(m_events.closed, "closed", link);
    }
}

// False when whoever is told threw.
bool LinkEngine::Report(const LinkEvents::Event& event, const char* name, const Link& link) {
    try {
        if (event) {
            event(link.ID(), ElementTypeOf(link.ID()), link.ID(), link.Peer().ip, link.Peer().port);
        }
        return true;
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Link event", "The event \"%s\" of link[%s] threw: %s", name, link.ID().c_str(), fault.what());
    } catch (...) {
        GVX_LOG_ERR("Link event", "The event \"%s\" of link[%s] threw something unknown.", name, link.ID().c_str());
    }
    return false;
}

std::shared_ptr<Link> LinkEngine::FindOpen(const std::string& linkID) const {
    std::lock_guard<std::mutex> guard(m_mutexOpen);
    const auto found = m_open.find(linkID);
    return found != m_open.end() ? found->second : nullptr;
}

int LinkEngine::Send(const std::string& linkID, ACE_Message_Block* block) {
    const std::shared_ptr<Link> link = FindOpen(linkID);
    return link != nullptr && SendReceipt::Allows(link->Progress()) ? link->Send(block) : int{ZVS_NET_SEND_ERROR};
}

LinkRoom LinkEngine::RoomOf(const std::string& linkID) const {
    const std::shared_ptr<Link> link = FindOpen(linkID);
    if (link == nullptr || link->Progress()->closed) {
        return LinkRoom::NoLink;
    }
    const std::size_t most = std::min(kRoomyBytes, m_options.maxQueuedBytes / 2);
    return link->Describe().queuedBytes < most ? LinkRoom::Free : LinkRoom::Full;
}

std::shared_ptr<const LinkProgress> LinkEngine::ProgressOf(const std::string& linkID) const {
    const std::shared_ptr<Link> link = FindOpen(linkID);
    return link != nullptr ? link->Progress() : nullptr;
}

void LinkEngine::RequestFlush(std::shared_ptr<Link> link) {
    std::unique_lock<std::mutex> lock(m_mutexWork);
    Link* const last = link.get();
    (m_lastToFlush == nullptr ? m_firstToFlush : m_lastToFlush->m_nextToFlush) = std::move(link);
    m_lastToFlush = last;
    lock.unlock();
    m_wake.Ring();
}

// A link that closes meanwhile is in the list or in the totals, never in both.
std::vector<LinkInfo> LinkEngine::Links(LinkTotals& totals) const {
    std::vector<std::shared_ptr<Link>> open;
    {
        std::lock_guard<std::mutex> guard(m_mutexOpen);
        open.reserve(m_open.size());
        for (const auto& entry : m_open) {
            open.push_back(entry.second);
        }
        totals = m_ended;
    }
    std::vector<LinkInfo> infos;
    infos.reserve(open.size());
    for (const std::shared_ptr<Link>& link : open) {
        infos.push_back(link->Describe());
        AddUp(totals, infos.back());
    }
    return infos;
}

}  // namespace BP
