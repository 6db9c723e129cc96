#pragma once

#include "base/unique_fd.h"
#include "bp/frame_reader.h"
#include "bp/link_memory.h"
#include "bp/link_tls.h"
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

#include <sys/types.h>

struct iovec;

namespace BP {

class Link;

constexpr std::int64_t kNoDeadline = std::numeric_limits<std::int64_t>::max();

// What a link needs of the engine that serves it. All but RequestFlush and RequestShed is called on the I/O thread.
class LinkOwner {
public:
    virtual ~LinkOwner() = default;
    // The peer has registered; the link is open.
    virtual void LinkRegistered(Link& link) = 0;
    virtual void FrameReceived(Link& link, MessageBlockPtr frame) = 0;
    // The link is closed for good. The owner calls ReleaseSocket when no upcall can run any more.
    virtual void LinkClosed(Link& link, bool wasOpen) = 0;
    // Bytes that were read wait because serving them takes long: ServeBacklog of the link is wanted when others have
    // had their turn.
    virtual void BacklogWaits(std::shared_ptr<Link> link) = 0;
    // All links hold too much: those that hold most are to be closed, this one perhaps.
    virtual void ShedMemory() = 0;
    // The link must look at its deadlines at that monotonic millisecond or before.
    virtual void WakeBy(std::int64_t deadlineMs) = 0;
    // Any thread: Flush of the link is wanted on the I/O thread.
    virtual void RequestFlush(std::shared_ptr<Link> link) = 0;
    // Any thread: ShedMemory is wanted on the I/O thread.
    virtual void RequestShed() = 0;
};

// One TCP link from its socket to its close: framing, registration, keep-alive, sending. Send and Describe may be
// called by any thread once the link is open, all else by the I/O thread alone. docs/nss-link.md gives the protocol.
class Link : public ACE_Event_Handler, public std::enable_shared_from_this<Link> {
public:
    // For a peer that connected to us. options, owner and tls outlive the link; memory is that of all links. tls is
    // null where links are plain.
    static std::shared_ptr<Link> Accepted(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket,
                                          const NetAddress& peer, std::shared_ptr<LinkMemory> memory, LinkTls* tls);
    // For a socket whose connect is under way. What the attempt asks for:
    struct Attempt {
        std::string localID;  // registers there
        int peerType = 0;     // element code that the peer's identifier must have
        std::int64_t connectDeadlineMs = 0;
        int logLevel = 0;  // of a failure to connect, since an attempt is often one of many
    };
    static std::shared_ptr<Link> Connecting(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket,
                                            const NetAddress& peer, std::shared_ptr<LinkMemory> memory, LinkTls* tls,
                                            const Attempt& attempt);

    ~Link() override;

    // Puts the link under the reactor. Where that cannot be done the link is closed, and says so in the log.
    void Begin(ACE_Reactor& reactor);

    // Takes the block over when it answers 0; ZVS_NET_SEND_ERROR for a full queue or a closed link.
    int Send(ACE_Message_Block* block);
    LinkInfo Describe() const;
    // The same without its texts, for which there may be no memory.
    LinkInfo Numbers() const noexcept;
    std::shared_ptr<const LinkProgress> Progress() const { return m_queue.Progress(); }

    // Writes what waits.
    void Flush();
    // Goes on with what BacklogWaits told of: for a moment, or for one frame or one step of a handshake that takes
    // longer.
    void ServeBacklog();
    // What is held for the link, as allocated.
    std::size_t MemoryBytes() const { return m_account->Bytes(); }
    // Closes for every deadline that has passed, keeps the link alive where it is quiet, and asks for the next wake.
    void CheckDeadlines(std::int64_t nowMs);
    // Closes with one log line; the second and later calls do nothing.
    void Close(int logLevel, const std::string& reason);
    void ReleaseSocket();

    bool Outgoing() const { return m_outgoing; }
    bool Open() const { return m_state == State::Open; }
    const std::string& ID() const { return m_linkID; }
    const NetAddress& Peer() const { return m_peer; }

    ACE_HANDLE get_handle() const override { return m_socket.Get(); }
    int handle_input(ACE_HANDLE) override;
    int handle_output(ACE_HANDLE) override;
    int handle_close(ACE_HANDLE, ACE_Reactor_Mask) override;

    // The owner's: the next of those that want a flush.
    std::shared_ptr<Link> m_nextToFlush;

private:
    enum class State { Connecting, Handshaking, Registering, Open, Closed };

    Link(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket, const NetAddress& peer,
         std::shared_ptr<LinkMemory> memory, LinkTls* tls);

    template <typename Work>
    void Guarded(Work work);
    void Connected();
    bool BeginTls();
    void PostponeHandshake();
    void Handshake();
    void BeginRegistration();
    ssize_t Receive(char* buffer, std::size_t length);
    ssize_t Transmit(struct iovec* parts, int count);
    void Watch();
    void ReadFrames();
    enum class Heavy { Postponed, Served };
    bool Consume(const char* data, std::size_t length, Heavy heavy);
    bool MemoryIsThere();
    void Postpone(const char* data, std::size_t length);
    void AwaitMemory(std::int64_t nowMs);
    std::size_t BacklogBytes() const { return m_backlog.empty() ? 0 : m_backlog.capacity(); }
    void DropBacklog();
    void DropInternal(std::uint16_t type);
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
    Attempt m_attempt;  // of an outgoing link
    State m_state = State::Registering;
    bool m_readWatched = false;   // the reactor tells when bytes have come
    bool m_writeWatched = false;  // the reactor tells when the socket takes bytes again
    std::string m_linkID;         // constant from the opening on
    LinkTls* const m_tls;
    std::unique_ptr<TlsSession> m_session;  // null: the link is plain
    LinkAccount::Ptr m_account;
    FrameReader m_reader;
    std::string m_backlog;           // read, and not looked at yet
    std::size_t m_backlogAt = 0;     // what stands before has been looked at
    bool m_readPaused = false;       // until the backlog, or the next step of a handshake, has had its turn
    bool m_awaitsMemory = false;     // before the backlog has its turn
    bool m_readNeedsRoom = false;    // TLS has something to write before it reads on
    bool m_writeNeedsInput = false;  // TLS has something to read before it writes on
    bool m_queueWaits = false;       // for the socket
    SendQueue m_queue;
    std::int64_t m_setupDeadlineMs = kNoDeadline;  // connect, then registration
    std::int64_t m_frameDeadlineMs = kNoDeadline;
    std::int64_t m_lastHeardMs = 0;
    std::int64_t m_lastSaidMs = 0;
    std::int64_t m_lastAskedMs = 0;          // for a sign of life
    std::int64_t m_openedMs = 0;             // constant from the opening on
    std::atomic<bool> m_flushWanted{false};  // a flush is under way, or the socket will ask for it
    std::atomic<std::uint64_t> m_framesIn{0};
    std::atomic<std::uint64_t> m_framesDropped{0};
};

}  // namespace BP
