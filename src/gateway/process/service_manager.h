#pragma once

#include "base/unique_fd.h"

#include <chrono>
#include <string>

namespace gvx {

// Tells the service manager that has started gvxd how it stands, by datagrams to the socket that NOTIFY_SOCKET names
// (sd_notify(3), "Notes": the protocol is stable, and a library for it would be another dependency). Nothing is sent,
// and nothing fails, where there is none. Any thread may tell; made on main's.
class ServiceManager {
public:
    // Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID, and takes them out of the environment: programs that gvxd
    // runs have nothing to tell.
    ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    void Ready() const { Tell("READY=1"); }
    void Reloading() const;
    void Stopping() const { Tell("STOPPING=1"); }
    // The manager ends a process from which this does not come for WatchdogTime.
    void Alive() const { Tell("WATCHDOG=1"); }
    // 0 when nobody watches.
    std::chrono::milliseconds WatchdogTime() const { return m_watchdog; }

private:
    void Tell(const std::string& state) const;

    std::string m_address;  // a path; an abstract name with its leading zero byte; empty for none
    std::chrono::milliseconds m_watchdog{0};
    UniqueFd m_socket;
};

}  // namespace gvx
