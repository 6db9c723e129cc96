#pragma once

#include "gvx_common/media/socket_info.h"

#include <ace/Time_Value.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include <sys/uio.h>

namespace gvx {

// Sends interleaved packets of streams over TCP, those of one stream with one gathered write. A packet that left in
// part is finished first, whatever comes after it, so that the peer never loses the framing. One thread at a time.
class InterleavedSender {
public:
    InterleavedSender();
    // Lets go of the streams that still wait; the thread must have ended.
    ~InterleavedSender() { DropRests(); }
    InterleavedSender(const InterleavedSender&) = delete;
    InterleavedSender& operator=(const InterleavedSender&) = delete;

    // Sends count packets in order, waiting for room no longer than timeout for all of them together; a stream that
    // had none the last time is not waited for. The packet in which the write stopped is kept and goes first next time;
    // those behind it are dropped and counted in the record. A peer that for 2 s makes no room for the rest of a
    // packet, or for any packet at all, counts as gone.
    void Send(SOCKET_INFO& info, const iovec* packets, std::size_t count, const ACE_Time_Value& timeout);

    // Streams with a rest, also when no further packet comes for them: sends what can leave now, and lets go of those
    // that have ended. Does nothing when called again within 5 ms.
    void FlushRests();
    void DropRests();

    // True when a send that failed with this errno leaves the stream usable.
    static bool IsErrorOk(int error);

private:
    bool SendRest(SOCKET_INFO& info);
    void KeepRest(SOCKET_INFO& info, const char* bytes, std::size_t size);
    static void CheckStall(SOCKET_INFO& info);

    std::vector<SOCKET_INFO*> m_restStreams;  // held records with a rest
    std::int64_t m_nextFlush = 0;             // monotonic milliseconds
};

}  // namespace gvx
