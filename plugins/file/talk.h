#pragma once

#include "base/unique_fd.h"
#include "file/media_list.h"
#include "gvx_common/codec/input_file.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

class ACE_Message_Block;

namespace gvxfile {

// A talk with a lens, or a broadcast to it: what comes is appended to a file, and in a talk the medium's audio goes
// back over and over, on a thread of its own. Start and Stop are for one thread, Write for any.
class Talk {
public:
    // The lens outlives the talk; its channel has its send function and buffer. userInfo goes with each packet.
    Talk(MediaPtr media, CAdapterLensBase& lens, int channelID, void* userInfo)
        : m_media(std::move(media)), m_lens(lens), m_channelID(channelID), m_userInfo(userInfo) {}
    ~Talk() { Stop(); }
    Talk(const Talk&) = delete;
    Talk& operator=(const Talk&) = delete;

    // Opens the file, and the medium's audio where it has some and it is wanted. False with one sentence in error.
    bool Start(bool withAnswer, std::string& error);
    void Stop();
    void Write(const ACE_Message_Block& sound);

    int ChannelID() const { return m_channelID; }

private:
    void Run();

    const MediaPtr m_media;
    CAdapterLensBase& m_lens;
    const int m_channelID;
    void* const m_userInfo;
    gvx::UniqueFd m_file;
    gvx::InputFile m_audio;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;  // Guarded by m_mutex.
    bool m_failed = false;
    std::thread m_thread;
};

}  // namespace gvxfile
