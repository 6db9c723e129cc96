#include "base/log_repeats.h"

#include <cstdio>
#include <cstring>
#include <functional>

namespace gvx {

namespace {

const char* BaseName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

template <std::size_t size>
void Keep(char (&room)[size], const char* text) {
    std::snprintf(room, size, "%s", text == nullptr ? "" : text);
}

}  // namespace

LogRepeats::Slot& LogRepeats::FindLocked(const OMLogPlace& place) {
    const std::size_t hash = std::hash<const void*>()(place.file) * 31 + static_cast<std::size_t>(place.line);
    Slot* oldest = &m_slots[hash % kSlots];
    for (std::size_t probe = 0; probe < kProbes; ++probe) {
        Slot& slot = m_slots[(hash + probe) % kSlots];
        if (slot.file == place.file && slot.held.line == place.line) {
            return slot;
        }
        if (slot.beganMs < oldest->beganMs) {
            oldest = &slot;
        }
    }
    return *oldest;
}

bool LogRepeats::Take(int level, const char* title, const OMLogPlace& place, std::int64_t nowMs, const Tell& tell) {
    if (m_limit == 0 || level <= OM_LOG_CRIT || level >= OM_LOG_DEBUG) {
        return true;
    }
    Held ended;
    bool write = true;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        Slot& slot = FindLocked(place);
        const bool same = slot.file == place.file && slot.held.line == place.line;
        if (!same || nowMs - slot.beganMs >= kMinuteMs) {
            ended = slot.held;
            slot = Slot{place.file, nowMs, 0, {}};
            slot.held.line = place.line;
        }
        write = slot.written < m_limit;
        if (write) {
            ++slot.written;
        } else if (slot.held.count++ == 0) {
            slot.held.level = level;
            Keep(slot.held.title, title);
            Keep(slot.held.file, BaseName(place.file));
            Keep(slot.held.function, place.function);
        }
    }
    if (ended.count != 0) {
        tell(ended);
    }
    return write;
}

void LogRepeats::TellEnded(std::int64_t nowMs, bool all, const Tell& tell) {
    for (std::size_t at = 0; m_limit != 0 && at < kSlots; ++at) {
        Held ended;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            Slot& slot = m_slots[at];
            if (slot.held.count == 0 || (!all && nowMs - slot.beganMs < kMinuteMs)) {
                continue;
            }
            ended = slot.held;
            slot.held.count = 0;
            slot.written = 0;
            slot.beganMs = nowMs;
        }
        tell(ended);
    }
}

}  // namespace gvx
