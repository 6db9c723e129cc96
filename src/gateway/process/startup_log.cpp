#include "gateway/process/startup_log.h"

#include "base/log.h"

#include <cstdio>
#include <exception>

namespace gvx {

namespace {

std::string Formatted(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

std::string Formatted(const char* format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length <= 0) {
        return std::string();
    }
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    return text;
}

}  // namespace

void StartupLog::VLog(int level, const char* title, const OMLogPlace& place, const char* format, va_list args) {
    Keep(level, title, place, format, args);
}

void StartupLog::VDebug(const OMLogPlace& place, const char* format, va_list args) {
    Keep(OM_LOG_DEBUG, "", place, format, args);
}

void StartupLog::Keep(int level, const char* title, const OMLogPlace& place, const char* format, va_list args) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    try {
        if (m_lines.size() < kMaxLines) {
            m_lines.push_back({level, title == nullptr ? "" : title, place, Formatted(format, args)});
            return;
        }
    } catch (const std::exception&) {
        // No memory for the line: it counts as dropped, and the caller's work goes on.
    }
    ++m_dropped;
}

void StartupLog::HandOver(std::shared_ptr<IOMLogger> logger) {
    OMAdapter::getInstance()->setLogger(std::move(logger));
    std::vector<Line> lines;
    std::size_t dropped = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        lines.swap(m_lines);
        dropped = m_dropped;
    }
    for (const Line& line : lines) {
        if (!OMLogEnabled(line.level)) {
            continue;
        }
        if (line.level == OM_LOG_DEBUG && line.title.empty()) {
            OMWriteDebug(line.place, "%s", line.text.c_str());
        } else {
            OMWriteLog(line.level, line.title.c_str(), line.place, "%s", line.text.c_str());
        }
    }
    if (dropped != 0) {
        GVX_LOG_WARN("Start", "%zu log lines of the start are missing here.", dropped);
    }
}

}  // namespace gvx
