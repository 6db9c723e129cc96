#include "file/talk.h"

#include "base/clock.h"
#include "base/log.h"
#include "file/media_source.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace gvxfile {
namespace {

constexpr const char* kTitle = "file plug-in";
constexpr std::int64_t kPieceMicroseconds = 20000;
constexpr std::int64_t kMaxSleep = 100000;

}  // namespace

bool Talk::Start(bool withAnswer, std::string& error) {
    m_file.Reset(open(m_media->talkPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0640));
    if (m_file.Get() == -1) {
        error = m_media->talkPath + " cannot be opened: " + std::strerror(errno) + ".";
        return false;
    }
    struct stat status {};
    if (fstat(m_file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        error = m_media->talkPath + " is no regular file.";
        return false;
    }
    if (!withAnswer || !m_media->HasAudio()) {
        return true;
    }
    std::string reason;
    if (!m_audio.Open(m_media->audioPath, reason)) {
        error = m_media->audioPath + " cannot be opened: " + reason + ".";
        return false;
    }
    try {
        m_thread = std::thread(&Talk::Run, this);
    } catch (const std::system_error& fault) {
        error = std::string("A thread cannot be started: ") + fault.what() + ".";
        return false;
    }
    pthread_setname_np(m_thread.native_handle(), "GvxFileTalk");
    return true;
}

void Talk::Stop() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void Talk::Write(const ACE_Message_Block& sound) {
    const ssize_t written = write(m_file.Get(), sound.rd_ptr(), sound.length());
    if (written != static_cast<ssize_t>(sound.length()) && !m_failed) {
        m_failed = true;
        GVX_LOG_ERR_CODE(kTitle, ZVS_WRITE_FILE_ERROR, "%s takes no sound: %s; further losses are not logged.",
                         m_media->talkPath.c_str(), std::strerror(errno));
    }
}

void Talk::Run() {
    std::uint8_t piece[MediaSource::kAudioSamples];
    std::int64_t due = gvx::CurrentClock().MonotonicMicroseconds();
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stop) {
        const std::int64_t left = due - gvx::CurrentClock().MonotonicMicroseconds();
        if (left > 0) {
            m_wake.wait_for(lock, std::chrono::microseconds(std::min(left, kMaxSleep)));
            continue;
        }
        due += kPieceMicroseconds;
        lock.unlock();
        ssize_t count = m_audio.Read(piece, sizeof piece);
        if (count <= 0) {
            m_audio.Rewind();
            count = m_audio.Read(piece, sizeof piece);
        }
        if (count > 0) {
            MEDIA_DATA data{};
            data.pUserInfo = m_userInfo;
            data.nAudioSize = static_cast<std::uint16_t>(count);
            data.eAudioFormatType = m_media->audioFormat;
            data.nTimeTick = static_cast<std::uint32_t>(count);
            m_lens.H264ToRtp(piece, static_cast<int>(count), data, m_channelID,
                             m_channelID >= GVX_MEDIA_CHANNEL_TCP_OFFSET, false, 0, 0, false);
        }
        lock.lock();
    }
}

}  // namespace gvxfile
