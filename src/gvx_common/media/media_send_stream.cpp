#include "gvx_common/media/media_send_stream.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"
#include "base/thread_own.h"
#include "gvx_common/media_memory/media_block_buffer.h"
#include "gvx_common/records/rtp_payload.h"
#include "gvx_common/rtp/packet_run.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr const char* kTitle = "Media send stream";
constexpr int kUdpSendBuffer = 1 << 20;
constexpr std::int64_t kDropEpisodePauseMs = 1000;  // without a drop, before the next one is news again
constexpr std::size_t kRtpTimeStampAt = 4;          // RFC 3550, 5.1
constexpr std::size_t kRtpTimeStampEnd = 8;

// The address to send from, with a port of the system's choice. False for a text that is no numeric address.
bool LocalAddress(const std::string& ip, int family, ACE_INET_Addr& address) {
    if (ip.empty()) {
        address = family == AF_INET6 ? ACE_INET_Addr(static_cast<u_short>(0), "::", AF_INET6)
                                     : ACE_INET_Addr(static_cast<u_short>(0), "0.0.0.0", AF_INET);
        return true;
    }
    unsigned char binary[sizeof(in6_addr)];
    if (inet_pton(family, ip.c_str(), binary) != 1) {
        return false;
    }
    address = ACE_INET_Addr(static_cast<u_short>(0), ip.c_str(), family);
    return true;
}

// Makes a socket of the destination's family; wanted becomes the local address that it is to be bound to.
int MakeSocket(const MediaSendParams& params, int type, int& handle, ACE_INET_Addr& wanted) {
    const int family = params.videoDstAddr.get_type();
    if (!LocalAddress(params.strLocalIp, family, wanted)) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_PARA_INVALID, "Stream[%s] local address[%s] is wrong.",
                         params.strServiceID.c_str(), params.strLocalIp.c_str());
        return ZVS_PARA_INVALID;
    }
    handle = ::socket(family, type | SOCK_CLOEXEC, 0);
    if (handle == -1) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_GVX_OPEN_SOCKET_ERROR, "Stream[%s] got no socket, errno: %d",
                         params.strServiceID.c_str(), errno);
        return ZVS_GVX_OPEN_SOCKET_ERROR;
    }
    return ZVS_SUCCEED;
}

// Only the force option passes net.core.wmem_max, and only a process with CAP_NET_ADMIN may use it. The kernel doubles
// what it is asked for (socket(7)).
void AskForSendBuffer(int handle, const std::string& serviceID) {
    if (::setsockopt(handle, SOL_SOCKET, SO_SNDBUFFORCE, &kUdpSendBuffer, sizeof(kUdpSendBuffer)) == 0) {
        return;
    }
    ::setsockopt(handle, SOL_SOCKET, SO_SNDBUF, &kUdpSendBuffer, sizeof(kUdpSendBuffer));
    int given = 0;
    socklen_t size = sizeof(given);
    static std::atomic<bool> told{false};
    if (::getsockopt(handle, SOL_SOCKET, SO_SNDBUF, &given, &size) == 0 && given / 2 < kUdpSendBuffer &&
        !told.exchange(true)) {
        GVX_LOG_WARN(kTitle,
                     "Stream[%s] got a send buffer of %d bytes instead of %d: net.core.wmem_max allows no more. Bursts "
                     "wait in the process instead. This is said once.",
                     serviceID.c_str(), given / 2, kUdpSendBuffer);
    }
}

// Opens and binds one socket; local becomes the address that it got.
int OpenDatagram(ACE_SOCK_Dgram& socket, const MediaSendParams& params, std::uint16_t localPort, ACE_INET_Addr& local) {
    ACE_INET_Addr wanted;
    int handle = -1;
    if (const int result = MakeSocket(params, SOCK_DGRAM, handle, wanted); result != ZVS_SUCCEED) {
        return result;
    }
    socket.set_handle(handle);
    wanted.set_port_number(localPort);
    AskForSendBuffer(handle, params.strServiceID);
    if (::bind(handle, static_cast<const sockaddr*>(wanted.get_addr()), static_cast<socklen_t>(wanted.get_size())) !=
            0 ||
        socket.get_local_addr(local) != 0) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_NET_BIND_ERROR, "Stream[%s] cannot send from[%s:%u], errno: %d",
                         params.strServiceID.c_str(), params.strLocalIp.c_str(), localPort, errno);
        return ZVS_NET_BIND_ERROR;
    }
    return ZVS_SUCCEED;
}

bool AreParamsSound(const MediaSendParams& params) {
    return (params.eProtocol == RTP_OVER_UDP || params.eProtocol == RTP_OVER_TCP) &&
           params.videoDstAddr.get_port_number() != 0 && params.strServiceID.size() < SOCKET_INFO::SERVICE_ID_SIZE &&
           (params.audioDstAddr.get_port_number() == 0 || params.eProtocol == RTP_OVER_TCP ||
            params.audioDstAddr.get_type() == params.videoDstAddr.get_type());
}

void FillRecord(SOCKET_INFO& record, const MediaSendParams& params, bool video) {
    record.protocol = params.eProtocol;
    record.enStreamType = params.enStreamType;
    record.videoDstAddr = params.videoDstAddr;
    record.audioDstAddr = params.audioDstAddr;
    strncpy_s(record.chServiceID, sizeof(record.chServiceID), params.strServiceID.c_str(), params.strServiceID.size());
    record.bVideoStream = video;
}

}  // namespace

// Keeps what Open made in place while a call uses it.
class CMediaSendStream::UseGuard {
public:
    explicit UseGuard(const CMediaSendStream& stream, bool evenClosed = false)
        : m_stream(stream), m_inUse(stream.BeginUse(evenClosed)) {}
    ~UseGuard() {
        if (m_inUse) {
            const_cast<CMediaSendStream&>(m_stream).EndUse();
        }
    }
    UseGuard(const UseGuard&) = delete;
    UseGuard& operator=(const UseGuard&) = delete;
    explicit operator bool() const { return m_inUse; }

private:
    const CMediaSendStream& m_stream;
    const bool m_inUse;
};

// What a thread has built for one stream and not yet queued, with one use of the stream for all of it. Empty outside of
// a run.
class CMediaSendStream::HeldPackets final : public gvx::PacketRun::Holder {
public:
    // Of the calling thread; null without memory.
    static HeldPackets* Mine() {
        static gvx::ThreadOwn<HeldPackets> held;
        return held.Get();
    }
    // Result as Send.
    int Put(CMediaSendStream& stream, const MEDIA_DATA& data, gvx::PacketRun* run);
    // Queues all and lets go of the stream. False when the queue had no room for all.
    bool HandOn() noexcept override;
    void LetGoOf(const CMediaSendStream& stream) {
        if (m_stream == &stream) {
            HandOn();
        }
    }

private:
    static constexpr std::size_t kMost = 64;
    enum class Kind { Video, Audio, Metadata };

    bool Queue();
    void Count(std::size_t packets, std::uint64_t bytes, std::uint64_t frames);
    void NoteTimeStamp(const char* packet, std::size_t size);
    ACE_Message_Block* TakeBlock(const gvx::PacketRun* run);
    void FetchAhead() const;

    CMediaSendStream* m_stream = nullptr;
    SOCKET_INFO* m_record = nullptr;
    Kind m_kind = Kind::Video;
    std::array<ACE_Message_Block*, kMost> m_packets{};
    std::size_t m_count = 0;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_frames = 0;
    std::uint64_t m_lastTimeStamp = NO_TIME_STAMP;
    std::array<ACE_Message_Block*, kMost> m_free{};  // taken from the pool and not yet used
    std::size_t m_freeCount = 0;
};

CMediaSendStream::SendTurn*& CMediaSendStream::SendTurn::Current() {
    static thread_local SendTurn* current = nullptr;
    return current;
}

CMediaSendStream::SendTurn::SendTurn() {
    if (Current() == nullptr) {
        Current() = this;
    }
}

CMediaSendStream::SendTurn::~SendTurn() {
    if (Current() == this) {
        Current() = nullptr;
    }
    WakeAll();
}

void CMediaSendStream::SendTurn::WakeAll() {
    while (m_count != 0) {
        CMediaSendStream& stream = *m_streams[--m_count];
        stream.m_pQueue->Wake();
        stream.EndUse();
    }
}

// A stream in use keeps its queue.
void CMediaSendStream::SendTurn::Note(CMediaSendStream& stream, std::size_t packets) {
    constexpr std::size_t kMostPackets = 512;
    const auto end = m_streams.begin() + static_cast<std::ptrdiff_t>(m_count);
    const bool known =
        std::any_of(m_streams.begin(), end, [&](const auto* other) { return other->m_pQueue == stream.m_pQueue; });
    m_packets += packets;
    if (m_packets > kMostPackets || (!known && m_count == m_streams.size())) {
        WakeAll();
        m_packets = 0;
        stream.m_pQueue->Wake();
    } else if (!known) {
        if (stream.BeginUse(true)) {
            m_streams[m_count++] = &stream;
        } else {
            stream.m_pQueue->Wake();
        }
    }
}

CMediaSendStream::~CMediaSendStream() {
    if (HeldPackets* const held = HeldPackets::Mine()) {
        held->LetGoOf(*this);
    }
    if (SendTurn::Current() != nullptr) {
        SendTurn::Current()->WakeAll();
    }
    Close();
    WaitTornDown();
}

void CMediaSendStream::WaitTornDown() const {
    while (!m_bTornDown.load(std::memory_order_acquire)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

int CMediaSendStream::Open(const MediaSendParams& params) {
    if (m_eProtocol != TRANS_PROTOCOL_BUTS || !AreParamsSound(params)) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_PARA_INVALID, "Stream[%s] cannot be opened, protocol[%d], port[%d]",
                         params.strServiceID.c_str(), static_cast<int>(params.eProtocol),
                         static_cast<int>(params.videoDstAddr.get_port_number()));
        return ZVS_PARA_INVALID;
    }
    int result = TakeRecords(params);
    if (result == ZVS_SUCCEED) {
        result = OpenSockets(params);
    }
    if (result == ZVS_SUCCEED) {
        m_pQueue = CStreamTransMgr::Instance()->GetMediaQueue();
        result = m_pQueue == nullptr ? ZVS_GVX_OPEN_SOCKET_ERROR : ZVS_SUCCEED;
    }
    if (result != ZVS_SUCCEED) {
        Abandon();
        return result;
    }
    ShareSockets();
    m_strServiceID = params.strServiceID;
    m_eProtocol = params.eProtocol;
    m_bTornDown.store(false, std::memory_order_relaxed);
    m_nUsers.store(1, std::memory_order_release);
    m_bClosed.store(false, std::memory_order_release);
    return ZVS_SUCCEED;
}

int CMediaSendStream::TakeRecords(const MediaSendParams& params) {
    CSocketInfoMgr* pool = CSocketInfoMgr::Instance();
    const bool ownAudio = params.eProtocol == RTP_OVER_UDP && params.audioDstAddr.get_port_number() != 0;
    if (pool->PopSocketQueue(m_pVideoRecord) != ZVS_SUCCEED ||
        (ownAudio && pool->PopSocketQueue(m_pAudioRecord) != ZVS_SUCCEED)) {
        return ZVS_GVX_OPEN_SOCKET_ERROR;
    }
    FillRecord(*m_pVideoRecord, params, true);
    if (m_pAudioRecord != nullptr) {
        FillRecord(*m_pAudioRecord, params, false);
    }
    return ZVS_SUCCEED;
}

int CMediaSendStream::OpenSockets(const MediaSendParams& params) {
    return params.eProtocol == RTP_OVER_UDP ? OpenUdp(params) : OpenTcp(params);
}

int CMediaSendStream::OpenUdp(const MediaSendParams& params) {
    const int result = OpenDatagram(m_pVideoRecord->videoSockDgram, params, params.nVideoLocalPort, m_videoLocalAddr);
    return result != ZVS_SUCCEED
               ? result
               : OpenDatagram(m_pVideoRecord->audioSockDgram, params, params.nAudioLocalPort, m_audioLocalAddr);
}

int CMediaSendStream::OpenTcp(const MediaSendParams& params) {
    ACE_INET_Addr wanted;
    int handle = -1;
    if (const int result = MakeSocket(params, SOCK_STREAM, handle, wanted); result != ZVS_SUCCEED) {
        return result;
    }
    ACE_SOCK_Stream& stream = m_pVideoRecord->videoSockStream;
    stream.set_handle(handle);
    if (::bind(handle, static_cast<const sockaddr*>(wanted.get_addr()), static_cast<socklen_t>(wanted.get_size())) !=
        0) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_NET_BIND_ERROR, "Stream[%s] cannot send from[%s], errno: %d",
                         params.strServiceID.c_str(), params.strLocalIp.c_str(), errno);
        return ZVS_NET_BIND_ERROR;
    }
    const ACE_Time_Value timeout(params.nConnectTimeoutMs / 1000,
                                 static_cast<suseconds_t>(params.nConnectTimeoutMs % 1000) * 1000);
    if (m_pVideoRecord->connector.connect(stream, params.videoDstAddr, &timeout) == -1) {
        GVX_LOG_ERR_CODE(kTitle, ZVS_NET_CONNECT_ERROR, "Stream[%s] cannot connect, errno: %d",
                         params.strServiceID.c_str(), errno);
        return ZVS_NET_CONNECT_ERROR;
    }
    const int on = 1;
    ::setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    ::setsockopt(handle, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on));
    stream.enable(ACE_NONBLOCK);
    stream.get_local_addr(m_videoLocalAddr);
    m_audioLocalAddr = m_videoLocalAddr;
    return ZVS_SUCCEED;
}

// From here on the hold counts keep the records. Over UDP audio has a record of its own, since a record sends either
// video or audio; its sockets are those of the video record, which closes them.
void CMediaSendStream::ShareSockets() {
    m_pVideoRecord->videoSrcAddr = m_videoLocalAddr;
    m_pVideoRecord->audioSrcAddr = m_audioLocalAddr;
    m_pVideoRecord->BeginHolding(nullptr);
    if (m_pAudioRecord == nullptr) {
        return;
    }
    m_pAudioRecord->videoSrcAddr = m_videoLocalAddr;
    m_pAudioRecord->audioSrcAddr = m_audioLocalAddr;
    m_pAudioRecord->videoSockDgram.set_handle(m_pVideoRecord->videoSockDgram.get_handle());
    m_pAudioRecord->audioSockDgram.set_handle(m_pVideoRecord->audioSockDgram.get_handle());
    m_pAudioRecord->BeginHolding(m_pVideoRecord);
}

void CMediaSendStream::Abandon() {
    for (SOCKET_INFO** record : {&m_pAudioRecord, &m_pVideoRecord}) {
        if (*record != nullptr) {
            (*record)->BeginHolding(nullptr);
            (*record)->Drop();
            *record = nullptr;
        }
    }
}

bool CMediaSendStream::BeginUse(bool evenClosed) const {
    if (!evenClosed && m_bClosed.load(std::memory_order_acquire)) {
        return false;
    }
    int users = m_nUsers.load(std::memory_order_relaxed);
    while (users > 0) {
        if (m_nUsers.compare_exchange_weak(users, users + 1, std::memory_order_acquire, std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

void CMediaSendStream::EndUse() {
    if (m_nUsers.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        TearDown();
    }
}

void CMediaSendStream::TearDown() {
    m_ullDropped += m_pVideoRecord->losses.LostOrWaiting();
    if (m_pAudioRecord != nullptr) {
        m_ullDropped += m_pAudioRecord->losses.LostOrWaiting();
        m_pAudioRecord->Drop();
        m_pAudioRecord = nullptr;
    }
    m_pVideoRecord->Drop();
    m_pVideoRecord = nullptr;
    CStreamTransMgr::Instance()->ReleaseMediaQueue(m_pQueue);
    m_pQueue = nullptr;
    m_bTornDown.store(true, std::memory_order_release);
}

void CMediaSendStream::Close() {
    if (m_bClosed.exchange(true)) {
        return;
    }
    CSocketInfoMgr::Instance()->BeginClosing();
    m_pVideoRecord->bStopped = true;
    if (m_pAudioRecord != nullptr) {
        m_pAudioRecord->bStopped = true;
    }
    EndUse();
}

bool CMediaSendStream::IsOpen() const {
    UseGuard use(*this);
    return use && !m_pVideoRecord->bGone;
}

int CMediaSendStream::DuplicateConnection() const {
    const UseGuard use(*this);
    return use && m_eProtocol == RTP_OVER_TCP
               ? ::fcntl(m_pVideoRecord->videoSockStream.get_handle(), F_DUPFD_CLOEXEC, 0)
               : -1;
}

int CMediaSendStream::Send(const MEDIA_DATA& data) {
    HeldPackets* const held = HeldPackets::Mine();
    if (held == nullptr) {
        return ZVS_ALLOC_MEMORY_ERROR;
    }
    gvx::PacketRun* const run = gvx::PacketRun::Current();
    const int result = held->Put(*this, data, run);
    return run != nullptr || held->HandOn() ? result : int{ZVS_FAIL};
}

int CMediaSendStream::HeldPackets::Put(CMediaSendStream& stream, const MEDIA_DATA& data, gvx::PacketRun* run) {
    if (m_stream != &stream) {
        HandOn();
        if (!stream.BeginUse(false)) {
            return ZVS_GVX_OPEN_SOCKET_ERROR;
        }
        m_stream = &stream;
        m_lastTimeStamp = stream.m_ullLastTimeStamp.load(std::memory_order_relaxed);
        if (run != nullptr) {
            run->SetHolder(this);
        }
    }
    if (stream.m_bClosed.load(std::memory_order_acquire) ||
        stream.m_pVideoRecord->bGone.load(std::memory_order_relaxed)) {
        return ZVS_GVX_OPEN_SOCKET_ERROR;
    }
    const Kind kind = data.nVideoSize != 0 ? Kind::Video : data.nAudioSize != 0 ? Kind::Audio : Kind::Metadata;
    const std::size_t size = kind == Kind::Video   ? data.nVideoSize
                             : kind == Kind::Audio ? data.nAudioSize
                                                   : data.nMetaDataSize;
    if (data.pDataBuf == nullptr || size == 0) {
        return stream.CountDrop("a packet is empty");
    }
    if (data.eTransProtocol != stream.m_eProtocol) {
        return stream.CountDrop("a packet is built for another transport");
    }
    SOCKET_INFO* const record =
        kind == Kind::Audio && stream.m_eProtocol != RTP_OVER_TCP ? stream.m_pAudioRecord : stream.m_pVideoRecord;
    if (record == nullptr) {
        return ZVS_SUCCEED;
    }
    if (record != m_record || kind != m_kind || m_count == kMost) {
        Queue();
        m_record = record;
        m_kind = kind;
    }
    ACE_Message_Block* const block = TakeBlock(run);
    if (block == nullptr) {
        return stream.CountDrop("no media block is free");
    }
    // The pointer goes into the headroom of the block, so that the packet has the whole block.
    if (block->rd_ptr() < block->base() + sizeof(record) || block->space() < size) {
        m_free[m_freeCount++] = block;
        return stream.CountDrop("a packet does not fit a media block");
    }
    block->rd_ptr(block->rd_ptr() - sizeof(record));
    std::memcpy(block->rd_ptr(), &record, sizeof(record));
    std::memcpy(block->wr_ptr(), data.pDataBuf, size);
    block->wr_ptr(size);
    m_packets[m_count++] = block;
    m_bytes += size;
    if (kind == Kind::Video) {
        NoteTimeStamp(static_cast<const char*>(data.pDataBuf), size);
    }
    return ZVS_SUCCEED;
}

ACE_Message_Block* CMediaSendStream::HeldPackets::TakeBlock(const gvx::PacketRun* run) {
    if (m_freeCount == 0) {
        Queue();  // what is held here may be what others wait for
        if (SendTurn* const turn = SendTurn::Current()) {
            turn->WakeAll();
        }
        const std::size_t wanted = run == nullptr ? 1 : std::clamp<std::size_t>(run->Packets(), 1, kMost);
        m_freeCount = CMediaBlockBuffer::instance()->allocMediaBlocks(m_free.data(), wanted);
    }
    FetchAhead();
    return m_freeCount == 0 ? nullptr : m_free[--m_freeCount];
}

// Blocks come back from another processor: head, data block and the room for a usual packet are on their way before
// they are written.
void CMediaSendStream::HeldPackets::FetchAhead() const {
    constexpr std::size_t kStep = 2;
    constexpr std::size_t kUsualPacket = 1344;
    constexpr std::size_t kCacheLine = 64;
    if (m_freeCount > 3 * kStep) {
        __builtin_prefetch(m_free[m_freeCount - 1 - 3 * kStep], 1);
    }
    if (m_freeCount > 2 * kStep) {
        __builtin_prefetch(m_free[m_freeCount - 1 - 2 * kStep]->data_block(), 1);
    }
    if (m_freeCount > kStep) {
        const char* const room = m_free[m_freeCount - 1 - kStep]->base();
        for (std::size_t at = 0; at < kUsualPacket; at += kCacheLine) {
            __builtin_prefetch(room + at, 1);
        }
    }
}

void CMediaSendStream::HeldPackets::NoteTimeStamp(const char* packet, std::size_t size) {
    const std::size_t ahead = m_stream->m_eProtocol == RTP_OVER_TCP ? gvx::kInterleaveLen : 0;
    if (size < ahead + kRtpTimeStampEnd) {
        return;
    }
    std::uint32_t timeStamp = 0;
    std::memcpy(&timeStamp, packet + ahead + kRtpTimeStampAt, sizeof(timeStamp));
    m_frames += timeStamp != m_lastTimeStamp ? 1 : 0;
    m_lastTimeStamp = timeStamp;
}

bool CMediaSendStream::HeldPackets::Queue() {
    if (m_count == 0) {
        return true;
    }
    m_record->Hold(static_cast<int>(m_count));
    const std::uint64_t bytes = std::exchange(m_bytes, 0);
    const std::size_t count = std::exchange(m_count, 0);
    std::uint64_t unsent = 0;
    SendTurn* const turn = SendTurn::Current();
    bool wake = false;
    const std::size_t queued =
        m_stream->m_pQueue->AppendSome(m_packets.data(), count, turn == nullptr ? nullptr : &wake);
    if (wake) {
        turn->Note(*m_stream, queued);
    }
    if (const std::size_t refused = count - queued; refused != 0) {
        for (std::size_t i = queued; i < count; ++i) {
            unsent += m_packets[i]->length() - sizeof(m_record);
        }
        m_record->Drop(static_cast<int>(refused));
        CMediaBlockBuffer::instance()->freeMediaBlocks(m_packets.data() + queued, refused);
        m_stream->CountDrop("the transmission queue is full", refused);
    }
    const std::uint64_t frames = std::exchange(m_frames, 0);
    if (queued != 0) {
        Count(queued, bytes - unsent, frames);
    }
    return queued == count;
}

void CMediaSendStream::HeldPackets::Count(std::size_t packets, std::uint64_t bytes, std::uint64_t frames) {
    m_stream->m_ullBytes.fetch_add(bytes, std::memory_order_relaxed);
    if (m_kind == Kind::Audio) {
        m_stream->m_ullAudioPackets.fetch_add(packets, std::memory_order_relaxed);
    } else if (m_kind == Kind::Video) {
        m_stream->m_ullVideoPackets.fetch_add(packets, std::memory_order_relaxed);
    }
    if (frames != 0) {
        m_stream->m_ullVideoFrames.fetch_add(frames, std::memory_order_relaxed);
        m_stream->m_ullLastTimeStamp.store(m_lastTimeStamp, std::memory_order_relaxed);
    }
    // Once a frame, not for each of its packets.
    if (frames != 0 || (m_kind != Kind::Video && m_stream->m_ullVideoFrames.load(std::memory_order_relaxed) == 0)) {
        m_stream->m_llLastFrameMs.store(gvx::MonotonicMilliseconds(), std::memory_order_relaxed);
    }
}

bool CMediaSendStream::HeldPackets::HandOn() noexcept {
    if (m_stream == nullptr) {
        return true;
    }
    const bool all = Queue();
    if (m_freeCount != 0) {
        CMediaBlockBuffer::instance()->freeMediaBlocks(m_free.data(), std::exchange(m_freeCount, 0));
    }
    m_record = nullptr;
    std::exchange(m_stream, nullptr)->EndUse();
    return all;
}

int CMediaSendStream::CountDrop(const char* reason, std::size_t count) {
    m_ullDropped.fetch_add(count, std::memory_order_relaxed);
    const std::int64_t now = gvx::MonotonicMilliseconds();
    if (now >= m_llDropEpisodeEnd.exchange(now + kDropEpisodePauseMs, std::memory_order_relaxed)) {
        GVX_LOG_WARN(kTitle, "Stream[%s] drops packets: %s.", m_strServiceID.c_str(), reason);
    }
    return ZVS_FAIL;
}

MediaSendStatistics CMediaSendStream::GetStatistics() const {
    MediaSendStatistics statistics;
    // The drops of the records move to this object as the stream is torn down: they are counted where they stand then.
    const UseGuard use(*this, true);
    if (use) {
        statistics.ullDroppedPackets += m_pVideoRecord->losses.Lost();
        statistics.ullDroppedPackets += m_pAudioRecord != nullptr ? m_pAudioRecord->losses.Lost() : 0;
    } else {
        WaitTornDown();
    }
    statistics.ullDroppedPackets += m_ullDropped;
    statistics.ullVideoFrames = m_ullVideoFrames;
    statistics.ullVideoPackets = m_ullVideoPackets;
    statistics.ullAudioPackets = m_ullAudioPackets;
    statistics.ullBytes = m_ullBytes;
    statistics.llLastFrameMs = m_llLastFrameMs;
    return statistics;
}

int SendMediaOverSocket(MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    if (data == nullptr || streamType == nullptr || data->pUserInfo == nullptr) {
        GVX_LOG_ERR(kTitle, "Socket info is null");
        return ZVS_FAIL;
    }
    return static_cast<CMediaSendStream*>(data->pUserInfo)->Send(*data);
}
