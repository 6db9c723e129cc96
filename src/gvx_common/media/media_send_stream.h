#pragma once

#include "base/zvs_error.h"
#include "gvx_common/media/gvx_stream_transmission.h"
#include "gvx_common/records/media_types.h"

#include <ace/INET_Addr.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

// What a stream needs to know to be opened.
struct MediaSendParams {
    std::string strServiceID;  // at most 32 characters; for log lines
    STREAM_TYPE_EX enStreamType = STREAM_TYPE_REAL_MAIN;
    TRANS_PROTOCOL eProtocol = RTP_OVER_UDP;  // RTP_OVER_UDP or RTP_OVER_TCP
    ACE_INET_Addr videoDstAddr;               // over TCP: the peer to connect to
    ACE_INET_Addr audioDstAddr;               // UDP only; port 0: the stream has no audio
    std::string strLocalIp;                   // address to send from; empty: the system's choice
    std::uint16_t nVideoLocalPort = 0;        // UDP only, to send from; 0: the system's choice
    std::uint16_t nAudioLocalPort = 0;        // the same for audio
    unsigned int nConnectTimeoutMs = 3000;    // TCP only
};

// Counts since Open. A frame is a new RTP timestamp among the video packets. Packets and bytes are those handed to
// the transmission thread, over TCP with their interleave; dropped are those that could not be handed over, and those
// that the thread could not send. Close throws packets away: those in the queue do not count as dropped; those do that
// found no room in the socket and wait for it, also when they leave at that very moment.
struct MediaSendStatistics {
    std::uint64_t ullVideoFrames = 0;
    std::uint64_t ullVideoPackets = 0;
    std::uint64_t ullAudioPackets = 0;
    std::uint64_t ullDroppedPackets = 0;
    std::uint64_t ullBytes = 0;
    std::int64_t llLastFrameMs = 0;  // monotonic; of the last frame, or packet of a stream without video; 0 before it
};

// One open outgoing stream: its sockets, its records from CSocketInfoMgr and its place on a transmission thread.
// Open from one thread; Send, Close, IsOpen and GetStatistics from any thread at the same time. Destroying it waits
// for a Send, and for a gvx::PacketRun, that is under way: at most the 100 ms for which a packet may wait for a block.
class CMediaSendStream {
public:
    // A scope of a thread that sends for many streams in a row: who takes the packets is woken once, as it ends, or
    // after 512 packets, and not for each stream. It has to be short, since packets wait and streams are not torn down
    // meanwhile. One within another does nothing.
    class SendTurn {
    public:
        SendTurn();
        ~SendTurn();
        SendTurn(const SendTurn&) = delete;
        SendTurn& operator=(const SendTurn&) = delete;

    private:
        friend class CMediaSendStream;
        static SendTurn*& Current();
        void Note(CMediaSendStream& stream, std::size_t packets);
        void WakeAll();

        std::array<CMediaSendStream*, 8> m_streams{};  // in use; one for each queue that waits to be woken
        std::size_t m_count = 0;
        std::size_t m_packets = 0;
    };

    CMediaSendStream() = default;
    ~CMediaSendStream();
    CMediaSendStream(const CMediaSendStream&) = delete;
    CMediaSendStream& operator=(const CMediaSendStream&) = delete;

    // Takes the records, opens the sockets (UDP: one each for video and audio; TCP: one
    // active connection) and picks a queue. ZVS_SUCCEED; ZVS_PARA_INVALID for parameters that cannot be or a stream
    // that is open or has been used; ZVS_NET_BIND_ERROR; ZVS_NET_CONNECT_ERROR; ZVS_GVX_OPEN_SOCKET_ERROR when there
    // is no record, no thread or no socket left. A failure leaves nothing behind and may be tried again.
    int Open(const MediaSendParams& params);

    // Ends the stream without waiting: packets still queued are thrown away uncounted, and the records go back to the
    // pool when the last of them has gone. May be called again.
    void Close();

    // True until Close, or until the peer is gone.
    bool IsOpen() const;

    // Queues one packet. ZVS_SUCCEED; ZVS_FAIL for a packet that was dropped and counted; ZVS_GVX_OPEN_SOCKET_ERROR
    // when the stream is closed or its peer gone. Audio of a UDP stream without an audio destination succeeds unsent.
    // Allocates nothing, and waits only while no block is free (100 ms). Within a gvx::PacketRun of the calling thread
    // up to 64 packets are queued and counted together, at its end at the latest; one for which the queue then has no
    // room is counted as dropped.
    int Send(const MEDIA_DATA& data);

    // A further descriptor of the TCP connection, close-on-exec and the caller's, for what the peer sends on it. -1
    // when the stream is not open or not over TCP, or when there is none to be had.
    int DuplicateConnection() const;

    // May also be called after Close, and then gives what Close left.
    MediaSendStatistics GetStatistics() const;

    // Local addresses of the sockets, valid after Open; over TCP both are that of the connection.
    const ACE_INET_Addr& GetVideoLocalAddr() const { return m_videoLocalAddr; }
    const ACE_INET_Addr& GetAudioLocalAddr() const { return m_audioLocalAddr; }

private:
    class UseGuard;
    class HeldPackets;

    int TakeRecords(const MediaSendParams& params);
    int OpenSockets(const MediaSendParams& params);
    int OpenUdp(const MediaSendParams& params);
    int OpenTcp(const MediaSendParams& params);
    void ShareSockets();
    void Abandon();
    bool BeginUse(bool evenClosed) const;
    void EndUse();
    void WaitTornDown() const;
    void TearDown();
    int CountDrop(const char* reason, std::size_t count = 1);

    SOCKET_INFO* m_pVideoRecord = nullptr;  // held from Open until TearDown
    SOCKET_INFO* m_pAudioRecord = nullptr;  // over UDP with audio; over TCP audio leaves through the video record
    CStreamTransmission::Queue* m_pQueue = nullptr;
    std::string m_strServiceID;
    ACE_INET_Addr m_videoLocalAddr;
    ACE_INET_Addr m_audioLocalAddr;
    TRANS_PROTOCOL m_eProtocol = TRANS_PROTOCOL_BUTS;

    // Calls under way, and one more while open; 0 before Open and after the last call behind Close, which tears down.
    mutable std::atomic<int> m_nUsers{0};
    std::atomic<bool> m_bClosed{true};
    std::atomic<bool> m_bTornDown{true};  // the records and the queue are given back, and their counts taken over
    std::atomic<std::int64_t> m_llDropEpisodeEnd{0};  // monotonic milliseconds, put off by each further drop

    std::atomic<std::uint64_t> m_ullVideoFrames{0};
    std::atomic<std::uint64_t> m_ullVideoPackets{0};
    std::atomic<std::uint64_t> m_ullAudioPackets{0};
    std::atomic<std::uint64_t> m_ullDropped{0};
    std::atomic<std::uint64_t> m_ullBytes{0};
    std::atomic<std::uint64_t> m_ullLastTimeStamp{NO_TIME_STAMP};
    std::atomic<std::int64_t> m_llLastFrameMs{0};
    static constexpr std::uint64_t NO_TIME_STAMP = ~std::uint64_t{0};
};

// The SEND_STREAM_FUNC of the gateway: pUserInfo of the record is the CMediaSendStream. Results as Send; ZVS_FAIL for
// null pointers.
int SendMediaOverSocket(MEDIA_DATA* data, STREAM_TYPE_EX* streamType);
