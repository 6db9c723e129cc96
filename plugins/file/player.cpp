#include "file/player.h"

#include "base/clock.h"
#include "base/log.h"
#include "gvx_common/alarm/gvx_error_mgr.h"

#include <exception>
#include <limits>
#include <new>
#include <system_error>
#include <utility>

namespace gvxfile {
namespace {

constexpr const char* kTitle = "file plug-in";
constexpr std::int64_t kMicroseconds = 1000000;
// A stream that is late by more than this goes on from now, instead of sending what it missed in one burst.
constexpr std::int64_t kMaxLate = kMicroseconds;
// Until somebody wakes it.
constexpr std::int64_t kMemoryPauseUs = 20000;
constexpr std::int64_t kNotBySelf = std::numeric_limits<std::int64_t>::max();

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
        const std::shared_ptr<PlayThreads> threads = PlayThreads::Get();
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_threads = threads;
        }
        threads->Add(*this, gvx::CurrentClock().MonotonicMicroseconds());
    } catch (const std::system_error& fault) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_threads.reset();
        error = std::string("A thread cannot be started: ") + fault.what() + ".";
        return false;
    }
    return true;
}

void Player::Stop() {
    std::shared_ptr<PlayThreads> threads;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        threads.swap(m_threads);
    }
    if (threads != nullptr) {
        threads->Remove(*this);
        TellEnd();
    }
}

void Player::TellEnd() {
    if (!std::exchange(m_endTold, true)) {
        GVX_LOG_INFO(kTitle, "Stream[%s] of medium[%s] has ended after %llu pictures and %llu metadata messages.",
                     m_target.serviceID.c_str(), m_media->name.c_str(), static_cast<unsigned long long>(m_pictures),
                     static_cast<unsigned long long>(m_messages));
    }
}

std::int64_t Player::Turn(PictureMemory& memory) noexcept {
    std::int64_t next = PlayThreads::kNoTurn;
    try {
        m_source.UseMemory(memory);
        next = Play();
    } catch (const std::bad_alloc&) {
        next = gvx::CurrentClock().MonotonicMicroseconds() + kMemoryPauseUs;
        GVX_LOG_ERR_CODE(kTitle, ZVS_ALLOC_MEMORY_ERROR, "Stream[%s] waits for memory.", m_target.serviceID.c_str());
    } catch (const std::exception& fault) {
        GVX_LOG_ERR(kTitle, "Stream[%s] ends: %s.", m_target.serviceID.c_str(), fault.what());
    } catch (...) {
        GVX_LOG_ERR(kTitle, "Stream[%s] ends: the send function threw.", m_target.serviceID.c_str());
    }
    if (!m_packetReady || m_packetSent) {
        m_source.GiveBackMemory(memory);
    }
    if (next == PlayThreads::kNoTurn) {
        TellEnd();
    }
    return next;
}

// One packet or message a turn, also when the stream is behind: of all streams of the thread goes on the one whose next
// is due first. A packet is read when it is due, so that streams that wait hold no picture. Metadata of the same time
// follows the picture, whose timestamp it carries. The end of a recording comes when its last picture has been seen.
std::int64_t Player::Play() {
    for (bool sent = false;;) {
        if (!TakeSeek()) {
            return PlayThreads::kNoTurn;
        }
        if (m_atEnd) {
            return kNotBySelf;
        }
        std::int64_t mediaTime = m_packet.timeMicroseconds;
        if (!m_packetReady && !m_ending) {
            const std::optional<std::int64_t> next = m_source.NextTime();
            if (!next.has_value() || m_source.NextPicture() >= m_target.pictures.end) {
                if (!ReadPacket()) {
                    return PlayThreads::kNoTurn;
                }
                continue;
            }
            mediaTime = *next;
        } else if (m_ending) {
            const gvx::Rational& rate = m_media->frameRate;
            mediaTime =
                static_cast<std::int64_t>(m_target.pictures.end) * kMicroseconds * rate.denominator / rate.numerator;
        }
        if (m_message == nullptr && !m_ending) {
            m_message = m_metadata.TakeBefore(mediaTime + (m_packetSent ? 1 : 0), m_messageTime);
        }
        const bool isMessage = m_message != nullptr && !m_ending;
        if (!isMessage && m_packetSent) {
            m_packetReady = false;
            m_packetSent = false;
            continue;
        }
        const std::int64_t due = TimeOf(isMessage ? m_messageTime : mediaTime);
        if (sent || due > gvx::CurrentClock().MonotonicMicroseconds()) {
            return due;
        }
        if (m_ending) {
            m_ending = false;
            m_atEnd = true;
            m_target.onEnd();
            continue;
        }
        if (!isMessage && !m_packetReady) {
            if (!ReadPacket()) {
                return PlayThreads::kNoTurn;
            }
            continue;
        }
        if (isMessage ? !SendMessage() : !Judge(Send(m_packet))) {
            return PlayThreads::kNoTurn;
        }
        m_packetSent = m_packetSent || !isMessage;
        sent = true;
    }
}

// Moves to the picture that was asked for, if any. False when the stream is over.
bool Player::TakeSeek() {
    std::optional<std::uint64_t> picture;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        picture.swap(m_seek);
        m_originKnown = m_originKnown && !picture.has_value();
    }
    if (!picture.has_value()) {
        return true;
    }
    m_packetReady = false;
    m_packetSent = false;
    m_ending = false;
    m_atEnd = false;
    if (m_message != nullptr && !SendMessage()) {
        return false;
    }
    return m_source.BeginAt(*picture) || EndUnread();
}

// A file could not be read on. Always false.
bool Player::EndUnread() const {
    GVX_LOG_ERR_CODE(kTitle, ZVS_OPEN_FILE_ERROR, "Stream[%s] ends: %s", m_target.serviceID.c_str(),
                     m_source.Error().c_str());
    ReportEnd();
    return false;
}

// On a thread of ours, so it is no answer that tells the platform.
void Player::ReportEnd() const {
    if (GVXErrorMgr* const reports = GVXErrorMgr::getInstance()) {
        reports->reportHstError("", __func__, m_target.device.c_str(), m_target.lens->GetSubDevID(),
                                ZVS_OPEN_FILE_ERROR, "playing the medium", "%s", m_source.Error().c_str());
    }
}

// The next packet, or the end of a recording. False when the stream is over.
bool Player::ReadPacket() {
    if (m_parameterSetsWanted.exchange(false, std::memory_order_relaxed)) {
        m_source.RequestParameterSets();
    }
    const gvx::ReadResult read = m_source.Next(m_packet);
    if (read == gvx::ReadResult::Failed) {
        return EndUnread();
    }
    const bool behind = m_packet.video && m_packet.picture >= m_target.pictures.end;
    m_packetReady = read == gvx::ReadResult::Ok && !behind;
    m_packetSent = false;
    m_ending = !m_packetReady;
    return m_packetReady || m_target.onEnd != nullptr;
}

bool Player::SendMessage() {
    // As the picture's packets carry it, which is modulo 2^32 (RFC 3550, 5.1).
    const auto pts = static_cast<std::uint32_t>(m_target.lens->getMidiaChannel(m_target.channelID)->m_ulVideoTimestamp);
    ++m_messages;
    return Judge(m_metadataSender.Send(*std::exchange(m_message, nullptr), pts));
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

// When that moment of the medium is due, by the monotonic clock.
std::int64_t Player::TimeOf(std::int64_t mediaMicroseconds) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_media->speed.unlimited) {
        return gvx::CurrentClock().MonotonicMicroseconds();
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
    return m_paused ? kNotBySelf : m_origin + offset;
}

void Player::WakeUp() {
    std::shared_ptr<PlayThreads> threads;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        threads = m_threads;
    }
    if (threads != nullptr) {
        threads->Wake(*this);
    }
}

// Time stands still while the stream does.
std::int64_t Player::Now() const {
    return m_paused ? m_pausedAt : gvx::CurrentClock().MonotonicMicroseconds();
}

void Player::Pause(bool pause) {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (pause != m_paused) {
            const std::int64_t now = gvx::CurrentClock().MonotonicMicroseconds();
            m_origin += pause ? 0 : now - m_pausedAt;
            m_pausedAt = now;
            m_paused = pause;
        }
    }
    WakeUp();
}

void Player::SetSpeed(double factor) {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_origin = Now() - static_cast<std::int64_t>(static_cast<double>(Now() - m_origin) * m_factor / factor);
        m_factor = factor;
    }
    WakeUp();
}

void Player::SeekTo(std::uint64_t picture) {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_seek = picture;
    }
    WakeUp();
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
