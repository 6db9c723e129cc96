#pragma once

#include "gvx_common/records/gvx_adapter_records.h"
#include "gvx_common/records/recording_records.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace gvxplugin {

// A picture's file as it came; several may be the same one.
using PictureBytes = std::shared_ptr<const std::string>;

// What devices of a plug-in tell the gateway, and the pictures that wait for an address or are sent to one: by four
// threads, which uploads start, two for one server at most, so that a slow one does not hold up the others. Any thread.
class PictureDesk {
public:
    // A turn to take a picture: sixteen are taken at a time, and 512 others wait for theirs and for room for the
    // picture. One that came ends with the object.
    class Turn {
    public:
        // endMs: monotonic milliseconds, until when it is waited for.
        Turn(PictureDesk& desk, std::int64_t endMs);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

        bool HasCome() const { return m_hasCome; }

    private:
        PictureDesk& m_desk;
        const bool m_hasCome;
    };

    // The pictures of one request that have neither been taken nor told: what is left of them when the object goes, on
    // whatever way, is told as lost. desk, device, lens and request must outlive it. One thread.
    class Owed {
    public:
        Owed(PictureDesk& desk, const std::string& device, const char* lens, const PU_SNAP_CONF_REQ& request)
            : m_desk(desk), m_device(device), m_lens(lens), m_request(request), m_left(request.nSnapNum) {}
        ~Owed() { m_desk.NoteLost(m_device, m_lens, m_request, m_left, m_reason); }
        Owed(const Owed&) = delete;
        Owed& operator=(const Owed&) = delete;

        std::uint32_t Left() const { return m_left; }
        void NoteTaken() { --m_left; }
        // Why no more of them will be taken, one sentence.
        void SetReason(std::string reason) { m_reason = std::move(reason); }

    private:
        PictureDesk& m_desk;
        const std::string& m_device;
        const char* const m_lens;
        const PU_SNAP_CONF_REQ& m_request;
        std::uint32_t m_left;
        std::string m_reason;
    };

    // title stands in front of log lines, threadName has at most 15 characters; both are literals of the plug-in.
    PictureDesk(const char* title, const char* threadName) : m_title(title), m_threadName(threadName) {}
    // Waits for the uploads that are under way; others are dropped.
    ~PictureDesk();
    PictureDesk(const PictureDesk&) = delete;
    PictureDesk& operator=(const PictureDesk&) = delete;

    void SetCallback(ADAPTER_COMMON_MESSAGE_CALLBACK* callback) { m_callback = callback; }
    void Report(ADAPTER_REPORT_TYPE type, const std::string& device, const std::string& lens,
                const std::string& serviceID);

    // A picture was taken: it is kept and the gateway is told, unless it is not to be sent. Sixty-four are held, of 64
    // MiB in all; the oldest that has no address yet gives way, which the gateway is told. 0, or
    // ZVS_GVX_GET_SNAP_SHOT_ERROR with its reason set when there is no room, since others are being sent.
    int Keep(const std::string& device, const std::string& lens, const PU_SNAP_CONF_REQ& request,
             const PictureBytes& bytes);
    // Sends a kept picture of the device to its address, or drops it when there is none, or when half of the room is
    // taken by pictures for the same server. 0, or an error code with its reason set.
    int Send(const std::string& device, const PU_UPLOAD_IMAGE_RSP& address);
    // What the platform says of a picture that was sent goes to the log.
    void NoteEnd(const std::string& lens, const PU_UPLOAD_IMAGE_COMP_REQ& end) const;

private:
    struct Picture {
        std::string device;
        std::string lens;
        std::string contentID;
        std::uint64_t sessionID = 0;
        SnapType type = SNAP_TYPE_NONE;
        PictureBytes bytes;
        std::string url;
        std::string server;  // of the url
    };

    bool BeginCapture(std::int64_t endMs);
    bool HasRoomLocked(std::size_t bytes) const;
    std::string StartThreadLocked();
    std::list<Picture>::iterator NextLocked();
    // Whoever waits for them is told, even where there is no memory to say why.
    void NoteLost(const std::string& device, const char* lens, const PU_SNAP_CONF_REQ& request, std::uint32_t count,
                  const std::string& reason) noexcept;
    void Tell(ADAPTER_REPORT_TYPE type, const Picture& picture) noexcept;
    void Tell(ADAPTER_REPORT_TYPE type, std::string_view device, std::string_view lens, std::string_view contentID,
              std::uint64_t sessionID, SnapType snapType) noexcept;
    void Run();
    bool Upload(const Picture& picture) const;

    const char* const m_title;
    const char* const m_threadName;
    std::atomic<ADAPTER_COMMON_MESSAGE_CALLBACK*> m_callback{nullptr};
    std::atomic<std::uint32_t> m_number{0};  // of the picture that came last
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::condition_variable m_turns;
    std::list<Picture> m_kept;     // Guarded by m_mutex, as is all below.
    std::list<Picture> m_leaving;  // with an address
    std::list<Picture> m_sending;
    std::size_t m_captures = 0;
    std::size_t m_waitingCaptures = 0;
    bool m_stop = false;
    std::vector<std::thread> m_threads;
};

}  // namespace gvxplugin
