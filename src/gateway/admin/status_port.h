#pragma once

#include "gateway/admin/status.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace gvx {

class EventFeed;

// The HTTP port of the status: the page, /livez, /readyz, /metrics, /status.json and /events (docs/status.md). One
// thread of the library serves all; none of its work waits for a peer, or for a page that is written. A connection
// serves one request and is closed after kConnectionLimitMs whatever its peer does, unless it reads events;
// kMaxConnections stand at a time, with kConnectionBytes for the head of a request. A page of the status is written on
// a thread of its own and stands for a while: all who ask meanwhile share it, and none is written for a peer that has
// gone. The thread that starts and stops the gateway.
class StatusPort {
public:
    static constexpr unsigned int kMaxConnections = 256;
    static constexpr unsigned int kConnectionBytes = 16 * 1024;
    static constexpr std::int64_t kConnectionLimitMs = 15000;
    // What slow readers of one page may keep of earlier looks; beyond that the page is refused until they have gone.
    static constexpr std::size_t kMaxHeldBytes = 64u << 20;

    struct Sources {
        std::function<std::shared_ptr<const GatewayStatus>()> look;  // a recent one
        std::function<std::vector<ThreadStatus>()> threads;
        EventFeed* feed = nullptr;  // outlives the port; must have been stopped when the port stops
    };

    StatusPort();
    // Stops it.
    ~StatusPort();
    StatusPort(const StatusPort&) = delete;
    StatusPort& operator=(const StatusPort&) = delete;

    // Listens on address and port. False with the reason.
    bool Start(const std::string& address, std::uint16_t port, Sources sources, std::string& reason);
    // Closes every connection. May be called again.
    void Stop();

    // Closes connections whose time is over; to be called once a second while it runs. Any thread.
    void Sweep();

private:
    struct Server;

    std::unique_ptr<Server> m_server;  // null while it does not run
};

}  // namespace gvx
