#pragma once

#include "gvx_common/media/socket_info.h"

#include <ace/Time_Value.h>

#include <cstddef>
#include <cstdint>

#include <sys/uio.h>

namespace gvx {

struct SocketWrite;

// Sends the packets of streams over UDP and TCP without waiting for their sockets. What finds no room is parked in the
// record of its stream, goes first, and is tried again with each further packet and every kRetryMs, so a link that is
// slower than a frame costs time and no packet, and no other stream of the thread is delayed. A packet waits no longer
// than kMostAgeMs; one that left in part over TCP is finished whatever comes, so that the peer never loses the framing.
// One thread at a time.
class StreamSender {
public:
    static constexpr std::int64_t kMostAgeMs = 1000;
    static constexpr std::int64_t kStallLimitMs = 2000;
    static constexpr std::int64_t kRetryMs = 2;

    StreamSender() = default;
    // Lets go of the streams in which something waits; the thread must have ended.
    ~StreamSender() { LoseWaiting(); }
    StreamSender(const StreamSender&) = delete;
    StreamSender& operator=(const StreamSender&) = delete;

    // Bytes that may wait for one stream, ParkedPackets::kLeastLimit at least. 0 turns parking off.
    void SetParkBytes(std::size_t bytes);

    // Sends count packets, 1 to PacketBatch::kRoom, in order. Those that find no room in socket and record are waited
    // for, timeout at most for all together and only when the stream has made room since the last wait, and are then
    // dropped and counted in the record. A TCP peer that takes no byte for kStallLimitMs counts as gone.
    // A record that counts no holders is tried again with its next packet alone.
    void Send(SOCKET_INFO& info, const iovec* packets, std::size_t count, const ACE_Time_Value& timeout);

    bool HasWaiting() const { return m_first != nullptr; }

    // Tries the streams in which something waits, and lets go of those that have ended, whose packets then count as
    // dropped. Does nothing when called again within kRetryMs.
    void SendWaiting();
    void LoseWaiting();

private:
    bool SendWaitingOf(SOCKET_INFO& info);
    std::size_t SendNew(SOCKET_INFO& info, const iovec* packets, std::size_t count);
    std::size_t Park(SOCKET_INFO& info, const iovec* packets, std::size_t count);
    void KeepRest(SOCKET_INFO& info, const iovec& packet, std::size_t sent);
    void NoteRoom(SOCKET_INFO& info, const SocketWrite& write);
    void List(SOCKET_INFO& info);
    static void LoseWaitingOf(SOCKET_INFO& info);
    bool StillWaits(SOCKET_INFO& info);
    static void LetGo(SOCKET_INFO& info);

    // Held records in which something waits, linked by their pNextListed in the order in which they came.
    SOCKET_INFO* m_first = nullptr;
    SOCKET_INFO** m_end = &m_first;
    std::int64_t m_nextRetry = 0;  // monotonic milliseconds
    int m_roomError = 0;           // errno of the last write that found no room
    std::size_t m_parkBytes = 0;
};

}  // namespace gvx
