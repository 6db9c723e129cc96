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
#include <thread>

namespace gvxplugin {

// A picture's file as it came; several may be the same one.
using PictureBytes = std::shared_ptr<const std::string>;

// What devices of a plug-in tell the gateway, and the pictures that wait for an address or are sent to one: by one
// thread, which the first upload starts. Any thread.
class PictureDesk {
public:
    // title stands in front of log lines, threadName has at most 15 characters; both are literals of the plug-in.
    PictureDesk(const char* title, const char* threadName) : m_title(title), m_threadName(threadName) {}
    // Waits for the upload that is under way; others are dropped.
    ~PictureDesk();
    PictureDesk(const PictureDesk&) = delete;
    PictureDesk& operator=(const PictureDesk&) = delete;

    void SetCallback(ADAPTER_COMMON_MESSAGE_CALLBACK* callback) { m_callback = callback; }
    void Report(ADAPTER_REPORT_TYPE type, const std::string& device, const std::string& lens,
                const std::string& serviceID);

    // A picture was taken: it is kept and the gateway is told, unless it is not to be sent. Sixty-four are held, of 64
    // MiB in all; the oldest that has no address yet gives way. 0, or ZVS_GVX_GET_SNAP_SHOT_ERROR with its reason set
    // when there is no room, since others are being sent.
    int Keep(const std::string& device, const std::string& lens, const PU_SNAP_CONF_REQ& request,
             const PictureBytes& bytes);
    // Sends a kept picture of the device to its address, or drops it when there is none. 0, or an error code with its
    // reason set.
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
    };

    bool HasRoomLocked(std::size_t bytes) const;
    void Tell(ADAPTER_REPORT_TYPE type, const Picture& picture);
    void Run();
    bool Upload(const Picture& picture) const;

    const char* const m_title;
    const char* const m_threadName;
    std::atomic<ADAPTER_COMMON_MESSAGE_CALLBACK*> m_callback{nullptr};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::list<Picture> m_kept;     // Guarded by m_mutex, as is all below.
    std::list<Picture> m_leaving;  // with an address
    std::uint32_t m_number = 0;
    bool m_stop = false;
    std::thread m_thread;
};

}  // namespace gvxplugin
