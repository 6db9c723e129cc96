#pragma once

#include "base/om_adapter.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace gvx {

// Holds the log lines of a start back until its outcome is known: a start that fails shows its one line on standard
// error and nothing else. Any thread. Lines beyond kMaxLines are counted and dropped.
class StartupLog : public IOMLogger {
public:
    static constexpr std::size_t kMaxLines = 2000;

    explicit StartupLog(int level) : m_level(level) {}

    bool IsEnabled(int level) const noexcept override { return level <= m_level; }
    void VLog(int level, const char* title, const OMLogPlace& place, const char* format, va_list args) override
        __attribute__((format(printf, 5, 0)));
    void VDebug(const OMLogPlace& place, const char* format, va_list args) override
        __attribute__((format(printf, 3, 0)));

    // Installs the logger in force from now on and writes the held lines to it.
    void HandOver(std::shared_ptr<IOMLogger> logger);

private:
    struct Line {
        int level;
        std::string title;
        OMLogPlace place;
        std::string text;
    };

    void Keep(int level, const char* title, const OMLogPlace& place, const char* format, va_list args)
        __attribute__((format(printf, 5, 0)));

    const int m_level;
    std::mutex m_mutex;
    std::vector<Line> m_lines;  // Guarded by m_mutex.
    std::size_t m_dropped = 0;  // Guarded by m_mutex.
};

}  // namespace gvx
