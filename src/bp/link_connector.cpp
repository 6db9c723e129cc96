#include "bp/link_connector.h"

#include "base/om_adapter.h"

#include <algorithm>
#include <cerrno>

namespace BP {

gvx::UniqueFd LinkConnector::BeginConnect() const {
    gvx::UniqueFd socket(::socket(m_options.peer.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket.Valid()) {
        return socket;
    }
    if (m_options.local.length != 0 && ::bind(socket.Get(), m_options.local.Get(), m_options.local.length) != 0) {
        return gvx::UniqueFd();
    }
    if (::connect(socket.Get(), m_options.peer.Get(), m_options.peer.length) != 0 && errno != EINPROGRESS) {
        return gvx::UniqueFd();
    }
    return socket;
}

void LinkConnector::LinkOpened(std::int64_t nowMs) {
    m_openedMs = nowMs;
    m_failedBefore = false;
}

void LinkConnector::AttemptEnded(std::int64_t nowMs) {
    m_busy = false;
    if (m_openedMs >= 0 && nowMs - m_openedMs > m_waitMs) {
        m_waitMs = m_options.backoffMinMs;
    }
    m_failedBefore = m_openedMs < 0;
    m_openedMs = -1;
    m_nextAttemptMs = nowMs + m_waitMs;
    m_waitMs = std::min<std::int64_t>(m_waitMs * 2, m_options.backoffMaxMs);
}

int LinkConnector::FailureLogLevel() const {
    return m_failedBefore ? OM_LOG_DEBUG : OM_LOG_WARNING;
}

}  // namespace BP
