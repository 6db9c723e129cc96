#pragma once

#include "bp/link_tls.h"
#include "bp/net_address.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class ACE_Message_Block;

namespace BP {

// Told of every link that opens or closes, on the link I/O thread. A link opens when both sides have registered.
// The arguments are those of CGvxConnectionMgr::OnLinkOpened and OnLinkClosed; the device name is the link's
// identifier. An event holds no lock of this layer and may call every operation but Stop; it must not wait for a peer.
struct LinkEvents {
    using Event = std::function<void(const std::string& devName, int netElementType, const std::string& linkID,
                                     const std::string& ip, unsigned int port)>;
    Event opened;
    Event closed;
};

struct LinkOptions {
    std::string localID;                      // this side's identifier, such as "GVX#001"
    std::size_t maxFrameBytes = 4u << 20;     // a longer frame closes the link
    std::size_t maxQueuedBytes = 8u << 20;    // per link; a frame that would go beyond is refused
    std::size_t maxLinks = 1024;              // a further peer is closed at once
    std::size_t maxMemoryBytes = 256u << 20;  // all links together; beyond it whoever holds most is closed first
    LinkTlsFiles tls{};                       // without a certificate links are plain
    std::vector<NetNetwork> peers{};          // who may connect to us; empty: everybody
    int registerTimeoutMs = 5000;             // from accept or connect to the peer's registration
    int frameTimeoutMs = 10000;               // from the first byte of a frame to its last
    int keepAliveMs = 10000;                  // silence of our own after which a keep-alive is sent
    int silenceTimeoutMs = 30000;             // silence of the peer after which the link is closed
    int backoffMinMs = 500;                   // first wait before an outgoing link is tried again
    int backoffMaxMs = 30000;                 // the wait doubles up to this
};

struct LinkInfo {
    std::string linkID;
    std::string ip;
    unsigned int port = 0;
    bool outgoing = false;
    std::size_t queuedBytes = 0;  // that wait to be sent, as allocated
    std::size_t memoryBytes = 0;  // all that is held for it, as allocated
    std::uint64_t framesIn = 0;
    std::uint64_t framesOut = 0;
    std::uint64_t framesRefused = 0;  // for a full queue
    std::uint64_t framesDropped = 0;  // of types that never travel
    std::int64_t openedMs = 0;        // monotonic
};

// What all links have done since the start, those that have closed included. Rises only.
struct LinkTotals {
    std::uint64_t opened = 0;
    std::uint64_t closed = 0;
    std::uint64_t framesIn = 0;
    std::uint64_t framesOut = 0;
    std::uint64_t framesRefused = 0;
    std::uint64_t framesDropped = 0;
};

// How far one link's frames have come. It may be kept beyond the link's end, and is then what it was at the end. Any
// thread reads.
struct LinkProgress {
    std::atomic<std::uint64_t> queued{0};   // frames that were taken for sending
    std::atomic<std::uint64_t> written{0};  // of these, in their order, those that the socket has taken whole
    std::atomic<bool> closed{false};        // no more will be written
};

// What becomes of the frames that the thread which makes it sends while it lives: which connection has queued the last
// of them, and as the how manieth of its frames. A link's name passes from one connection to the next; with one named
// here every other refuses, as if there were no such link. One at a time in a thread.
class SendReceipt {
public:
    // null: any connection may take them.
    explicit SendReceipt(std::shared_ptr<const LinkProgress> only = nullptr);
    ~SendReceipt();
    SendReceipt(const SendReceipt&) = delete;
    SendReceipt& operator=(const SendReceipt&) = delete;

    // Null while none has queued a frame.
    const std::shared_ptr<const LinkProgress>& Connection() const { return m_taker; }
    std::uint64_t Number() const { return m_number; }  // from 1

    // Of the links: whether this connection may take what the calling thread sends, and that it has.
    static bool Allows(const std::shared_ptr<const LinkProgress>& connection);
    static void Note(const std::shared_ptr<const LinkProgress>& connection, std::uint64_t number);

private:
    static thread_local SendReceipt* s_current;
    const std::shared_ptr<const LinkProgress> m_only;
    std::shared_ptr<const LinkProgress> m_taker;
    std::uint64_t m_number = 0;
};

// Whether a link's queue takes more of what need not leave at once.
enum class LinkRoom { NoLink, Full, Free };

// TCP links, all served by one I/O thread. Framing, registration and keep-alive: docs/nss-link.md.
// Every operation but the events may be called from any thread; none waits for a peer.
struct CNetFactory {
    // Starts the I/O thread. 0, or a code of enZvsError: ZVS_PARA_INVALID for an identifier that is none,
    // ZVS_OPEN_FILE_ERROR for files of TLS that cannot be used.
    static int Start(const LinkOptions& options, LinkEvents events);
    // Writes what the sockets still take, closes every link (each reports its close), ends the I/O thread and waits
    // for it. Refused with a log line when an event calls it. Start may follow.
    static void Stop();

    // Accepts links on an address. Port 0 takes any free one; boundPort (may be null) tells which. 0, or
    // ZVS_NET_BIND_ERROR with errno kept (EINVAL for an address that is none, ESHUTDOWN when not started).
    static int Listen(const char* ip, std::uint16_t port, std::uint16_t* boundPort);

    // Makes an outgoing link and keeps it: a link that is lost or cannot be made is tried again with back-off until
    // it is deleted. id is this side's identifier. localIp may be null. With retry false the link is made once.
    // connectTimeoutMs 0 takes the default of 5000. 0 when the link is on its way, ZVS_PARA_INVALID for an address
    // that is none, ZVS_FAIL when there is already a link to that address and type. type is the element code of the
    // peer: one that registers as something else is closed.
    static int CreateClientLink(const std::string& id, int type, const char* peerIp, int peerPort, const char* localIp,
                                bool retry, unsigned int connectTimeoutMs);
    // 0, or ZVS_FAIL when there is no such link.
    static int DeleteClientLinkByAddr(const char* ip, int port, int type);

    // Queues a whole frame; takes the block over when it answers 0, and uses its next pointer while it is queued.
    // ZVS_NET_SEND_ERROR: no such link, or its queue is full (the first refusal of an episode is logged, all are
    // counted); an empty queue takes any frame. ZVS_NULL_POINTER: no block. ZVS_PARA_INVALID: no whole frame, or one
    // beyond maxFrameBytes.
    static int Send(const std::string& linkID, ACE_Message_Block* block);

    // For senders of much, who leave room for answers and requests: Full from 1 MiB in the queue, or half of what it
    // takes, on.
    static LinkRoom RoomOf(const std::string& linkID);
    // Null when there is no such link. A link that closes and opens again is another one.
    static std::shared_ptr<const LinkProgress> ProgressOf(const std::string& linkID);

    static std::vector<LinkInfo> Links();
    // The same, with what belongs to the same moment.
    static std::vector<LinkInfo> Links(LinkTotals& totals);

    // Has work done on the I/O thread, between two events. False when that is not started.
    static bool RunOnLinkThread(std::function<void()> work);
};

}  // namespace BP
