#include "support/recording_logger.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

std::string FormatText(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

std::string FormatText(const char* format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

std::string BaseName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

bool Matches(const RecordingLogger::Line& line, const std::string& text, const std::string& title) {
    return line.text.find(text) != std::string::npos && (title.empty() || line.title == title);
}

}  // namespace

void RecordingLogger::Keep(int level, const char* title, const OMLogPlace& place, const char* format, va_list args) {
    Line line{level, title, FormatText(format, args), BaseName(place.file), place.line, place.function};
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(std::move(line));
    m_written.notify_all();
}

void RecordingLogger::VLog(int level, const char* title, const OMLogPlace& place, const char* format, va_list args) {
    if (IsEnabled(level)) {
        Keep(level, title == nullptr ? "" : title, place, format, args);
    }
}

void RecordingLogger::VDebug(const OMLogPlace& place, const char* format, va_list args) {
    if (IsEnabled(OM_LOG_DEBUG)) {
        Keep(OM_LOG_DEBUG, "", place, format, args);
    }
}

std::vector<RecordingLogger::Line> RecordingLogger::Lines() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::vector<RecordingLogger::Line> RecordingLogger::Find(const std::string& text, const std::string& title) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Line> found;
    std::copy_if(m_lines.begin(), m_lines.end(), std::back_inserter(found),
                 [&](const Line& line) { return Matches(line, text, title); });
    return found;
}

std::size_t RecordingLogger::Count(const std::string& text, const std::string& title) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<std::size_t>(
        std::count_if(m_lines.begin(), m_lines.end(), [&](const Line& line) { return Matches(line, text, title); }));
}

std::size_t RecordingLogger::CountLevel(int level) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<std::size_t>(
        std::count_if(m_lines.begin(), m_lines.end(), [&](const Line& line) { return line.level == level; }));
}

bool RecordingLogger::ContainsLocked(const std::string& text, const std::string& title) const {
    return std::any_of(m_lines.begin(), m_lines.end(), [&](const Line& line) { return Matches(line, text, title); });
}

bool RecordingLogger::Contains(const std::string& text, const std::string& title) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return ContainsLocked(text, title);
}

bool RecordingLogger::WaitFor(const std::string& text, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_written.wait_for(lock, limit, [&] { return ContainsLocked(text, std::string()); });
}

void RecordingLogger::Clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

std::string RecordingLogger::Dump() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::string all;
    for (const Line& line : m_lines) {
        all += std::string(OMLogLevelName(line.level)) + " [" + line.title + "] " + line.text + "\n";
    }
    return all;
}

ScopedRecordingLogger::ScopedRecordingLogger(int level)
    : m_recorder(std::make_shared<RecordingLogger>(level)), m_former(OMAdapter::getInstance()->getSharedLogger()) {
    OMAdapter::getInstance()->setLogger(m_recorder);
}

ScopedRecordingLogger::~ScopedRecordingLogger() {
    OMAdapter::getInstance()->setLogger(m_former);
}
