#pragma once

#include "gateway/requests/gateway_context.h"

#include <memory>

namespace gvx {

// What those who run the gateway see of it: the control socket, the status port and the signs of life of its event
// threads (docs/status.md). None of it is what the gateway exists for: what cannot be had is a line of the log, and the
// gateway serves on. Of the thread that starts and stops the gateway.
class Admin {
public:
    Admin();
    // Stops it.
    ~Admin();
    Admin(const Admin&) = delete;
    Admin& operator=(const Admin&) = delete;

    // Behind everything that can refuse the start; the context must stay until Stop.
    void Start(GatewayContext& context);
    // Nobody looks at the context any more when it returns. May be called again.
    void Stop();

private:
    struct Parts;

    std::unique_ptr<Parts> m_parts;  // null while it does not run
};

// Whether the event threads that all devices need answer within Heartbeats::kSharedLimit; for a watchdog that ends a
// process without hope. A plug-in that holds up the thread of a device is no reason, however long: /livez names it.
// True while no gateway runs. Any thread; takes no lock for long.
bool EventThreadsAlive();

// Writes the status to the log, in a few dozen lines at most. A line says so while no gateway runs. Any thread, not
// from within a signal handler.
void WriteStatusToLog();

}  // namespace gvx
