#include "file/media_source.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace gvxfile {

namespace {

constexpr std::int64_t kMicrosecondsPerSample = 125;
constexpr std::size_t kMostKept = 1u << 20;  // for the next picture, which is seldom as long as the longest

}  // namespace

MediaSource::MediaSource(const MediaEntry& entry) : m_entry(entry), m_video(entry.codec), m_ticks(entry.frameRate) {}

bool MediaSource::Open(bool withAudio, std::string& error) {
    std::string reason;
    if (!m_video.Open(m_entry.videoPath, reason)) {
        error = m_entry.videoPath + " cannot be opened: " + reason + ".";
        return false;
    }
    m_withAudio = withAudio && m_entry.HasAudio();
    if (m_withAudio && !m_audio.Open(m_entry.audioPath, reason)) {
        error = m_entry.audioPath + " cannot be opened: " + reason + ".";
        return false;
    }
    m_audioRunning = m_withAudio;
    // Both clocks count from the first picture's end, so that they start together.
    m_lastAudioSamples = -static_cast<std::int64_t>(TickCounter(m_entry.frameRate).Next()) * 4 / 45;
    return true;
}

bool MediaSource::LoadPicture() {
    const gvx::ReadResult result = m_video.Next(m_unit);
    if (result == gvx::ReadResult::Failed) {
        m_error = m_entry.videoPath + " cannot be read: " + m_video.Error() + ".";
        return false;
    }
    m_videoEnded = m_video.IsAtEnd();
    m_unitReady = result == gvx::ReadResult::Ok;
    m_passHasPicture = m_passHasPicture || m_unitReady;
    return true;
}

bool MediaSource::AudioIsNext() const {
    if (!m_audioRunning) {
        return false;
    }
    return (IsBehindVideo() && !m_entry.loop) || AudioBefore(m_videoTicks);
}

std::optional<std::int64_t> MediaSource::NextTime() const {
    if (AudioIsNext()) {
        return m_audioSamples * kMicrosecondsPerSample;
    }
    return IsBehindVideo() && !m_entry.loop ? std::nullopt : std::optional(m_videoTicks * 100 / 9);
}

void MediaSource::UseMemory(PictureMemory& memory) {
    m_video.UseMemory(memory.window);
    if (m_unit.bytes.capacity() == 0) {
        m_unit.bytes.swap(memory.picture);
    }
}

void MediaSource::GiveBackMemory(PictureMemory& memory) {
    m_video.GiveBackMemory(memory.window);
    if (!m_unitReady) {  // else it was read, and could not be given out for want of memory
        if (memory.picture.capacity() < m_unit.bytes.capacity()) {
            memory.picture.swap(m_unit.bytes);
        }
        m_unit.bytes = std::vector<std::uint8_t>();
    }
    for (std::vector<std::uint8_t>* const kept : {&memory.window, &memory.picture}) {
        if (kept->capacity() > kMostKept) {
            *kept = std::vector<std::uint8_t>();
        }
    }
}

bool MediaSource::TakeAudio(MediaPacket& packet) {
    std::size_t wanted = kAudioSamples;
    if (IsBehindVideo() && m_entry.loop) {
        const std::int64_t left = m_videoTicks * 4 / 45 - m_audioSamples;
        wanted = static_cast<std::size_t>(std::clamp<std::int64_t>(left, 1, kAudioSamples));
    }
    const ssize_t count = m_audio.Read(m_audioBytes, wanted);
    if (count < 0) {
        m_error = m_entry.audioPath + " cannot be read: " + std::generic_category().message(errno) + ".";
        return false;
    }
    m_audioRunning = count > 0;
    packet = MediaPacket{};
    packet.data = m_audioBytes;
    packet.length = static_cast<std::size_t>(count);
    packet.ticks = static_cast<std::uint32_t>(m_audioSamples - m_lastAudioSamples);
    packet.timeMicroseconds = m_audioSamples * kMicrosecondsPerSample;
    if (count > 0) {
        m_lastAudioSamples = m_audioSamples;
        m_audioSamples += count;
    }
    return true;
}

void MediaSource::TakePicture(MediaPacket& packet) {
    if (m_parameterSetsWanted && m_unit.key) {
        if (!m_unit.hasParameterSets) {
            m_video.InsertParameterSets(m_unit);
        }
        m_parameterSetsWanted = false;  // last: without memory for them the next call tries again
    }
    packet.video = true;
    packet.key = m_unit.key;
    packet.picture = m_picture++;
    packet.data = m_unit.bytes.data();
    packet.length = m_unit.bytes.size();
    packet.ticks = m_ticks.Next();
    packet.timeMicroseconds = m_videoTicks * 100 / 9;
    m_videoTicks += packet.ticks;
    m_unitReady = false;
}

bool MediaSource::BeginPass() {
    if (!m_passHasPicture) {
        m_error = m_entry.videoPath + " holds no picture any more.";
        return false;
    }
    m_passHasPicture = false;
    m_picture = 0;
    m_videoEnded = false;
    m_video.Rewind();
    m_audio.Rewind();
    m_audioRunning = m_withAudio;
    m_audioSamples = std::max(m_lastAudioSamples + 1, m_videoTicks * 4 / 45);
    return true;
}

bool MediaSource::BeginAt(std::uint64_t picture) {
    m_video.Rewind();
    m_unitReady = false;
    m_videoEnded = false;
    for (m_picture = 0; m_picture < picture && !m_videoEnded; ++m_picture) {
        if (!LoadPicture()) {
            return false;
        }
    }
    m_unitReady = false;
    m_videoTicks = static_cast<std::int64_t>(picture * kVideoClockHz * m_entry.frameRate.denominator /
                                             m_entry.frameRate.numerator);
    m_audioSamples = m_videoTicks * 4 / 45;
    m_lastAudioSamples = m_audioSamples - static_cast<std::int64_t>(kAudioSamples);
    m_audio.MoveTo(static_cast<std::uint64_t>(m_audioSamples));
    m_audioRunning = m_withAudio;
    m_parameterSetsWanted = true;
    return true;
}

gvx::ReadResult MediaSource::Next(MediaPacket& packet) {
    for (;;) {
        if (AudioIsNext()) {
            if (!TakeAudio(packet)) {
                return gvx::ReadResult::Failed;
            }
            if (packet.length > 0) {
                return gvx::ReadResult::Ok;
            }
        } else if (m_unitReady) {
            TakePicture(packet);
            return gvx::ReadResult::Ok;
        } else if (!m_videoEnded) {
            if (!LoadPicture()) {
                return gvx::ReadResult::Failed;
            }
        } else if (!m_entry.loop) {
            return gvx::ReadResult::End;
        } else if (!BeginPass()) {
            return gvx::ReadResult::Failed;
        }
    }
}

}  // namespace gvxfile
