#pragma once

#include "file/metadata_script.h"

#include <cstdint>
#include <functional>
#include <queue>
#include <utility>
#include <vector>

namespace gvxfile {

// Which message of a script is due next: by time, and for one time by the order of the script. One thread.
class MetadataSchedule {
public:
    // script must outlive the schedule; null for none.
    explicit MetadataSchedule(const MetadataScript* script) : m_script(script) {
        for (std::size_t index = 0; script != nullptr && index < script->messages.size(); ++index) {
            m_waiting.push({script->messages[index].timeMicroseconds, index});
        }
    }

    // The first message that is due before the end, which then waits for its repetition; null when there is none.
    const MetadataMessage* TakeBefore(std::int64_t endMicroseconds, std::int64_t& dueMicroseconds) {
        if (m_waiting.empty() || m_waiting.top().first >= endMicroseconds) {
            return nullptr;
        }
        const Entry entry = m_waiting.top();
        m_waiting.pop();
        const MetadataMessage& message = m_script->messages[entry.second];
        if (message.repeatMicroseconds > 0) {
            m_waiting.push({entry.first + message.repeatMicroseconds, entry.second});
        }
        dueMicroseconds = entry.first;
        return &message;
    }

private:
    using Entry = std::pair<std::int64_t, std::size_t>;  // time, place in the script

    const MetadataScript* m_script;
    std::priority_queue<Entry, std::vector<Entry>, std::greater<>> m_waiting;
};

}  // namespace gvxfile
