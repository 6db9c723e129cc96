#pragma once

#include "gvx_common/media/socket_info.h"

#include <ace/Time_Value.h>

#include <cstddef>

#include <sys/uio.h>

namespace gvx {

// Sends count packets of one stream over UDP in order, PacketBatch::kRoom at most, many with one system call. Packets
// of equal size that follow each other, and a shorter one behind them, go to the kernel as one buffer that it cuts
// again (UDP_SEGMENT, udp(7)): on the wire stands what single sends would have put there. A packet that cannot be sent
// is dropped and counted in the record. A socket without room is waited for, no longer than timeout for all packets
// together. A socket that refuses segmentation gets its packets one by one from then on, with one line in the log.
// One thread at a time for a record.
void SendDatagrams(SOCKET_INFO& info, const iovec* packets, std::size_t count, const ACE_Time_Value& timeout);

}  // namespace gvx
