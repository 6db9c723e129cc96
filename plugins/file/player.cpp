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
      m_metadataSender(*m_target.lens, m_target.overTcp, m_target.userInfo) {}

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
    m_origin = gvx::CurrentClock().MonotonicMicroseconds();
    MediaPacket packet;
    for (;;) {
        if (m_parameterSetsWanted.exchange(false, std::memory_order_relaxed)) {
            m_source.RequestParameterSets();
        }
        const gvx::ReadResult read = m_source.Next(packet);
        if (read == gvx::ReadResult::Failed) {
            GVX_LOG_ERR_CODE(kTitle, ZVS_OPEN_FILE_ERROR, "Stream[%s] ends: %s", m_target.serviceID.c_str(),
                             m_source.Error().c_str());
            ReportEnd();
            return;
        }
        if (read == gvx::ReadResult::End || !PlayPacket(packet)) {
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

// Metadata of the same time follows the picture, whose timestamp it carries.
bool Player::PlayPacket(MediaPacket& packet) {
    return PlayMetadataBefore(packet.timeMicroseconds) && WaitUntilDue(packet.timeMicroseconds) &&
           Judge(Send(packet)) && PlayMetadataBefore(packet.timeMicroseconds + 1);
}

bool Player::PlayMetadataBefore(std::int64_t endMicroseconds) {
    std::int64_t due = 0;
    while (const MetadataMessage* message = m_metadata.TakeBefore(endMicroseconds, due)) {
        if (!WaitUntilDue(due)) {
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

bool Player::WaitUntilDue(std::int64_t mediaMicroseconds) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_media->speed.unlimited) {
        return !m_stop;
    }
    const auto offset = static_cast<std::int64_t>(static_cast<double>(mediaMicroseconds) / m_media->speed.factor);
    while (!m_stop) {
        const std::int64_t left = m_origin + offset - gvx::CurrentClock().MonotonicMicroseconds();
        if (left < -kMaxLate) {
            m_origin -= left;
        }
        if (left <= 0) {
            return true;
        }
        m_wake.wait_for(lock, std::chrono::microseconds(std::min(left, kMaxSleep)));
    }
    return false;
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
