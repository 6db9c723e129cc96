#include "gateway/streams/stream_ledger.h"

#include <algorithm>

namespace gvx {

MediaSendStatistics StatisticsOf(const CMediaSendStream& media, const CMediaSendStream* metadata) {
    MediaSendStatistics sum = media.GetStatistics();
    if (metadata != nullptr) {
        const MediaSendStatistics more = metadata->GetStatistics();
        sum.ullDroppedPackets += more.ullDroppedPackets;
        sum.ullBytes += more.ullBytes;
    }
    return sum;
}

void StreamTotals::Add(const MediaSendStatistics& stream) {
    ++started;
    frames += stream.ullVideoFrames;
    packets += stream.ullVideoPackets + stream.ullAudioPackets;
    bytes += stream.ullBytes;
    lost += stream.ullDroppedPackets;
}

// Never destroyed: what a plug-in holds up may end late.
StreamLedger& StreamLedger::Instance() {
    static StreamLedger* const ledger = new StreamLedger;
    return *ledger;
}

void StreamLedger::Enter(std::shared_ptr<const StreamEntry> stream) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_page.endedOfDevices[stream->device];  // made here, where a lack of memory can be answered: Leave must not throw
    m_page.running.push_back(std::move(stream));
}

void StreamLedger::Leave(const std::shared_ptr<const StreamEntry>& stream) {
    const MediaSendStatistics last = stream->Statistics();
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = std::find(m_page.running.begin(), m_page.running.end(), stream);
    if (found != m_page.running.end()) {
        m_page.running.erase(found);
        m_page.ended.Add(last);
        const auto device = m_page.endedOfDevices.find(stream->device);
        if (device != m_page.endedOfDevices.end()) {
            device->second.Add(last);
        }
    }
}

void StreamLedger::DeviceDeleted(const std::string& device) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_page.endedOfDevices.erase(device);
}

StreamLedger::Page StreamLedger::Read() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_page;
}

}  // namespace gvx
