#pragma once

#include "gvxctl/depacketizer.h"
#include "gvxctl/metadata_receiver.h"
#include "gvxctl/rtp.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace gvxctl {

struct MediaStats {
    int payloadType = -1;  // -1 until a packet has come
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;  // RTP heads included
    std::uint64_t lost = 0;
    std::uint64_t late = 0;
    std::uint64_t restarts = 0;
    std::uint64_t frames = 0;  // distinct timestamps
    std::uint64_t units = 0;   // NAL units written
    std::uint64_t droppedUnits = 0;
    std::uint64_t badPayloads = 0;
    std::uint64_t extended = 0;  // packets with a header extension
};

struct StreamStats {
    MediaStats video;
    MediaStats audio;
    MetadataStats metadata;
    std::uint64_t malformed = 0;      // no RTP
    std::uint64_t otherPayloads = 0;  // RTP of a type that belongs to no stream here
    std::int64_t firstPacketMs = 0;   // monotonic; 0 until a packet has come
    std::int64_t lastPacketMs = 0;
    bool complete = false;  // as many frames as EndAfter has asked for are there, and another has begun
    std::string error;      // what ended the recording, or kept a file from being written; empty while all is well
};

struct RecordFiles {
    std::string video;  // Annex B with four-byte start codes; empty: not kept
    std::string audio;  // G.711 bytes as they came; empty: not kept
};

// Takes packets in the order in which they arrived, counts them and writes what they carry. One thread.
class StreamRecorder {
public:
    // False when a file cannot be made.
    bool Open(const RecordFiles& files, std::string& error);
    // Metadata is taken as well, and no other payload type any more. False when its folder cannot be made.
    bool OpenMetadata(const MetadataOptions& options, std::string& error) { return m_metadata.Open(options, error); }
    // Takes that many frames of video and nothing behind them. Before the first packet.
    void EndAfter(std::uint64_t frames) { m_frames = frames; }
    void Take(const std::uint8_t* data, std::size_t length);
    void CountMalformed() { ++m_stats.malformed; }
    // Writes what is buffered and closes the files.
    void Finish();

    StreamStats Stats() const;

private:
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    using File = std::unique_ptr<std::FILE, CloseFile>;

    static bool OpenFile(const std::string& path, File& file, std::string& error);
    void TakeVideo(const RtpPacket& packet, std::size_t length);
    void TakeAudio(const RtpPacket& packet, std::size_t length);
    void WriteUnit(const std::uint8_t* nal, std::size_t length);
    void Write(std::FILE* file, const std::uint8_t* data, std::size_t length);

    StreamStats m_stats;
    std::uint64_t m_frames = 0;  // 0: as many as come
    SequenceTracker m_videoOrder;
    SequenceTracker m_audioOrder;
    std::uint32_t m_videoTimestamp = 0;
    std::uint32_t m_audioTimestamp = 0;
    std::unique_ptr<Depacketizer> m_depacketizer;  // made by the first video packet
    MetadataReceiver m_metadata;
    File m_videoFile;
    File m_audioFile;
};

}  // namespace gvxctl
