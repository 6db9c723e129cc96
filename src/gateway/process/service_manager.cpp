#include "gateway/process/service_manager.h"

#include "base/log.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace gvx {

namespace {

std::string Taken(const char* name) {
    const char* const value = std::getenv(name);
    std::string text = value == nullptr ? "" : value;
    unsetenv(name);
    return text;
}

}  // namespace

ServiceManager::ServiceManager() : m_address(Taken("NOTIFY_SOCKET")) {
    const long long watchdogUs = std::atoll(Taken("WATCHDOG_USEC").c_str());
    const std::string watched = Taken("WATCHDOG_PID");
    if (m_address.empty()) {
        return;
    }
    if (m_address[0] == '@') {
        m_address[0] = '\0';
    }
    if (watchdogUs > 0 && (watched.empty() || std::atoll(watched.c_str()) == getpid())) {
        m_watchdog = std::chrono::milliseconds(watchdogUs / 1000);
    }
    m_socket.Reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const timeval limit{0, 200000};  // a manager whose queue is full gets that long to read
    setsockopt(m_socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

// A manager that reloads a service by a signal wants to know when the reload began.
void ServiceManager::Reloading() const {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    Tell("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(now.tv_sec * 1000000LL + now.tv_nsec / 1000));
}

void ServiceManager::Tell(const std::string& state) const {
    sockaddr_un to{};
    if (!m_socket.Valid() || m_address.size() >= sizeof(to.sun_path)) {
        return;
    }
    to.sun_family = AF_UNIX;
    std::memcpy(to.sun_path, m_address.data(), m_address.size());
    const auto length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + m_address.size() + (m_address[0] == '\0' ? 0 : 1));
    if (sendto(m_socket.Get(), state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&to),
               length) < 0) {
        GVX_LOG_WARN("Service manager", "It is not told %s: %s", state.c_str(), std::strerror(errno));
    }
}

}  // namespace gvx
