#include "gvxctl/log_tail.h"

#include "base/clock.h"
#include "gvxctl/frame_pattern.h"
#include "gvxctl/terminal.h"

#include <fstream>

namespace gvxctl {

LogTail::LogTail(std::string path) : m_path(std::move(path)) {
    std::ifstream file(m_path, std::ios::binary | std::ios::ate);
    m_begin = file ? static_cast<long long>(file.tellg()) : 0;
}

bool LogTail::Look(const std::string& pattern) {
    std::ifstream file(m_path, std::ios::binary);
    file.seekg(m_begin);
    std::string line;
    for (long long place = m_begin; std::getline(file, line) && !file.eof(); place = file.tellg()) {
        if (m_found.count(place) == 0 && MatchesText("*" + pattern + "*", line)) {
            m_found.insert(place);
            return true;
        }
    }
    return false;
}

bool LogTail::Find(const std::string& pattern, int withinMs) {
    constexpr int kStepMs = 50;
    for (const std::int64_t end = gvx::MonotonicMilliseconds() + withinMs;;) {
        if (Look(pattern)) {
            return true;
        }
        if (gvx::MonotonicMilliseconds() >= end || !SleepUnlessInterrupted(kStepMs)) {
            return false;
        }
    }
}

}  // namespace gvxctl
