#include "support/scripted_server.h"

#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

std::string ScriptedServer::Link::ReadUntil(const std::string& end) {
    std::string bytes;
    char byte = 0;
    pollfd ready{m_fd, POLLIN, 0};
    while (
        (end.empty() || bytes.size() < end.size() || bytes.compare(bytes.size() - end.size(), end.size(), end) != 0) &&
        ::poll(&ready, 1, static_cast<int>(kLimit.count())) == 1 && ::recv(m_fd, &byte, 1, 0) == 1) {
        bytes += byte;
    }
    return bytes;
}

bool ScriptedServer::Link::Write(const std::string& bytes) {
    return ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

void ScriptedServer::Link::Reset() {
    const linger none{1, 0};
    ::setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &none, sizeof(none));
}

ScriptedServer::ScriptedServer(Script script, std::uint16_t port, const char* ip)
    : m_script(std::move(script)), m_listener(port, ip), m_thread([this] { Serve(); }) {}

ScriptedServer::~ScriptedServer() {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_stopped = true;
        ::shutdown(m_listener.Fd(), SHUT_RDWR);
        if (m_served >= 0) {
            ::shutdown(m_served, SHUT_RDWR);
        }
    }
    m_thread.join();
}

void ScriptedServer::Serve() {
    while (true) {
        const int fd = ::accept4(m_listener.Fd(), nullptr, nullptr, SOCK_CLOEXEC);
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            if (fd < 0 || m_stopped) {
                ::close(fd);
                return;
            }
            m_served = fd;
        }
        Link link(fd);
        m_script(link);
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_served = -1;
        ::close(fd);
    }
}
