#pragma once

#include "base/unique_fd.h"
#include "gateway/admin/pcapng.h"
#include "gvx_common/utility/gvx_device_trace.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace gvx {

// What a trace is like, or was in the end.
struct TraceFacts {
    std::string device;
    std::string file;  // its name, without the folder
    bool running = false;
    std::string ended;         // why it has ended, a sentence, or two when the file is gone; empty while it runs
    bool gone = false;         // the file was moved or removed before it had ended
    std::int64_t beganMs = 0;  // monotonic
    std::int64_t endsMs = 0;   // when its time is over
    std::uint64_t bytes = 0;   // of the file
    std::uint64_t messages = 0;
    std::uint64_t packets = 0;
    std::uint64_t frames = 0;
    std::uint64_t lost = 0;  // of all three, for want of room on the way to the file
};

// Records one trace of one device. What it takes, on any thread, goes into a buffer that was made before, under a lock
// that is held for moments; the thread "DeviceTrace" writes it to the file five times a second. What finds no room is
// counted. The file ends whole with its time, its size, a full disk, or when it is asked to.
class TraceRecorder : public IDeviceTraceSink, public std::enable_shared_from_this<TraceRecorder> {
public:
    static constexpr std::size_t kBufferBytes = 1u << 20;
    static constexpr std::uint64_t kFileBytes = 16u << 20;

    // Begins a file that does not exist yet, with its head; null with the reason when it cannot be made. application:
    // who writes. Throws std::bad_alloc.
    static std::shared_ptr<TraceRecorder> Make(const std::string& device, const std::string& path, int seconds,
                                               const std::string& application, std::string& reason);
    ~TraceRecorder() override;

    // Begins the trace, with what was kept of the dialogue. False with a sentence; the file is then gone.
    bool Start(std::string& reason);
    // Asks it to end; ended is one sentence. The first who asks has said why. Does not wait.
    void End(const char* ended) noexcept;
    // Waits for the end of its thread, without a limit. To be called before the last pointer goes: that thread drops
    // those of the trace itself.
    void Join();
    // Tells that it runs until its file has ended.
    TraceFacts Facts() const;

    void OnMessage(const DialogueEntry& entry) noexcept override;
    void OnPacket(const GvxTracedPacket& packet, std::size_t head) noexcept override;
    void OnDeviceGone() noexcept override;
    // A frame of a link; taken when it concerns the device, by its body or as the answer to one that did.
    void OnFrame(bool in, const std::string& link, const char* frame, std::size_t size) noexcept;

private:
    TraceRecorder(std::string device, std::string path, int seconds);

    bool Concerns(const char* frame, std::size_t size);
    void Put(const PcapngPacket& packet, std::uint64_t TraceFacts::*count);
    void CountLost() noexcept;
    void EndLocked(const char* ended) noexcept;
    void Run() noexcept;
    bool Turn();
    bool FileIsGone() const;
    void WriteEnd();
    bool Write(const char* data, std::size_t size);

    const std::string m_device;
    const std::string m_path;
    UniqueFd m_file;              // of the thread, once that runs
    std::vector<char> m_writing;  // likewise
    std::uint64_t m_written = 0;  // likewise: bytes of the file
    std::thread m_thread;
    mutable std::mutex m_mutex;      // guards what follows; nothing is written while it is held
    std::condition_variable m_wake;  // there is much to write, or the end was asked for
    std::vector<char> m_filling;     // whole packets
    bool m_endWanted = false;
    std::vector<std::string> m_answers;  // transactions of frames that concerned the device; the last are kept
    std::size_t m_nextAnswer = 0;
    TraceFacts m_facts;
};

}  // namespace gvx
