#pragma once

#include "base/unique_fd.h"
#include "bp/frame_reader.h"
#include "bp/message_block_ptr.h"
#include "bp/net_address.h"
#include "bp/net_factory.h"
#include "bp/send_queue.h"

#include <ace/Event_Handler.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

namespace BP {

class Link;

constexpr std::int64_t kNoDeadline = std::numeric_limits<std::int64_t>::max();

// What a link needs of the engine that serves it. All but RequestFlush is called on the I/O thread.
class LinkOwner {
public:
    virtual ~LinkOwner() = default;
    // The peer has registered; the link is open.
    virtual void LinkRegistered(Link& link) = 0;
    virtual void FrameReceived(Link& link, MessageBlockPtr frame) = 0;
    // The link is closed for good. The owner calls ReleaseSocket when no upcall can run any more.
    virtual void LinkClosed(Link& link, bool wasOpen) = 0;
    // The link must look at its deadlines at that monotonic millisecond or before.
    virtual void WakeBy(std::int64_t deadlineMs) = 0;
    // Any thread: Flush of the link is wanted on the I/O thread.
    virtual void RequestFlush(std::shared_ptr<Link> link) = 0;
};

// One TCP link from its socket to its close: framing, registration, keep-alive, sending. Send and Describe may be
// called by any thread once the link is open, all else by the I/O thread alone. docs/nss-link.md gives the protocol.
class Link : public ACE_Event_Handler, public std::enable_shared_from_this<Link> {
public:
    // For a peer that connected to us. options and owner outlive the link.
    static std::shared_ptr<Link> Accepted(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket,
                                          const NetAddress& peer);
    // For a socket whose connect is under way; localID registers there, and the connect must succeed by the deadline.
    // Its failure is logged at the level given, since an attempt is often one of many.
    static std::shared_ptr<Link> Connecting(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket,
                                            const NetAddress& peer, const std::string& localID,
                                            std::int64_t connectDeadlineMs, int connectLogLevel);

    // Puts the link under the reactor. False when it refuses; the link is then closed, and says so in the log.
    bool Begin(ACE_Reactor& reactor);

    // Takes the block over when it answers 0; ZVS_NET_SEND_ERROR for a full queue or a closed link.
    int Send(ACE_Message_Block* block);
    LinkInfo Describe() const;

    // Writes what waits.
    void Flush();
    // Closes for every deadline that has passed, keeps the link alive where it is quiet, and asks for the next wake.
    void CheckDeadlines(std::int64_t nowMs);
    // Closes with one log line; the second and later calls do nothing.
    void Close(int logLevel, const std::string& reason);
    void ReleaseSocket();

    bool Outgoing() const { return m_outgoing; }
    const std::string& ID() const { return m_linkID; }
    const NetAddress& Peer() const { return m_peer; }

    ACE_HANDLE get_handle() const override { return m_socket.Get(); }
    int handle_input(ACE_HANDLE) override;
    int handle_output(ACE_HANDLE) override;
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override;

private:
    enum class State { Connecting, Registering, Open, Closed };

    Link(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket, const NetAddress& peer);

    void Connected();
    bool Consume(const char* data, std::size_t length);
    void CloseForReaderFault();
    void PeerEnded(int error);
    void FrameArrived(MessageBlockPtr frame);
    void RegistrationArrived(MessageBlockPtr frame, std::uint16_t type, std::uint32_t rspCode);
    void RefuseRegistration(const ACE_Message_Block* frame, const std::string& fault);
    void BecomeOpen();
    bool SendControl(MessageBlockPtr frame);
    void CheckOpenDeadlines(std::int64_t nowMs);
    bool BytesWaitUnread() const;

    LinkOwner& m_owner;
    const LinkOptions& m_options;
    gvx::UniqueFd m_socket;
    const NetAddress m_peer;
    std::string m_localID;
    bool m_outgoing = false;
    int m_connectLogLevel = 0;
    State m_state = State::Registering;
    bool m_writeWatched = false;  // the reactor tells when the socket takes bytes again
    std::string m_linkID;         // constant from the opening on
    FrameReader m_reader;
    SendQueue m_queue;
    std::int64_t m_setupDeadlineMs = kNoDeadline;  // connect, then registration
    std::int64_t m_frameDeadlineMs = kNoDeadline;
    std::int64_t m_lastHeardMs = 0;
    std::int64_t m_lastSaidMs = 0;
    std::atomic<bool> m_flushWanted{false};  // a flush is under way, or the socket will ask for it
    std::atomic<std::uint64_t> m_framesIn{0};
};

}  // namespace BP
