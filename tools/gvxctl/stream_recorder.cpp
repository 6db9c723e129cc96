#include "gvxctl/stream_recorder.h"

#include "base/clock.h"

#include <cerrno>
#include <cstring>

namespace gvxctl {
namespace {

constexpr std::size_t kFileBufferBytes = 1u << 20;
constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};

// Common to both kinds of media. False for a packet that must not be used any further.
bool Count(const RtpPacket& packet, std::size_t length, SequenceTracker& order, std::uint32_t& timestamp,
           MediaStats& stats, SequenceTracker::Verdict& verdict) {
    ++stats.packets;
    stats.bytes += length;
    stats.extended += packet.extended ? 1 : 0;
    verdict = order.Take(packet.seq);
    if (verdict == SequenceTracker::Verdict::Late) {
        return false;
    }
    if (stats.frames == 0 || packet.timestamp != timestamp) {
        ++stats.frames;
        timestamp = packet.timestamp;
    }
    return true;
}

}  // namespace

bool StreamRecorder::OpenFile(const std::string& path, File& file, std::string& error) {
    if (path.empty()) {
        return true;
    }
    file.reset(std::fopen(path.c_str(), "wbe"));
    if (!file) {
        error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    std::setvbuf(file.get(), nullptr, _IOFBF, kFileBufferBytes);
    return true;
}

bool StreamRecorder::Open(const RecordFiles& files, std::string& error) {
    return OpenFile(files.video, m_videoFile, error) && OpenFile(files.audio, m_audioFile, error);
}

void StreamRecorder::Take(const std::uint8_t* data, std::size_t length) {
    RtpPacket packet;
    const char* reason = nullptr;
    if (m_stats.complete) {
        return;
    }
    if (!ParseRtp(data, length, packet, reason)) {
        ++m_stats.malformed;
        return;
    }
    m_stats.lastPacketMs = gvx::MonotonicMilliseconds();
    if (m_stats.firstPacketMs == 0) {
        m_stats.firstPacketMs = m_stats.lastPacketMs;
    }
    switch (packet.payloadType) {
        case kPayloadH264:
        case kPayloadH265:
            TakeVideo(packet, length);
            break;
        case kPayloadG711A:
        case kPayloadG711U:
            TakeAudio(packet, length);
            break;
        case kPayloadMetadata:
            if (m_metadata.IsOpen()) {
                m_metadata.Take(packet);
                break;
            }
            [[fallthrough]];
        default:
            ++m_stats.otherPayloads;
    }
}

void StreamRecorder::TakeVideo(const RtpPacket& packet, std::size_t length) {
    if (!m_depacketizer) {
        m_stats.video.payloadType = packet.payloadType;
        const auto codec = packet.payloadType == kPayloadH265 ? Depacketizer::Codec::H265 : Depacketizer::Codec::H264;
        m_depacketizer = std::make_unique<Depacketizer>(
            codec, [this](const std::uint8_t* nal, std::size_t size) { WriteUnit(nal, size); });
    }
    if (m_stats.video.payloadType != packet.payloadType) {
        ++m_stats.otherPayloads;
        return;
    }
    // A packet of the frame before may still come late; only a newer time begins another frame.
    if (m_frames != 0 && m_stats.video.frames == m_frames &&
        static_cast<std::int32_t>(packet.timestamp - m_videoTimestamp) > 0) {
        m_stats.complete = true;
        return;
    }
    SequenceTracker::Verdict verdict{};
    if (Count(packet, length, m_videoOrder, m_videoTimestamp, m_stats.video, verdict)) {
        m_depacketizer->Take(packet.payload, packet.payloadLength, verdict == SequenceTracker::Verdict::AfterGap);
    }
}

void StreamRecorder::TakeAudio(const RtpPacket& packet, std::size_t length) {
    if (m_stats.audio.payloadType < 0) {
        m_stats.audio.payloadType = packet.payloadType;
    }
    if (m_stats.audio.payloadType != packet.payloadType) {
        ++m_stats.otherPayloads;
        return;
    }
    SequenceTracker::Verdict verdict{};
    if (Count(packet, length, m_audioOrder, m_audioTimestamp, m_stats.audio, verdict)) {
        Write(m_audioFile.get(), packet.payload, packet.payloadLength);
    }
}

void StreamRecorder::WriteUnit(const std::uint8_t* nal, std::size_t length) {
    Write(m_videoFile.get(), kStartCode, sizeof kStartCode);
    Write(m_videoFile.get(), nal, length);
}

void StreamRecorder::Write(std::FILE* file, const std::uint8_t* data, std::size_t length) {
    if (file != nullptr && std::fwrite(data, 1, length, file) != length && m_stats.error.empty()) {
        m_stats.error = std::string("writing failed: ") + std::strerror(errno);
    }
}

void StreamRecorder::Finish() {
    if (m_depacketizer) {
        m_depacketizer->Finish();
    }
    m_metadata.Finish();
    for (File* file : {&m_videoFile, &m_audioFile}) {
        if (*file && std::fflush(file->get()) != 0 && m_stats.error.empty()) {
            m_stats.error = std::string("writing failed: ") + std::strerror(errno);
        }
        file->reset();
    }
}

StreamStats StreamRecorder::Stats() const {
    StreamStats stats = m_stats;
    stats.metadata = m_metadata.Stats();
    const auto addOrder = [](MediaStats& media, const SequenceTracker& order) {
        media.lost = order.Lost();
        media.late = order.Late();
        media.restarts = order.Restarts();
    };
    addOrder(stats.video, m_videoOrder);
    addOrder(stats.audio, m_audioOrder);
    if (m_depacketizer) {
        stats.video.units = m_depacketizer->Units();
        stats.video.droppedUnits = m_depacketizer->DroppedUnits();
        stats.video.badPayloads = m_depacketizer->BadPayloads();
    }
    return stats;
}

}  // namespace gvxctl
