#include "bp/link.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "base/thread_own.h"
#include "bp/cmd.h"
#include "bp/poll_reactor.h"
#include "bp/registration.h"
#include "nss/nss_msg_type.h"

#include <ace/Reactor.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/uio.h>

namespace BP {

namespace {

void SendSmallFramesAtOnce(int fd) {
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

// A wake serves one link for this much at most, so that a busy peer cannot keep the others waiting.
constexpr std::size_t kReadChunkBytes = 64u * 1024u;
constexpr int kReadsPerWake = 2;

// A wake writes this much to one link at most, so that no link has the thread to itself.
constexpr std::size_t kWriteBytesPerWake = 256u * 1024u;

// Serving one link's frames takes about this much of a turn at most. A frame that alone may take longer, because its
// body is searched for a device, waits until the others have had their turn.
using ServeClock = std::chrono::steady_clock;
constexpr std::chrono::microseconds kServeTime(500);
constexpr std::size_t kHeavyFrameBytes = 16u * 1024u;

// A link itself, with what the reactor and the tables keep of it, and what TLS takes beside.
std::size_t OwnBytes(const LinkTls* tls) {
    return tls == nullptr ? 4096u : 32768u;
}

// TLS hands out a record at a time, of this many bytes at most.
constexpr std::size_t kTlsRecordBytes = 16u * 1024u;
constexpr int kRecordsPerWake = 8;

// A link that waits for memory looks again so soon.
constexpr std::int64_t kMemoryWaitMs = 50;

}  // namespace

// What throws, for want of memory as a rule, ends this link and nothing else: the reactor would not serve a handler any
// more that was left by an exception.
template <typename Work>
void Link::Guarded(Work work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        Close(OM_LOG_WARNING, "no memory");  // so short that it needs none
    } catch (const std::exception& fault) {
        Close(OM_LOG_WARNING, fault.what());
    }
}

Link::Link(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket, const NetAddress& peer,
           std::shared_ptr<LinkMemory> memory, LinkTls* tls)
    : m_owner(owner),
      m_options(options),
      m_socket(std::move(socket)),
      m_peer(peer),
      m_localID(options.localID),
      m_tls(tls),
      m_account(LinkAccount::Open(std::move(memory))),
      m_queue(options.maxQueuedBytes, *m_account),
      m_lastHeardMs(gvx::MonotonicMilliseconds()),
      m_lastSaidMs(m_lastHeardMs) {
    m_account->Charge(OwnBytes(m_tls));
    m_reader.SetAccount(m_account.get());
    m_reader.SetMaxFrameBytes(std::min(kMaxRegistrationBytes, options.maxFrameBytes));
    SendSmallFramesAtOnce(m_socket.Get());
}

std::shared_ptr<Link> Link::Accepted(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket,
                                     const NetAddress& peer, std::shared_ptr<LinkMemory> memory, LinkTls* tls) {
    std::shared_ptr<Link> link(new Link(owner, options, std::move(socket), peer, std::move(memory), tls));
    link->m_setupDeadlineMs = link->m_lastHeardMs + options.registerTimeoutMs;
    return link;
}

std::shared_ptr<Link> Link::Connecting(LinkOwner& owner, const LinkOptions& options, gvx::UniqueFd socket,
                                       const NetAddress& peer, std::shared_ptr<LinkMemory> memory, LinkTls* tls,
                                       const Attempt& attempt) {
    std::shared_ptr<Link> link(new Link(owner, options, std::move(socket), peer, std::move(memory), tls));
    link->m_localID = attempt.localID;
    link->m_outgoing = true;
    link->m_state = State::Connecting;
    link->m_attempt = attempt;
    link->m_setupDeadlineMs = attempt.connectDeadlineMs;
    return link;
}

Link::~Link() {
    m_account->Discharge(OwnBytes(m_tls) + BacklogBytes());
}

void Link::Begin(ACE_Reactor& reactor) {
    Guarded([this, &reactor] {
        m_writeWatched = m_state == State::Connecting;
        m_readWatched = !m_writeWatched;
        const ACE_Reactor_Mask mask = m_writeWatched ? ACE_Event_Handler::WRITE_MASK : ACE_Event_Handler::READ_MASK;
        if (reactor.register_handler(this, mask) != 0) {
            Close(OM_LOG_WARNING, gvx::ErrnoText("the descriptor is beyond what this process can watch", errno));
            return;
        }
        this->reactor(&reactor);
        m_owner.WakeBy(m_setupDeadlineMs);
        if (m_state != State::Connecting) {
            BeginTls();
        }
    });
}

bool Link::BeginTls() {
    if (m_tls == nullptr) {
        return true;
    }
    m_session = m_tls->Begin(m_socket.Get(), m_outgoing);
    if (m_session == nullptr) {
        Close(OM_LOG_WARNING, "no memory for TLS");
        return false;
    }
    m_state = State::Handshaking;
    return true;
}

// A step takes as long as the requests of many links, so it waits for its turn like a frame that takes long.
void Link::PostponeHandshake() {
    if (m_readPaused) {
        return;
    }
    m_readPaused = true;
    m_readNeedsRoom = false;
    Watch();
    m_owner.BacklogWaits(shared_from_this());
}

void Link::Handshake() {
    const TlsSession::Result result = m_session->Handshake();
    m_lastHeardMs = gvx::MonotonicMilliseconds();
    m_readPaused = false;
    m_readNeedsRoom = result == TlsSession::Result::WantWrite;
    if (result == TlsSession::Result::Done) {
        BeginRegistration();
    } else if (result == TlsSession::Result::Failed) {
        Close(OM_LOG_WARNING, m_session->Fault());
    } else if (result == TlsSession::Result::Ended) {
        PeerEnded(0);
    }
    Watch();
}

void Link::BeginRegistration() {
    m_state = State::Registering;
    if (m_outgoing) {
        SendControl(MakeRegisterRequest(m_localID));
    }
}

// As recv without waiting: 0 for the end, -1 with errno.
ssize_t Link::Receive(char* buffer, std::size_t length) {
    if (m_session == nullptr) {
        return ::recv(m_socket.Get(), buffer, length, MSG_DONTWAIT);
    }
    std::size_t got = 0;
    switch (m_session->Read(buffer, length, got)) {
        case TlsSession::Result::Done:
            return static_cast<ssize_t>(got);
        case TlsSession::Result::Ended:
            return 0;
        case TlsSession::Result::Failed:
            errno = EPROTO;
            return -1;
        case TlsSession::Result::WantWrite:
            m_readNeedsRoom = true;
            errno = EAGAIN;
            return -1;
        default:
            errno = EAGAIN;
            return -1;
    }
}

// As sendmsg without waiting.
ssize_t Link::Transmit(struct iovec* parts, int count) {
    if (m_session == nullptr) {
        struct msghdr message = {};
        message.msg_iov = parts;
        message.msg_iovlen = static_cast<std::size_t>(count);
        return ::sendmsg(m_socket.Get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    // What one record takes; a write that is tried again begins with the same bytes, since the queue has kept them.
    static thread_local std::array<char, kTlsRecordBytes> record;
    std::size_t filled = 0;
    for (int at = 0; at < count && filled < record.size(); ++at) {
        const std::size_t take = std::min(parts[at].iov_len, record.size() - filled);
        std::memcpy(record.data() + filled, parts[at].iov_base, take);
        filled += take;
    }
    std::size_t put = 0;
    const TlsSession::Result result = m_session->Write(record.data(), filled, put);
    if (result == TlsSession::Result::Done) {
        return static_cast<ssize_t>(put);
    }
    m_writeNeedsInput = result == TlsSession::Result::WantRead;
    errno = m_writeNeedsInput || result == TlsSession::Result::WantWrite ? EAGAIN : EPROTO;
    return -1;
}

// Asks the reactor for what can be used: a socket that is ready for anything else would be told of without end.
void Link::Watch() {
    if (m_state == State::Closed) {
        return;
    }
    const bool read = m_state != State::Connecting && !m_readPaused && !m_readNeedsRoom;
    const bool write = m_state == State::Connecting || m_readNeedsRoom || (m_queueWaits && !m_writeNeedsInput);
    const auto change = [this](bool watch, ACE_Reactor_Mask mask) {
        return watch ? reactor()->schedule_wakeup(this, mask) : reactor()->cancel_wakeup(this, mask);
    };
    const bool changed = (read == m_readWatched || change(read, ACE_Event_Handler::READ_MASK) != -1) &&
                         (write == m_writeWatched || change(write, ACE_Event_Handler::WRITE_MASK) != -1);
    m_readWatched = read;
    m_writeWatched = write;
    if (!changed) {
        Close(OM_LOG_WARNING, gvx::ErrnoText("the connection cannot be watched", errno));
    }
}

// The whole process may have been paused, as in a stopped virtual machine. Unread bytes then show that the peer lives,
// and so do those that wait here.
bool Link::BytesWaitUnread() const {
    char byte;
    return m_readPaused || (!m_readNeedsRoom && ::recv(m_socket.Get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0);
}

void Link::CheckDeadlines(std::int64_t nowMs) {
    if (m_awaitsMemory) {
        Guarded([this, nowMs] { AwaitMemory(nowMs); });
    }
    if (m_state == State::Open) {
        Guarded([this, nowMs] { CheckOpenDeadlines(nowMs); });
    } else if (m_state != State::Closed) {
        if (nowMs < m_setupDeadlineMs || (m_state != State::Connecting && BytesWaitUnread())) {
            m_owner.WakeBy(std::max(m_setupDeadlineMs, nowMs + 1));
        } else if (m_state == State::Connecting) {
            Close(m_attempt.logLevel, "connect failed: no answer in time");
        } else if (m_state == State::Handshaking) {
            Close(OM_LOG_WARNING, "never registered: TLS was not agreed upon in time");
        } else {
            Close(OM_LOG_WARNING, m_reader.Partial()
                                      ? "never registered: half a frame, and its rest did not come in time"
                                      : "never registered: silence");
        }
    }
}

void Link::CheckOpenDeadlines(std::int64_t nowMs) {
    const std::int64_t end = std::min(m_frameDeadlineMs, m_lastHeardMs + m_options.silenceTimeoutMs);
    if (nowMs >= end && !BytesWaitUnread()) {
        Close(OM_LOG_WARNING,
              m_frameDeadlineMs <= nowMs ? "half a frame, and its rest did not come in time" : "silence of the peer");
        return;
    }
    // One that is quiet while much is sent to it may have nothing to say, or may be gone: only an answer tells.
    const auto wanted = [this] {
        return std::max(m_lastAskedMs, std::min(m_lastSaidMs, m_lastHeardMs)) + m_options.keepAliveMs;
    };
    if (nowMs >= wanted()) {
        SendControl(MakeKeepAliveRequest());
        m_lastAskedMs = nowMs;
    }
    m_owner.WakeBy(std::max(std::min(wanted(), end), nowMs + 1));
}

void Link::Close(int logLevel, const std::string& reason) {
    if (m_state == State::Closed) {
        return;
    }
    const bool wasOpen = m_state == State::Open;
    const std::shared_ptr<Link> self = shared_from_this();
    m_state = State::Closed;
    GVX_LOG(logLevel, "Link closed", "[peer:%s:%u, link:%s] %s", m_peer.ip.c_str(), m_peer.port, m_linkID.c_str(),
            reason.c_str());
    if (reactor() != nullptr) {
        TakeOut(*reactor(), *this);
    }
    if (m_session != nullptr) {
        m_session->End();
    }
    ::shutdown(m_socket.Get(), SHUT_RDWR);
    m_queue.Close();
    m_reader.Drop();
    DropBacklog();
    m_account->LinkClosed();
    if (m_framesDropped > 1) {
        GVX_LOG_WARN("Link frames dropped", "[peer:%s:%u, link:%s] %llu frames of types that never travel on a link",
                     m_peer.ip.c_str(), m_peer.port, m_linkID.c_str(),
                     static_cast<unsigned long long>(m_framesDropped.load()));
    }
    m_owner.LinkClosed(*this, wasOpen);
}

void Link::ReleaseSocket() {
    m_session.reset();
    reactor(nullptr);  // a thread that still sends may be the last to let go of this link, after the reactor's end
    m_socket.Reset();
}

LinkInfo Link::Describe() const {
    LinkInfo info = Numbers();
    info.linkID = m_linkID;
    info.ip = m_peer.ip;
    return info;
}

LinkInfo Link::Numbers() const noexcept {
    LinkInfo info;
    info.port = m_peer.port;
    info.outgoing = m_outgoing;
    info.queuedBytes = m_queue.Bytes();
    info.memoryBytes = m_account->Bytes();
    info.framesIn = m_framesIn;
    info.framesOut = m_queue.FramesOut();
    info.framesRefused = m_queue.FramesRefused();
    info.framesDropped = m_framesDropped;
    info.openedMs = m_openedMs;
    return info;
}

void Link::Connected() {
    m_state = State::Registering;
    Watch();
    if (m_state == State::Closed) {
        return;
    }
    m_lastHeardMs = m_lastSaidMs = gvx::MonotonicMilliseconds();
    m_setupDeadlineMs = m_lastHeardMs + m_options.registerTimeoutMs;
    m_owner.WakeBy(m_setupDeadlineMs);
    if (!BeginTls()) {
        return;
    }
    if (m_state == State::Handshaking) {
        PostponeHandshake();
    } else {
        BeginRegistration();
    }
}

void Link::RegistrationArrived(MessageBlockPtr frame, std::uint16_t type, std::uint32_t rspCode) {
    const std::uint16_t wanted = static_cast<std::uint16_t>(m_outgoing ? NSS_BP_REGISTER_RSP : NSS_BP_REGISTER_REQ);
    char text[96] = {0};
    if (type != wanted) {
        sprintf_s(text, sizeof(text), "the first frame is no registration but 0x%04x", type);
        Close(OM_LOG_WARNING, text);
        return;
    }
    if (m_outgoing && rspCode != 0) {
        sprintf_s(text, sizeof(text), "the peer refused the registration with code %u", rspCode);
        Close(OM_LOG_WARNING, text);
        return;
    }
    std::string fault;
    if (!ReadRegistration(frame.get(), m_linkID, &fault)) {
        RefuseRegistration(frame.get(), fault);
        return;
    }
    if (m_session != nullptr && !m_session->PeerIs(m_linkID)) {
        const std::string named = m_linkID;
        RefuseRegistration(frame.get(), "the certificate does not name " + named);
        return;
    }
    if (m_outgoing && ElementTypeOf(m_linkID) != m_attempt.peerType) {
        Close(OM_LOG_WARNING, "the peer is not of the kind that this link was made for");
        return;
    }
    if (!m_outgoing && !SendControl(MakeRegisterResponse(frame.get(), m_localID, ZVS_SUCCEED))) {
        Close(OM_LOG_WARNING, "the registration could not be answered");
        return;
    }
    if (m_state == State::Registering) {
        BecomeOpen();
    }
}

void Link::RefuseRegistration(const ACE_Message_Block* frame, const std::string& fault) {
    m_linkID.clear();
    if (!m_outgoing) {
        SendControl(MakeRegisterResponse(frame, m_localID, ZVS_PARA_INVALID));
        Flush();
    }
    Close(OM_LOG_WARNING, fault);
}

void Link::BecomeOpen() {
    m_state = State::Open;
    m_openedMs = gvx::MonotonicMilliseconds();
    m_setupDeadlineMs = kNoDeadline;
    m_reader.SetMaxFrameBytes(m_options.maxFrameBytes);
    m_owner.WakeBy(std::min(m_lastSaidMs + m_options.keepAliveMs, m_lastHeardMs + m_options.silenceTimeoutMs));
    GVX_LOG_INFO("Link opened", "[peer:%s:%u, link:%s] %s", m_peer.ip.c_str(), m_peer.port, m_linkID.c_str(),
                 m_outgoing ? "outgoing" : "incoming");
    m_owner.LinkRegistered(*this);
}

int Link::handle_input(ACE_HANDLE) {
    Guarded([this] {
        if (m_state == State::Handshaking) {
            PostponeHandshake();
        } else if (m_state != State::Closed) {
            ReadFrames();
        }
    });
    return 0;
}

void Link::ReadFrames() {
    // One buffer serves all links: there is one I/O thread, and what is read is used up before the next read. Made by
    // the thread that reads, since storage of threads would be there once for each thread of the process.
    static gvx::ThreadOwn<std::array<char, kReadChunkBytes>> rooms;
    std::array<char, kReadChunkBytes>* const room = rooms.Get();
    if (room == nullptr) {
        throw std::bad_alloc();
    }
    std::array<char, kReadChunkBytes>& buffer = *room;
    m_readNeedsRoom = false;
    const bool writes = std::exchange(m_writeNeedsInput, false);
    const int mostReads = m_session != nullptr ? kRecordsPerWake : kReadsPerWake;
    const std::size_t fullRead = m_session != nullptr ? 1 : buffer.size();  // less means that nothing is left
    for (int reads = 0; reads < mostReads && m_state != State::Closed; ++reads) {
        const ssize_t got = Receive(buffer.data(), buffer.size());
        if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
            break;
        }
        if (got <= 0) {
            PeerEnded(got < 0 ? errno : 0);
            break;
        }
        m_lastHeardMs = gvx::MonotonicMilliseconds();
        if (!Consume(buffer.data(), static_cast<std::size_t>(got), Heavy::Postponed) ||
            static_cast<std::size_t>(got) < fullRead) {
            break;
        }
    }
    if (writes) {
        Flush();
    }
    Watch();
}

// False when no more is to be read now: the link has closed, or the rest has been put off.
bool Link::Consume(const char* data, std::size_t length, Heavy heavy) {
    const ServeClock::time_point until = ServeClock::now() + kServeTime;
    for (;;) {
        if (m_reader.Complete()) {
            if (heavy == Heavy::Postponed && m_reader.FrameBytes() > kHeavyFrameBytes) {
                Postpone(data, length);
                return false;
            }
            heavy = Heavy::Postponed;
            m_frameDeadlineMs = kNoDeadline;  // the next frame has its own
            FrameArrived(m_reader.Take());
            if (m_state == State::Closed) {
                return false;
            }
            if (length > 0 && ServeClock::now() >= until) {
                Postpone(data, length);
                return false;
            }
        }
        if (length == 0) {
            break;
        }
        const std::size_t used = m_reader.Feed(data, length);
        data += used;
        length -= used;
        if (m_reader.GetFault() != FrameReader::Fault::None) {
            CloseForReaderFault();
            return false;
        }
        if (!MemoryIsThere()) {
            if (m_state != State::Closed) {
                m_awaitsMemory = true;
                Postpone(data, length);
            }
            return false;
        }
    }
    if (m_reader.Partial() && m_frameDeadlineMs == kNoDeadline) {
        m_frameDeadlineMs = gvx::MonotonicMilliseconds() + m_options.frameTimeoutMs;
        m_owner.WakeBy(m_frameDeadlineMs);
    }
    return true;
}

// The frame that has just begun may have been the one too many. What waits of links that have closed is served or
// expires, and until then a link that has more than the others are denied waits.
bool Link::MemoryIsThere() {
    if (!m_account->All().Over()) {
        return true;
    }
    m_owner.ShedMemory();
    return m_state != State::Closed && !m_account->Denied();
}

// data: what was just read, or the end of the backlog.
void Link::Postpone(const char* data, std::size_t length) {
    if (!m_backlog.empty()) {
        m_backlogAt = m_backlog.size() - length;
    } else if (length != 0) {
        m_backlog.assign(data, length);
        m_backlogAt = 0;
        m_account->Charge(BacklogBytes());
    }
    m_readPaused = true;
    Watch();
    if (m_awaitsMemory) {
        m_owner.WakeBy(gvx::MonotonicMilliseconds() + kMemoryWaitMs);
    } else {
        m_owner.BacklogWaits(shared_from_this());
    }
}

void Link::AwaitMemory(std::int64_t nowMs) {
    if (m_account->Denied()) {
        m_owner.WakeBy(nowMs + kMemoryWaitMs);
        return;
    }
    m_owner.BacklogWaits(shared_from_this());
    m_awaitsMemory = false;
}

void Link::DropBacklog() {
    m_account->Discharge(BacklogBytes());
    std::string().swap(m_backlog);
    m_backlogAt = 0;
}

void Link::ServeBacklog() {
    Guarded([this] {
        if (m_state == State::Handshaking) {
            Handshake();
        } else if (m_state != State::Closed &&
                   Consume(m_backlog.data() + m_backlogAt, m_backlog.size() - m_backlogAt, Heavy::Served)) {
            DropBacklog();
            m_readPaused = false;
            Watch();
        }
    });
}

void Link::CloseForReaderFault() {
    char text[96] = {0};
    switch (m_reader.GetFault()) {
        case FrameReader::Fault::Version:
            sprintf_s(text, sizeof(text), "bad frame: protocol version 0x%04x", m_reader.HeadVersion());
            break;
        case FrameReader::Fault::Length:
            sprintf_s(text, sizeof(text), "bad frame: length %u is outside %zu to %zu", m_reader.HeadLength(),
                      kNssHeaderBytes, m_reader.MaxFrameBytes());
            break;
        default:
            sprintf_s(text, sizeof(text), "no memory for a frame of %u bytes", m_reader.HeadLength());
            break;
    }
    Close(OM_LOG_WARNING, text);
}

void Link::PeerEnded(int error) {
    if (m_state == State::Connecting) {
        Close(m_attempt.logLevel, gvx::ErrnoText("connect failed", error));
    } else if (m_session != nullptr && !m_session->Fault().empty()) {
        Close(OM_LOG_WARNING, m_session->Fault());
    } else if (error != 0) {
        Close(OM_LOG_WARNING, gvx::ErrnoText("the connection broke", error));
    } else if (m_reader.Partial()) {
        Close(OM_LOG_WARNING, "the peer ended the connection inside a frame");
    } else if (m_state != State::Open) {
        Close(OM_LOG_WARNING, "the peer ended the connection without a registration");
    } else {
        Close(OM_LOG_INFO, "the peer ended the connection");
    }
}

void Link::FrameArrived(MessageBlockPtr frame) {
    NssMsgHeader head;
    ReadFrameHead(frame.get(), head);
    const std::uint16_t type = head.usiMsgType;
    const bool registration = type == NSS_BP_REGISTER_REQ || type == static_cast<std::uint16_t>(NSS_BP_REGISTER_RSP);
    if (m_state == State::Registering) {
        RegistrationArrived(std::move(frame), type, head.uiRspCode);
    } else if (registration) {
        Close(OM_LOG_WARNING, "a registration on a link that is open already");
    } else if (type == NSS_KEEPALIVE_REQ) {
        // The answer is dropped when the queue is full: the bytes that wait there also show the peer that we live.
        SendControl(MakeKeepAliveResponse(frame.get()));
    } else if (IsInternalRequest(type)) {
        DropInternal(type);
    } else if (type != static_cast<std::uint16_t>(NSS_KEEPALIVE_RSP)) {
        ++m_framesIn;
        m_owner.FrameReceived(*this, std::move(frame));
    }
}

// What the layers in here give to each other would be obeyed whoever sent it.
void Link::DropInternal(std::uint16_t type) {
    if (++m_framesDropped == 1) {
        GVX_LOG_WARN("Link frames dropped",
                     "[peer:%s:%u, link:%s] a frame of type 0x%04x, which never travels on a link", m_peer.ip.c_str(),
                     m_peer.port, m_linkID.c_str(), type);
    }
}

int Link::handle_close(ACE_HANDLE, ACE_Reactor_Mask) {
    int error = 0;
    socklen_t length = sizeof(error);
    ::getsockopt(m_socket.Get(), SOL_SOCKET, SO_ERROR, &error, &length);
    Guarded([this, error] { PeerEnded(error); });
    return 0;
}

bool Link::SendControl(MessageBlockPtr frame) {
    return frame != nullptr && Send(frame.get()) == ZVS_SUCCEED && frame.release() != nullptr;
}

int Link::Send(ACE_Message_Block* block) {
    switch (m_queue.Push(block)) {
        case SendQueue::PushResult::Queued:
            if (!m_flushWanted.exchange(true)) {
                m_owner.RequestFlush(shared_from_this());
            }
            if (m_account->All().Over()) {
                m_owner.RequestShed();
            }
            return ZVS_SUCCEED;
        case SendQueue::PushResult::FirstFull:
            GVX_LOG_WARN("Link queue full", "[peer:%s:%u, link:%s] %zu bytes wait, frames are refused until they left",
                         m_peer.ip.c_str(), m_peer.port, m_linkID.c_str(), m_queue.Bytes());
            return ZVS_NET_SEND_ERROR;
        default:
            return ZVS_NET_SEND_ERROR;
    }
}

void Link::Flush() {
    if (m_state == State::Closed || m_state == State::Connecting || m_state == State::Handshaking) {
        return;
    }
    // The mark is cleared before the queue is looked at, so that a frame pushed meanwhile asks for another flush.
    m_flushWanted = false;
    const SendQueue::WriteResult written =
        m_queue.WriteTo([this](struct iovec* parts, int count) { return Transmit(parts, count); }, kWriteBytesPerWake);
    if (written.bytes > 0) {
        m_lastSaidMs = gvx::MonotonicMilliseconds();
        if (m_queueWaits) {  // the peer has made room; a question would wait behind all that is still to be read
            m_lastHeardMs = m_lastSaidMs;
        }
    }
    if (written.refusedInEpisode > 0) {
        GVX_LOG_INFO("Link queue drained", "[peer:%s:%u, link:%s] %llu frames were refused", m_peer.ip.c_str(),
                     m_peer.port, m_linkID.c_str(), static_cast<unsigned long long>(written.refusedInEpisode));
    }
    if (written.state == SendQueue::WriteState::Failed) {
        Guarded([this, &written] { PeerEnded(written.error); });
        return;
    }
    m_queueWaits = written.state != SendQueue::WriteState::Drained;
    if (m_queueWaits) {
        m_flushWanted = true;  // the socket asks for the next flush, so a push need not
    }
    Watch();
}

int Link::handle_output(ACE_HANDLE) {
    Guarded([this] {
        if (m_state == State::Connecting) {
            int error = 0;
            socklen_t length = sizeof(error);
            if (::getsockopt(m_socket.Get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
                error = errno;
            }
            if (error != 0) {
                PeerEnded(error);
            } else {
                Connected();
            }
        } else if (m_state == State::Handshaking) {
            PostponeHandshake();
        } else {
            if (m_readNeedsRoom) {
                ReadFrames();
            }
            Flush();
        }
    });
    return 0;
}

}  // namespace BP
