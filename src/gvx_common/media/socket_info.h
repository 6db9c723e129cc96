#pragma once

#include "gvx_common/media/parked_packets.h"
#include "gvx_common/records/media_types.h"

#include <ace/INET_Addr.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/SOCK_Acceptor.h>
#include <ace/SOCK_Connector.h>
#include <ace/SOCK_Dgram.h>
#include <ace/SOCK_Stream.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <queue>

namespace gvx {

// How many packets of a stream wait in the transmission thread and how many it could not send, in one word, so that
// whoever ends the stream sees both of one moment. Any thread reads; the one that serves the record writes.
class PacketLosses {
public:
    std::uint64_t Lost() const { return m_both.load(std::memory_order_relaxed) & kLostMask; }
    // With those that would be lost if the stream ended now.
    std::uint64_t LostOrWaiting() const {
        const std::uint64_t both = m_both.load(std::memory_order_relaxed);
        return (both & kLostMask) + (both >> kWaitingShift);
    }
    void Lose(std::uint64_t count) { m_both.fetch_add(count, std::memory_order_relaxed); }
    void BeginWaiting(std::uint64_t count) { m_both.fetch_add(count << kWaitingShift, std::memory_order_relaxed); }
    // So many wait no longer, lost of them because they are lost.
    void EndWaiting(std::uint64_t count, std::uint64_t lost) {
        m_both.fetch_sub((count << kWaitingShift) - lost, std::memory_order_relaxed);
    }
    void Reset() { m_both = 0; }

private:
    static constexpr int kWaitingShift = 40;
    static constexpr std::uint64_t kLostMask = (std::uint64_t{1} << kWaitingShift) - 1;
    std::atomic<std::uint64_t> m_both{0};
};

}  // namespace gvx

// The record of one open stream: where its packets go. It comes from CSocketInfoMgr and must stay valid while
// packets that carry its address are queued; hold counts see to that for the streams that use them. The stated fields
// are written before the first packet is queued and not changed until the last has gone, so they need no lock.
struct SOCKET_INFO {
    static constexpr std::size_t SERVICE_ID_SIZE = 33;
    static constexpr std::size_t MAX_REST = 2048;  // more than a media block holds

    SOCKET_INFO() { ResetSocketInfo(); }
    virtual ~SOCKET_INFO() = default;
    SOCKET_INFO(const SOCKET_INFO&) = delete;
    SOCKET_INFO& operator=(const SOCKET_INFO&) = delete;

    // Back to idle: no protocol, no stream type, no service, all four handles invalid, no holders. Closes nothing.
    void ResetSocketInfo();

    // Hold count. BeginHolding makes the caller the one holder; each queued packet is a holder more. Whoever drops the
    // last one gives the record back to the pool; a record that owns its sockets closes them first, another lets go of
    // the record that does. All of it does nothing for a record that never began, whose life its user sees to.
    void BeginHolding(SOCKET_INFO* handleOwner);  // null: this record owns the sockets
    bool Hold(int times = 1);                     // false when the record does not count
    void Drop(int times = 1);

    TRANS_PROTOCOL protocol;
    STREAM_TYPE_EX enStreamType;
    ACE_INET_Addr videoDstAddr;
    ACE_INET_Addr videoSrcAddr;
    ACE_INET_Addr audioDstAddr;
    ACE_INET_Addr audioSrcAddr;
    ACE_INET_Addr videoRecvSrcAddr;
    ACE_INET_Addr audioRecvSrcAddr;
    ACE_SOCK_Dgram audioSockDgram;
    ACE_SOCK_Dgram videoSockDgram;
    ACE_SOCK_Stream audioSockStream;
    ACE_SOCK_Stream videoSockStream;
    ACE_SOCK_Connector connector;  // for an active TCP link
    ACE_SOCK_Acceptor acceptor;    // for a passive TCP link
    char chServiceID[SERVICE_ID_SIZE];
    bool bVideoStream;  // over UDP: the video socket and address, else those of audio

    // Set by the stream as it ends: packets still queued are thrown away.
    std::atomic<bool> bStopped{false};
    // Set by the transmission thread: the peer of a TCP stream is gone, nothing more can be sent.
    std::atomic<bool> bGone{false};
    gvx::PacketLosses losses;

    // What found no room in the socket goes before anything else of the stream: the rest of a packet that has left in
    // part (TCP), then whole packets. Only the transmission thread that serves the stream touches these.
    std::array<char, MAX_REST> szRest;
    std::size_t unRestBegin;
    std::size_t unRestEnd;
    gvx::ParkedPackets parked;
    bool bStalled;                // something waits
    std::int64_t llStalledSince;  // while it does: when the last byte left, or this began; monotonic milliseconds
    bool bWaitedFor;              // a thread has waited for room, and none has been made since
    bool bListed;                 // the thread keeps it in its list of streams in which something waits
    SOCKET_INFO* pNextListed;     // there
    bool bNoSegments;             // the socket refused segmentation offload: its packets go one by one
    std::uint32_t unBatchPlace;   // where the thread's present batch has this stream, if it has

private:
    void CloseSockets();

    // On a cache line of their own, which senders and the transmission thread touch for each packet anyway: beside the
    // fields above, which only the thread writes, a sender would fetch a second line.
    alignas(64) std::atomic<int> m_nHolders{0};
    bool m_bCounted = false;
    SOCKET_INFO* m_pHandleOwner = nullptr;  // held while set
};

namespace gvx {

// A debug line for a packet of the stream that could not be sent. The thread that serves the record.
void LogSendFault(const SOCKET_INFO& info, int error);

}  // namespace gvx

// Pool of pre-built records, so that opening a stream allocates nothing. Any thread.
class CSocketInfoMgr {
public:
    static CSocketInfoMgr* Instance();

    // Builds records up to MAX_SOCKET_SIZE (default 1000) in all. 0; 1 when memory runs out, with the records made so
    // far kept: a further call builds those that are missing.
    int Init();

    // Deletes the records in the pool. A record still in use comes back later and is deleted with the manager.
    int UnInit();

    // Takes the record at the front: 0, or 1 with a log line when there is none; out is then null.
    int PopSocketQueue(SOCKET_INFO*& out);

    // Puts a record at the end. 0, or 1 with a log line for null.
    int PushSocketQueue(SOCKET_INFO* info);

    // Records in the pool now.
    std::size_t GetFreeNum();

    // A stream that has ended closes its sockets with the last of its packets, so that its ports are taken a moment
    // longer. Waits until all such have, for limit at most; false when there are none.
    bool WaitForClosing(std::chrono::milliseconds limit) const;
    // What it goes by, said by the stream as it ends and by the record.
    void BeginClosing() { m_nClosing.fetch_add(1, std::memory_order_relaxed); }
    void EndClosing() { m_nClosing.fetch_sub(1, std::memory_order_release); }

private:
    CSocketInfoMgr() = default;
    ~CSocketInfoMgr();

    std::queue<SOCKET_INFO*> m_SocketQueue;  // owned. Guarded by m_MutexSocketInfo.
    int m_nBuilt = 0;                        // in the pool or out of it. Guarded by m_MutexSocketInfo.
    std::atomic<int> m_nClosing{0};
    ACE_Recursive_Thread_Mutex m_MutexSocketInfo;
};
