#pragma once

#include "file/media_list.h"
#include "file/media_source.h"
#include "file/metadata_schedule.h"
#include "file/metadata_sender.h"
#include "file/play_threads.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

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

// Plays a medium into a channel of a lens, in turns on one of the plug-in's threads: pictures, audio and metadata leave
// in the order of their times, each when it is due. Start and Stop are for one thread.
class Player final : private PlayThreads::Task {
public:
    Player(MediaPtr media, PlayTarget target);
    ~Player() override { Stop(); }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Opens the files and begins to play. False with one sentence in error.
    bool Start(std::string& error);

    // Ends playing, and waits until what is being sent in this moment has gone out. May be called again.
    void Stop();

    // What becomes of a recording while it plays: it stands still and goes on, at another speed (above 0), or from
    // another picture. Any thread.
    void Pause(bool pause);
    void SetSpeed(double factor);
    void SeekTo(std::uint64_t picture);

    // See MediaSource::RequestParameterSets. Any thread.
    void RequestParameterSets() { m_parameterSetsWanted.store(true, std::memory_order_relaxed); }

private:
    std::int64_t Turn(PictureMemory& memory) noexcept override;
    std::int64_t Play();
    bool TakeSeek();
    bool ReadPacket();
    std::int64_t TimeOf(std::int64_t mediaMicroseconds);
    std::int64_t Now() const;
    bool SendMessage();
    void WakeUp();
    void TellEnd();
    void ReportEnd() const;
    bool EndUnread() const;
    bool Judge(int result);
    int Send(MediaPacket& packet);
    void ReportFailure(int result);

    MediaPtr m_media;
    PlayTarget m_target;
    MediaSource m_source;
    MetadataSchedule m_metadata;
    MetadataSender m_metadataSender;
    std::atomic<bool> m_parameterSetsWanted{false};
    MediaPacket m_packet;  // what is played next, or has been and is followed by the metadata of its time
    bool m_packetReady = false;
    bool m_packetSent = false;
    const MetadataMessage* m_message = nullptr;  // due before it
    std::int64_t m_messageTime = 0;
    bool m_ending = false;  // the last picture of a recording has left, and is still to be seen
    bool m_atEnd = false;   // it has been; only a seek goes on
    bool m_endTold = false;
    std::uint64_t m_pictures = 0;
    std::uint64_t m_messages = 0;
    std::uint64_t m_failures = 0;

    mutable std::mutex m_mutex;  // Guards all below.
    // When the medium's time 0 is or would have been, by the monotonic clock.
    std::int64_t m_origin = 0;
    bool m_originKnown = false;  // else the next packet is due at once
    double m_factor;
    bool m_paused = false;
    std::int64_t m_pausedAt = 0;
    std::optional<std::uint64_t> m_seek;
    std::shared_ptr<PlayThreads> m_threads;  // while it plays
};

}  // namespace gvxfile
