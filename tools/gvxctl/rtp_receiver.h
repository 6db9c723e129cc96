#pragma once

#include "gvxctl/socket_util.h"
#include "gvxctl/stream_recorder.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace gvxctl {

// Receives one stream on a thread of its own: from two UDP ports, or from one TCP connection that the gateway makes
// and on which everything comes interleaved.
class RtpReceiver {
public:
    RtpReceiver() = default;
    ~RtpReceiver() { Stop(); }
    RtpReceiver(const RtpReceiver&) = delete;
    RtpReceiver& operator=(const RtpReceiver&) = delete;

    // Metadata is received as well, over UDP on a port of its own. Before one of the starts.
    void ReceiveMetadata(const MetadataOptions& options) { m_metadataOptions = options; }
    // Receives that many frames of video and nothing behind them. Before one of the starts.
    void EndAfter(std::uint64_t frames) { m_recorder.EndAfter(frames); }
    // Port 0 takes any free one; VideoPort and AudioPort then tell which. False with a reason.
    bool StartUdp(const std::string& ip, std::uint16_t videoPort, std::uint16_t audioPort, const RecordFiles& files,
                  std::string& error);
    bool StartTcp(const Endpoint& local, const RecordFiles& files, std::string& error);
    // Sends a packet back on the TCP connection, behind the four bytes of interleave. Waits for the connection, two
    // seconds at most. False when it is not there, or takes nothing. Any thread.
    bool SendInterleaved(std::uint8_t channel, const unsigned char* packet, std::size_t size);
    // Takes in what the kernel still holds, ends the thread and closes the files.
    void Stop();

    // 0 for what is not received.
    std::uint16_t VideoPort() const { return LocalPort(m_video.Get()); }
    std::uint16_t AudioPort() const { return LocalPort(m_audio.Get()); }
    std::uint16_t MetadataPort() const { return LocalPort(m_metadata.Get()); }
    // Any thread.
    StreamStats Stats() const;
    // Waits until that many video frames have begun and no packet has come for idleMs, or until what EndAfter has asked
    // for is there. False when the time ran out,
    // `stop` was set, the recording failed, or the stream stood still for 5 s before it was complete.
    bool WaitForFrames(std::uint64_t frames, int idleMs, int timeoutMs, const std::atomic<bool>& stop) const;

private:
    bool OpenRecorder(const RecordFiles& files, std::string& error);
    void RunUdp();
    void RunTcp();
    void DrainUdp(int fd);
    // False when the connection has ended.
    bool ReadTcp(int fd);

    gvx::UniqueFd m_video;  // over TCP the listener
    gvx::UniqueFd m_audio;
    gvx::UniqueFd m_metadata;  // UDP only
    MetadataOptions m_metadataOptions;
    InterleaveCutter m_cutter;
    std::mutex m_connectionMutex;
    std::condition_variable m_connected;
    gvx::UniqueFd m_connection;  // Guarded by m_connectionMutex; read by the thread alone.
    mutable std::mutex m_mutex;  // guards m_recorder and m_error, taken once for each batch of packets
    StreamRecorder m_recorder;
    std::string m_error;
    std::atomic<bool> m_running{false};
    std::thread m_thread;
};

}  // namespace gvxctl
