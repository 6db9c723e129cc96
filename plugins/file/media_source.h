#pragma once

#include "file/media_entry.h"
#include "file/tick_counter.h"
#include "gvx_common/codec/access_unit_reader.h"
#include "gvx_common/codec/input_file.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace gvxfile {

// What a source needs while it reads a picture and until the picture has been sent. Sources that take turns need it
// once: each is given what another has given back.
struct PictureMemory {
    std::vector<std::uint8_t> window;
    std::vector<std::uint8_t> picture;
};

// A picture or a piece of audio, in the source's memory: valid until the source's next call.
struct MediaPacket {
    bool video = false;
    bool key = false;
    std::uint64_t picture = 0;  // number of a picture in its pass, from 0
    std::uint8_t* data = nullptr;
    std::size_t length = 0;
    std::uint32_t ticks = 0;            // of its RTP clock since the one before of its kind
    std::int64_t timeMicroseconds = 0;  // since the start of the stream, in the medium's own time
};

// Reads the video and the audio of a medium in the order of their times, once or in a loop. The video leads: in a loop
// both begin anew when the video ends, so that they stay together; audio beyond the video's end is left out then, and
// shorter audio is followed by silence. One thread.
class MediaSource {
public:
    static constexpr std::size_t kAudioSamples = 160;  // 20 ms, RFC 3551 section 4.2

    // entry must outlive the source.
    explicit MediaSource(const MediaEntry& entry);

    // False when a file cannot be opened; error then is one sentence that names it.
    bool Open(bool withAudio, std::string& error);

    // Goes on with that picture, led by its parameter sets, and the audio of its time. RTP ticks go on as if nothing
    // had happened. False when a file could not be read on; behind the last picture Next tells the end.
    bool BeginAt(std::uint64_t picture);

    // Failed: a file could not be read on, and Error() tells why in a sentence.
    gvx::ReadResult Next(MediaPacket& packet);
    // The time of the next packet, which need not be read to be known; none when there may be no further one.
    std::optional<std::int64_t> NextTime() const;
    // The number of the next picture in its pass.
    std::uint64_t NextPicture() const { return m_picture; }
    const std::string& Error() const { return m_error; }

    // The next key picture is led by the parameter sets, when it does not bring them itself. No picture is skipped.
    void RequestParameterSets() { m_parameterSetsWanted = true; }

    const gvx::SequenceInfo& Sequence() const { return m_video.Sequence(); }

    void UseMemory(PictureMemory& memory);
    // The packet that was read last is no longer valid.
    void GiveBackMemory(PictureMemory& memory);

private:
    bool LoadPicture();
    bool AudioIsNext() const;
    bool IsBehindVideo() const { return m_videoEnded && !m_unitReady; }
    bool TakeAudio(MediaPacket& packet);
    void TakePicture(MediaPacket& packet);
    bool BeginPass();
    // An audio position in ticks of the video clock, times 4: both clocks in one whole unit (90000 / 8000 is 45 / 4).
    bool AudioBefore(std::int64_t videoTicks) const { return m_audioSamples * 45 < videoTicks * 4; }

    const MediaEntry& m_entry;
    gvx::AccessUnitReader m_video;
    gvx::AccessUnit m_unit;
    bool m_unitReady = false;
    bool m_videoEnded = false;  // behind m_unit, if that is ready
    bool m_passHasPicture = false;
    bool m_parameterSetsWanted = false;
    TickCounter m_ticks;
    std::int64_t m_videoTicks = 0;  // time of the next picture
    std::uint64_t m_picture = 0;    // its number in this pass

    gvx::InputFile m_audio;
    bool m_audioRunning = false;
    bool m_withAudio = false;
    std::uint8_t m_audioBytes[kAudioSamples] = {};
    std::int64_t m_audioSamples = 0;      // time of the next piece of audio
    std::int64_t m_lastAudioSamples = 0;  // and of the one before
    std::string m_error;
};

}  // namespace gvxfile
