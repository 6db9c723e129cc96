#pragma once

#include "gvx_common/records/media_types.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>

namespace plugin_check {

// The far end of one stream: takes its packets in place of the gateway and notes what is wrong with them. Watches are
// never deleted, so that a packet which comes too late finds its own.
class StreamWatch {
public:
    // payloads as the plug-in has negotiated them; audio 0 when none was.
    static StreamWatch& Begin(std::uint32_t videoPayload, std::uint32_t audioPayload, bool overTcp);

    // What the plug-in is given.
    void* UserInfo();
    static int Send(MEDIA_DATA* data, STREAM_TYPE_EX* streamType);

    int Pictures() const { return m_pictures; }  // that have come, told apart by their time stamps
    int Packets() const { return m_packets; }
    // StopStream has returned, or the device is deleted: what comes from now on is wrong.
    void Close(const char* since);
    // The sentences about what was wrong, each once.
    std::set<std::string> TakeFaults();

private:
    // The time stamps of a medium.
    struct Clock {
        bool started = false;
        std::uint32_t last = 0;
        std::uint32_t highest = 0;
        int steps = 0;  // how often the time stamp has changed
    };

    StreamWatch(std::uint32_t videoPayload, std::uint32_t audioPayload, bool overTcp)
        : m_videoPayload(videoPayload), m_audioPayload(audioPayload), m_overTcp(overTcp) {}

    void Take(const MEDIA_DATA& data);
    void Judge(const MEDIA_DATA& data);
    void JudgeTime(Clock& clock, std::uint32_t stamp, bool keyFrame, const char* medium);
    void Fault(const std::string& sentence);

    const std::uint32_t m_videoPayload;
    const std::uint32_t m_audioPayload;
    const bool m_overTcp;
    std::atomic<int> m_inside{0};
    std::atomic<int> m_packets{0};
    std::atomic<int> m_pictures{0};
    mutable std::mutex m_mutex;
    Clock m_video;                   // Guarded by m_mutex.
    Clock m_audio;                   // Guarded by m_mutex.
    std::string m_closedSince;       // Guarded by m_mutex; empty while the stream runs.
    std::set<std::string> m_faults;  // Guarded by m_mutex; not taken yet.
};

}  // namespace plugin_check
