#include "gateway/admin/control_socket.h"

#include "base/clock.h"
#include "base/json_io.h"
#include "base/log.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <new>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace gvx {

namespace {

constexpr mode_t kSocketMode = 0660;
constexpr int kBacklog = 16;
constexpr int kWaitMs = 1000;
constexpr int kLaterMs = 20;

UniqueFd MakeSocket() {
    return UniqueFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// Empty when whoever has made the socket is gone; otherwise why it stays. Without descriptors, for one, nobody knows.
std::string WhyItStays(const sockaddr_un& address) {
    const UniqueFd probe = MakeSocket();
    if (probe.Valid() &&
        (connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 || errno == EAGAIN)) {
        return "another process answers there";
    }
    return errno == ECONNREFUSED || errno == ENOENT
               ? ""
               : std::string("whether another process answers there cannot be found out: ") + std::strerror(errno);
}

// Removes the file if it is still the one that was seen, and not what another process has put in its place.
void RemoveSeen(const std::string& path, const struct stat& seen) {
    struct stat now {};
    if (lstat(path.c_str(), &now) == 0 && now.st_dev == seen.st_dev && now.st_ino == seen.st_ino) {
        unlink(path.c_str());
    }
}

}  // namespace

ControlSocket::~ControlSocket() {
    Stop();
}

bool ControlSocket::Start(const std::string& path, Answer answer, std::string& reason) {
    m_answer = std::move(answer);
    m_stop = false;
    m_wake.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!m_wake.Valid()) {
        reason = std::strerror(errno);
        return false;
    }
    if (!Listen(path, reason)) {
        return false;
    }
    m_path = path;
    try {
        m_thread = std::thread(&ControlSocket::Run, this);
    } catch (const std::exception& fault) {
        reason = std::string("no thread for it: ") + fault.what();
        Stop();
        return false;
    }
    return true;
}

bool ControlSocket::Listen(const std::string& path, std::string& reason) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        reason =
            "the path is longer than the " + std::to_string(sizeof(address.sun_path) - 1) + " characters of a socket";
        return false;
    }
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    std::error_code ignored;  // a folder that is not there is named by what follows
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0) {
        if (!S_ISSOCK(status.st_mode)) {
            reason = "there is a file of that name, which is no socket";
            return false;
        }
        reason = WhyItStays(address);
        if (!reason.empty()) {
            return false;
        }
        RemoveSeen(path, status);
    }
    m_listener = MakeSocket();
    // The mode is in force before anybody can connect.
    if (!m_listener.Valid() ||
        bind(m_listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        reason = std::strerror(errno);
        m_listener.Reset();
        return false;
    }
    if (lstat(path.c_str(), &m_file) != 0 || chmod(path.c_str(), kSocketMode) != 0 ||
        listen(m_listener.Get(), kBacklog) != 0) {
        reason = std::strerror(errno);
        RemoveSeen(path, m_file);
        m_listener.Reset();
        return false;
    }
    return true;
}

void ControlSocket::Stop() {
    m_stop = true;
    if (m_thread.joinable()) {
        eventfd_write(m_wake.Get(), 1);
        m_thread.join();
    }
    m_clients.clear();
    if (m_listener.Valid()) {
        RemoveSeen(m_path, m_file);
        m_listener.Reset();
    }
}

// Without memory all clients go, and the next ones are served.
void ControlSocket::Run() {
    ::pthread_setname_np(::pthread_self(), "ControlSocket");
    while (!m_stop) {
        try {
            Turn();
        } catch (const std::bad_alloc&) {
            m_clients.clear();
        }
    }
}

void ControlSocket::Turn() {
    m_watched.assign({{m_wake.Get(), POLLIN, 0}, {m_clients.size() < kMaxClients ? m_listener.Get() : -1, POLLIN, 0}});
    int waitMs = m_clients.empty() ? -1 : kWaitMs;
    for (const Client& client : m_clients) {
        const short events = client.later ? 0 : client.answer.empty() ? POLLIN : POLLOUT;
        m_watched.push_back({client.socket.Get(), events, 0});
        waitMs = client.later ? kLaterMs : waitMs;
    }
    if (poll(m_watched.data(), m_watched.size(), waitMs) < 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(errno == EINTR ? 0 : kWaitMs));
        return;
    }
    const std::int64_t nowMs = MonotonicMilliseconds();
    auto seen = m_watched.begin() + 2;
    for (auto client = m_clients.begin(); client != m_clients.end(); ++seen) {
        const bool rests = seen->revents == 0 && !client->later;
        const bool stays = (rests || Serve(*client, seen->revents)) && nowMs < client->deadlineMs;
        client = stays ? std::next(client) : m_clients.erase(client);
    }
    if ((m_watched[1].revents & POLLIN) != 0) {
        Accept();
    }
}

void ControlSocket::Accept() {
    UniqueFd socket(accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket.Valid()) {
        m_clients.push_back({std::move(socket), "", nullptr, "", 0, MonotonicMilliseconds() + kClientLimitMs});
    } else if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) {
        pollfd wake{m_wake.Get(), POLLIN, 0};
        poll(&wake, 1, kWaitMs);  // the one who waits is still there then
    }
}

// False when the client goes.
bool ControlSocket::Serve(Client& client, short events) {
    if (client.later) {
        return (events & (POLLERR | POLLHUP)) == 0 && Take(client, std::exchange(client.later, nullptr));
    }
    if (!client.answer.empty()) {
        return (events & POLLERR) == 0 && Write(client);
    }
    return Read(client);
}

bool ControlSocket::Read(Client& client) {
    char bytes[1024];
    const ssize_t count = recv(client.socket.Get(), bytes, sizeof(bytes), 0);
    if (count <= 0) {
        return count < 0 && (errno == EAGAIN || errno == EINTR);
    }
    client.request.append(bytes, static_cast<std::size_t>(count));
    const std::size_t end = client.request.find('\n');
    if (end == std::string::npos && client.request.size() <= kMaxRequestBytes) {
        return true;
    }
    const std::string request = std::exchange(client.request, std::string());
    return Take(client, [&] {
        ControlAnswer answer;
        if (end == std::string::npos || end > kMaxRequestBytes) {
            answer.value["error"] = "A request is one line of at most " + std::to_string(kMaxRequestBytes) + " bytes.";
        } else {
            answer = m_answer(request.substr(0, end));
        }
        return answer;
    });
}

// Sends the answer, or keeps whom to ask for it.
bool ControlSocket::Take(Client& client, const std::function<ControlAnswer()>& ask) {
    try {
        ControlAnswer answer = ask();
        if (answer.later) {
            client.later = std::move(answer.later);
            return true;
        }
        client.answer = WriteJson(answer.value);
    } catch (const std::bad_alloc&) {
        client.answer = "{\"error\":\"The status cannot be collected: no memory.\"}\n";
    } catch (const std::exception& fault) {
        Json::Value answer;
        answer["error"] = std::string("The status cannot be collected: ") + fault.what();
        client.answer = WriteJson(answer);
    }
    client.sent = 0;
    return Write(client);
}

bool ControlSocket::Write(Client& client) {
    while (client.sent < client.answer.size()) {
        const ssize_t count = send(client.socket.Get(), client.answer.data() + client.sent,
                                   client.answer.size() - client.sent, MSG_NOSIGNAL);
        if (count < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        client.sent += static_cast<std::size_t>(count);
        client.deadlineMs = MonotonicMilliseconds() + kClientLimitMs;
    }
    std::string().swap(client.answer);
    return true;
}

}  // namespace gvx
