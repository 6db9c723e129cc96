#pragma once

#include "gvx_common/records/media_types.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

// What a lens sends, packet by packet: give Take as the send function and the recorder as the user info. Any thread.
class PacketRecorder {
public:
    struct Packet {
        bool video;
        FRAME_TYPE_I frameType;
        STREAM_TYPE_EX streamType;
        TRANS_PROTOCOL protocol;
        std::uint32_t timestamp;  // of the RTP head
        std::uint8_t payloadType;
        std::uint16_t width;
        std::string bytes;  // from the RTP head on
    };

    static int Take(MEDIA_DATA* data, STREAM_TYPE_EX* streamType);

    // What the send function answers from now on.
    void SetResult(int result);
    std::vector<Packet> Packets() const;
    // Distinct timestamps of video: pictures, as a receiver counts them.
    std::size_t Pictures() const;
    std::size_t Count() const;

private:
    mutable std::mutex m_mutex;
    std::vector<Packet> m_packets;  // Guarded by m_mutex.
    int m_result = 0;               // Guarded by m_mutex.
};
