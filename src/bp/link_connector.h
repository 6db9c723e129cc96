#pragma once

#include "base/unique_fd.h"
#include "bp/net_address.h"

#include <cstdint>
#include <string>
#include <tuple>

namespace BP {

// Where an outgoing link leads; there is one link at most for each.
struct ConnectorKey {
    std::string ip;  // canonical
    int port = 0;
    int type = 0;

    bool operator<(const ConnectorKey& other) const {
        return std::tie(ip, port, type) < std::tie(other.ip, other.port, other.type);
    }
};

struct ConnectorOptions {
    std::string localID;  // registered at the peer
    NetAddress peer;
    NetAddress local;  // length 0: the system's choice
    bool retry = true;
    int connectTimeoutMs = 0;
    int backoffMinMs = 0;
    int backoffMaxMs = 0;
};

// Keeps one outgoing link: when to try, and how. Everything but the key is for the I/O thread alone.
class LinkConnector {
public:
    LinkConnector(const ConnectorKey& key, const ConnectorOptions& options)
        : m_key(key), m_options(options), m_waitMs(options.backoffMinMs) {}

    const ConnectorKey& Key() const { return m_key; }
    const ConnectorOptions& Options() const { return m_options; }

    // A socket whose connect is under way; not valid on failure, with errno kept.
    gvx::UniqueFd BeginConnect() const;

    // The moment from which the next attempt may be made. Not while an attempt or a link is under way.
    std::int64_t NextAttemptMs() const { return m_nextAttemptMs; }
    bool Idle() const { return !m_busy && !m_ended; }
    void AttemptBegins() { m_busy = true; }
    void LinkOpened(std::int64_t nowMs);
    // An attempt failed or the link was lost. The wait doubles each time, and starts anew after a link that lived
    // longer than the wait before it: a peer that closes each link at once is not hammered.
    void AttemptEnded(std::int64_t nowMs);
    // No further attempt, whether because it was deleted or because there was to be one only.
    void End() { m_ended = true; }

    // Warning for the first failure since the link was last open, debug for the ones that follow.
    int FailureLogLevel() const;

private:
    const ConnectorKey m_key;
    const ConnectorOptions m_options;
    bool m_busy = false;
    bool m_ended = false;
    bool m_failedBefore = false;
    std::int64_t m_openedMs = -1;  // -1: not since the last attempt began
    std::int64_t m_nextAttemptMs = 0;
    std::int64_t m_waitMs;
};

}  // namespace BP
