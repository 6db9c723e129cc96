#include "plugins/packet_recorder.h"

#include <set>

namespace {

constexpr std::size_t kInterleaveBytes = 4;
constexpr std::size_t kRtpHeadBytes = 12;

}  // namespace

int PacketRecorder::Take(MEDIA_DATA* data, STREAM_TYPE_EX* streamType) {
    auto& self = *static_cast<PacketRecorder*>(data->pUserInfo);
    Packet packet{};
    packet.video = data->nVideoSize != 0;
    packet.frameType = data->FrameType;
    packet.streamType = *streamType;
    packet.protocol = data->eTransProtocol;
    packet.width = data->nWidth;
    const std::uint32_t other = data->nAudioSize != 0 ? data->nAudioSize : data->nMetaDataSize;
    packet.bytes.assign(static_cast<const char*>(data->pDataBuf), packet.video ? data->nVideoSize : other);
    if (packet.protocol == RTP_OVER_TCP) {
        packet.bytes.erase(0, kInterleaveBytes);
    }
    if (packet.bytes.size() >= kRtpHeadBytes) {
        const auto* head = reinterpret_cast<const unsigned char*>(packet.bytes.data());
        packet.payloadType = head[1] & 0x7Fu;
        packet.timestamp = (static_cast<std::uint32_t>(head[4]) << 24) | (static_cast<std::uint32_t>(head[5]) << 16) |
                           (static_cast<std::uint32_t>(head[6]) << 8) | head[7];
    }
    const std::lock_guard<std::mutex> guard(self.m_mutex);
    self.m_packets.push_back(std::move(packet));
    return self.m_result;
}

void PacketRecorder::SetResult(int result) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_result = result;
}

std::vector<PacketRecorder::Packet> PacketRecorder::Packets() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_packets;
}

std::size_t PacketRecorder::Pictures() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::set<std::uint32_t> timestamps;
    for (const Packet& packet : m_packets) {
        if (packet.video) {
            timestamps.insert(packet.timestamp);
        }
    }
    return timestamps.size();
}

std::size_t PacketRecorder::Count() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_packets.size();
}
