#include "bp/link_engine.h"

#include "base/clock.h"
#include "base/log.h"
#include "bp/dispatcher.h"
#include "bp/element_type.h"
#include "bp/transactions.h"

#include <exception>
#include <utility>

namespace BP {

void LinkEngine::Adopt(const std::shared_ptr<Link>& link, std::shared_ptr<LinkConnector> connector) {
    m_incoming += link->Outgoing() ? 0 : 1;
    m_links.emplace(link.get(), LiveLink{link, std::move(connector)});
    link->Begin(*m_reactor);
}

void LinkEngine::PeerArrived(gvx::UniqueFd socket, const NetAddress& peer) {
    if (m_incoming >= m_options.maxLinks) {
        GVX_LOG_WARN("Link closed", "[peer:%s:%u, link:] too many links, the limit is %zu", peer.ip.c_str(), peer.port,
                     m_options.maxLinks);
        return;
    }
    Adopt(Link::Accepted(*this, m_options, std::move(socket), peer), nullptr);
}

void LinkEngine::LinkRegistered(Link& link) {
    const std::shared_ptr<Link> older = FindOpen(link.ID());
    if (older != nullptr) {
        older->Close(OM_LOG_WARNING, "replaced: the identifier registered anew from " + link.Peer().ip + ":" +
                                         std::to_string(link.Peer().port));
    }
    const LiveLink& live = m_links.at(&link);
    if (live.connector != nullptr) {
        live.connector->LinkOpened(gvx::MonotonicMilliseconds());
    }
    std::unique_lock<std::mutex> lock(m_mutexOpen);
    m_open[link.ID()] = live.link;
    lock.unlock();
    Report(m_events.opened, "opened", link);
}

void LinkEngine::FrameReceived(Link& link, MessageBlockPtr frame) {
    CDispatcher::FrameArrived(ElementTypeOf(link.ID()), link.ID(), frame.release());
}

void LinkEngine::LinkClosed(Link& link, bool wasOpen) {
    const auto found = m_links.find(&link);
    if (found == m_links.end()) {
        return;
    }
    const LiveLink live = std::move(found->second);
    m_links.erase(found);
    m_dead.push_back(live.link);
    m_incoming -= link.Outgoing() ? 0 : 1;
    if (live.connector != nullptr) {
        AttemptEnded(live.connector);
    }
    if (wasOpen) {
        std::unique_lock<std::mutex> lock(m_mutexOpen);
        m_open.erase(link.ID());
        lock.unlock();
        TransactionTable::Instance().LinkClosed(link.ID());
        Report(m_events.closed, "closed", link);
    }
}

void LinkEngine::Report(const LinkEvents::Event& event, const char* name, const Link& link) {
    if (!event) {
        return;
    }
    try {
        event(link.ID(), ElementTypeOf(link.ID()), link.ID(), link.Peer().ip, link.Peer().port);
    } catch (const std::exception& fault) {
        GVX_LOG_ERR("Link event", "The event \"%s\" of link[%s] threw: %s", name, link.ID().c_str(), fault.what());
    } catch (...) {
        GVX_LOG_ERR("Link event", "The event \"%s\" of link[%s] threw something unknown.", name, link.ID().c_str());
    }
}

std::shared_ptr<Link> LinkEngine::FindOpen(const std::string& linkID) const {
    std::lock_guard<std::mutex> guard(m_mutexOpen);
    const auto found = m_open.find(linkID);
    return found != m_open.end() ? found->second : nullptr;
}

int LinkEngine::Send(const std::string& linkID, ACE_Message_Block* block) {
    const std::shared_ptr<Link> link = FindOpen(linkID);
    return link != nullptr ? link->Send(block) : ZVS_NET_SEND_ERROR;
}

void LinkEngine::RequestFlush(std::shared_ptr<Link> link) {
    std::unique_lock<std::mutex> lock(m_mutexWork);
    m_flushes.push_back(std::move(link));
    lock.unlock();
    m_wake.Ring();
}

std::vector<LinkInfo> LinkEngine::Links() const {
    std::vector<LinkInfo> infos;
    std::lock_guard<std::mutex> guard(m_mutexOpen);
    infos.reserve(m_open.size());
    for (const auto& entry : m_open) {
        infos.push_back(entry.second->Describe());
    }
    return infos;
}

}  // namespace BP
