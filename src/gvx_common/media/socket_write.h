#pragma once

#include "gvx_common/media/socket_info.h"

#include <cstddef>

#include <sys/uio.h>

namespace gvx {

// How far a write without waiting has come.
struct SocketWrite {
    std::size_t done = 0;    // packets that are dealt with, in order: they have left or, some of them, are lost
    std::size_t lost = 0;    // of these, those that cannot be sent at all
    std::size_t offset = 0;  // bytes that have left of the packet behind them (TCP)
    int error = 0;  // why it has stopped there: no room by IsRoomError, or the connection's end; 0 when all is done

    bool HasMoved() const { return done != 0 || offset != 0; }
};

// True for an errno that says that a socket has no room now and leaves the stream usable.
bool IsRoomError(int error);

// Both send packets of one stream, 1 to PacketBatch::kRoom, in order and as far as there is room, and count nothing in
// the record. One thread at a time for a record.

// Over UDP many with one system call. Packets of equal size that follow each other, and a shorter one behind them, go
// to the kernel as one buffer that it cuts again (UDP_SEGMENT, udp(7)): on the wire stands what single sends would have
// put there. A socket that refuses segmentation gets its packets one by one from then on, with one line in the log.
SocketWrite WriteDatagrams(SOCKET_INFO& info, const iovec* packets, std::size_t count);

// Over TCP by gathered writes.
SocketWrite WriteInterleaved(const SOCKET_INFO& info, const iovec* packets, std::size_t count);

}  // namespace gvx
