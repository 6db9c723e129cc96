#include "file/player.h"

#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/alarm/gvx_error_mgr.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

#include <pthread.h>

namespace gvxfile {
namespace {

constexpr const char* kTitle = "file plug-in";
constexpr std::int64_t kMicroseconds = 1000000;
// A stream that is late by more than this goes on from now, instead of sending what it missed in one burst.
constexpr std::int64_t kMaxLate = kMicroseconds;
// Longest sleep in one piece, so that a clock that is set is followed.
constexpr std::int64_t kMaxSleep = kMicroseconds / 10;

ZVS_VIDEO_DEC_TYPE VideoFormat(gvx::Codec codec) {
    return codec == gvx::Codec::H264 ? VIDEO_DEC_H264 : VIDEO_DEC_H265;
}

}  // namespace

Player::Player(MediaPtr media, PlayTarget target)
    : m_media(std::move(media)),
      m_target(std::move(target)),
      m_source(*m_media),
      m_metadata(m_target.withMetadata ? m_media->metadata.get() : nullptr),
      m_metadataSender(*m_target.lens, m_target.overTcp, m_target.userInfo),
      m_factor(m_media->speed.factor) {
    if (m_target.pictures.first != 0) {
        m_seek = m_target.pictures.first;
    }
}

bool Player::Start(std::string& error) {
    if (!m_source.Open(m_target.withAudio, error)) {
        return false;
    }
    try {
        m_thread = std::thread(&Player::Run, this);
    } catch (const std::system_error& fault) {
        error = std::string("A thread cannot be started: ") + fault.what() + ".";
        return false;
    }
    pthread_setname_np(m_thread.native_handle(), "GvxFilePlay");
    return true;
}

void Player::Stop() {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void Player::Run() noexcept {
    try {
        Play();
    } catch (const std::exception& fault) {
        GVX_LOG_ERR(kTitle, "Stream[%s] ends: %s.", m_target.serviceID.c_str(), fault.what());
    } catch (...) {
        GVX_LOG_ERR(kTitle, "Stream[%s] ends: the send function threw.", m_target.serviceID.c_str());
    }
    GVX_LOG_INFO(kTitle, "Stream[%s] of medium[%s] has ended after %llu pictures and %llu metadata messages.",
                 m_target.serviceID.c_str(), m_media->name.c_str(), static_cast<unsigned long long>(m_pictures),
                 static_cast<unsigned long long>(m_messages));
}

void Player::Play() {
    MediaPacket packet;
    for (;;) {
        if (m_parameterSetsWanted.exchange(false, std::memory_order_relaxed)) {
            m_source.RequestParameterSets();
        }
        gvx::ReadResult read = TakeSeek() ? m_source.Next(packet) : gvx::ReadResult::Failed;
        if (read == gvx::ReadResult::Failed) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_OPEN_FILE_ERROR, "Stream[%s] ends: %s", m_target.serviceID.c_str(),
                             m_source.Error().c_str());
            ReportEnd();
            return;
        }
        const bool behind = packet.video && packet.picture >= m_target.pictures.end;
        if (read == gvx::ReadResult::End || behind ? !EndRecording() : PlayPacket(packet) == Wake::Over) {
            return;
        }
    }
}

// On a thread of ours, so it is no answer that tells the platform.
void Player::ReportEnd() const {
    if (GVXErrorMgr* const reports = GVXErrorMgr::getInstance()) {
        reports->reportHstError("", __func__, m_target.device.c_str(), m_target.lens->GetSubDevID(),
                                ZVS_OPEN_FILE_ERROR, "playing the medium", "%s", m_source.Error().c_str());
    }
}

// The end of a recording comes when its last picture has been seen. False when the stream is over.
bool Player::EndRecording() {
    if (m_target.onEnd == nullptr) {
        return false;
    }
    const auto last = static_cast<std::int64_t>(m_target.pictures.end);
    const gvx::Rational& rate = m_media->frameRate;
    const Wake wake = WaitUntilDue(last * kMicroseconds * rate.denominator / rate.numerator);
    if (wake != Wake::Due) {
        return wake == Wake::Seek;
    }
    m_target.onEnd();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_wake.wait(lock, [this] { return m_stop || m_seek.has_value(); });
    return !m_stop;
}

// Moves to the picture that was asked for. False when a file could not be read on.
bool Player::TakeSeek() {
    std::optional<std::uint64_t> picture;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        picture.swap(m_seek);
        m_originKnown = m_originKnown && !picture.has_value();
    }
    return !picture.has_value() || m_source.BeginAt(*picture);
}

// Metadata of the same time follows the picture, whose timestamp it carries.
Player::Wake Player::PlayPacket(MediaPacket& packet) {
    if (!PlayMetadataBefore(packet.timeMicroseconds)) {
        return Wake::Over;
    }
    const Wake wake = WaitUntilDue(packet.timeMicroseconds);
    if (wake != Wake::Due) {
        return wake;
    }
    return Judge(Send(packet)) && PlayMetadataBefore(packet.timeMicroseconds + 1) ? Wake::Due : Wake::Over;
}

bool Player::PlayMetadataBefore(std::int64_t endMicroseconds) {
    std::int64_t due = 0;
    while (const MetadataMessage* message = m_metadata.TakeBefore(endMicroseconds, due)) {
        if (WaitUntilDue(due) == Wake::Over) {
            return false;
        }
        const std::uint64_t pts = m_target.lens->getMidiaChannel(m_target.channelID)->m_ulVideoTimestamp;
        ++m_messages;
        if (!Judge(m_metadataSender.Send(*message, pts))) {
            return false;
        }
    }
    return true;
}

// False when the stream is over.
bool Player::Judge(int result) {
    if (result == ZVS_GVX_OPEN_SOCKET_ERROR) {
        GVX_LOG_INFO(kTitle, "Stream[%s] ends: its socket is gone.", m_target.serviceID.c_str());
        return false;
    }
    if (result != ZVS_SUCCEED) {
        ReportFailure(result);
    }
    return true;
}

Player::Wake Player::WaitUntilDue(std::int64_t mediaMicroseconds) {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stop && !m_seek.has_value()) {
        if (m_media->speed.unlimited) {
            return Wake::Due;
        }
        const auto offset = static_cast<std::int64_t>(static_cast<double>(mediaMicroseconds) / m_factor);
        if (!m_originKnown) {
            m_origin = Now() - offset;
            m_originKnown = true;
        }
        const std::int64_t left = m_origin + offset - Now();
        if (left < -kMaxLate) {
            m_origin -= left;
        }
        if (left <= 0 && !m_paused) {
            return Wake::Due;
        }
        m_wake.wait_for(lock, std::chrono::microseconds(m_paused ? kMaxSleep : std::min(left, kMaxSleep)));
    }
    return m_stop ? Wake::Over : Wake::Seek;
}

// Time stands still while the stream does.
std::int64_t Player::Now() const {
    return m_paused ? m_pausedAt : gvx::CurrentClock().MonotonicMicroseconds();
}

void Player::Pause(bool pause) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (pause != m_paused) {
        const std::int64_t now = gvx::CurrentClock().MonotonicMicroseconds();
        m_origin += pause ? 0 : now - m_pausedAt;
        m_pausedAt = now;
        m_paused = pause;
    }
    m_wake.notify_all();
}

void Player::SetSpeed(double factor) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_origin = Now() - static_cast<std::int64_t>(static_cast<double>(Now() - m_origin) * m_factor / factor);
    m_factor = factor;
    m_wake.notify_all();
}

void Player::SeekTo(std::uint64_t picture) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_seek = picture;
    m_wake.notify_all();
}

int Player::Send(MediaPacket& packet) {
    const std::int64_t now = gvx::CurrentClock().WallMicroseconds();
    MEDIA_DATA data{};
    data.pUserInfo = m_target.userInfo;
    data.nVideoSize = packet.video ? static_cast<std::uint32_t>(packet.length) : 0;
    data.nAudioSize = packet.video ? std::uint16_t{0} : static_cast<std::uint16_t>(packet.length);
    const gvx::SequenceInfo& sequence = m_source.Sequence();
    data.nWidth = static_cast<std::uint16_t>(sequence.width);
    data.nHeight = static_cast<std::uint16_t>(sequence.height);
    data.FrameType = packet.key ? FRAME_I : FRAME_BP;
    data.eVideoFormatType = VideoFormat(m_media->codec);
    data.eAudioFormatType = m_media->audioFormat;
    data.nUtcSecond = static_cast<std::time_t>(now / kMicroseconds);
    data.nUtcMillsec = static_cast<std::uint16_t>(now % kMicroseconds / 1000);
    data.nTimeTick = packet.ticks;
    m_pictures += packet.video ? 1 : 0;
    return m_target.lens->H264ToRtp(packet.data, static_cast<int>(packet.length), data, m_target.channelID,
                                    m_target.overTcp, m_target.needExternData, data.nUtcMillsec,
                                    static_cast<unsigned int>(data.nUtcSecond), false);
}

void Player::ReportFailure(int result) {
    ++m_failures;
    if (m_failures == 1) {
        GVX_LOG_ERR_CODE(kTitle, result, "Stream[%s] loses a frame or a message; further losses are not logged.",
                         m_target.serviceID.c_str());
    }
}

}  // namespace gvxfile
