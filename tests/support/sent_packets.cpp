#include "support/sent_packets.h"

SentPackets* SentPackets::s_current = nullptr;

unsigned int SentPacket::Number(std::size_t at, std::size_t size) const {
    unsigned int value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = value << 8 | bytes.at(RtpAt() + at + i);
    }
    return value;
}

Bytes SentPacket::Payload() const {
    const std::size_t head = RtpAt() + ((Number(0, 1) & 0x10) != 0 ? 36 : 12);
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(head), bytes.end());
}

int SentPackets::Take(MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    const std::size_t size = data->nVideoSize != 0   ? data->nVideoSize
                             : data->nAudioSize != 0 ? data->nAudioSize
                                                     : data->nMetaDataSize;
    const auto* begin = static_cast<const unsigned char*>(data->pDataBuf);
    s_current->all.push_back({Bytes(begin, begin + size), *data, *streamType});
    return s_current->all.size() > s_current->failFrom ? s_current->result : 0;
}
