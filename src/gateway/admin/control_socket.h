#pragma once

#include "base/unique_fd.h"

#include <json/value.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/stat.h>

namespace gvx {

// The answer to a request, or the one to ask for it: again and again, every few moments, until it gives an answer.
struct ControlAnswer {
    Json::Value value;
    std::function<ControlAnswer()> later;  // empty: value is the answer
};

// A socket of the Unix domain for those who run the gateway: whoever may write to its file, its owner and its group,
// sends a line and gets a line of JSON. One thread serves all clients, none of which can hold up another: a request is
// kMaxRequestBytes at most, kMaxClients are served at a time, and one that neither asks nor takes its answer for
// kClientLimitMs is closed.
class ControlSocket {
public:
    static constexpr std::size_t kMaxRequestBytes = 4096;
    static constexpr std::size_t kMaxClients = 32;
    static constexpr std::int64_t kClientLimitMs = 10000;

    // Answers one request, a line without its end. On the thread of the socket, which serves all others meanwhile: what
    // has to wait for something is left for later.
    using Answer = std::function<ControlAnswer(const std::string& request)>;

    ControlSocket() = default;
    ~ControlSocket();
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

    // Makes the socket, mode 0660, and its folder where that is missing, and starts the thread "ControlSocket". A file
    // that an ended gateway has left there is replaced; one behind which somebody answers is not. False with the
    // reason.
    bool Start(const std::string& path, Answer answer, std::string& reason);
    // Ends the thread, which answers no further request, and removes the file where it is still ours. May be called
    // again.
    void Stop();

private:
    struct Client {
        UniqueFd socket;
        std::string request;
        std::function<ControlAnswer()> later;  // has its answer
        std::string answer;
        std::size_t sent = 0;
        std::int64_t deadlineMs = 0;
    };

    bool Listen(const std::string& path, std::string& reason);
    void Run();
    void Turn();
    void Accept();
    bool Serve(Client& client, short events);
    bool Read(Client& client);
    bool Take(Client& client, const std::function<ControlAnswer()>& ask);
    bool Write(Client& client);

    std::string m_path;
    struct stat m_file {};  // of the socket that stands there
    Answer m_answer;
    UniqueFd m_listener;
    UniqueFd m_wake;
    std::atomic<bool> m_stop{false};
    std::list<Client> m_clients;    // of the thread
    std::vector<pollfd> m_watched;  // of the thread
    std::thread m_thread;
};

}  // namespace gvx
