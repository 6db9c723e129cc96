#pragma once

#include "bp/link_tls.h"
#include "gvxctl/frame.h"
#include "gvxctl/socket_util.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace gvxctl {

// One registered link of one platform peer. A process holds as many as it plays peers. A thread of its own reads
// frames, answers keep-alives and sends them in silence; every other frame goes to the handler on that thread.
class PeerLink {
public:
    using Handler = std::function<void(PeerLink& link, const Frame& frame)>;

    // From now on links are made over TLS with these files. Before the first link. False when the files cannot be used,
    // with the reason in error.
    static bool UseTls(const BP::LinkTlsFiles& files, std::string& error);

    // Connects and registers as linkId. Null for a failure, with the reason in error.
    static std::unique_ptr<PeerLink> Connect(const Endpoint& gateway, const std::string& linkId, Handler handler,
                                             int timeoutMs, std::string& error);
    // Takes a connection that the other side made, waits for its registration and answers it as linkId.
    static std::unique_ptr<PeerLink> Accept(gvx::UniqueFd connection, const std::string& linkId, Handler handler,
                                            int timeoutMs, std::string& error);
    // Closes the link and waits for its thread. Not on that thread.
    ~PeerLink();
    PeerLink(const PeerLink&) = delete;
    PeerLink& operator=(const PeerLink&) = delete;

    // Any thread. False when the link is gone or the gateway does not read.
    bool Send(const FrameSpec& spec);
    // The same with bytes that stand for whole frames, or that are none where a fault is to be played.
    bool SendBytes(const std::string& bytes);

    bool IsOpen() const { return m_open; }
    const std::string& LocalId() const { return m_localId; }
    const std::string& RemoteId() const { return m_remoteId; }
    // Why the link closed; empty while it is open. Valid once IsOpen is false.
    std::string CloseReason() const;

private:
    PeerLink(gvx::UniqueFd fd, std::string localId, Handler handler);
    bool Secure(bool outgoing, int timeoutMs, std::string& error);
    bool IsWhoItSays(std::string& error) const;
    ssize_t Receive(char* buffer, std::size_t length);
    bool SendWhole(const std::string& bytes);
    bool RegisterOut(int timeoutMs, std::string& error);
    bool RegisterIn(int timeoutMs, std::string& error);
    bool ReadFrame(Frame& frame, std::int64_t deadlineMs, std::string& error);
    bool ReadSome(int timeoutMs, std::string& error);
    void Start();
    void Run();
    bool ServeFrames(std::string& error);
    void KeepAlive();
    void Close(const std::string& reason);

    gvx::UniqueFd m_fd;
    std::mutex m_sessionMutex;                  // guards the session, which both directions use
    std::unique_ptr<BP::TlsSession> m_session;  // null: the link is plain
    std::string m_localId;
    std::string m_remoteId;
    Handler m_handler;
    FrameCutter m_cutter;  // reader thread, after Start
    std::atomic<bool> m_open{true};
    std::atomic<std::int64_t> m_lastSentMs{0};
    std::mutex m_sendMutex;            // keeps frames whole on the wire
    mutable std::mutex m_reasonMutex;  // guards m_reason
    std::string m_reason;
    std::thread m_thread;
};

}  // namespace gvxctl
