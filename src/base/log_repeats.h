#pragma once

#include "base/om_adapter.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>

namespace gvx {

// Bounds what each place of the code writes in a minute, whatever figures its lines hold, so that a flood from one
// place leaves room for the others. What is held back is counted. Lines that are critical, and lines of debugging, are
// never held back. Nothing is allocated. Any thread.
class LogRepeats {
public:
    // limit: lines of one place a minute; 0 holds none back.
    explicit LogRepeats(std::size_t limit) : m_limit(limit) {}
    LogRepeats(const LogRepeats&) = delete;
    LogRepeats& operator=(const LogRepeats&) = delete;

    // How many lines of a place were held back, with what they had in common, as far as it has room.
    struct Held {
        std::uint64_t count = 0;
        int level = 0;
        char title[48] = {0};
        char file[48] = {0};
        int line = 0;
        char function[48] = {0};
    };
    using Tell = std::function<void(const Held&)>;

    // Whether a line is to be written. When the minute before has held some of its kind back, tell is called first.
    bool Take(int level, const char* title, const OMLogPlace& place, std::int64_t nowMs, const Tell& tell);
    // Tells of every place whose minute is over, or of all.
    void TellEnded(std::int64_t nowMs, bool all, const Tell& tell);

private:
    // A place has one of a few slots beside its hash. Where all of them are of places that have written within the
    // minute, the one that began first goes.
    static constexpr std::size_t kSlots = 1024;
    static constexpr std::size_t kProbes = 8;
    static constexpr std::int64_t kMinuteMs = 60000;

    struct Slot {
        const char* file = nullptr;  // of the place, for its address alone: a library may be gone meanwhile
        std::int64_t beganMs = -kMinuteMs;
        std::size_t written = 0;
        Held held;
    };

    Slot& FindLocked(const OMLogPlace& place);

    const std::size_t m_limit;
    std::mutex m_mutex;                  // Nothing is called while it is held.
    std::array<Slot, kSlots> m_slots{};  // Guarded by m_mutex.
};

}  // namespace gvx
