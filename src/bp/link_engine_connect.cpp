#include "bp/link_engine.h"

#include "base/clock.h"
#include "base/log.h"
#include "bp/errno_text.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace BP {

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
                         ErrnoText("cannot listen", kept).c_str());
        errno = kept;
        return ZVS_NET_BIND_ERROR;
    }
    if (boundPort != nullptr) {
        *boundPort = static_cast<std::uint16_t>(bound.port);
    }
    GVX_LOG_INFO("Link listener", "[%s:%u] listening", bound.ip.c_str(), bound.port);
    Post([this, bound, held = std::make_shared<gvx::UniqueFd>(std::move(socket))] {
        auto acceptor = std::make_unique<LinkAcceptor>(*this, std::move(*held), bound);
        if (acceptor->Begin(*m_reactor)) {
            m_acceptors.push_back(std::move(acceptor));
        }
    });
    return ZVS_SUCCEED;
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
    const ConnectorOptions& options = connector->Options();
    gvx::UniqueFd socket = connector->BeginConnect();
    if (!socket.Valid()) {
        GVX_LOG(connector->FailureLogLevel(), "Link closed", "[peer:%s:%u, link:] %s", options.peer.ip.c_str(),
                options.peer.port, ErrnoText("connect failed", errno).c_str());
        AttemptEnded(connector);
        return;
    }
    Adopt(Link::Connecting(*this, m_options, std::move(socket), options.peer, options.localID,
                           nowMs + options.connectTimeoutMs, connector->FailureLogLevel()),
          connector);
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

}  // namespace BP
