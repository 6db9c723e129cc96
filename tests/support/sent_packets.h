#pragma once

#include "gvx_common/records/media_types.h"

#include <cstddef>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

// A packet as a lens hands it to its send function, seen as RTP (RFC 3550, 5.1) behind an interleave head if it has
// one.
struct SentPacket {
    Bytes bytes;
    MEDIA_DATA media;  // pDataBuf is gone
    STREAM_TYPE_EX streamType;

    std::size_t RtpAt() const { return media.eTransProtocol == RTP_OVER_TCP ? 4 : 0; }
    // A big-endian number of the RTP packet.
    unsigned int Number(std::size_t at, std::size_t size) const {
        unsigned int value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            value = value << 8 | bytes.at(RtpAt() + at + i);
        }
        return value;
    }
    unsigned int PayloadType() const { return Number(1, 1) & 0x7F; }
    bool Marked() const { return (Number(1, 1) & 0x80) != 0; }
    unsigned int SeqNo() const { return Number(2, 2); }
    unsigned int TimeStamp() const { return Number(4, 4); }
    // Behind the head, whose extension is 24 bytes long where there is one.
    Bytes Payload() const {
        const std::size_t head = RtpAt() + ((Number(0, 1) & 0x10) != 0 ? 36 : 12);
        return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(head), bytes.end());
    }
};

// Keeps what comes out of the send function Take while it is in scope; one at a time, on one thread.
class SentPackets {
public:
    SentPackets() { s_current = this; }
    ~SentPackets() { s_current = nullptr; }
    SentPackets(const SentPackets&) = delete;
    SentPackets& operator=(const SentPackets&) = delete;

    static int Take(MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
        const std::size_t size = data->nVideoSize != 0   ? data->nVideoSize
                                 : data->nAudioSize != 0 ? data->nAudioSize
                                                         : data->nMetaDataSize;
        const auto* begin = static_cast<const unsigned char*>(data->pDataBuf);
        s_current->all.push_back({Bytes(begin, begin + size), *data, *streamType});
        return s_current->all.size() > s_current->failFrom ? s_current->result : 0;
    }

    std::vector<SentPacket> all;
    // What Take answers from that packet on.
    int result = 0;
    std::size_t failFrom = 0;

private:
    static inline SentPackets* s_current = nullptr;
};
