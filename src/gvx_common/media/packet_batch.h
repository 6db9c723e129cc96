#pragma once

#include "gvx_common/media/socket_info.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include <sys/uio.h>

namespace gvx {

// Packets that a transmission thread takes from its queue in one go, sorted by stream so that those of one stream can
// leave together. Their order within a stream is kept. Copies nothing: the bytes stay the caller's. One thread.
class PacketBatch {
public:
    static constexpr std::size_t kRoom = 128;

    bool IsFull() const { return m_packetCount == kRoom; }

    // Only while it is not full, and only by the thread that serves the record.
    void Add(SOCKET_INFO& record, char* bytes, std::size_t size) {
        const auto at = static_cast<std::uint32_t>(m_packetCount++);
        m_packets[at] = Packet{{bytes, size}, kNone};
        // A record keeps the place that it had in an earlier batch, perhaps another thread's; whether it holds still,
        // the run itself tells.
        const std::uint32_t place = record.unBatchPlace;
        if (place < m_runCount && m_runs[place].record == &record) {
            m_packets[m_runs[place].last].next = at;
            m_runs[place].last = at;
            return;
        }
        record.unBatchPlace = m_runCount;
        m_runs[m_runCount++] = Run{&record, at, at};
    }

    // Calls send(record, packets, count) once for each stream and empties the batch. The record may come to its end
    // in that call.
    template <typename Send>
    void Drain(Send send) {
        std::array<iovec, kRoom> packets;
        for (std::uint32_t i = 0; i < m_runCount; ++i) {
            std::size_t count = 0;
            for (std::uint32_t at = m_runs[i].first; at != kNone; at = m_packets[at].next) {
                packets[count++] = m_packets[at].bytes;
            }
            send(*m_runs[i].record, packets.data(), count);
        }
        m_packetCount = 0;
        m_runCount = 0;
    }

private:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;
    struct Packet {
        iovec bytes;
        std::uint32_t next;  // of the same stream
    };
    struct Run {
        SOCKET_INFO* record;
        std::uint32_t first;
        std::uint32_t last;
    };
    std::array<Packet, kRoom> m_packets;
    std::array<Run, kRoom> m_runs;
    std::size_t m_packetCount = 0;
    std::uint32_t m_runCount = 0;
};

}  // namespace gvx
