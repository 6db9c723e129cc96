#pragma once

#include "gateway/admin/trace_recorder.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace gvx {

// The traces of devices: begins and ends them, shows them the frames of platform links, and keeps their files within
// bounds, the oldest going first; those of other names are nobody's business. Any thread.
class TraceDesk {
public:
    static constexpr int kDefaultSeconds = 60;
    static constexpr int kMostSeconds = 3600;
    static constexpr std::size_t kMostTraces = 4;  // at a time
    static constexpr std::size_t kMostFiles = 16;  // that stay, those of running traces included
    static constexpr std::size_t kPieceBytes = 192u * 1024;

    // The folder is made when it is missing, once there is a trace.
    TraceDesk(std::string folder, std::string application);
    // Ends all traces.
    ~TraceDesk();
    TraceDesk(const TraceDesk&) = delete;
    TraceDesk& operator=(const TraceDesk&) = delete;

    // Traces a device for 1 to kMostSeconds. False with a sentence: there is no such device, it is traced already, too
    // many are, the file cannot be made.
    bool Start(const std::string& device, int seconds, TraceFacts& facts, std::string& reason);
    // Ends a trace, without waiting for its file. Null when the device is not traced.
    std::shared_ptr<const TraceRecorder> Stop(const std::string& device);

    // Those that run, and those that ended since the start and whose files stay; the newest first.
    std::vector<TraceFacts> List();
    // A piece of a file from that place on; empty at its end. False with a sentence when there is no such file, or less
    // of it than was written or than that place.
    bool Read(const std::string& file, std::uint64_t from, std::string& piece, std::string& reason);
    const std::string& Folder() const { return m_folder; }

private:
    std::uint64_t WrittenBytes(const std::string& file);
    std::string NewPath(const std::string& device) const;
    void DropThoseGone();
    void MakeRoom();

    const std::string m_folder;
    const std::string m_application;
    std::mutex m_mutex;  // guards what follows; held while a file is made, and never by those that report
    std::list<std::shared_ptr<TraceRecorder>> m_traces;  // the newest first
};

}  // namespace gvx
