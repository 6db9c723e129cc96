#pragma once

#include "file/media_list.h"
#include "file/media_source.h"
#include "file/metadata_schedule.h"
#include "file/metadata_sender.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace gvxfile {

// Where a stream goes.
struct PlayTarget {
    CAdapterLensBase* lens = nullptr;  // outlives the player
    int channelID = 0;
    bool overTcp = false;
    bool needExternData = false;
    bool withAudio = false;
    bool withMetadata = false;
    void* userInfo = nullptr;
    std::string serviceID;  // for the log
    std::string device;     // for the report of a failure
    // Of a stream that plays a recording: its pictures, and who is told when the last one has gone. Such a stream then
    // waits for a seek.
    PictureRange pictures{0, UINT64_MAX};
    std::function<void()> onEnd;  // null for a live stream
    bool download = false;
};

// Plays a medium into a channel of a lens, on a thread of its own: pictures, audio and metadata leave in the order of
// their times, each when it is due. Start and Stop are for one thread.
class Player {
public:
    Player(MediaPtr media, PlayTarget target);
    ~Player() { Stop(); }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Opens the files and starts the thread. False with one sentence in error.
    bool Start(std::string& error);

    // Ends the thread, and waits until the frame or the metadata message that it is sending has gone out. May be called
    // again.
    void Stop();

    // What becomes of a recording while it plays: it stands still and goes on, at another speed (above 0), or from
    // another picture. Any thread.
    void Pause(bool pause);
    void SetSpeed(double factor);
    void SeekTo(std::uint64_t picture);

    // See MediaSource::RequestParameterSets. Any thread.
    void RequestParameterSets() { m_parameterSetsWanted.store(true, std::memory_order_relaxed); }

private:
    void Run() noexcept;
    void Play();
    void ReportEnd() const;
    enum class Wake { Due, Seek, Over };

    Wake PlayPacket(MediaPacket& packet);
    bool EndRecording();
    bool TakeSeek();
    std::int64_t Now() const;
    bool PlayMetadataBefore(std::int64_t endMicroseconds);
    Wake WaitUntilDue(std::int64_t mediaMicroseconds);
    bool Judge(int result);
    int Send(MediaPacket& packet);
    void ReportFailure(int result);

    MediaPtr m_media;
    PlayTarget m_target;
    MediaSource m_source;
    MetadataSchedule m_metadata;
    MetadataSender m_metadataSender;
    std::atomic<bool> m_parameterSetsWanted{false};
    std::uint64_t m_pictures = 0;
    std::uint64_t m_messages = 0;
    std::uint64_t m_failures = 0;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;  // guarded by m_mutex, as is all below
    // When the medium's time 0 is or would have been, by the monotonic clock.
    std::int64_t m_origin = 0;
    bool m_originKnown = false;  // else the next packet is due at once
    double m_factor;
    bool m_paused = false;
    std::int64_t m_pausedAt = 0;
    std::optional<std::uint64_t> m_seek;
    std::thread m_thread;
};

}  // namespace gvxfile
