#pragma once

#include "file/still_picture.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "gvx_common/records/recording_records.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace gvxfile {

// What devices of this plug-in tell the gateway, and the pictures that wait for an address or are sent to one: by one
// thread, which the first upload starts. Any thread.
class PictureDesk {
public:
    PictureDesk() = default;
    // Waits for the upload that is under way; others are dropped.
    ~PictureDesk();
    PictureDesk(const PictureDesk&) = delete;
    PictureDesk& operator=(const PictureDesk&) = delete;

    void SetCallback(ADAPTER_COMMON_MESSAGE_CALLBACK* callback) { m_callback = callback; }
    void Report(ADAPTER_REPORT_TYPE type, const std::string& device, const std::string& lens,
                const std::string& serviceID);

    // A picture was taken: it is kept and the gateway is told, unless it is not to be sent. Sixty-four are kept; the
    // oldest gives way.
    void Keep(const std::string& device, const std::string& lens, const PU_SNAP_CONF_REQ& request,
              const StillPicture::Bytes& bytes);
    // Sends a kept picture of the device to its address, or drops it when there is none. 0, or an error code with its
    // reason set.
    int Send(const std::string& device, const PU_UPLOAD_IMAGE_RSP& address);

private:
    struct Picture {
        std::string device;
        std::string lens;
        std::string contentID;
        std::uint64_t sessionID = 0;
        SnapType type = SNAP_TYPE_NONE;
        StillPicture::Bytes bytes;
        std::string url;
    };

    void Tell(ADAPTER_REPORT_TYPE type, const Picture& picture);
    void Run();
    static bool Upload(const Picture& picture);

    std::atomic<ADAPTER_COMMON_MESSAGE_CALLBACK*> m_callback{nullptr};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::list<Picture> m_kept;     // Guarded by m_mutex, as is all below.
    std::list<Picture> m_leaving;  // with an address
    std::uint32_t m_number = 0;
    bool m_stop = false;
    std::thread m_thread;
};

}  // namespace gvxfile
