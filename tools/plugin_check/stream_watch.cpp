#include "plugin_check/stream_watch.h"

#include "base/zvs_error.h"
#include "gvx_common/records/rtp_payload.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <utility>

namespace plugin_check {

namespace {

constexpr std::size_t kInterleaveBytes = 4;
constexpr std::size_t kHeadBytes = 12;
constexpr std::size_t kExtensionBytes = 24;
constexpr std::uint8_t kExtensionBit = 0x10;
constexpr std::uint32_t kMetadataPayload = 107;
constexpr std::int32_t kMostReordering = 90000;  // ticks of video, a second

struct Watches {
    std::mutex mutex;
    std::deque<std::unique_ptr<StreamWatch>> all;  // Guarded by mutex.
};

// Never destroyed: a plug-in's thread may outlive every static object.
Watches& AllWatches() {
    static Watches* watches = new Watches;
    return *watches;
}

std::uint32_t BigEndian(const std::uint8_t* bytes) {
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

bool HoldsStartCode(const std::uint8_t* begin, const std::uint8_t* end) {
    static constexpr std::uint8_t kCode[] = {0, 0, 1};
    return std::search(begin, end, std::begin(kCode), std::end(kCode)) != end;
}

}  // namespace

StreamWatch& StreamWatch::Begin(std::uint32_t videoPayload, std::uint32_t audioPayload, bool overTcp) {
    Watches& watches = AllWatches();
    const std::lock_guard<std::mutex> lock(watches.mutex);
    watches.all.push_back(std::unique_ptr<StreamWatch>(new StreamWatch(videoPayload, audioPayload, overTcp)));
    return *watches.all.back();
}

// A number, no address: whatever a plug-in makes of it, finding the watch is safe.
void* StreamWatch::UserInfo() {
    Watches& watches = AllWatches();
    const std::lock_guard<std::mutex> lock(watches.mutex);
    const auto found =
        std::find_if(watches.all.begin(), watches.all.end(), [this](const auto& watch) { return watch.get() == this; });
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(found - watches.all.begin() + 1));
}

int StreamWatch::Send(MEDIA_DATA* data, STREAM_TYPE_EX* /*streamType*/) {
    if (data == nullptr) {
        return ZVS_FAIL;
    }
    StreamWatch* watch = nullptr;
    {
        Watches& watches = AllWatches();
        const std::lock_guard<std::mutex> lock(watches.mutex);
        const auto number = reinterpret_cast<std::uintptr_t>(data->pUserInfo);
        // What belongs to no stream is told of the one that began last.
        watch = watches.all.empty() ? nullptr : watches.all.back().get();
        if (number >= 1 && number <= watches.all.size()) {
            watch = watches.all[number - 1].get();
        } else if (watch != nullptr) {
            watch->Fault("a packet's pUserInfo is not that of StartStream");
            return ZVS_GVX_OPEN_SOCKET_ERROR;
        }
    }
    if (watch == nullptr) {
        return ZVS_FAIL;
    }
    watch->Take(*data);
    const std::lock_guard<std::mutex> lock(watch->m_mutex);
    return watch->m_closedSince.empty() ? int{ZVS_SUCCEED} : int{ZVS_GVX_OPEN_SOCKET_ERROR};
}

void StreamWatch::Fault(const std::string& sentence) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_faults.insert(sentence);
}

void StreamWatch::Take(const MEDIA_DATA& data) {
    if (m_inside.fetch_add(1) != 0) {
        Fault("two threads call the send function at a time");
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_closedSince.empty()) {
            Judge(data);
        } else {
            m_faults.insert("calls the send function after " + m_closedSince);
        }
    }
    ++m_packets;
    m_inside.fetch_sub(1);
}

// m_mutex is held.
void StreamWatch::Judge(const MEDIA_DATA& data) {
    const bool video = data.nVideoSize != 0;
    const bool metadata = !video && data.nAudioSize == 0 && data.nMetaDataSize != 0;
    std::size_t bytes = video ? data.nVideoSize : metadata ? data.nMetaDataSize : data.nAudioSize;
    const auto* packet = static_cast<const std::uint8_t*>(data.pDataBuf);
    if (packet == nullptr || bytes < kHeadBytes + (m_overTcp ? kInterleaveBytes : 0)) {
        m_faults.insert("a packet has no data");
        return;
    }
    if (m_overTcp) {
        if (packet[0] != '$') {
            m_faults.insert("a packet over TCP does not begin with its interleave head");
            return;
        }
        packet += kInterleaveBytes;
        bytes -= kInterleaveBytes;
    }
    if (packet[0] >> 6 != 2) {
        m_faults.insert("a packet is no RTP of version 2");
        return;
    }
    const std::uint32_t payload = packet[1] & 0x7Fu;
    if (payload != (metadata ? kMetadataPayload : video ? m_videoPayload : m_audioPayload)) {
        m_faults.insert(std::string(video      ? "video"
                                    : metadata ? "metadata"
                                               : "audio") +
                        " comes with payload type " + std::to_string(payload) + ", which was not agreed on");
    }
    if (metadata) {
        return;  // its time is that of its record
    }
    JudgeTime(video ? m_video : m_audio, BigEndian(packet + 4), data.FrameType == FRAME_I, video ? "video" : "audio");
    m_pictures = m_video.steps;
    const std::size_t head = kHeadBytes + ((packet[0] & kExtensionBit) != 0 ? kExtensionBytes : 0);
    if (video && (payload == gvx::kPayloadH264 || payload == gvx::kPayloadH265) && bytes > head &&
        HoldsStartCode(packet + head, packet + bytes)) {
        m_faults.insert("a NAL unit holds a start code of three bytes, which is not seen: four are needed");
    }
}

// Pictures that are sent in the order of their decoding go back and forth a little, but never behind a key frame.
void StreamWatch::JudgeTime(Clock& clock, std::uint32_t stamp, bool keyFrame, const char* medium) {
    if (clock.started && stamp == clock.last) {
        return;  // the same frame
    }
    const auto behind = static_cast<std::int32_t>(clock.highest - stamp);
    if (clock.started && behind > (keyFrame ? 0 : kMostReordering)) {
        m_faults.insert(std::string("the time stamps of ") + medium + " go back by " + std::to_string(behind) +
                        " ticks" + (keyFrame ? " at a key frame" : "") + ": nTimeTick is negative");
    }
    clock.highest = !clock.started || behind < 0 ? stamp : clock.highest;
    clock.started = true;
    clock.last = stamp;
    ++clock.steps;
}

void StreamWatch::Close(const char* since) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_closedSince = since;
}

std::set<std::string> StreamWatch::TakeFaults() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_faults, {});
}

}  // namespace plugin_check
