#pragma once

#include "gvxctl/peer_link.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace gvxctl {

// Waits for the gateway's link to a peer that it calls itself, the media unit. One link at a time; a newer one takes
// the place of an older one.
class LinkListener {
public:
    LinkListener(std::string linkId, PeerLink::Handler handler);
    ~LinkListener();

    // Port 0 takes any free one. False with a reason.
    bool Start(const Endpoint& local, std::string& error);
    std::uint16_t Port() const { return m_port; }

    // False when no link has registered within the time.
    bool WaitForLink(int timeoutMs);
    bool IsLinked() const;
    // Any thread; false without a link.
    bool SendBytes(const std::string& bytes);
    // Ends the link that is there and goes on waiting for the next. Not on the link's own thread.
    void CloseLink();
    // What the gateway called itself; empty without a link.
    std::string RemoteId() const;
    // Why the last caller was refused; empty when none was.
    std::string LastError() const;

private:
    void Run();

    std::string m_linkId;
    PeerLink::Handler m_handler;
    gvx::UniqueFd m_listener;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_running{false};
    mutable std::mutex m_mutex;  // guards m_link and m_lastError
    std::condition_variable m_linked;
    std::shared_ptr<PeerLink> m_link;
    std::string m_lastError;
    std::thread m_thread;
};

}  // namespace gvxctl
