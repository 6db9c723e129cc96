#include "file/line_assembler.h"

#include "base/clock.h"
#include "base/log.h"

#include <cstring>
#include <utility>

namespace gvxfile {
namespace {

constexpr const char* kTitle = "file plug-in";

}  // namespace

void LineAssembler::Add(const std::string& connection, const char* data, std::size_t length, const TakeLine& take) {
    const std::int64_t nowMs = gvx::MonotonicMilliseconds();
    Rest rest;
    if (const auto found = m_rests.find(connection); found != m_rests.end()) {
        if (nowMs - found->second.sinceMs <= kMaxSilenceMs) {
            rest = std::move(found->second);
        }
        m_rests.erase(found);
    }
    const char* const end = data + length;
    while (const void* feed = std::memchr(data, '\n', static_cast<std::size_t>(end - data))) {
        const char* const lineEnd = static_cast<const char*>(feed);
        Append(rest, connection, data, static_cast<std::size_t>(lineEnd - data));
        Finish(rest, take);
        data = lineEnd + 1;
    }
    Append(rest, connection, data, static_cast<std::size_t>(end - data));
    if ((!rest.text.empty() || rest.tooLong) && MakeRoom(connection, nowMs)) {
        rest.sinceMs = nowMs;
        m_rests.emplace(connection, std::move(rest));
    }
}

void LineAssembler::Append(Rest& rest, const std::string& connection, const char* data, std::size_t length) {
    if (!rest.tooLong && rest.text.size() + length > kMaxLine) {
        GVX_LOG_WARN(kTitle, "An alarm from %s is dropped: it is longer than %zu bytes.", connection.c_str(), kMaxLine);
        rest.tooLong = true;
        rest.text.clear();
    }
    if (!rest.tooLong) {
        rest.text.append(data, length);
    }
}

void LineAssembler::Finish(Rest& rest, const TakeLine& take) {
    const Rest line = std::exchange(rest, Rest());
    std::string text = line.text;
    if (!text.empty() && text.back() == '\r') {
        text.pop_back();
    }
    if (!line.tooLong && !text.empty()) {
        take(text);
    }
}

bool LineAssembler::MakeRoom(const std::string& connection, std::int64_t nowMs) {
    if (m_rests.size() < kMaxConnections) {
        return true;
    }
    for (auto entry = m_rests.begin(); entry != m_rests.end();) {
        entry = nowMs - entry->second.sinceMs > kMaxSilenceMs ? m_rests.erase(entry) : std::next(entry);
    }
    if (m_rests.size() < kMaxConnections) {
        return true;
    }
    GVX_LOG_WARN(kTitle, "A part of an alarm from %s is dropped: too many connections have sent but a part.",
                 connection.c_str());
    return false;
}

}  // namespace gvxfile
