#pragma once

#include "gvx_common/codec/codec.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace gvxfile {

// Between seconds since 1970-01-01 00:00:00 UTC and "YYYYMMDDhhmmss". False for a text that is no time.
bool ParseUtcTime(const std::string& text, std::int64_t& seconds);
std::string UtcTimeText(std::int64_t seconds);

// Pictures of a recording, by their numbers from 0: the first one, and the one behind the last.
struct PictureRange {
    std::uint64_t first = 0;
    std::uint64_t end = 0;
};

// A clip as something that was recorded: from when to when, and where its pictures are. The clip is read through for it
// once, when it is first asked for. Any thread.
class Recording {
public:
    // recordedAt: when the clip began; 0 for the time of its file.
    Recording(std::string path, gvx::Codec codec, std::int64_t recordedAt)
        : m_path(std::move(path)), m_codec(codec), m_recordedAt(recordedAt) {}

    void SetFrameRate(const gvx::Rational& rate) { m_rate = rate; }

    // When it begins and ends, in seconds since 1970, the end rounded up, and how many bytes it has. False with one
    // sentence in error, when the clip cannot be read.
    bool Span(std::int64_t& begin, std::int64_t& end, std::uint64_t& bytes, std::string& error);
    // The pictures from one time to another: those whose time is not before the first and before the second, and ahead
    // of them what is needed to decode them. False with one sentence in error, also when there are none.
    bool Find(std::int64_t from, std::int64_t to, PictureRange& range, std::string& error);
    // The key picture from which the picture of that second of the recording can be decoded.
    std::uint64_t KeyOfSecond(std::uint32_t second) const;

private:
    bool Load(std::string& error);
    std::uint64_t KeyOfPicture(std::uint64_t picture) const;
    std::uint64_t PictureAt(std::int64_t seconds) const;

    const std::string m_path;
    const gvx::Codec m_codec;
    std::int64_t m_recordedAt;
    gvx::Rational m_rate{25, 1};
    mutable std::mutex m_mutex;         // Guards what follows, and m_recordedAt.
    std::vector<std::uint64_t> m_keys;  // numbers of the key pictures
    std::uint64_t m_pictures = 0;
    std::uint64_t m_bytes = 0;
    bool m_loaded = false;
};

}  // namespace gvxfile
