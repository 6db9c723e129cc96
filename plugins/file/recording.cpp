#include "file/recording.h"

#include "gvx_common/codec/access_unit_reader.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include <sys/stat.h>

namespace gvxfile {

bool ParseUtcTime(const std::string& text, std::int64_t& seconds) {
    constexpr std::size_t kLength = 14;
    std::tm utc{};
    if (text.size() != kLength || text.find_first_not_of("0123456789") != std::string::npos ||
        std::sscanf(text.c_str(), "%4d%2d%2d%2d%2d%2d", &utc.tm_year, &utc.tm_mon, &utc.tm_mday, &utc.tm_hour,
                    &utc.tm_min, &utc.tm_sec) != 6) {
        return false;
    }
    utc.tm_year -= 1900;
    utc.tm_mon -= 1;
    seconds = timegm(&utc);
    return UtcTimeText(seconds) == text;
}

std::string UtcTimeText(std::int64_t seconds) {
    const std::time_t time = seconds;
    std::tm utc{};
    char text[32] = {};
    gmtime_r(&time, &utc);
    std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &utc);
    return text;
}

bool Recording::Load(std::string& error) {
    if (m_loaded) {
        return true;
    }
    struct stat status {};
    std::string reason;
    gvx::AccessUnitReader reader(m_codec);
    if (!reader.Open(m_path, reason) || stat(m_path.c_str(), &status) != 0) {
        error = m_path + " cannot be opened: " + reason + ".";
        return false;
    }
    gvx::AccessUnit unit;
    gvx::ReadResult result = gvx::ReadResult::Ok;
    m_keys.clear();
    for (m_pictures = 0; (result = reader.Next(unit)) == gvx::ReadResult::Ok; ++m_pictures) {
        if (unit.key) {
            m_keys.push_back(m_pictures);
        }
    }
    if (result == gvx::ReadResult::Failed) {
        error = m_path + " cannot be read: " + reader.Error() + ".";
        return false;
    }
    m_recordedAt = m_recordedAt != 0 ? m_recordedAt : status.st_mtime;
    m_bytes = static_cast<std::uint64_t>(status.st_size);
    m_loaded = true;
    return true;
}

bool Recording::Span(std::int64_t& begin, std::int64_t& end, std::uint64_t& bytes, std::string& error) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!Load(error)) {
        return false;
    }
    begin = m_recordedAt;
    end =
        begin + static_cast<std::int64_t>((m_pictures * m_rate.denominator + m_rate.numerator - 1) / m_rate.numerator);
    bytes = m_bytes;
    return true;
}

// The first picture whose time is not before that second.
std::uint64_t Recording::PictureAt(std::int64_t seconds) const {
    const auto second = static_cast<std::uint64_t>(std::max<std::int64_t>(seconds, 0));
    return std::min((second * m_rate.numerator + m_rate.denominator - 1) / m_rate.denominator, m_pictures);
}

std::uint64_t Recording::KeyOfPicture(std::uint64_t picture) const {
    const auto behind = std::upper_bound(m_keys.begin(), m_keys.end(), picture);
    return behind == m_keys.begin() ? 0 : *std::prev(behind);
}

bool Recording::Find(std::int64_t from, std::int64_t to, PictureRange& range, std::string& error) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!Load(error)) {
        return false;
    }
    range.first = PictureAt(from - m_recordedAt);
    range.end = PictureAt(to - m_recordedAt);
    if (range.first >= range.end) {
        error = "Nothing was recorded from " + UtcTimeText(from) + " to " + UtcTimeText(to) + ".";
        return false;
    }
    range.first = KeyOfPicture(range.first);
    return true;
}

std::uint64_t Recording::KeyOfSecond(std::uint32_t second) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return KeyOfPicture(PictureAt(second));
}

}  // namespace gvxfile
