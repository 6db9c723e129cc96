#pragma once

#include "support/fake_peer.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

// A TCP server on a loopback address that does with each connection what a test's script says. Connections are served one after
// the other, on a thread of the server.
class ScriptedServer {
public:
    static constexpr std::chrono::milliseconds kLimit{20000};

    // One connection, closed when the script returns. The script's thread alone uses it.
    class Link {
    public:
        explicit Link(int fd) : m_fd(fd) {}
        Link(const Link&) = delete;
        Link& operator=(const Link&) = delete;

        // What came up to and with end; what is there when the client closes or the limit passes.
        std::string ReadUntil(const std::string& end);
        std::string ReadRequest() { return ReadUntil("\r\n\r\n"); }
        // False when the client has closed.
        bool Write(const std::string& bytes);
        // Reads and drops until the client closes.
        void WaitClosed() { ReadUntil(std::string()); }
        // Closes so that the client meets a reset.
        void Reset();

    private:
        int m_fd;
    };
    using Script = std::function<void(Link&)>;

    // Port 0 takes any free one.
    explicit ScriptedServer(Script script, std::uint16_t port = 0, const char* ip = "127.0.0.1");
    // Ends the connection that is being served, and waits for its script.
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    std::uint16_t Port() const { return m_listener.Port(); }

private:
    void Serve();

    const Script m_script;
    FakeListener m_listener;
    std::mutex m_mutex;
    int m_served = -1;       // Guarded by m_mutex.
    bool m_stopped = false;  // Guarded by m_mutex.
    std::thread m_thread;
};
