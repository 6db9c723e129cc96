#pragma once

#include "gvx_common/media/media_send_stream.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace gvx {

// The counts of a stream whose metadata may have sockets of its own: dropped packets and bytes are those of both.
MediaSendStatistics StatisticsOf(const CMediaSendStream& media, const CMediaSendStream* metadata);

// A stream that runs, for whoever shows a status: what never changes of it, and where its counts are.
struct StreamEntry {
    std::string serviceID;
    std::string plugin;
    std::string device;
    std::string lens;
    std::string askedBy;  // the link that has asked for it
    int service = 0;      // a ZVS_SERVICE_TYPE; any other value is live view
    bool overTcp = false;
    std::uint32_t videoFormat = 0;  // a ZVS_VIDEO_DEC_TYPE; 0 for sound alone
    std::uint32_t audioFormat = 0;  // an AUDIO_FORMAT_TYPE; 0 for none
    std::uint32_t dstIp = 0;        // host order
    std::uint16_t dstPort = 0;
    std::int64_t startedMs = 0;  // monotonic
    // When the platform let it go on after a pause, monotonic; kPaused while it is paused, 0 for one that never was.
    static constexpr std::int64_t kPaused = -1;
    std::atomic<std::int64_t> flowsSinceMs{0};
    std::shared_ptr<const CMediaSendStream> media;
    std::shared_ptr<const CMediaSendStream> metadata;  // null without sockets of its own

    MediaSendStatistics Statistics() const { return StatisticsOf(*media, metadata.get()); }
};

// What many streams have sent together.
struct StreamTotals {
    std::uint64_t started = 0;
    std::uint64_t frames = 0;
    std::uint64_t packets = 0;  // of video and sound
    std::uint64_t bytes = 0;
    std::uint64_t lost = 0;  // packets

    void Add(const MediaSendStatistics& stream);
};

// The streams that run, and the sums of those that have ended, so that whoever adds both up gets totals that only rise.
// Written as streams start and end, never for a packet. Any thread.
class StreamLedger {
public:
    struct Page {
        std::vector<std::shared_ptr<const StreamEntry>> running;
        StreamTotals ended;
        std::map<std::string, StreamTotals> endedOfDevices;  // by device, of those that are there
    };

    static StreamLedger& Instance();

    void Enter(std::shared_ptr<const StreamEntry> stream);
    // The stream is closed: its counts rise no more.
    void Leave(const std::shared_ptr<const StreamEntry>& stream);
    // The sum of the device's streams is of no use any more.
    void DeviceDeleted(const std::string& device);

    // All of one moment. A stream that ends meanwhile is still among those that run.
    Page Read() const;

private:
    mutable std::mutex m_mutex;  // Guards all below; nothing is called while it is held.
    Page m_page;
};

}  // namespace gvx
